# SPDX-License-Identifier: GPL-3.0-or-later
# Prints the commands of a document, one a line, what is said to come out of it behind a tab, its lines ended by "\n".
#
# Markdown (*.md): what is indented by four blanks; comments behind a command are left out.
# Man pages (*.scd): in literal blocks, what stands behind the prompts "$ " and "# ", over several lines where one ends
# with a backslash or a pipe; other lines are what comes out. Of a block without a prompt the first line counts as one.

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
