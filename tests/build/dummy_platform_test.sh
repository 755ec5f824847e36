#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# dummy_platform_test.sh SOURCE   The library links and runs with another set of the four platform libraries: nothing in
# it depends on our stand-ins.
set -euo pipefail

source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() { echo "FAILED: $*" >&2; exit 1; }
quietly() { "$@" >"$work/log" 2>&1 || fail "$*: $(cat "$work/log")"; }

quietly cmake -S "$source/tests/build/dummy_platform" -B "$work/dummy" -G Ninja -DCONTRACT="$source/platform/include" \
  -DCMAKE_INSTALL_PREFIX="$work/prefix"
quietly cmake --build "$work/dummy" --target install

quietly cmake -S "$source" -B "$work/build" -G Ninja -DTAVITHUMB_APPS=OFF -DTAVITHUMB_TESTS=OFF \
  -DTAVITHUMB_PLATFORM_PREFIX="$work/prefix"
! grep -q -- -Werror "$work/build/build.ninja" || fail "warnings are errors outside the presets of developers"
quietly cmake --build "$work/build"

[ -z "$(find "$work/build" -name 'libtavi[a-z]*.so*' ! -name 'libtavithumb*')" ] || fail "stand-ins were built"
needed=$(readelf -d "$work/build/src/libtavithumb.so" | grep NEEDED)
for name in tavisdk tavicore tavifileop http-file-outputer; do
  grep -q "\[lib$name.so.7\]" <<<"$needed" || fail "it does not link the given lib$name: $needed"
done

quietly g++ -std=c++17 -I"$source/include" "$source/tests/build/dummy_platform/consumer.cpp" -o "$work/consumer" \
  -L"$work/build/src" -ltavithumb -Wl,-rpath,"$work/build/src:$work/prefix/lib" -Wl,-rpath-link,"$work/prefix/lib"
/usr/bin/convert -size 30x20 plasma: "$work/picture.png"
printf '%s\r\n' 'Cache-Control: max-age=300, must-revalidate' >"$work/caching"
diff <(LD_LIBRARY_PATH=$work/prefix/lib "$work/consumer" "$work/picture.png") - <<EXPECTED || fail "not the dummies' answers"
/dummy-ea/NAME
writable: 0
moved: 1
$(cat "$work/caching")
dummy outputer: $work/picture.png as image/png
delivered: 1
refused: 0
EXPECTED
