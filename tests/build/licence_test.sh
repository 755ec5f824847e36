#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# licence_test.sh SOURCE   Each file that can carry a comment names the licence in its first lines, and LICENSE has its
# text.
set -uo pipefail
cd "$1" || exit 1
git rev-parse --git-dir >/dev/null 2>&1 || { echo "SKIPPED: not a checkout of git"; exit 77; }

# Files that can't: texts for people, pictures, JSON, lists of names, fuzzers' input, and generated files.
# debian/copyright covers debian/.
silent='^(LICENSE|.*\.md|.*\.png|.*\.json|.*\.abi|debian/.*|tests/fuzz/corpus/.*|tests/packaging/files\.txt)$'
failures=0
while IFS= read -r -d '' file; do
  [[ $file =~ $silent || ! -f $file ]] && continue
  grep -aq 'SPDX-License-Identifier: GPL-3\.0-or-later' <(head -n 5 "$file") && continue
  echo "FAILED: $file names no licence"
  failures=$((failures + 1))
done < <(git ls-files -z)

head -n 2 LICENSE | grep -q 'GNU GENERAL PUBLIC LICENSE' && sed -n 2p LICENSE | grep -q 'Version 3, 29 June 2007' ||
  { echo "FAILED: LICENSE is another text"; failures=$((failures + 1)); }
for licence in 'GPL-2.0-or-later' 'LGPL-3.0-or-later'; do
  grep -q "$licence" README.md || { echo "FAILED: README.md does not say why: $licence"; failures=$((failures + 1)); }
done
[ "$failures" -eq 0 ]
