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
unnamed=$(comm -z -23 <(git ls-files -z | sort -z) <(git ls-files -dz | sort -z) | grep -zvE "$silent" | sed -z 's#^#./#' |
  xargs -0 awk '
    FNR > 5 { nextfile }
    /SPDX-License-Identifier: GPL-3\.0-or-later/ { named[FILENAME] = 1; nextfile }
    END { for (i = 1; i < ARGC; i++) if (!(ARGV[i] in named)) print "FAILED: " ARGV[i] " names no licence" }' 2>&1)
[ -z "$unnamed" ] || { echo "$unnamed"; failures=1; }

head -n 2 LICENSE | grep -q 'GNU GENERAL PUBLIC LICENSE' && sed -n 2p LICENSE | grep -q 'Version 3, 29 June 2007' ||
  { echo "FAILED: LICENSE is another text"; failures=$((failures + 1)); }
for licence in 'GPL-2.0-or-later' 'LGPL-3.0-or-later'; do
  grep -q "$licence" README.md || { echo "FAILED: README.md does not say why: $licence"; failures=$((failures + 1)); }
done
[ "$failures" -eq 0 ]
