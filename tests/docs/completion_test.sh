#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# completion_test.sh SOURCE COMMAND WEB   bash, zsh and fish offer the subcommands and options listed by --help, and no
# others.
set -uo pipefail
source=$1 command=$2 web=$3
tests=$(dirname "$(readlink -f "$0")")
# shellcheck source=help.sh
. "$tests/help.sh"
completion=$source/packaging/completion
for needed in zsh fish; do
  command -v "$needed" >/dev/null || { echo "SKIPPED: $needed is not installed"; exit 77; }
done
[ -f /usr/share/bash-completion/bash_completion ] || { echo "SKIPPED: bash-completion is not installed"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
export HOME=$work
failures=0

# What a shell offers at the end of a line, one per line.
offers_of_bash() {
  # shellcheck disable=SC2016  # for the inner shell
  bash --norc -c '
    . /usr/share/bash-completion/bash_completion
    . "$1/${2%% *}.bash"
    COMP_LINE=$2 COMP_POINT=${#2}
    read -r -a COMP_WORDS <<<"$2"
    [[ $2 != *" " ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    "$(complete -p "${2%% *}" | sed "s/.* -F \([^ ]*\) .*/\1/")" "${2%% *}" "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"
    printf "%s\n" "${COMPREPLY[@]}"' bash "$completion" "$1"
}
offers_of_zsh() { timeout 60 zsh -f "$tests/zsh_offers.zsh" "$completion" "$1"; }
offers_of_fish() {
  # shellcheck disable=SC2016  # for the inner shell
  fish --no-config -c 'source $argv[1]; complete -C $argv[2]' "$completion/${1%% *}.fish" "$1" | cut -f 1
}

compare() { # compare SHELL LINE EXPECTED OFFERED
  local difference
  difference=$(diff <(sort <<<"$3") <(sort <<<"$4")) && return
  echo "FAILED: $1, '$2' (< only in --help, > only offered):"
  echo "$difference"
  failures=$((failures + 1))
}

subcommands=$(subcommands_in_help "$command")
[ -n "$subcommands" ] || { echo "FAILED: --help tells no subcommands"; exit 1; }
for shell in bash zsh fish; do
  # Options of a subcommand that the program does not have can't be compared.
  compare "$shell" "tavithumb " "$subcommands" "$("offers_of_$shell" "tavithumb " | grep -v '^-')"
  compare "$shell" "tavithumb -" "$(options_in_help "$command")" "$("offers_of_$shell" "tavithumb -")"
  for subcommand in $subcommands; do
    compare "$shell" "tavithumb $subcommand -" "$(options_in_help "$command" "$subcommand")" \
      "$("offers_of_$shell" "tavithumb $subcommand -")"
  done
  compare "$shell" "tavithumb-web -" "$(options_in_help "$web")" "$("offers_of_$shell" "tavithumb-web -")"

  # Also values and file names.
  compare "$shell" "tavithumb get --size " $'big\nlarge\nmedium\noriginal\nsmall\nxlarge' \
    "$("offers_of_$shell" "tavithumb get --size ")"
  touch "$work/a photo.jpg"
  "offers_of_$shell" "tavithumb get a" | grep '^a.*photo.jpg' >/dev/null || {
    echo "FAILED: $shell offers no file"
    failures=$((failures + 1))
  }
done
[ "$failures" -eq 0 ]
