# SPDX-License-Identifier: GPL-3.0-or-later
# For scripts that try the project on another machine: a temporary Debian in a folder, which reaches its package mirror
# in the same way as this machine. To be sourced by bash, with $0 as the name in error messages.

# new_chroot RELEASE   creates it in the folder $chroot, which is removed at the end. With $TAVITHUMB_CHROOT it is
# created in that folder, kept, and used again.
new_chroot() {
  if [ "$(id -u)" -ne 0 ]; then
    echo "$(basename "$0"): only root can make a chroot; run it as root" >&2
    exit 2
  fi
  chroot=${TAVITHUMB_CHROOT-}
  if [ -z "$chroot" ]; then
    chroot=$(mktemp -d -p /var/tmp)
    trap 'rm -rf --one-file-system "$chroot"' EXIT
  fi
  [ ! -e "$chroot/etc/apt/apt.conf.d/99machine" ] || return 0
  local http_proxy https_proxy
  eval "$(apt-config shell http_proxy Acquire::http::Proxy https_proxy Acquire::https::Proxy)"
  export http_proxy https_proxy
  debootstrap --variant=minbase --keyring=/usr/share/keyrings/debian-archive-keyring.gpg "$1" "$chroot" \
    "$(debian_mirror)" >&2 || exit 1
  copy_settings
}

# The source of this machine's own packages.
debian_mirror() {
  local mirrors
  mirrors=$(apt-get indextargets --format '$(ORIGIN)|$(LABEL)|$(REPO_URI)' | sed -n 's/^Debian|Debian|//p')
  if [ -z "$mirrors" ]; then
    echo "$(basename "$0"): apt knows no Debian mirror; run apt-get update" >&2
    exit 1
  fi
  head -n 1 <<<"$mirrors"
}

# How this machine reaches it: names, certificates, apt's proxies and accounts.
copy_settings() {
  local path
  for path in /etc/resolv.conf /etc/hosts /etc/ssl/certs /usr/local/share/ca-certificates /etc/apt/auth.conf \
    /etc/apt/auth.conf.d; do
    [ -e "$path" ] || continue
    mkdir -p "$chroot$(dirname "$path")"
    cp -rL "$path" "$chroot$(dirname "$path")"
  done
  apt-config dump Acquire >"$chroot/etc/apt/apt.conf.d/99machine"
}

# The committed files, to /checkout/tavithumb there.
clone_project() {
  local clone=$chroot/checkout/tavithumb
  [ -d "$clone" ] || git clone --quiet --no-checkout . "$clone"
  git -C "$clone" fetch --quiet "$PWD" HEAD
  git -C "$clone" checkout --quiet --detach --force FETCH_HEAD
}

# in_chroot COMMAND...   runs it there, as root, with the sample photos next to the checkout. Its mounts and processes
# end with it. The folder becomes the root of the mounts, because user namespaces can't be created in a plain chroot.
in_chroot() {
  local samples
  samples=$(readlink -f "${TAVITHUMB_SAMPLES:-../shared/samples}" || true)
  mkdir -p "$chroot"/checkout/samples "$chroot"/checkout/samples-more "$chroot/old"
  unshare --mount --pid --fork --kill-child bash -ec '
    chroot=$1 samples=$2
    mount --bind "$chroot" "$chroot"
    mount --rbind /dev "$chroot/dev"
    mount --rbind /sys "$chroot/sys"
    mount -t proc proc "$chroot/proc"
    for suffix in "" -more; do
      [ ! -d "$samples$suffix" ] || mount --bind -o ro "$samples$suffix" "$chroot/checkout/samples$suffix"
    done
    cd "$chroot"
    pivot_root . old
    umount -l /old
    env -u TMPDIR PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
      TAVITHUMB_SAMPLES=/checkout/samples "${@:3}" || exit  # not as the first process
    ' _ "$chroot" "$samples" "$@"
}
