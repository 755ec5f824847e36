// SPDX-License-Identifier: GPL-3.0-or-later
// Loaded into a tool: appends the arguments that it was given, each terminated by a NUL, with one more NUL after the
// last, to the file $ARGUMENTS_FILE.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

__attribute__((constructor)) static void Record(int count, char** arguments, char**) {
  const char* const file = std::getenv("ARGUMENTS_FILE");
  if (file == nullptr) return;
  std::string record;
  for (int i = 0; i < count; ++i) record += std::string(arguments[i]) + '\0';
  record += '\0';
  const int opened = open(file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (write(opened, record.data(), record.size()) != static_cast<ssize_t>(record.size())) std::abort();
  close(opened);
}
