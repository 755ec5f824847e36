#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# abi_test.sh   The library's binary interface is the recorded one, and a change of it is found.
set -uo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
. tests/packaging/checks.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# finds FILE OLD NEW REPORT   with NEW in place of OLD in FILE, script/abi fails and says REPORT
finds() {
  local status=0 report
  sed -i "s/$2/$3/" "$work/sources/$1"
  ! cmp -s "$1" "$work/sources/$1" || { echo "$1 holds no '$2'"; return 1; }
  report=$("$work/sources/script/abi" 2>&1) || status=$?
  echo "exit status $status: $report"
  [ "$status" -eq 1 ] && grep -qF -- "$4" <<<"$report"
}
with_fresh_sources() { copy_sources "$work/sources" && "$@"; }
changed_signature() {
  sed -i 's/Rotate(int quarterTurns)/Rotate(short quarterTurns)/' "$work/sources/src/job/thumb.cpp"
  finds include/tavithumb/libtavithumb.h 'Rotate(int quarterTurns)' 'Rotate(short quarterTurns)' \
    "[D] 'method void tavithumb::Thumb::Rotate(int)'"
}
removed_function() {
  finds include/tavithumb/util.h 'TAVITHUMB_API std::string GetVarTmpPath' 'std::string GetVarTmpPath' \
    "[D] 'function std::string tavithumb::file::GetVarTmpPath("
}
changed_field() {
  finds include/tavithumb/libtavithumb.h 'std::int32_t type_ = 0' 'std::int64_t type_ = 0' 'type size changed'
}

if [ "$(dpkg --print-architecture)" != amd64 ]; then
  skip "the binary interface is the recorded one" "it is recorded for amd64"
  exit
fi
check "the binary interface is the recorded one" script/abi
check "a changed signature is found" with_fresh_sources changed_signature
check "a function that is no longer shown is found" with_fresh_sources removed_function
check "a changed field is found" with_fresh_sources changed_field
