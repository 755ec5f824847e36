# SPDX-License-Identifier: GPL-3.0-or-later
# zsh -f zsh_offers.zsh FOLDER LINE   what an interactive zsh offers at the end of LINE, with the completion in FOLDER:
# one per line. Completion works only on terminals, so this runs a zsh on a pseudo-terminal.
zmodload zsh/zpty
zpty inner zsh -f -i

# Each match is printed instead of listed. The terminal echoes the input, so "ready" is not typed as it is printed.
zpty -w inner "stty -echo; PROMPT= fpath=(${(q)1} \$fpath); autoload -Uz compinit; compinit -D -u"
zpty -w inner '
  compadd() {
    if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then
      builtin compadd "$@"
      return
    fi
    local -a matches
    builtin compadd -A matches "$@"
    (( $#matches )) && print -l -- "offer "${^matches}
    builtin compadd "$@"
  }
  zstyle ":completion:*" menu no
  LISTMAX=-1
  finish() { print; print the end; exit }
  zle -N finish
  bindkey "^I" list-choices
  bindkey "^X" finish
  print re""ady'
zpty -r inner output '*ready*' || exit 1
zpty -n -w inner "$2"$'\t\x18'
zpty -r inner output '*the end*' || exit 1
print -r -- $output | tr -d '\r' | sed -n 's/^.*offer //p'
