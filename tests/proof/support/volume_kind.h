// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::proof {

// While it lives, every volume is one that cannot store EA entries.
class VolumeWithoutEntries {
 public:
  VolumeWithoutEntries();
  ~VolumeWithoutEntries();
  VolumeWithoutEntries(const VolumeWithoutEntries&) = delete;
  VolumeWithoutEntries& operator=(const VolumeWithoutEntries&) = delete;
};

}  // namespace tavithumb::proof
