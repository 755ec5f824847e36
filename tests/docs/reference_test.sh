#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# reference_test.sh SOURCE   Doxygen generates a reference of the public headers without a warning, with every class in
# it.
set -uo pipefail
cd "$1" || exit 1
command -v doxygen >/dev/null || { echo "SKIPPED: doxygen is not installed"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
{ cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = $work"; } | doxygen - || { echo "FAILED: doxygen warns"; exit 1; }
for class in $(sed -n 's/^\(class TAVITHUMB_API\|struct\) \([A-Za-z]*\) .*{$/\2/p' include/tavithumb/*.h); do
  [ -n "$(find "$work/reference" -name "*tavithumb*_1_1$class.html")" ] || { echo "FAILED: $class is not in it"; exit 1; }
done
