// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::apps {

// Names for the values of Error::Code(), which are plain numbers in the library.
enum ErrorCode : int {
  kNotExamined = 601,  // the source cannot be stat'ed, or its metadata is damaged
  kNoFacts = 602,      // the content is not a known image type
  kNotOpened = 603,    // the source cannot be opened for reading its metadata
};

}  // namespace tavithumb::apps
