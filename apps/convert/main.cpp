// SPDX-License-Identifier: GPL-3.0-or-later
// What the library runs instead of ImageMagick's convert: the thumbnails that the maker makes the same, faster.
// Anything else is left to the system's convert, with the arguments and the environment as they are.
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "convert/conversion.h"
#include "convert/system_convert.h"

namespace tavithumb::apps::convert {
namespace {

// False too if memory, descriptors or processes run out: convert may need fewer.
bool IsDone(const std::vector<std::string>& arguments) {
  try {
    const std::optional<Conversion> conversion = ParseArguments(arguments);
    return conversion && Perform(*conversion);
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace
}  // namespace tavithumb::apps::convert

int main(int argc, char** argv) {
  using namespace tavithumb::apps::convert;
  if (IsDone({argv, argv + argc})) return 0;
  execv(kSystemConvert, argv);
  const std::string why = std::error_code(errno, std::generic_category()).message();
  std::cerr << "tavithumb-convert: cannot run " << kSystemConvert << ": " << why
            << "; install the package imagemagick\n";
  return 127;
}
