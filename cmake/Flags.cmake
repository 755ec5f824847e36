# SPDX-License-Identifier: GPL-3.0-or-later
# What every target is built with: warnings that are errors, and, in a release, what hardens it.
add_library(tavithumb_flags INTERFACE)
target_compile_options(tavithumb_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
# Of C++20's strings GCC 12 says so of sums that are well: https://gcc.gnu.org/bugzilla/show_bug.cgi?id=105651
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13 AND CMAKE_CXX_STANDARD GREATER_EQUAL 20)
  target_compile_options(tavithumb_flags INTERFACE -Wno-restrict)
endif()

set(TAVITHUMB_SANITIZE "" CACHE STRING "Sanitizers to build everything with, e.g. address,undefined or thread")
if(TAVITHUMB_SANITIZE)
  add_compile_options(-fsanitize=${TAVITHUMB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TAVITHUMB_SANITIZE})
endif()

option(TAVITHUMB_COVERAGE "Count which lines and branches the tests reach" OFF)
if(TAVITHUMB_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

option(TAVITHUMB_HARDEN "Fortified calls, stack protection, read-only relocations" OFF)
if(TAVITHUMB_HARDEN)
  target_compile_options(tavithumb_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong
                                                   -fstack-clash-protection)
  target_link_options(tavithumb_flags INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
