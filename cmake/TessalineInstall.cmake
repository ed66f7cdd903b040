# SPDX-License-Identifier: Apache-2.0
# Installs the static library, the headers and the CMake package `Tessaline`, so that another
# project says find_package(Tessaline) and links Tessaline::tessaline.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/Tessaline")

install(TARGETS tessaline EXPORT TessalineTargets
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/tessaline"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.h")
install(EXPORT TessalineTargets NAMESPACE Tessaline:: DESTINATION "${package_folder}")

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/TessalineConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/TessalineConfig.cmake" INSTALL_DESTINATION "${package_folder}")
# Before 1.0 a new minor version may break callers.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/TessalineConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/TessalineConfig.cmake"
    "${PROJECT_BINARY_DIR}/TessalineConfigVersion.cmake" DESTINATION "${package_folder}")
