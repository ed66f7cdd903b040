# SPDX-License-Identifier: Apache-2.0
# Called with -P: installs BUILD_FOLDER afresh, then configures, builds and runs consumer/.

set(prefix "${WORK_FOLDER}/prefix")
set(consumer_build "${WORK_FOLDER}/consumer")
file(REMOVE_RECURSE "${prefix}" "${consumer_build}")

function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_FOLDER}" --prefix "${prefix}")
run(${CMAKE_COMMAND} -S "${CMAKE_CURRENT_LIST_DIR}/consumer" -B "${consumer_build}" -G "${GENERATOR}"
    -D CMAKE_CXX_COMPILER=${COMPILER} -D CMAKE_BUILD_TYPE=${BUILD_TYPE}
    -D CMAKE_PREFIX_PATH=${prefix} -D TESSALINE_VERSION=${VERSION})
run(${CMAKE_COMMAND} --build "${consumer_build}")
foreach(program consumer program_first library_first)
    run("${consumer_build}/${program}")
endforeach()
