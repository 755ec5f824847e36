// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <string>

#include "maker/maker.h"
#include "web/answer.h"
#include "web/listing.h"
#include "web/sendfile.h"
#include "web/target.h"
#include "web/worker.h"

namespace tavithumb::apps::web {

// How an answer reaches its client. Answers with a file or from memory, which may be cached by the client alone, honour
// the conditions and ranges of the request.
struct Delivery {
  const Service& service;
  Sendfile sendfile;
  const Turn& turn;
};

// Whether the file of an answer stays, or is removed once it has been sent.
enum class Lifetime { kLong, kThisRequest };

void DeliverThumb(const Delivery& delivery, Lifetime lifetime, Thumb* job);
void DeliverFromMemory(const maker::Thumbnail& thumbnail, const Delivery& delivery);

// A source as it is. `headers` are more lines.
void DeliverFile(const std::string& path, const std::string& mimeType, const std::string& headers,
                 const Delivery& delivery);

void DeliverJson(const Target& target, const std::string& body, const Delivery& delivery);

// As JSON or HTML. A client that has the same list already gets status 304.
void DeliverList(const Target& target, const Listing& listing, const Delivery& delivery);

}  // namespace tavithumb::apps::web
