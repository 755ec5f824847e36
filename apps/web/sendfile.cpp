// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/sendfile.h"

#include <cstddef>

#include "system/text.h"
#include "thumbs/store.h"
#include "web/http_error.h"
#include "web/target.h"

namespace tavithumb::apps::web {
namespace {

// The file is below the root. Both headers' values are decoded by the web server.
std::string AddressBelow(const Root& root, const std::string& file) {
  const std::size_t start = root.folder == "/" ? 0 : root.folder.size();
  return (root.name.empty() ? "" : "/" + UrlEncoded(root.name)) + UrlEncodedPath(file.substr(start));
}

bool IsBelow(const std::string& path, const std::string& folder) {
  const std::string start = folder == "/" ? folder : folder + "/";
  return path.compare(0, start.size(), start) == 0;
}

std::string Line(const Sendfile& sendfile, const std::string& address, const std::string& path) {
  const bool isAddress = sendfile.header == kAccelRedirect;
  return sendfile.header + ": " + (isAddress ? sendfile.prefix + address : UrlEncodedPath(path)) + "\r\n";
}

}  // namespace

Sendfile ReadSendfile(const std::string& header, const Variables& variables) {
  if (header.empty()) return {};
  const std::string announced = ValueOf(variables, "TAVITHUMB_SENDFILE");
  const std::size_t space = announced.find(' ');
  if (announced.substr(0, space) != header) {
    throw HttpError(kInternalServerError, "the web server does not announce " + header);
  }
  return {header, space == announced.npos ? "" : announced.substr(space + 1)};
}

std::string SendfileLine(const Sendfile& sendfile, const Roots& roots, const std::string& path) {
  if (sendfile.header.empty()) return "";
  if (IsInStore(path)) return Line(sendfile, AddressBelow({storeName, StoreFolder()}, path), path);
  for (const Root& root : roots.All()) {
    if (!IsBelow(path, root.folder)) continue;
    const std::string address = AddressBelow(root, path);
    return IsBelow(address, std::string("/") + storeName) ? "" : Line(sendfile, address, path);
  }
  return "";
}

}  // namespace tavithumb::apps::web
