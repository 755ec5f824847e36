# SPDX-License-Identifier: GPL-3.0-or-later
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tavithumb)
install(TARGETS tavithumb EXPORT tavithumbTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tavithumb DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT tavithumbTargets NAMESPACE tavithumb:: DESTINATION ${package_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/tavithumbConfig.cmake.in ${PROJECT_BINARY_DIR}/tavithumbConfig.cmake @ONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tavithumbConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tavithumbConfig.cmake ${PROJECT_BINARY_DIR}/tavithumbConfigVersion.cmake
        DESTINATION ${package_dir})

# The path from the .pc file up to the prefix, so that an installed tree can be moved.
file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/tavithumb.pc.in ${PROJECT_BINARY_DIR}/tavithumb.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavithumb.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
