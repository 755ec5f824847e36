// SPDX-License-Identifier: GPL-3.0-or-later
// The range and version headers of a request: six lines, and the file's size in the first eight bytes.
#include <cstring>

#include "fuzz.h"
#include "http/conditions.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tavi::FileVersion version = {"\"tag\"", 784111777, 784111777, 0};
  if (size < sizeof version.size) return 0;
  std::memcpy(&version.size, data, sizeof version.size);
  std::string rest = TextOf(data + sizeof version.size, size - sizeof version.size);
  tavi::FileRequest request = {};
  request.isCgi = true;
  request.method = "GET";
  for (std::string* line : {&request.range, &request.ifRange, &request.ifNoneMatch, &request.ifModifiedSince,
                            &request.ifMatch, &request.ifUnmodifiedSince}) {
    const std::size_t end = rest.find('\n');
    *line = rest.substr(0, end);
    rest.erase(0, end == rest.npos ? end : end + 1);
  }
  const tavi::Decision decision = tavi::Decide(request, version, 1800000000);
  if (decision.outcome == tavi::Outcome::kPart) {
    Require(decision.length > 0 && decision.first < version.size && decision.length <= version.size - decision.first);
  } else if (decision.outcome == tavi::Outcome::kWhole) {
    Require(decision.first == 0 && decision.length == version.size);
  } else {
    Require(decision.first == 0 && decision.length == 0);
  }
  return 0;
}
