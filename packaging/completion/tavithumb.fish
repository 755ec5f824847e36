# SPDX-License-Identifier: GPL-3.0-or-later
# Completion of tavithumb for fish.
set -l sizes small medium big large xlarge
set -l one __fish_seen_subcommand_from

complete -c tavithumb -s h -l help -d 'Print help and exit'
complete -c tavithumb -n __fish_use_subcommand -l version -d 'Print the version and exit'
complete -c tavithumb -n __fish_use_subcommand -f -a get -d 'Print the path of a thumbnail for each file'
complete -c tavithumb -n __fish_use_subcommand -f -a info -d 'Print what is known about each file'
complete -c tavithumb -n __fish_use_subcommand -f -a make -d 'Make thumbnails ahead of time'
complete -c tavithumb -n __fish_use_subcommand -f -a render -d 'Write one picture of a file'
complete -c tavithumb -n __fish_use_subcommand -f -a add -d 'Store existing thumbnails'
complete -c tavithumb -n __fish_use_subcommand -f -a list -d 'Print what is stored for each source'
complete -c tavithumb -n __fish_use_subcommand -f -a clean -d 'Remove thumbnails that are no longer used'

complete -c tavithumb -n "$one get" -s s -l size -x -a "$sizes original" -d 'A name, WIDTHxHEIGHT or SIDE'
complete -c tavithumb -n "$one get" -l rotate -x -a '0 1 2 3' -d 'Rotate clockwise by this number of quarter turns'
complete -c tavithumb -n "$one get" -l avatar -d 'Crop to fill the box'
complete -c tavithumb -n "$one get" -l keep-animation -d 'Keep an animated GIF animated'
complete -c tavithumb -n "$one get" -l no-convert -d 'Use only stored thumbnails and embedded previews'
complete -c tavithumb -n "$one get" -l fallback-smaller -d 'If the size is not available, try the smaller ones'
complete -c tavithumb -n "$one get" -l albumex -d 'Look first for thumbnails of Albumex, the photo album'
complete -c tavithumb -n "$one get" -l no-brovix -d 'Do not look for thumbnails of Brovix, the file browser'
complete -c tavithumb -n "$one get" -l accept-heic -d 'Accept a HEIC photo itself as the answer'
complete -c tavithumb -n "$one get" -s 0 -d 'Paths, and names in that file, end with a NUL byte'

complete -c tavithumb -n "$one make" -s s -l sizes -x -a "(__fish_append , $sizes)" -d 'Comma-separated names of sizes'
complete -c tavithumb -n "$one make" -l jobs -x -d 'Files to work on in parallel'
complete -c tavithumb -n "$one make" -l older -d 'Only regenerate thumbnails older than their file'
complete -c tavithumb -n "$one make" -l limit -x -d 'Stop after making thumbnails for this number of files'
complete -c tavithumb -n "$one make" -l no-videos -d 'Skip videos in folders and lists'
complete -c tavithumb -n "$one get make" -l files-from -r -d 'Read names from a file'
complete -c tavithumb -n "$one make" -s 0 -d 'Names in that file end with a NUL byte'

complete -c tavithumb -n "$one render" -s s -l size -x -a "$sizes original" -d 'The largest width and height'
complete -c tavithumb -n "$one render" -l rotate -x -a '0 1 2 3' -d 'Rotate clockwise by this number of quarter turns'
complete -c tavithumb -n "$one render" -l avatar -d 'Crop to fill the box'
complete -c tavithumb -n "$one render" -l format -x -a 'jpeg png webp' -d 'The format to write'
complete -c tavithumb -n "$one render" -l quality -x -d 'Quality of a JPEG or WebP picture, 1 to 100'
complete -c tavithumb -n "$one render" -l uri -x -d 'Name the file by this URI in a PNG'

complete -c tavithumb -n "$one add" -s s -l size -x -a "$sizes" -d 'The size to store them as'
complete -c tavithumb -n "$one add" -l check-type -d 'Accept only the type that would be made'
complete -c tavithumb -n "$one add" -l mtime -x -d 'Their modification time'

complete -c tavithumb -n "$one get make" -l quality -x -d 'Quality of the JPEG thumbnails, 1 to 100'
complete -c tavithumb -n "$one get make" -l library -d 'Use the tools of the library only'
complete -c tavithumb -n "$one make" -l eager -d 'Compete with other programs'
complete -c tavithumb -n "$one get make add list clean" -l store -x -a '(__fish_complete_directories)' \
    -d 'Where thumbnails are stored if not next to their source'
complete -c tavithumb -n "$one get make add" -l store-all -d 'Store all new thumbnails there'
complete -c tavithumb -n "$one clean" -l keep -x -d 'Limit the store to this size'
complete -c tavithumb -n "$one make clean" -s q -l quiet -d 'Print problems only'
complete -c tavithumb -n "$one make" -s v -l verbose -d 'Print a line for each file'
complete -c tavithumb -n "$one make clean" -l exclude -x -d 'Leave out files and folders that match'
complete -c tavithumb -n "$one make clean" -l one-file-system -d 'Leave out volumes that are mounted below'
complete -c tavithumb -n "$one make" -l newer-than -r -d 'Leave out files not changed after a date or a file'
complete -c tavithumb -n "$one make clean" -s n -l dry-run -d 'Only print what would be done'
complete -c tavithumb -n "$one get info make list clean" -l json -d 'Print one JSON object per line'
