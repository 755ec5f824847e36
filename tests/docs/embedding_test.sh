#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# embedding_test.sh SOURCE BUILD [FLAGS]   The example programs in docs/embedding.md and libtavithumb(3), extracted from
# the documents, compile without a warning, have at most twenty lines, and do what the documents say.
set -uo pipefail
source=$1 build=$2 flags=${3-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
for needed in scdoc man; do
  command -v "$needed" >/dev/null || { echo "SKIPPED: $needed is not installed"; exit 77; }
done
fail() {
  echo "FAILED: $1"
  failures=$((failures + 1))
}

cd "$work" || exit 1
# Each block begins with its name: "// ask.cpp: prints ...". What stands in an #include or is blank is no line of a
# caller.
awk '/^```cpp$/ { getline; name = $2; sub(":", "", name) } /^```$/ { name = "" } name { print > name }' \
  "$source/docs/embedding.md"
# The man page has one, as its readers see it.
scdoc <"$source/docs/man/libtavithumb.3.scd" | LC_ALL=C MANWIDTH=120 man -l -E ascii - | col -b |
  sed '1,/^EXAMPLE$/d; /^SEE ALSO$/,$d' >example.cpp
[ "$(ls ./*.cpp)" = "$(printf './%s.cpp\n' ahead ask example limited serve store)" ] || fail "other callers: $(echo ./*.cpp)"

cmake --install "$build" --prefix "$work/prefix" >"$work/log" || fail "cmake --install: $(cat "$work/log")"
lib=$(dirname "$(find "$work/prefix" -name libtavithumb.so)")
export LD_LIBRARY_PATH=$lib PKG_CONFIG_PATH=$lib/pkgconfig
for caller in *.cpp; do
  [ "$(grep -cvE '^ *(#include.*|//.*|)$' "$caller")" -le 20 ] || fail "$caller has more than twenty lines"
  # shellcheck disable=SC2046,SC2086  # words
  c++ -std=c++17 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror $flags "$caller" \
    $(pkg-config --cflags --libs tavithumb) -Wl,-rpath-link,"$lib" -o "${caller%.cpp}" || fail "$caller does not compile"
done

expect() { # expect WHAT EXPECTED GOT
  [ "$3" = "$2" ] || fail "$1: expected '$2', got '$3'"
}
type_of() { /usr/bin/identify -format '%m %wx%h' "$1" 2>&1; }

photo=$work/a.png entries=$work/.tavi_ea/a.png
/usr/bin/convert -size 1000x500 gradient:red-blue "$photo"
touch damaged.jpg

expect "ask" "$entries/TAVIFILE_THUMB_M.png"$'\n0' "$(./ask "$photo"; echo "$?")"
expect "what it made" "PNG 360x180" "$(type_of "$entries/TAVIFILE_THUMB_M.png")"
expect "the man page's example" "$entries/TAVIFILE_THUMB_M.png"$'\n0' "$(./example "$photo"; echo "$?")"
expect "ask, damaged" "1" "$(./ask "$work/damaged.jpg" 2>errors; echo "$?")"
grep -q "^$work/damaged.jpg: (E601) " errors || fail "ask, damaged: $(cat errors)"
expect "ask, gone" "1" "$(./ask "$work/gone.jpg" 2>errors; echo "$?")"

PATH_TRANSLATED=$photo GATEWAY_INTERFACE=CGI/1.1 REQUEST_METHOD=GET ./serve >response
sed '/^\r$/q' response | tr -d '\r' >headers
grep -qx "Content-Type: image/png" headers || fail "serve: $(cat headers)"
tail -c "$(sed -n 's/^Content-Length: //p' headers)" response | cmp -s - "$entries/TAVIFILE_THUMB_M.png" ||
  fail "serve: another picture"
expect "serve, gone" "Status: 404 Not Found" "$(PATH_TRANSLATED=/gone.jpg ./serve | head -n 1 | tr -d '\r')"
expect "serve, nothing asked" "Status: 404 Not Found" "$(./serve | head -n 1 | tr -d '\r')"

expect "ahead" "$(printf "$entries/TAVIFILE_THUMB_%s.png\n" S M B)" "$(./ahead "$photo" "$work/gone.jpg" 2>errors)"
expect "ahead, gone" "3" "$(grep -c "^$work/gone.jpg: (E601) " errors)"

rm -r "$entries"
expect "limited" "$entries/TAVIFILE_THUMB_M.png"$'\n0' "$(./limited "$photo"; echo "$?")"
expect "what it made" "PNG 360x180" "$(type_of "$entries/TAVIFILE_THUMB_M.png")"
expect "limited, damaged" "1" "$(./limited "$work/damaged.jpg" 2>errors; echo "$?")"
grep -q "^$work/damaged.jpg: (E601) " errors || fail "limited, damaged: $(cat errors)"

/usr/bin/convert -size 120x60 xc:green "$work/small.png"
/usr/bin/convert -size 120x60 xc:green "$work/small.jpg"
expect "store, of another type" "1" "$(./store "$photo" "$work/small.jpg"; echo "$?")"
[ -e "$work/small.jpg" ] || fail "store: a rejected file is gone"
cp small.png stored.png
expect "store" "0" "$(./store "$photo" "$work/small.png"; echo "$?")"
[ ! -e "$work/small.png" ] || fail "store: it is still where it was"
cmp -s stored.png "$entries/TAVIFILE_THUMB_S.png" || fail "store: it is not where it belongs"
[ "$failures" -eq 0 ]
