#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# layering_test.sh SOURCE   Each layer includes only those below it.
set -uo pipefail
cd "$1" || exit 1

failures=0
# never WHAT PATTERN PATH...   no line of the paths matches
never() {
  local found
  found=$(grep -rnE --include='*.cpp' --include='*.h' "$2" "${@:3}")
  [ -z "$found" ] && return
  echo "FAILED: $1:"
  echo "$found"
  failures=$((failures + 1))
}

include='#include *[<"]'
never "only src/info knows Exiv2 and libheif" "$include(exiv2|libheif)/" src/support src/commands src/job include platform
never "in the programs, only one source knows Exiv2" "$include""exiv2/" apps --exclude=exif_details.cpp
never "src/support knows nothing above it" "$include(info|commands|job)/" src/support
never "src/info knows neither commands nor jobs" "$include(commands|job)/" src/info
never "src/info knows neither commands nor jobs" "$include""tavithumb/(thumb_convert_cmd|libtavithumb)\.h" src/info src/support
never "src/commands knows no jobs" "$include(job/|tavithumb/libtavithumb)" src/commands
never "the programs know the library by its public headers alone" "$include(support|info|commands|job)/" apps
never "the programs do not derive from the job or its facts" '\b(class|struct) .*[:,] *((public|protected|private|virtual) +)*(tavithumb::)?Thumb(Info)?\b' apps maker
never "apps/system knows nothing about thumbnails" "$include(thumbs|command|web|convert|tavithumb)/" apps/system
never "apps/thumbs knows no program" "$include(command|web|convert)/" apps/thumbs
never "the programs know nothing of each other" "$include(web|convert)/" apps/command
never "the programs know nothing of each other" "$include(command|convert)/" apps/web
never "the converter knows nothing of the library and the other programs" "$include(thumbs|command|web|tavithumb)/" apps/convert
never "a batch knows no option" "$include(CLI/|command/cli/)" apps/command/batch
never "includes in apps name the layer" '#include "[^/]*"|#include "(batch|cli|\.\.)/' apps
never "the library does not know the maker" "$include""maker/" src include platform
never "the maker knows the library by its public headers, and no program" "$include(support|info|commands|job|system|thumbs|command|web)/" maker
codecs='(jpeglib|png|spng|libdeflate|tiffio|gif_lib|webp/|jxl/|libraw/|libheif/|lcms2|hwy/)'
never "only the maker knows image codecs" "$include$codecs" include platform apps src/support src/commands src/job
never "only apps knows CLI11 and JSON" "$include(CLI|nlohmann)/" src include platform maker
never "only command/cli and web/settings.cpp know CLI11" "$include""CLI/" apps --exclude-dir=cli --exclude=settings.cpp
# Each costs seconds for every source that includes it.
never "headers include neither CLI11 nor all of JSON" "$include(CLI/|nlohmann/json\.hpp)" apps --exclude='*.cpp'
never "only the platform starts programs, and in the programs only the supervisor forks" '\b(fork|vfork|posix_spawnp?|exec[lv]p?e?|system)\(' src include maker apps --exclude=supervisor.cpp --exclude-dir=convert
never "the converter becomes convert, and starts nothing" '\b(fork|vfork|posix_spawnp?|execlp?e?|execvpe?|system)\(' apps/convert
never "the public headers show no third-party header" "$include(exiv2|libheif|tavi/|http_file)" include
never "the sources don't know which platform they run on" 'tavi_ea|posix_spawn|statfs\(' src include
never "the platform knows nothing of the library" "$include""tavithumb/" platform
[ "$failures" -eq 0 ]
