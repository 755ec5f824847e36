#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# units_test.sh SOURCE   systemd understands the units, and rates what the service is exposed to below 3.
set -uo pipefail
cd "$1/packaging/systemd" || exit 1
command -v systemd-analyze >/dev/null || { echo "SKIPPED: systemd-analyze is not installed"; exit 77; }

# The program is not installed here, which is all that may be missing.
complaints=$(systemd-analyze verify ./tavithumb-web.socket ./tavithumb-web.service 2>&1 |
  grep -v "/usr/sbin/tavithumb-web is not executable")
[ -z "$complaints" ] || { echo "FAILED: $complaints"; exit 1; }

rating=$(systemd-analyze security --offline=true --no-pager ./tavithumb-web.service | sed -n 's/.*exposure level.*: \([0-9.]*\) .*/\1/p')
echo "exposure $rating"
awk -v rating="$rating" 'BEGIN { exit !(rating != "" && rating < 3) }'
