#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# languages_test.sh SOURCE COMMAND   The example programs in docs/embedding.md that are not C++, extracted from it, print
# the path of a small thumbnail of each photo, or why there is none.
set -uo pipefail
source=$1 command=$2
for needed in python3 node php go; do
  command -v "$needed" >/dev/null || { echo "SKIPPED: $needed is not installed"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
export HOME=$work GOFLAGS=-mod=mod GO111MODULE=off PATH=${command%/*}:$PATH

awk '/^```(python|js|php|go)$/ { getline; match($0, /ask\.[a-z]+/); name = substr($0, RSTART, RLENGTH) }
     /^```$/ { name = "" } name { print > name }' "$source/docs/embedding.md"
[ "$(echo ask.*)" = "ask.go ask.mjs ask.php ask.py" ] || { echo "FAILED: other programs: $(echo ask.*)"; exit 1; }

mkdir photos
/usr/bin/convert -size 800x600 gradient:red-blue photos/a.png
/usr/bin/convert -size 800x600 gradient:red-blue "photos/b \"b\" é.png"
expected="$work/photos/.tavi_ea/a.png/TAVIFILE_THUMB_S.png
it does not exist
$work/photos/.tavi_ea/b \"b\" é.png/TAVIFILE_THUMB_S.png"
failures=0
for run in "python3 ask.py" "node ask.mjs" "php ask.php" "go run ask.go"; do
  rm -rf photos/.tavi_ea
  # shellcheck disable=SC2086  # words
  printed=$(timeout 120 $run photos/a.png photos/gone.png "photos/b \"b\" é.png" 2>errors)
  [ "$printed" = "$expected" ] && [ "$(cat errors)" = "tavithumb: photos/gone.png: it does not exist; check its name" ] &&
    continue
  echo "FAILED: '$run' prints '$printed', not '$expected': $(cat errors)"
  failures=$((failures + 1))
done
[ "$failures" -eq 0 ]
