#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# chroot_test.sh REPOSITORY   The packages in the folder REPOSITORY, in a clean Debian 12. In one, apt installs the command
# from there and upgrades it. In another, all packages work with nothing but their dependencies, serve consumers, and let
# an appliance's platform replace theirs. Purging leaves nothing behind in either.
set -uo pipefail
packages=$(readlink -f -- "$1")
cd "$(dirname "$(readlink -f "$0")")/../.."
. tests/packaging/checks.sh

# --- Whether it can run here ------------------------------------------------------------------------------------------

# Where this machine has Debian 12 from, as lines of a sources.list.
apt_lines() {
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
    grep -E ' bookworm(-updates|-security)? ' | sort -u
}

why_not() {
  [ "$(id -u)" -eq 0 ] || { echo "it takes root"; return; }
  unshare --mount --pid --fork true 2>/dev/null || { echo "root may not mount here"; return; }
  apt_lines | grep -q ' bookworm ' || apt-get update -qq
  apt_lines | grep -q ' bookworm ' || echo "apt has no sources of Debian 12 here"
}
reason=$(why_not)
if [ -n "$reason" ]; then
  skip "the packages work in a clean Debian 12" "$reason"
  exit
fi

# --- The clean systems ------------------------------------------------------------------------------------------------

names=(libtavithumb-dev libtavithumb-platform1 libtavithumb1 tavithumb tavithumb-convert tavithumb-thumbnailer tavithumb-web)
version=$(dpkg-parsechangelog -S Version)
work=$(mktemp -d)
mkdir -p build
systems=$(mktemp -d -p "$PWD/build" chroot.XXXXXX)
chmod 755 "$systems"
trap 'rm -rf --one-file-system "$work" "$systems"' EXIT
root=$systems/all
mkdir "$root"

# Nothing that is started inside outlives its command, and nothing stays mounted.
inside() {
  unshare --mount --pid --fork --kill-child --mount-proc="$root/proc" chroot "$root" env -i \
    PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@" </dev/null
}
# The same for sandboxes, which need the system's root to be this one's root too. What it leaves in /tmp is gone.
inside_whole() {
  local enter='mount --bind "$0" "$0" && cd "$0" && pivot_root . mnt && mount -t proc proc /proc && umount -l /mnt &&
    mount -t tmpfs tmpfs /tmp && exec env -i "$@"'
  unshare --mount --pid --fork --kill-child bash -c "$enter" "$root" \
    PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/tmp LC_ALL=C.UTF-8 "$@" </dev/null
}
apt() { inside apt-get -qq -y --no-install-recommends "$@"; }

# From the machine's own mirror, with its settings for reaching it.
make_system() {
  local mirror http_proxy= https_proxy=
  mirror=$(apt_lines | sed -n 's/^deb \([^ ]*\) bookworm main$/\1/p' | head -n 1)
  eval "$(apt-config shell http_proxy Acquire::http::Proxy https_proxy Acquire::https::Proxy)"
  http_proxy=$http_proxy https_proxy=$https_proxy \
    debootstrap --variant=minbase --include=ca-certificates bookworm "$root" "$mirror" || return
  apt_lines >"$root/etc/apt/sources.list"
  apt-config dump | grep '^Acquire::' >"$root/etc/apt/apt.conf.d/90machine"
  apt update
}

# The dependencies of the packages, what consumers are built with, and two programs that file managers have thumbnails made
# by, with Python to call them.
install_dependencies() {
  local name wanted
  mkdir "$root/packages"
  for name in "${names[@]}"; do cp "$packages/${name}"_*.deb "$root/packages/$name.deb" || return; done
  wanted=$(for name in "${names[@]}"; do dpkg-deb -f "$root/packages/$name.deb" Depends; done |
    sed 's/, /\n/g' | grep -v tavithumb | sort -u | paste -sd ,)
  apt satisfy "$wanted, g++, cmake, ninja-build, pkg-config, bubblewrap, dbus, gir1.2-gdkpixbuf-2.0, \
gir1.2-gnomedesktop-3.0, python3-gi, shared-mime-info, tumbler"
}

# Photos of three kinds, and a camera raw file that only dcraw might read.
make_pictures() {
  local photos=$root/srv/photos
  mkdir -p "$photos" &&
    /usr/bin/convert -size 1200x800 -seed 7 plasma: "$photos/photo.jpg" &&
    exiv2 -M'set Exif.Image.Orientation 1' "$photos/photo.jpg" &&
    /usr/bin/convert "$photos/photo.jpg" "$photos/picture.png" &&
    heif-enc -q 50 "$photos/photo.jpg" -o "$photos/photo.heic" &&
    seq 1000 >"$photos/camera.x3f"
}

# Every name in the system, except for the records of apt and dpkg about packages, and the accounts.
state() {
  (cd "$root" && find . -path ./packages -prune -o -path ./var/lib/dpkg -prune -o -print | sort)
  sort "$root/etc/passwd" "$root/etc/group"
}

clean_systems() {
  make_system && make_pictures && cp -a "$root" "$systems/alone" && install_dependencies && state >"$work/before"
}
if ! clean_systems >"$work/log" 2>&1; then
  check "clean systems of Debian 12 are made" eval 'cat "$work/log"; false'
  exit
fi

# --- The command, from a repository -----------------------------------------------------------------------------------

same() { diff <(echo "$1") <(echo "$2"); }
installed() { inside dpkg-query -W -f '${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p' | sort; }
versions() { inside dpkg-query -W -f '${Package} ${Version} ${db:Status-Status}\n' '*tavithumb*' | sed -n 's/ installed$//p'; }
command_and_library() { printf "%s $1\n" libtavithumb-platform1 libtavithumb1 tavithumb; }

repository_serves_the_command() {
  cp -r "$packages" "$root/repository"
  echo 'deb [trusted=yes] file:/repository ./' >"$root/etc/apt/sources.list.d/tavithumb.list"
  apt update && apt install tavithumb && same "$(command_and_library "$version")" "$(versions)"
}

command_works() {
  local stored=/srv/photos/.tavi_ea
  same "$stored/photo.jpg/TAVIFILE_THUMB_S.jpg
$stored/picture.png/TAVIFILE_THUMB_S.png
$stored/photo.heic/TAVIFILE_THUMB_S.jpg" \
    "$(inside tavithumb get --size small /srv/photos/photo.jpg /srv/photos/picture.png /srv/photos/photo.heic 2>&1)"
}

setting() { sed -n "s/^$1=//p" "$root/lib/systemd/system/tavithumb-make.service"; }

# systemd does not run here: the command of the service, as its user, which can only read the photos. Only the raw file
# fails. Without dcraw, the library leaves empty temporary files behind.
nightly_service_works() {
  local stored=/var/cache/tavithumb/srv/photos/.tavi_ea status=0
  inside systemctl enable tavithumb-make.timer && inside systemd-analyze verify --man=no tavithumb-make.timer || return
  rm -rf "$root/srv/photos/.tavi_ea"
  inside install -d -o tavithumb -g tavithumb -m 0711 "/var/cache/$(setting CacheDirectory)"
  inside runuser -u "$(setting User)" -- env "$(setting Environment)" $(setting ExecStart) || status=$?
  [[ " $(setting SuccessExitStatus) " == *" $status "* ]] || return
  same "$(printf "tavithumb $stored/%s\n" photo.heic/TAVIFILE_THUMB_{B,M,S,XL}.jpg \
    photo.jpg/TAVIFILE_THUMB_{B,M,S,XL}.jpg picture.png/TAVIFILE_THUMB_{B,M,S}.png)" \
    "$(inside find "$stored" -type f ! -empty -printf '%u %p\n' | LC_ALL=C sort)"
}

following_service_fits_the_system() {
  local unit=tavithumb-watch@srv-photos.service
  inside systemctl enable "$unit" && inside systemd-analyze verify --man=no "$unit"
}

# What the package's own scripts ask of systemd, which does not run here.
following_services_follow_the_package() {
  local systemctl=$root/usr/bin/systemctl scripts=/var/lib/dpkg/info/tavithumb
  mkdir -p "$root/run/systemd/system" && mv "$systemctl" "$systemctl.aside" &&
    printf '#!/bin/sh\necho "$@" >>/tmp/asked\n' >"$systemctl" && chmod +x "$systemctl" || return
  inside "$scripts.postinst" configure "" && inside "$scripts.postinst" configure "$version" &&
    inside "$scripts.prerm" upgrade "$version" && inside "$scripts.prerm" remove
  local status=$?
  mv "$systemctl.aside" "$systemctl" && rmdir "$root/run/systemd/system" && [ "$status" -eq 0 ] &&
    same $'try-restart tavithumb-watch@*.service\nstop tavithumb-watch@*.service' "$(grep watch@ "$root/tmp/asked")"
}

# The next version: these packages under another number.
add_next_version() {
  local name folder=$work/next
  for name in "${names[@]}"; do
    dpkg-deb -R "$packages/${name}_${version}"_*.deb "$folder" &&
      sed -i "s/^Version: .*/Version: $1/; s/(= $version)/(= $1)/" "$folder/DEBIAN/control" &&
      dpkg-deb -b "$folder" "$root/repository/${name}_$1.deb" || return
    rm -rf "$folder"
  done
  packaging/index_repository "$root/repository"
}

upgrade_keeps_what_is_set() {
  local link=etc/systemd/system/timers.target.wants/tavithumb-make.timer
  echo /srv/films >>"$root/etc/tavithumb/folders"
  add_next_version "$version+next" && apt update && apt upgrade || return
  same "$(command_and_library "$version+next")" "$(versions)" && command_works &&
    same $'/srv/photos\n/srv/films' "$(cat "$root/etc/tavithumb/folders")" && [ -L "$root/$link" ]
}

# What carries the name, and lies neither with the photos nor in the repository or apt's lists of it.
purged_command_is_gone() {
  apt purge tavithumb libtavithumb1 libtavithumb-platform1 || return
  same "" "$(find "$root" -path "$root/repository" -prune -o -path "$root/var/lib/apt" -prune -o -path '*/.tavi_ea' -prune \
    -o -name '*tavithumb*' ! -name tavithumb.list -print; grep -H tavithumb "$root"/etc/{passwd,group,shadow,gshadow})" &&
    [ -s "$root/srv/photos/.tavi_ea/photo.jpg/TAVIFILE_THUMB_S.jpg" ]
}

# --- All packages -----------------------------------------------------------------------------------------------------

apt_installs_them_alone() {
  local before
  before=$(installed)
  apt install $(printf '/packages/%s.deb ' "${names[@]}") || return
  same "$(printf '%s\n' "${names[@]}")" "$(comm -13 <(echo "$before") <(installed))"
}

missing_tool_is_named() {
  same "tavithumb: /srv/photos/camera.x3f: it could not be converted, and /usr/bin/dcraw is not installed; install the \
package dcraw, or check that it opens in another program
exit status 1" "$(inside sh -c 'tavithumb get /srv/photos/camera.x3f; echo "exit status $?"' 2>&1)"
}

# As its own user, with the settings and the policy that the packages bring.
web_program_works() {
  local answer
  inside install -d -o tavithumb -g tavithumb /srv/photos/.tavi_ea/picture.png || return
  answer=$(inside runuser -u tavithumb -- env GATEWAY_INTERFACE=CGI/1.1 REQUEST_METHOD=HEAD \
    REQUEST_URI='/thumb/picture.png?size=medium' tavithumb-web --config /etc/tavithumb/web.conf | tr -d '\r')
  echo "$answer"
  grep -qx 'Content-Type: image/png' <<<"$answer" && [ -s "$root/srv/photos/.tavi_ea/picture.png/TAVIFILE_THUMB_M.png" ]
}

socket_is_set_up() {
  same /lib/systemd/system/tavithumb-web.socket \
    "$(readlink "$root/etc/systemd/system/sockets.target.wants/tavithumb-web.socket")"
}

# file_manager_works PROGRAM...   it has thumbnails made of what only our entry takes, of a user's own photos
file_manager_works() {
  local odd="/srv/a b%ü'.heic" made
  cp tests/packaging/file_managers.py "$root/srv" && cp "$root/srv/photos/photo.heic" "$root$odd" || return
  made=$(inside_whole dbus-run-session -- python3 /srv/file_managers.py "$1" /srv/photos/photo.heic "$odd" \
    2>"$work/errors")
  rm "$root/srv/file_managers.py" "$root$odd"
  same "/srv/photos/photo.heic image/heif 256x171
$odd image/heif 256x171" "$made" || { cat "$work/errors"; return 1; }
}

# consumer_works KIND STANDARD   a thumbnail is made by the consumer of a few lines, built with KIND
consumer_works() {
  rm -rf "$root/tmp/built" "$root/srv/photos/.tavi_ea/picture.png"
  "build_with_$1" "$2" || return
  same /srv/photos/.tavi_ea/picture.png/TAVIFILE_THUMB_S.png "$(inside /tmp/built/consumer /srv/photos/picture.png)" &&
    [ -s "$root/srv/photos/.tavi_ea/picture.png/TAVIFILE_THUMB_S.png" ]
}
build_with_cmake() {
  inside cmake -G Ninja -S /tmp/consumer -B /tmp/built -D CMAKE_CXX_STANDARD="$1" && inside cmake --build /tmp/built
}
build_with_pkg_config() {
  mkdir "$root/tmp/built"
  inside sh -c "g++ -std=c++$1 /tmp/consumer/consumer.cpp -o /tmp/built/consumer \$(pkg-config --cflags --libs tavithumb)"
}

# The library runs it, and not convert, which is made to fail; convert comes back when it is removed.
converter_works() {
  local stored=/srv/photos/.tavi_ea/picture.png made=0 without=0
  same "/usr/libexec/tavithumb-convert" "$(readlink "$root/var/packages/Codexa/target/usr/bin/convert")" || return
  mv "$root/usr/bin/convert" "$root/usr/bin/convert.aside" && ln -s false "$root/usr/bin/convert" || return
  rm -rf "$root/$stored"
  inside tavithumb get --library --size small /srv/photos/picture.png || made=$?
  apt remove tavithumb-convert
  rm -rf "$root/$stored"
  inside tavithumb get --library --size small /srv/photos/picture.png || without=$?
  mv "$root/usr/bin/convert.aside" "$root/usr/bin/convert" && [ "$made" -eq 0 ] && [ "$without" -ne 0 ] &&
    [ ! -e "$root/var/packages" ] && apt install /packages/tavithumb-convert.deb
}

# A package as an appliance would make one, of libraries that are unlike ours in all that they do.
make_appliance_package() {
  local folder=$work/appliance
  cmake -S tests/build/dummy_platform -B "$work/dummy" -G Ninja -DCONTRACT="$PWD/platform/include" -DCONTRACT_NUMBER=1 \
    -DCMAKE_INSTALL_PREFIX="$folder/usr" && cmake --build "$work/dummy" --target install || return
  mkdir "$folder/DEBIAN"
  cat >"$folder/DEBIAN/control" <<CONTROL
Package: appliance-platform
Version: 3
Architecture: $(dpkg --print-architecture)
Maintainer: Nobody <nobody@localhost>
Provides: libtavithumb-platform-1
Conflicts: libtavithumb-platform-1
Replaces: libtavithumb-platform-1
Description: an appliance's own platform libraries
CONTROL
  dpkg-deb --root-owner-group --build "$folder" "$root/packages/appliance-platform.deb"
}

appliance_replaces_the_stand_ins() {
  local before
  before=$(installed)
  make_appliance_package && apt install /packages/appliance-platform.deb || return
  same "$(sed 's/^libtavithumb-platform1$/appliance-platform/' <<<"$before" | sort)" "$(installed)" || return
  cp tests/build/dummy_platform/consumer.cpp "$root/tmp/consumer/dummy.cpp"
  inside sh -c 'g++ /tmp/consumer/dummy.cpp -o /tmp/consumer/dummy $(pkg-config --cflags --libs tavithumb)' || return
  same "/dummy-ea/NAME" "$(inside /tmp/consumer/dummy /srv/photos/photo.jpg | head -n 1)"
}

stand_ins_come_back() {
  local before
  before=$(installed)
  apt install /packages/libtavithumb-platform1.deb || return
  same "$(sed 's/^appliance-platform$/libtavithumb-platform1/' <<<"$before" | sort)" "$(installed)" && command_works
}

only_thumbnails_stay() {
  rm -rf "$root"/tmp/{consumer,built}
  apt purge "${names[@]}" || return
  same "$(find "$root/srv/photos/.tavi_ea" -printf './srv/photos/.tavi_ea/%P\n' | sed 's#/$##' | sort)" \
    "$(diff "$work/before" <(state) | sed -n 's/^[<>] //p' | sort)"
}

# --- The checks -------------------------------------------------------------------------------------------------------

root=$systems/alone
check "apt installs the command and its dependencies, given the repository" repository_serves_the_command
check "alone, the command makes thumbnails of JPEG, PNG and HEIC" command_works
check "alone, the nightly service makes thumbnails" nightly_service_works
check "alone, the service that follows a folder fits the system" following_service_fits_the_system
check "services that follow folders restart on an upgrade and stop with the package" following_services_follow_the_package
check "an upgrade from the repository keeps what is set" upgrade_keeps_what_is_set
check "purging the command leaves nothing but thumbnails" purged_command_is_gone

root=$systems/all
cp -r tests/build/consumer "$root/tmp/consumer"
check "apt installs the packages when only their dependencies are there" apt_installs_them_alone
check "the command makes thumbnails of JPEG, PNG and HEIC" command_works
check "a tool that is not installed is named" missing_tool_is_named
check "the web program answers as its own user" web_program_works
check "the web program's socket is set up" socket_is_set_up
check "GNOME's file managers have thumbnails made, in their sandbox" file_manager_works gnome
check "Xfce's service has thumbnails made" file_manager_works tumbler
check "the library runs the converter while it is installed" converter_works
for standard in 17 20; do
  check "a consumer built with find_package as C++$standard makes a thumbnail" consumer_works cmake $standard
  check "a consumer built with pkg-config as C++$standard makes a thumbnail" consumer_works pkg_config $standard
done
check "an appliance's platform replaces the stand-ins" appliance_replaces_the_stand_ins
check "the stand-ins replace it again" stand_ins_come_back
check "purging leaves nothing but thumbnails" only_thumbnails_stay
