// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::apps {

// Makes sure that the descriptors 0 to 2 are taken, so that no file opened later becomes standard output. One that was
// closed stays unwritable.
void OpenStandardDescriptors();

// While it lives, standard error leads nowhere: what external tools and image libraries say about a picture is not
// mixed with the one line that the command itself writes about a file.
class QuietErrors {
 public:
  QuietErrors();
  ~QuietErrors();
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

 private:
  int saved_;
};

}  // namespace tavithumb::apps
