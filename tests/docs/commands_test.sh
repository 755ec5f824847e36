#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# commands_test.sh run SOURCE BUILD     runs each command of the documents, or checks that the test named in commands.txt does
# commands_test.sh check SOURCE BUILD   checks that each has a row in commands.txt; runs nothing
set -uo pipefail
mode=$1
export checkout=$2 build=$3
tests=$(dirname "$(readlink -f "$0")")
cd "$checkout" || exit 1
git rev-parse --git-dir >/dev/null 2>&1 || { echo "SKIPPED: not a checkout of git"; exit 77; }

work=$(mktemp -d)
export sandbox=$work/sandbox pictures=$work/sandbox/srv/photos
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAILED: $1"
  failures=$((failures + 1))
}

# answers_until_ended COMMAND...   It prints the address of a page that exists; Ctrl-C stops it.
answers_until_ended() {
  local address="" process status=1
  setsid "$@" >"$sandbox/printed" 2>&1 &
  process=$!
  for ((i = 0; i < 6000; i++)); do
    address=$(grep -m 1 '^http://' "$sandbox/printed") && break
    kill -0 "$process" 2>/dev/null || break
    sleep 0.1
  done
  [ -n "$address" ] && curl -sf -m 20 -o "$sandbox/page" "$address" && status=0
  kill -INT -- "-$process" 2>/dev/null
  wait "$process"
  [ "$status" -eq 0 ] || cat "$sandbox/printed"
  return "$status"
}

# listens_until_ended ADDRESS COMMAND...   It listens on the path of a socket or HOST:PORT; then it is stopped.
listens_until_ended() {
  local address=$1 process i status=1
  shift
  mkdir -p "$(dirname "$address")"
  "$@" &
  process=$!
  for ((i = 0; i < 200 && status != 0; i++)); do
    { [ -S "$address" ] || (exec 3<>"/dev/tcp/${address/:/\/}") 2>/dev/null; } && status=0
    sleep 0.1
  done
  kill "$process"
  wait "$process"
  return "$status"
}

# measures COMMAND...   It prints its table. With so few rounds, limits may be exceeded; that does not matter here.
measures() {
  TAVITHUMB_BENCH_ROUNDS=2 "$@" >"$sandbox/table"
  [ $? -le 1 ] && head -n 1 "$sandbox/table" | grep -q '^what .* met$'
}
export -f answers_until_ended listens_until_ended measures

# A photo so large that each of its thumbnails is worth storing.
make_pictures() {
  /usr/bin/convert -size 2400x1600 -seed 7 plasma: +noise Gaussian -quality 92 "$work/scene.jpg"
  exiv2 -M'set Exif.Image.Orientation 1' "$work/scene.jpg"
  heif-enc -q 60 "$work/scene.jpg" -o "$work/scene.heic" >"$work/log" 2>&1 || fail "heif-enc: $(cat "$work/log")"
  /usr/bin/convert "$work/scene.jpg" -resize 120 "$work/small.jpg"
}

# A machine's folders for one document; commands that would change this machine are replaced by harmless ones.
make_sandbox() {
  local name
  rm -rf "$sandbox"
  mkdir -p "$pictures/.tavi_ea/clip.mp4" "$sandbox"/{srv/films,etc/systemd/system,run,bin,home}
  for name in IMG_1234.JPG photo.jpg a.jpg b.jpg; do cp "$work/scene.jpg" "$pictures/$name"; done
  for name in photo-360.jpg a-120.jpg b-120.jpg .tavi_ea/clip.mp4/TAVIVIDEO_VIDEO_SCREENSHOT.jpg; do
    cp "$work/small.jpg" "$pictures/$name"
  done
  cp "$work/scene.heic" "$pictures/-strange-name-.heic"
  : >"$pictures/clip.mp4"
  touch -d '1 minute ago' "$pictures/clip.mp4"
  printf 'first\nsecond\n' >"$pictures/hosts"
  touch -d '1 hour ago' "$pictures/mark"

  stand_in sudo 'exec "$@"'
  stand_in useradd 'exit 0'
  stand_in systemctl 'exec /usr/bin/systemctl --root="$sandbox" ${@/--now/--quiet}'
  # All other machines are this one.
  stand_in ssh 'while [ "$1" != first ] && [ "$1" != second ]; do shift; done; [ "$2" != -- ] || shift; shift; cd "$HOME"; exec sh -c "$*"'
  stand_in sbatch 'export SLURM_ARRAY_TASK_COUNT=16
    for ((SLURM_ARRAY_TASK_ID = 0; SLURM_ARRAY_TASK_ID < 16; SLURM_ARRAY_TASK_ID++)); do
      export SLURM_ARRAY_TASK_ID; sh -c "${@: -1}" || exit 1
    done'
  cmake --install "$build" --prefix "$sandbox/usr" >"$work/log" || fail "cmake --install: $(cat "$work/log")"
}

stand_in() { # stand_in NAME SCRIPT
  printf '#!/bin/bash\n%s\n' "$2" >"$sandbox/bin/$1"
  chmod 755 "$sandbox/bin/$1"
}

in_sandbox() { sed -E "s#(^|[ =])/(srv|etc|run)/#\1$sandbox/\2/#g"; }

# run FOLDER COMMAND OUTPUT
run() {
  local status=0 expected
  [ "$mode" = run ] || return
  echo "$2"
  (cd "$1" && PATH=$sandbox/bin:$sandbox/usr/bin:$sandbox/usr/sbin:$PATH DESTDIR=$sandbox \
    timeout 1200 bash -c "$(in_sandbox <<<"$2")") >"$work/out" 2>"$work/err" || status=$?
  [ "$status" -eq 0 ] || fail "exit $status of '$2': $(cat "$work/err" "$work/out")"
  [ -n "$3" ] || return
  expected=$(printf '%b' "$3" | in_sandbox)
  [ "$(cat "$work/out")" = "$expected" ] || fail "'$2' prints '$(cat "$work/out")', not '$expected'"
}

# Column 1 is a document, 2 one of its commands, 3 the output.
given=$work/given table=$work/table
for document in *.md docs/*.md docs/man/*.scd; do
  awk -f "$tests/commands.awk" "$document" | sed "s#^#$document\t#"
done >"$given"
cut -f 1,2 "$given" >"$work/commands"
awk '/^#/ || /^$/ { next } /^    / { sub(/^    /, ""); print document "\t" command "\t" $0; next }
     /^  / { sub(/^  /, ""); command = $0; next } { document = $0 }' "$tests/commands.txt" >"$table"

# A row may belong to a document of a component that is not here.
while IFS=$'\t' read -r document command _; do
  [ ! -f "$document" ] || grep -qxF "$document"$'\t'"$command" "$work/commands" ||
    fail "commands.txt: $document has no command '$command'"
done <"$table"

known_tests=$(ctest --test-dir "$build" -N | sed -n 's/^ *Test *#[0-9]*: //p')
[ "$mode" != run ] || make_pictures
export port=$((20000 + RANDOM % 20000))
of=""
while IFS=$'\t' read -r document command output <&4; do
  how=$(awk -F '\t' -v document="$document" -v command="${command//\\/\\\\}" \
    '$1 == document && $2 == command { print $3; exit }' "$table")
  [ "$mode" != run ] || [ "$of" = "$document" ] || make_sandbox
  of=$document
  case $how in
    pictures) run "$pictures" "$command" "$output" ;;
    "pictures: "*) run "$pictures" "${how#*: }" "$output" ;;
    checkout) run "$checkout" "$command" "$output" ;;
    "checkout: "*) run "$checkout" "${how#*: }" "$output" ;;
    "test: "*) grep -qxF "${how#*: }" <<<"$known_tests" || fail "there is no test ${how#*: }, named for '$command'" ;;
    "gate: "*) grep -qxE "(run|beside (other|idle)) ${how#*: }" .ci/run || fail ".ci/run has no step ${how#*: }, named for '$command'" ;;
    "proof: "*) grep -qF "$command" "tests/proof/${how#*: }" || fail "no proof ${how#*: } runs '$command'" ;;
    "shown: "*) ;;
    *) fail "$document: nothing in commands.txt says how '$command' is tested" ;;
  esac
done 4<"$given"
[ "$failures" -eq 0 ]
