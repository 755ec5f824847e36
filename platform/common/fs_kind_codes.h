// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavi {

// The codes of TAVIGetFSType, which TAVIFSIsRemoteFS and TAVIFSIsImageFS classify.
enum FsKind : int {
  kLocalFS = 1,
  kRemoteFS = 2,
  kImageFS = 3,
  // The number is fixed: callers compare it literally.
  kFatFS = 12,
};

}  // namespace tavi
