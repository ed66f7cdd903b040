# SPDX-License-Identifier: Apache-2.0
# Compiler options of all our code, and the one way to declare a subsystem.

add_library(tessaline_options INTERFACE)
target_include_directories(tessaline_options INTERFACE "${PROJECT_SOURCE_DIR}/include")
target_compile_options(tessaline_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
    # g++ 12 reports a false overlap in inlined std::string concatenations (GCC bug 105651).
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    # g++ contracts a multiplication and an addition to a fused operation by default, also across
    # intrinsics. Kernels fuse by name only.
    -ffp-contract=off
    $<$<BOOL:${TESSALINE_WARNINGS_AS_ERRORS}>:-Werror>)
# The version stands in the root CMakeLists.txt and nowhere else.
target_compile_definitions(tessaline_options INTERFACE TESSALINE_VERSION="${PROJECT_VERSION}")
if(TESSALINE_SANITIZER)
    target_compile_options(tessaline_options INTERFACE
        -fsanitize=${TESSALINE_SANITIZER} -fno-sanitize-recover=all -fno-omit-frame-pointer -g -D_GLIBCXX_ASSERTIONS)
endif()

# tessaline_add_subsystem(<name> <source>...): the object library tessaline_<name> of one subsystem.
function(tessaline_add_subsystem name)
    add_library(tessaline_${name} OBJECT ${ARGN})
    target_link_libraries(tessaline_${name} PRIVATE tessaline_options)
    target_include_directories(tessaline_${name} PRIVATE "${PROJECT_SOURCE_DIR}/src")
    target_compile_definitions(tessaline_${name} PRIVATE TESSALINE_BUILDING)
    set_property(GLOBAL APPEND PROPERTY TESSALINE_SUBSYSTEMS ${name})
endfunction()
