// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/libtavithumb.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "maker/maker.h"
#include "maker/picture.h"
#include "thumbs/request.h"

namespace tavithumb::apps {

// The programs' own thumbnails: the maker makes them, the library stores them under its names, and finds them from then
// on. Those of a video are made of a still. What the maker declines is left to the library's tools.

// The box in pixels of a requested size.
maker::Size BoxOf(const Size& size);

// Whether the maker may be asked: for a thumbnail of a photo with facts, or of a video. GIFs that are kept animated are
// left to the library.
bool CanRender(const Request& request, const ThumbInfo& source);

// Whether it can also be stored: next to the source, or in the store.
bool CanRenderAndStore(const Request& request, const ThumbInfo& source);

// Whether the source is the best answer to the request in `source`: upright, shown by browsers, within the box, and not
// much heavier than its thumbnail would be.
bool IsServedUnchanged(const Request& request, const ThumbInfo& source);

// The bytes that its thumbnail will have, more or less.
std::uint64_t ExpectedBytes(const Request& request, const ThumbInfo& source);

// Why a thumbnail that could be made is none: it could not be stored.
inline constexpr char notStored[] = "not stored";

// What a thumbnail is made from: its source, or the thumbnail that the library's tools have stored.
enum class Original { kSource, kStored };

// Makes the thumbnails from one decode and stores them with the time of the source. The requests differ only in their
// sizes; kStored is for a single one, and needs no details. Call it with the source locked, in a process that may
// crash. Returns nothing if all of them are stored, else why not, in a word.
std::optional<std::string> RenderAndStore(const ThumbInfo& source, const PictureDetails& details,
                                          const std::vector<Request>& requests, Original original);

// Makes the thumbnails of `source` from another picture of it, the facts of which have been read, with the same
// results.
std::optional<std::string> RenderAndStoreFrom(const ThumbInfo& picture, const ThumbInfo& source,
                                              const std::vector<Request>& requests);

// Makes one thumbnail as a new file at `path`, with the same results.
std::optional<std::string> RenderToFile(const ThumbInfo& source, const PictureDetails& details, const Request& request,
                                        const std::string& path);

// Makes one thumbnail in memory, with these options and the same results.
std::optional<std::string> RenderBytes(const ThumbInfo& source, const PictureDetails& details, const Request& request,
                                       const maker::Options& options, std::vector<std::uint8_t>* bytes);

// Makes one thumbnail in memory. Nothing if the maker declines it.
std::optional<maker::Thumbnail> RenderInMemory(const ThumbInfo& source, const PictureDetails& details,
                                               const Request& request);

// The same from a picture that is upright, whatever its metadata says, and rotated as requested.
std::optional<maker::Thumbnail> RenderInMemory(const std::string& upright, const Request& request);

// One of the first two, with its arguments.
using Rendering = std::function<std::optional<std::string>()>;

// Renders in this process, which may crash.
std::optional<std::string> RenderHere(const std::string& source, const Rendering& rendering);

// Renders in a process of its own, which locks the source, has limits, can access little else, and is stopped after
// five minutes. Throws std::system_error if there can't be one.
std::optional<std::string> RenderInChild(const std::string& source, const Rendering& rendering);
// The same from another picture of the source.
std::optional<std::string> RenderInChildFrom(const std::string& picture, const std::string& source,
                                             const Rendering& rendering);

// The beginnings of the names of the files that this process writes for a thumbnail before it stores it.
std::string TemporaryPrefix(const std::string& entry);

}  // namespace tavithumb::apps
