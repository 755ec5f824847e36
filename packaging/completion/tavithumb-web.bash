# SPDX-License-Identifier: GPL-3.0-or-later
# Completion of tavithumb-web for bash, with the helpers of bash-completion.

_tavithumb_web() {
  local cur prev words cword split
  _init_completion -s || return
  case $prev in
    --config | --scgi) _filedir; return ;;
    --root)
      cur=${cur#*=}
      _filedir -d
      return
      ;;
    --policy | --store) _filedir -d; return ;;
    --sendfile) COMPREPLY=($(compgen -W "X-Accel-Redirect X-Sendfile" -- "$cur")); return ;;
    --store-size | --quality | --children | --senders | --waiting | --deadline | --tool-*) return ;;
  esac
  $split && return
  COMPREPLY=($(compgen -W "-h --help --version --config --root --scgi --sendfile --store --store-all --store-size
    --hidden --quality --library --children --senders --waiting --deadline --policy --tool-cpu --tool-memory
    --tool-file-size --tool-files" -- "$cur"))
}

complete -F _tavithumb_web tavithumb-web
