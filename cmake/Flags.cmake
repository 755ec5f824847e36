# SPDX-License-Identifier: GPL-3.0-or-later
# Flags of every target: warnings, which the developers' presets turn into errors, and hardening in a release.
add_library(tavithumb_flags INTERFACE)
target_compile_options(tavithumb_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
# GCC 12 warns about correct concatenations of C++20's strings: https://gcc.gnu.org/bugzilla/show_bug.cgi?id=105651
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13 AND CMAKE_CXX_STANDARD GREATER_EQUAL 20)
  target_compile_options(tavithumb_flags INTERFACE -Wno-restrict)
endif()

set(TAVITHUMB_SANITIZE "" CACHE STRING "Sanitizers to build everything with, e.g. address,undefined or thread")
if(TAVITHUMB_SANITIZE)
  add_compile_options(-fsanitize=${TAVITHUMB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TAVITHUMB_SANITIZE})
  # Line numbers are what the reports show; without the rest, objects are compiled and linked faster.
  add_compile_options($<$<CONFIG:Debug>:-g1>)
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

option(TAVITHUMB_CCACHE "Compile through ccache where it is installed" OFF)
if(TAVITHUMB_CCACHE AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(CCACHE ccache)
  if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
  endif()
endif()
