# SPDX-License-Identifier: GPL-3.0-or-later
# Completion of tavithumb for bash, with the helpers of bash-completion.

_tavithumb_options() { # _tavithumb_options SUBCOMMAND
  case $1 in
    get) echo -s --size --rotate --avatar --keep-animation --no-convert --fallback-smaller --albumex --no-brovix \
      --accept-heic --quality --library --store --store-all --json --files-from -0 ;;
    info) echo --json ;;
    render) echo -s --size --rotate --avatar --format --quality --uri ;;
    list) echo --json --store ;;
    make) echo -s --sizes --jobs --older --limit --exclude --one-file-system --newer-than --no-videos -n --dry-run \
      --retry --eager --quality --library --store --store-all -q --quiet -v --verbose --json --files-from -0 ;;
    watch) echo -s --sizes --jobs --exclude --one-file-system --no-videos --retry --eager --quality --library --store \
      --store-all -q --quiet -v --verbose --json ;;
    add) echo -s --size --check-type --mtime --store --store-all ;;
    clean) echo --exclude --one-file-system --dry-run -n -q --quiet --json --store --keep ;;
  esac
}

_tavithumb() {
  local cur prev words cword split
  _init_completion -s || return
  local sizes="small medium big large xlarge" offered=""

  if [ "$cword" -eq 1 ]; then
    offered="get info make watch render add list clean -h --help --version"
  else
    case $prev in
      -s | --size | --sizes)
        case ${words[1]} in
          get | render) offered="$sizes original" ;;
          make | watch) local begun=${cur%"${cur##*,}"}; offered="$begun${sizes// / $begun}" ;;
          *) offered=$sizes ;;
        esac
        ;;
      --rotate) offered="0 1 2 3" ;;
      --format) offered="jpeg png webp" ;;
      --jobs | --limit | --mtime | --quality | --keep | --uri | --exclude) return ;;
      --store) _filedir -d; return ;;
      --files-from | --newer-than) _filedir; return ;;
      *)
        $split && return
        [[ $cur == -* ]] || { _filedir; return; }
        offered="$(_tavithumb_options "${words[1]}") -h --help"
        ;;
    esac
  fi
  COMPREPLY=($(compgen -W "$offered" -- "$cur"))
}

complete -F _tavithumb tavithumb
