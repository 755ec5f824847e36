// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/ea_folder.h"

#include <tavithumb/util.h>

#include "system/paths.h"

namespace tavithumb::apps {

const std::string& EAFolderName() {
  static const std::string name = BaseName(file::Dirname(file::Dirname(file::GetEAPath("/folder/source", "entry"))));
  return name;
}

bool IsInEAFolder(const std::string& folder) {
  return ("/" + folder + "/").find("/" + EAFolderName() + "/") != std::string::npos;
}

}  // namespace tavithumb::apps
