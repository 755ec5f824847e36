# SPDX-License-Identifier: GPL-3.0-or-later
# Sourced by the tests of the packages: one line a check, which script/test-packages counts.

# check NAME COMMAND...   "ok - NAME" when the command passes; else "not ok - NAME", and what it wrote
check() {
  local output
  if output=$("${@:2}" 2>&1); then
    echo "ok - $1"
  else
    printf 'not ok - %s\n%s\n' "$1" "$output"
  fi
}

skip() { echo "skipped - $1: $2"; }

# copy_sources FOLDER   what git tracks here, new enough for everything to be built again
copy_sources() { mkdir -p "$1" && git ls-files -z | tar -c --null --files-from=- | tar -x -m -C "$1"; }
