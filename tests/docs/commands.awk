# SPDX-License-Identifier: GPL-3.0-or-later
# Prints the commands of a document, one per line, each followed by a tab and its documented output with "\n" for
# newlines.
#
# Markdown (*.md): lines indented by four spaces, without the comments after a command.
# Man pages (*.scd): in literal blocks, the text after the prompts "$ " and "# ", continued on the next line after a
# backslash or a pipe; other lines are output. In a block without a prompt, the first line is the command.

function give() {
  if (command != "") print command "\t" output
  command = output = ""
}

FILENAME ~ /\.md$/ {
  if ($0 ~ /^ *```/) fenced = !fenced
  else if (!fenced && $0 ~ /^    [^ ]/) { sub(/^    /, ""); sub(/  +#.*/, ""); command = $0; give() }
  next
}

/^```/ { give(); literal = !literal; first = goesOn = 0; if (literal) first = 1; next }
!literal { next }
{
  gsub(/\\\\/, "\\")
  if (goesOn) { sub(/^ +/, ""); command = command $0 }
  else if (first || /^[$#] /) { give(); prompt = sub(/^[$#] /, ""); command = $0 }
  else if (prompt) output = output $0 "\\n"
  first = 0
  goesOn = prompt && command ~ /[\\|]$/
  if (goesOn) { sub(/\\$/, "", command); sub(/\|$/, "| ", command) }
}
