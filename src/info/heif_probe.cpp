// SPDX-License-Identifier: GPL-3.0-or-later
// Reads the size of a HEIF picture with libheif. No pixel is decoded.
#include <libheif/heif_cxx.h>

#include <stdexcept>

#include "support/log.h"
#include "tavithumb/thumb_info.h"

namespace tavithumb {
namespace {

// Only the first metadata block counts.
bool BeginsWithExif(const heif_image_handle* handle) {
  const int count = heif_image_handle_get_number_of_metadata_blocks(handle, nullptr);
  std::vector<heif_item_id> ids(static_cast<std::size_t>(count));
  heif_image_handle_get_list_of_metadata_block_IDs(handle, nullptr, ids.data(), count);
  return !ids.empty() && std::string("Exif") == heif_image_handle_get_metadata_type(handle, ids.front());
}

}  // namespace

void ThumbInfo::CheckAndGetHeif() {
  try {
    heif::Context context;
    context.read_from_file(path_);
    const heif::ImageHandle handle = context.get_primary_image_handle();
    if (!BeginsWithExif(handle.get_raw_image_handle())) return;
    width_ = static_cast<std::uint32_t>(handle.get_width());
    height_ = static_cast<std::uint32_t>(handle.get_height());
    SetOrientation(0);
    heic_ = true;
  } catch (const heif::Error& error) {
    syslog(LOG_ERR, TAVITHUMB_LOG("%s, heif error: code = %d, subcode = %d, %s"), "thumb_info", 160, "CheckAndGetHeif",
           path_.c_str(), error.get_code(), error.get_subcode(), error.get_message().c_str());
  } catch (const std::runtime_error& error) {
    syslog(LOG_ERR, TAVITHUMB_LOG("runtime error: %s"), "thumb_info", 163, "CheckAndGetHeif", error.what());
  }
}

}  // namespace tavithumb
