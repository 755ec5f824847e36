# SPDX-License-Identifier: GPL-3.0-or-later
# GNU libunistring, which has no file for pkg-config: the target Unistring::Unistring.
find_path(UNISTRING_INCLUDE_DIR unistr.h)
find_library(UNISTRING_LIBRARY unistring)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Unistring REQUIRED_VARS UNISTRING_LIBRARY UNISTRING_INCLUDE_DIR)
mark_as_advanced(UNISTRING_INCLUDE_DIR UNISTRING_LIBRARY)
if(Unistring_FOUND AND NOT TARGET Unistring::Unistring)
  add_library(Unistring::Unistring UNKNOWN IMPORTED)
  set_target_properties(Unistring::Unistring PROPERTIES IMPORTED_LOCATION "${UNISTRING_LIBRARY}"
                                                        INTERFACE_INCLUDE_DIRECTORIES "${UNISTRING_INCLUDE_DIR}")
endif()
