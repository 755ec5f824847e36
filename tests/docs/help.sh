# shellcheck shell=bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Sourced: the programs' own statements about their options, read from --help.

# options_in_help PROGRAM [SUBCOMMAND]   one per line, sorted, short and long forms alike
options_in_help() {
  "$@" --help | sed -n '/^Options:/,/^$/s/^  \(-[^ ]*\).*/\1/p' | tr , '\n' | sort
}

# subcommands_in_help PROGRAM
subcommands_in_help() {
  "$1" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p' | sort
}
