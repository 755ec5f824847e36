#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# units_test.sh SOURCE   systemd understands the units, and rates what the services are exposed to below 3.
set -uo pipefail
cd "$1/packaging/systemd" || exit 1
command -v systemd-analyze >/dev/null || { echo "SKIPPED: systemd-analyze is not installed"; exit 77; }

# The programs are not installed here, which is all that may be missing.
complaints=$(systemd-analyze verify ./*.socket ./*.timer ./*.service 2>&1 |
  grep -vE "/usr/s?bin/tavithumb(-web)? is not executable")
[ -z "$complaints" ] || { echo "FAILED: $complaints"; exit 1; }

# The services can write only to their temporary files and to the store, which systemd makes for their user; those of the
# command also to the list of files that failed.
writable() { sed -n 's/^\(ProtectSystem\|PrivateTmp\|CacheDirectory\|ReadWritePaths\|StateDirectory\|Environment\)=/\1 /p' "$1" | sort; }
for service in *.service; do
  expected=('CacheDirectory tavithumb' 'Environment TAVITHUMB_STORE=/var/cache/tavithumb' 'PrivateTmp yes' 'ProtectSystem strict')
  [ "$service" = tavithumb-web.service ] || expected+=('StateDirectory tavithumb')
  diff <(printf '%s\n' "${expected[@]}") <(writable "$service") || exit 1
  rating=$(systemd-analyze security --offline=true --no-pager "./$service" | sed -n 's/.*exposure level.*: \([0-9.]*\) .*/\1/p')
  echo "$service: exposure $rating"
  awk -v rating="$rating" 'BEGIN { exit !(rating != "" && rating < 3) }' || exit 1
done
