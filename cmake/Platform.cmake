# SPDX-License-Identifier: GPL-3.0-or-later
# The four platform libraries, as tavithumb_platform: the stand-ins under platform/, or the appliance's own.
# platform/include is the contract that the library is compiled against in both cases.
add_library(tavithumb_platform_headers INTERFACE)
target_include_directories(tavithumb_platform_headers SYSTEM INTERFACE ${PROJECT_SOURCE_DIR}/platform/include)

add_library(tavithumb_platform INTERFACE)
target_link_libraries(tavithumb_platform INTERFACE tavithumb_platform_headers)

set(TAVITHUMB_PLATFORM_LIBRARIES tavisdk tavicore tavifileop http-file-outputer)
if(TAVITHUMB_PLATFORM_PREFIX)
  foreach(name IN LISTS TAVITHUMB_PLATFORM_LIBRARIES)
    find_library(TAVITHUMB_LIB_${name} ${name} PATHS ${TAVITHUMB_PLATFORM_PREFIX}
                 PATH_SUFFIXES lib/${CMAKE_LIBRARY_ARCHITECTURE} lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    target_link_libraries(tavithumb_platform INTERFACE ${TAVITHUMB_LIB_${name}})
  endforeach()
else()
  add_subdirectory(platform)
  target_link_libraries(tavithumb_platform INTERFACE ${TAVITHUMB_PLATFORM_LIBRARIES})
endif()
