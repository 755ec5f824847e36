#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# install_test.sh SOURCE BUILD [FLAGS]   The installed files work for a consumer with CMake and with pkg-config, in
# C++17 and C++20, compiled with FLAGS.
set -euo pipefail

source=$1 build=$2 flags=${3-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() { echo "FAILED: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$work/log" || fail "cmake --install: $(cat "$work/log")"

# Exactly these files.
lib=$(dirname "$(cd "$prefix" && find . -name 'libtavithumb.so')")
expected=$(
  echo ./bin/tavithumb
  echo ./libexec/tavithumb-convert
  echo ./sbin/tavithumb-web
  for file in icon.svg index.html page.css {address,dom,facts,grid,keys,list,loader,order,page,viewer,zoom}.js; do
    echo "./share/tavithumb/page/$file"
  done
  echo ./share/tavithumb/imagemagick/policy.xml
  for page in man1/tavithumb.1 man3/libtavithumb.3 man7/tavithumb-names.7 man8/tavithumb-convert.8 man8/tavithumb-web.8; do
    echo "./share/man/$page"
  done
  for program in tavithumb tavithumb-web; do
    echo "./share/bash-completion/completions/$program"
    echo "./share/fish/vendor_completions.d/$program.fish"
  done
  echo ./share/zsh/vendor-completions/_tavithumb
  for header in error export libtavithumb thumb_convert_cmd thumb_info util; do
    echo "./include/tavithumb/$header.h"
  done
  for stand_in in libhttp-file-outputer libtavicore libtavifileop libtavisdk; do
    echo "$lib/$stand_in.so"
    echo "$lib/$stand_in.so.1"
  done
  echo "$lib/libtavithumb.so"
  echo "$lib/libtavithumb.so.1"
  echo "$lib/libtavithumb.so.1.0.0"
  for file in Config ConfigVersion Targets; do echo "$lib/cmake/tavithumb/tavithumb$file.cmake"; done
  find "$prefix" -name 'tavithumbTargets-*.cmake' -printf "$lib/cmake/tavithumb/%f\n"
  echo "$lib/pkgconfig/tavithumb.pc"
)
diff <(sort <<<"$expected") <(cd "$prefix" && find . ! -type d | sort) || fail "other files are installed"

# The programs run where they are installed, and find their policy.
[ "$("$prefix/bin/tavithumb" --version | sed -n 1p)" = "tavithumb 1.0.0" ] || fail "the installed command does not run"
GATEWAY_INTERFACE=CGI/1.1 REQUEST_METHOD=GET REQUEST_URI=/list/ "$prefix/sbin/tavithumb-web" --tool-memory 0 \
  --root "$prefix/share" |
  grep -q '"name":"tavithumb"' || fail "the installed web program does not answer"
"$prefix/bin/tavithumb" clean --dry-run "$prefix/share" >"$work/log" 2>&1 || fail "the installed command: $(cat "$work/log")"

library=$prefix/$lib/libtavithumb.so
readelf -d "$library" | grep -q 'SONAME.*\[libtavithumb.so.1\]' || fail "no SONAME libtavithumb.so.1"

# The library exports its own classes and functions, and at most templates of the C++ library and Exiv2's exception,
# which must be the same as the caller's.
foreign=$(nm -DC --defined-only "$library" | cut -d ' ' -f 3- |
  grep -vE '^((vtable|typeinfo|typeinfo name) for )?(tavithumb|Exiv2)::|\b(std|__gnu_cxx)::|^__odr_asan' || true)
[ -z "$foreign" ] || fail "it shows more than its interface: $foreign"

/usr/bin/convert -size 300x200 plasma: "$work/picture.png"
export LD_LIBRARY_PATH=$prefix/$lib
check() {
  rm -rf "$work/.tavi_ea"
  local answer
  answer=$("$1" "$work/picture.png")
  [ "$answer" = "$work/.tavi_ea/picture.png/TAVIFILE_THUMB_S.png" ] && [ -s "$answer" ] || fail "$1 answered '$answer'"
}

for standard in 17 20; do
  cmake -G Ninja -S "$source/tests/build/consumer" -B "$work/cmake$standard" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_STANDARD="$standard" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath-link,$prefix/$lib" \
    >"$work/log" 2>&1 && cmake --build "$work/cmake$standard" >>"$work/log" 2>&1 ||
    fail "find_package, C++$standard: $(cat "$work/log")"
  check "$work/cmake$standard/consumer"

  # shellcheck disable=SC2046  # pkg-config's words
  g++ -std="c++$standard" $flags "$source/tests/build/consumer/consumer.cpp" -o "$work/consumer$standard" \
    $(PKG_CONFIG_PATH=$prefix/$lib/pkgconfig pkg-config --cflags --libs tavithumb) \
    -Wl,-rpath-link,"$prefix/$lib" || fail "pkg-config, C++$standard"
  check "$work/consumer$standard"
done

# Each public header compiles on its own.
for header in "$prefix"/include/tavithumb/*.h; do
  for standard in 17 20; do
    g++ -std="c++$standard" -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -I"$prefix/include" -fsyntax-only \
      -include "$header" -x c++ /dev/null || fail "$header does not stand alone in C++$standard"
  done
done
