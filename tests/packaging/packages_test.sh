#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# packages_test.sh REPOSITORY   The packages in the folder REPOSITORY are well made: lintian, their files, how they depend
# on tools and on each other, and their index.
set -uo pipefail
packages=$(readlink -f -- "$1")
cd "$(dirname "$(readlink -f "$0")")/../.."
. tests/packaging/checks.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
version=$(dpkg-parsechangelog -S Version)
multiarch=$(dpkg-architecture -q DEB_HOST_MULTIARCH)

lintian_is_content() { lintian --fail-on error,warning "$packages"/*.changes; }

# Mode and name of each file, where a link leads, and its owner when that is not root.
files_of() {
  dpkg-deb --fsys-tarfile "$packages/$1"_*.deb | tar -tv | grep -v '^d' |
    awk '{ print $1, substr($6, 2), $7, $8, $2 }' | sed "s#/$multiarch/#/MULTIARCH/#; s# *root/root\$##" |
    LC_ALL=C sort -k 2
}
holds_its_files() { diff <(sed -n "s/^$1 //p" tests/packaging/files.txt) <(files_of "$1"); }

# A copy elsewhere: the index is the same wherever the repository lies, and its line has no spaces.
copy="$work/once again"
index_is_the_same_elsewhere() {
  mkdir "$copy" && cp "$packages"/*.deb "$copy" && packaging/index_repository "$copy" >"$work/line" &&
    cmp "$packages/Packages" "$copy/Packages" && cmp "$packages/Packages.gz" "$copy/Packages.gz"
}
line_names_the_repository() { diff <(echo "deb [trusted=yes] file:$work/once%20again ./") "$work/line"; }

# Lines of "package field: content", without the system's libraries, whose versions the build finds.
field() {
  local content
  content=$(dpkg-deb -f "$packages/$1"_*.deb "$2" | sed 's/, /\n/g' |
    grep -vE '^lib(c6|exiv2-27|gcc-s1|heif1|stdc\+\+6|systemd0|unistring2)( |$)' | paste -sd , | sed 's/,/, /g')
  echo "$1 $2:${content:+ $content}"
}
fields_are() { diff <(echo "$1") <(sed 's/:.*//' <<<"$1" | while read -r package name; do field "$package" "$name"; done); }

check "lintian finds no errors and no warnings" lintian_is_content
for package in $(sed 's/ .*//' tests/packaging/files.txt | sort -u); do
  check "$package holds its files and no others" holds_its_files "$package"
done
# The maker's codecs, which the programs contain.
codecs_to_r="libdeflate0 (>= 1.0), libgif7 (>= 5.1), libhwy1 (>= 0.16.0), libjpeg62-turbo (>= 1.3.1), \
libjxl0.7 (>= 0.6.1), liblcms2-2 (>= 2.6), libraw20 (>= 0.16.0)"
codecs_from_t="libtiff6 (>= 4.5.0~rc1), libwebp7 (>= 1.2.4), libwebpdemux2 (>= 1.2.4), zlib1g (>= 1:1.1.4)"
codecs="$codecs_to_r, libtavithumb-platform1 | libtavithumb-platform-1, libtavithumb1 (>= 1.0.0), $codecs_from_t"
check "the packages depend on tools and on each other as they should" fields_are \
  "libtavithumb1 Depends: imagemagick, libjpeg-turbo-progs, libtavithumb-platform1 | libtavithumb-platform-1
libtavithumb1 Recommends: dcraw
libtavithumb1 Suggests: tavithumb-convert
libtavithumb-dev Depends: libtavithumb1 (= $version)
libtavithumb-platform1 Depends:
libtavithumb-platform1 Provides: libtavithumb-platform-1
libtavithumb-platform1 Conflicts: libtavithumb-platform-1
libtavithumb-platform1 Replaces: libtavithumb-platform-1
tavithumb Depends: systemd | systemd-standalone-sysusers | systemd-sysusers, \
${codecs/liblcms2-2 (>= 2.6)/liblcms2-2 (>= 2.7)}
tavithumb Recommends: ffmpegthumbnailer
tavithumb Suggests: ffmpeg
tavithumb-convert Depends: imagemagick, $codecs_to_r, $codecs_from_t
tavithumb-convert Enhances: libtavithumb1
tavithumb-thumbnailer Depends: tavithumb (>= $version)
tavithumb-thumbnailer Enhances: caja, dolphin, nautilus, nemo, thunar
tavithumb-web Depends: tavithumb (= $version), $codecs
tavithumb-web Recommends: nginx | lighttpd"
check "the index is the same elsewhere" index_is_the_same_elsewhere
check "the line for sources.list names the repository" line_names_the_repository
