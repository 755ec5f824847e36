# SPDX-License-Identifier: GPL-3.0-or-later
# Completion of tavithumb for bash, with the helpers of bash-completion.

_tavithumb_options() { # _tavithumb_options SUBCOMMAND
  case $1 in
    get) echo --size --rotate --avatar --keep-animation --no-convert --fallback-smaller --albumex --no-brovix \
      --accept-heic --quality --library --store --store-all --json -0 ;;
    info) echo --json ;;
    list) echo --json --store ;;
    make) echo --sizes --jobs --older --limit --no-videos --dry-run --eager --quality --library --store --store-all --json \
      --files-from -0 ;;
    add) echo --size --check-type --mtime --store --store-all ;;
    clean) echo --dry-run --json --store --keep ;;
  esac
}

_tavithumb() {
  local cur prev words cword split
  _init_completion -s || return
  local sizes="small medium big large xlarge" offered=""

  if [ "$cword" -eq 1 ]; then
    offered="get info make add list clean -h --help --version"
  else
    case $prev in
      --size) offered="$sizes"; [ "${words[1]}" != get ] || offered+=" original" ;;
      --sizes)
        local begun=${cur%"${cur##*,}"}
        offered="$begun${sizes// / $begun}"
        ;;
      --rotate) offered="0 1 2 3" ;;
      --jobs | --limit | --mtime | --quality | --keep) return ;;
      --store) _filedir -d; return ;;
      --files-from) _filedir; return ;;
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
