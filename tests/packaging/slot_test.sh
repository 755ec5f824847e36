#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# slot_test.sh SOURCE   The maintainer scripts of tavithumb-convert, run on a folder in place of the root: they lay the
# link and the marker of the add-on only where nothing is, and remove only these two.
set -uo pipefail
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
program=/usr/libexec/tavithumb-convert
slot=var/packages/Codexa
link=$slot/target/usr/bin/convert
marker=$slot/enabled

# What lies in the root: kind, name, and where a link leads.
listing() {
  (cd "$work/root" && find . -mindepth 1 -not -type d -printf '%y %P %l\n' -o -type d -empty -printf '%y %P\n' | sort)
}
script() {
  (umask 077 && DPKG_ROOT=$work/root sh -e "$source/debian/tavithumb-convert.$1" "${@:2}" >"$work/said" 2>&1) ||
    fail "$1 ${*:2}: $(cat "$work/said")"
}
install_package() { script postinst configure ""; }
fail() {
  echo "FAILED: $1"
  failures=$((failures + 1))
}
expect() { # expect WHAT EXPECTED
  local got
  got=$(listing)
  [ "$got" = "$2" ] || fail "$1: expected
$2
got
$got"
}
# in_root COMMAND...   a new root, in which the command is run
in_root() {
  rm -rf "$work/root"
  mkdir -p "$work/root/var/lib"
  (cd "$work/root" && "$@")
}
foreign() { mkdir -p "$(dirname "$1")" && echo foreign >"$1"; }
foreign_link() { mkdir -p "$(dirname "$link")" && ln -s /opt/convert "$link"; }
both_foreign() { foreign "$link" && foreign "$marker"; }

laid="d var/lib
f $marker 
l $link $program"

in_root true
install_package
expect "nothing there: both are laid" "$laid"
[ ! -s "$work/said" ] || fail "an installation says: $(cat "$work/said")"
[ "$(stat -c %a "$work/root/$marker" "$work/root/$slot")" = $'644\n755' ] || fail "not everybody may see the marker"
script postinst configure 1.0.0
expect "an upgrade keeps both" "$laid"
script prerm upgrade 1.0.1
script prerm failed-upgrade 1.0.1
expect "an upgrade removes nothing" "$laid"
script prerm remove
expect "a removal leaves nothing" "d var/lib"
script postinst abort-remove
expect "a removal that failed is undone" "$laid"
script prerm remove

# An installation that was interrupted is completed.
in_root true
install_package
rm "$work/root/$marker"
install_package
expect "an interrupted installation is completed" "$laid"

# The administrator disabled it.
in_root true
install_package
rm "$work/root/$marker"
script postinst configure 1.0.0
expect "an upgrade does not enable it again" "d var/lib
l $link $program"
script prerm remove
expect "a removal of a disabled one leaves nothing" "d var/lib"

# What is there already stays, and so does its marker, or the lack of one.
for there in "foreign $link" "foreign $marker" foreign_link both_foreign; do
  in_root $there
  before=$(listing)
  install_package
  expect "$there: nothing is laid" "$before"
  grep -q "^tavithumb-convert: .* left as it is" "$work/said" || fail "$there: an installation says nothing of it"
  script prerm remove
  expect "$there: nothing is removed" "$before"
done

# Another package has taken the slot since.
in_root true
install_package
rm "$work/root/$link" "$work/root/$marker"
(cd "$work/root" && both_foreign)
before=$(listing)
script postinst configure 1.0.0
expect "a slot taken over: an upgrade changes nothing" "$before"
script prerm remove
expect "a slot taken over: nothing is removed" "$before"

# Files of others stay, and their folders with them.
in_root true
install_package
echo other >"$work/root/$slot/target/other"
script prerm remove
expect "the files of others stay" "d var/lib
f $slot/target/other "

# The appliance may keep the target on another volume.
in_root eval 'mkdir -p volume "$slot" && ln -s ../../../volume "$slot/target"'
install_package
expect "a target on another volume is used" "d var/lib
f $marker 
l $slot/target ../../../volume
l volume/usr/bin/convert $program"
script prerm remove
expect "a target on another volume stays" "d var/lib
d volume
l $slot/target ../../../volume"
[ "$failures" -eq 0 ]
