// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/fs_kind_codes.h"
#include "exported.h"

int TAVIFSIsRemoteFS(int type) {
  return type == tavi::kRemoteFS;
}

int TAVIFSIsImageFS(int type) {
  return type == tavi::kImageFS;
}
