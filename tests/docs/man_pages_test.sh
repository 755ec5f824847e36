#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# man_pages_test.sh SOURCE COMMAND WEB   The man pages are built and formatted without a warning, and document the
# options listed by --help, and no others.
set -uo pipefail
source=$1 command=$2 web=$3
# shellcheck source=help.sh
. "$(dirname "$(readlink -f "$0")")/help.sh"
for needed in scdoc man groff mandoc; do
  command -v "$needed" >/dev/null || { echo "SKIPPED: $needed is not installed"; exit 77; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAILED: $1"
  failures=$((failures + 1))
}

for page in "$source"/docs/man/*.scd; do
  name=$(basename "$page" .scd)
  {
    scdoc <"$page" >"$work/$name"
    LC_ALL=C.UTF-8 MANWIDTH=120 man -l --warnings=w -E UTF-8 "$work/$name" >"$work/$name.txt"
    groff -ww -t -man -Tutf8 "$work/$name" >"$work/$name.groff"
    # mandoc may complain only about the empty paragraphs that scdoc writes.
    mandoc -T lint -W warning "$work/$name" | grep -v 'skipping paragraph macro: PP \(empty\|after S[HS]\)$'
  } >"$work/complaints" 2>&1
  [ ! -s "$work/complaints" ] || fail "$name: $(cat "$work/complaints")"
  head -n 1 "$work/$name.txt" | grep -q "^${name%.*}(${name##*.}) " || fail "$name bears another name"
done

# options_in_page PAGE HEADING   the options below the heading, one per line
options_in_page() {
  awk -v heading="$2" '/^#/ { on = index($0 " ", heading " ") == 1; next } on && /^\*-/' "$source/docs/man/$1" |
    grep -o '\*-[^*]*\*' | tr -d '*' | sort
}

compare() { # compare WHAT HELP PAGE
  local difference
  difference=$(diff <(echo "$2") <(echo "$3")) && return
  fail "$1 (< only in --help, > only in the man page):"
  echo "$difference"
}

compare "tavithumb" "$(options_in_help "$command")" "$(options_in_page tavithumb.1.scd "# OPTIONS")"
compare "tavithumb-web" "$(options_in_help "$web")" "$(options_in_page tavithumb-web.8.scd "# OPTIONS")"
compare "subcommands" "$(subcommands_in_help "$command")" \
  "$(sed -n 's/^## tavithumb \([a-z]*\) .*/\1/p' "$source/docs/man/tavithumb.1.scd" | sort)"
for subcommand in $(subcommands_in_help "$command"); do
  # --help itself is documented once.
  compare "tavithumb $subcommand" "$(options_in_help "$command" "$subcommand" | grep -vx -e -h -e --help)" \
    "$(options_in_page tavithumb.1.scd "## tavithumb $subcommand")"
done
[ "$failures" -eq 0 ]
