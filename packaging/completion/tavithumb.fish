# SPDX-License-Identifier: GPL-3.0-or-later
# Completion of tavithumb for fish.
set -l sizes small medium big large xlarge
set -l one __fish_seen_subcommand_from

complete -c tavithumb -s h -l help -d 'Print a help and exit'
complete -c tavithumb -n __fish_use_subcommand -l version -d 'Print the version and exit'
complete -c tavithumb -n __fish_use_subcommand -f -a get -d 'Print the path of a thumbnail of each file'
complete -c tavithumb -n __fish_use_subcommand -f -a info -d 'Print what is known of each file'
complete -c tavithumb -n __fish_use_subcommand -f -a make -d 'Make thumbnails ahead of time'
complete -c tavithumb -n __fish_use_subcommand -f -a add -d 'Store existing thumbnails'
complete -c tavithumb -n __fish_use_subcommand -f -a list -d 'Print what is stored for each source'
complete -c tavithumb -n __fish_use_subcommand -f -a clean -d 'Remove what nobody needs'

complete -c tavithumb -n "$one get" -l size -x -a "$sizes original" -d 'A name, WIDTHxHEIGHT or SIDE'
complete -c tavithumb -n "$one get" -l rotate -x -a '0 1 2 3' -d 'Turn by so many quarters clockwise'
complete -c tavithumb -n "$one get" -l avatar -d 'Crop to fill the box'
complete -c tavithumb -n "$one get" -l keep-animation -d 'An animated GIF stays one'
complete -c tavithumb -n "$one get" -l no-convert -d 'Only what is stored or embedded'
complete -c tavithumb -n "$one get" -l fallback-smaller -d 'Failing the size, try the smaller ones'
complete -c tavithumb -n "$one get" -l albumex -d 'Look for Albumex thumbnails first'
complete -c tavithumb -n "$one get" -l no-brovix -d 'Do not look for Brovix thumbnails'
complete -c tavithumb -n "$one get" -l accept-heic -d 'A HEIC photo may be the answer'
complete -c tavithumb -n "$one get" -s 0 -d 'End each path with a NUL byte'

complete -c tavithumb -n "$one make" -l sizes -x -a "(__fish_append , $sizes)" -d 'Names of sizes, with commas between'
complete -c tavithumb -n "$one make" -l jobs -x -d 'Workers'
complete -c tavithumb -n "$one make" -l older -d 'Only thumbnails that are older than their file'
complete -c tavithumb -n "$one make" -l limit -x -d 'Stop after so many files'
complete -c tavithumb -n "$one make" -l files-from -r -d 'Read names from a file'
complete -c tavithumb -n "$one make" -s 0 -d 'Those names end with a NUL byte each'

complete -c tavithumb -n "$one add" -l size -x -a "$sizes" -d 'The size that they are of'
complete -c tavithumb -n "$one add" -l check-type -d 'Refuse thumbnails of another type'
complete -c tavithumb -n "$one add" -l mtime -x -d 'Their modification time'

complete -c tavithumb -n "$one make clean" -l dry-run -d 'Only tell what would be done'
complete -c tavithumb -n "$one get info make list clean" -l json -d 'Print one JSON object a line'
