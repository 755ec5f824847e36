// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/decoder_process.h"

#include <chrono>

#include "system/limited_child.h"
#include "system/text_pipe.h"

namespace tavithumb::apps {

std::string RunInDecoderProcess(const std::function<std::string()>& work) {
  constexpr ChildLimits limits = {mostDecodingSeconds, mostDecodedBytes, std::chrono::minutes(5)};
  const TextPipe pipe;
  const int status =
      RunLimited(limits, pipe.SendingEnd(), [&](int channel) { TextPipe::Send(channel, work().substr(0, 64)); });
  return status == 0 ? pipe.Receive() : "crashed";
}

}  // namespace tavithumb::apps
