// SPDX-License-Identifier: GPL-3.0-or-later
#include "odd_names.h"

namespace tavithumb::proof {

std::vector<std::string> OddNames() {
  std::vector<std::string> names = {
      "-",      "--help",  "-o",    "@list",     "png:x",        "%d",        "%s%n",     "x[0]*",
      "{a,b}",  "[a]",     "~",     "|touch y",  "$(touch y)",   "`touch y`", "'",        "\"",
      ";",      " ",       "\t",    "new\nline", "\x01\x1B[31m", "\\",        "\xFF\xFE", "\xED\xA0\x80",
      "http:x", ".hidden", "a.gif", "..."};
  names.emplace_back(251, 'n');
  return names;
}

}  // namespace tavithumb::proof
