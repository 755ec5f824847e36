#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# hosts_test.sh COMMAND   GNU parallel distributes `tavithumb make` over two hosts by ssh, and a Slurm array over its
# tasks: every file is made once, with the same result as on one host. Both hosts are this one, behind an ssh daemon of
# our own.
set -euo pipefail

work=$(mktemp -d)
command=$work/tavithumb  # a path without spaces, for a line of a shell
ln -s "$(readlink -f "$1")" "$command"
trap '[ ! -s "$work/pid" ] || kill "$(cat "$work/pid")"; rm -rf "$work"' EXIT

skip() {
  echo "SKIPPED: $1"
  exit 77
}
fail() {
  echo "FAILED: $1"
  exit 1
}
for tool in parallel ssh ssh-keygen jq split; do command -v $tool >/dev/null || skip "needs $tool"; done
[ -x /usr/sbin/sshd ] || skip "needs /usr/sbin/sshd"
[ "$(id -u)" -ne 0 ] || mkdir -p /run/sshd || skip "needs /run/sshd"

# Pictures with odd names in three folders, all of them twice.
mkdir -p "$work/shared/a b/c" "$work/shared/d" "$work/home"
for ((i = 0; i < 24; i++)); do
  folders=(a\ b a\ b/c d)
  /usr/bin/convert -size 400x300 -seed "$i" plasma: "png:$work/shared/${folders[i % 3]}/picture '$i\".png"
done
printf x >"$work/shared/d/broken.png"
cp -a "$work/shared" "$work/local"

# Two names for this host, each with its own key and daemon.
port=0
for ((port = 20000 + RANDOM % 20000; ; port++)); do
  (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || break
done
ssh-keygen -q -t ed25519 -N '' -f "$work/host"
ssh-keygen -q -t ed25519 -N '' -f "$work/user"
cp "$work/user.pub" "$work/authorized"
cat >"$work/sshd_config" <<CONFIGURATION
Port $port
ListenAddress 127.0.0.1
HostKey $work/host
PidFile $work/pid
AuthorizedKeysFile $work/authorized
StrictModes no
UsePAM no
PasswordAuthentication no
PermitRootLogin prohibit-password
MaxStartups 100
SetEnv XDG_STATE_HOME=$work/state
CONFIGURATION
cat >"$work/ssh_config" <<CONFIGURATION
Host one two
  HostName 127.0.0.1
  Port $port
  User $(id -un)
  IdentityFile $work/user
  IdentitiesOnly yes
  UserKnownHostsFile $work/known
  StrictHostKeyChecking accept-new
  LogLevel ERROR
CONFIGURATION
/usr/sbin/sshd -f "$work/sshd_config" -E "$work/sshd.log" || skip "sshd does not start: $(cat "$work/sshd.log")"
for ((i = 0; i < 100; i++)); do
  ssh -F "$work/ssh_config" one true 2>"$work/ssh.log" && break
  sleep 0.1
done
ssh -F "$work/ssh_config" two true || skip "no login by ssh here: $(cat "$work/ssh.log" "$work/sshd.log")"
printf '2/one\n2/two\n' >"$work/hosts"

# The objects of all outputs: who made what.
check() { # check WHAT OUTPUT
  local made
  made=$(jq -r 'select(.summary | not) | .made[] as $size | [.source, $size] | @json' "$2" | sort)
  [ "$(wc -l <<<"$made")" -eq 48 ] || fail "$1: $(wc -l <<<"$made") thumbnails were made, not 48"
  [ -z "$(uniq -d <<<"$made")" ] || fail "$1: made twice: $(uniq -d <<<"$made")"
  [ "$(jq -s '[.[] | select(.error != null and (.summary | not))] | length' "$2")" -eq 1 ] || fail "$1: not one failure"
  diff -r "$work/local" "$work/shared" >/dev/null || fail "$1: not what a local run makes"
  find "$work/shared" -name .tavi_ea -prune -exec rm -r {} +
}

sizes="--sizes small,medium --retry"  # the broken file fails each time
"$command" make $sizes "$work/local" >/dev/null 2>&1 && fail "the broken file does not fail"
export PARALLEL_SSH="ssh -F $work/ssh_config" PARALLEL_HOME=$work/home HOME=$work/home

find "$work/shared" -name '*.png' -print0 |
  parallel -0 -n 5 --will-cite --sshloginfile "$work/hosts" "$command make $sizes --jobs 1 --json {}" \
    >"$work/arguments" 2>"$work/errors" && fail "parallel: the broken file does not fail"
check "names as arguments" "$work/arguments"

find "$work/shared" -name '*.png' -print0 |
  parallel --pipe --recend '\0' -N 5 --will-cite --sshloginfile "$work/hosts" \
    "$command make $sizes --jobs 1 --json -0 --files-from -" >"$work/piped" 2>"$work/errors" &&
  fail "parallel --pipe: the broken file does not fail"
check "names through a pipe" "$work/piped"

# The same folder on both hosts at once: the second one waits for each file, and finds it made.
parallel --will-cite --onall --sshloginfile "$work/hosts" "$command make $sizes --jobs 2 --json {}" ::: "$work/shared" \
  >"$work/both" 2>"$work/errors" && fail "both: the broken file does not fail"
jq -c 'select((.summary | not) and (.error == null))' "$work/both" >"$work/well"
jq -c 'select((.summary | not) and (.error != null))' "$work/both" | head -n 1 >>"$work/well"
check "the whole folder on both hosts" "$work/well"

# A Slurm array of three tasks, one after the other: each processes its part of the list.
find "$work/shared" -name '*.png' -print0 >"$work/list"
for task in 1 2 3; do
  SLURM_ARRAY_TASK_ID=$task SLURM_ARRAY_TASK_COUNT=3 LIST=$work/list COMMAND=$command SIZES=$sizes bash -c '
    split -t "\0" -n "r/$SLURM_ARRAY_TASK_ID/$SLURM_ARRAY_TASK_COUNT" "$LIST" |
      "$COMMAND" make $SIZES --json -0 --files-from -' >>"$work/array" 2>>"$work/errors" || true
done
check "a Slurm array" "$work/array"
echo "24 files, every one made once in each of 4 ways"
