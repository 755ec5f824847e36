// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/sendfile.h"

#include <filesystem>
#include <vector>

#include "thumbs/store.h"
#include "web/http_error.h"
#include "web/target.h"

namespace tavithumb::apps::web {
namespace {

// Both headers' values are decoded by the web server.
std::string Encoded(const std::filesystem::path& path) {
  std::string encoded;
  for (const auto& name : path.relative_path()) encoded += "/" + UrlEncoded(name.string());
  return encoded;
}

std::string AddressBelow(const Root& root, const std::filesystem::path& file) {
  return (root.name.empty() ? "" : "/" + UrlEncoded(root.name)) + Encoded(file.lexically_relative(root.folder));
}

bool IsBelow(const std::string& path, const std::string& folder) {
  const std::string start = folder == "/" ? folder : folder + "/";
  return path.compare(0, start.size(), start) == 0;
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
  std::vector<Root> places = roots.All();
  if (!StoreFolder().empty()) places.insert(places.begin(), {storeName, StoreFolder()});
  for (const Root& root : places) {
    if (!IsBelow(path, root.folder)) continue;
    const bool isAddress = sendfile.header == kAccelRedirect;
    return sendfile.header + ": " + (isAddress ? sendfile.prefix + AddressBelow(root, path) : Encoded(path)) + "\r\n";
  }
  return "";
}

}  // namespace tavithumb::apps::web
