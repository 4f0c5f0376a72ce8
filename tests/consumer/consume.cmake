# Builds and runs tests/c_api/convert_h264.c against an installed codecutil,
# once through find_package(CodecUtil) and once through pkg-config. Run with
# cmake -P and
#   SOURCE_DIR  this repository
#   WORK        a scratch folder (emptied)
#   PREFIX      an installed prefix to use; when empty, BUILD_DIR (CONFIG) is
#               installed into WORK/prefix first
#   CHECK_PATHS when true, no installed file may name SOURCE_DIR or BUILD_DIR
#   CC, FLAGS   the C compiler and extra compile/link flags
#   VERSION     the version every installed version source must state
#   LIBDIR      the library folder below the prefix
#   PKG_CONFIG  pkg-config
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    string(REPLACE ";" " " cmd "${ARGN}")
    message(FATAL_ERROR "failed (${rc}): ${cmd}\n${out}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(program ${SOURCE_DIR}/tests/c_api/convert_h264.c)
separate_arguments(flags UNIX_COMMAND "${FLAGS}")

if(NOT PREFIX)
  set(PREFIX ${WORK}/prefix)
  if(CONFIG)
    run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX} --config ${CONFIG})
  else()
    run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})
  endif()
  set(check_dirs ${SOURCE_DIR} ${BUILD_DIR})
else()
  set(check_dirs "")
endif()
if(CHECK_PATHS AND check_dirs)
  file(GLOB_RECURSE installed LIST_DIRECTORIES false ${PREFIX}/*)
  foreach(f IN LISTS installed)
    if(IS_SYMLINK ${f})
      continue()
    endif()
    foreach(dir IN LISTS check_dirs)
      file(STRINGS ${f} hits REGEX "${dir}")
      if(hits)
        message(FATAL_ERROR "${f} contains the build path ${dir}")
      endif()
    endforeach()
  endforeach()
endif()

# The version header states the version the packages state.
file(STRINGS ${PREFIX}/include/codecutil/zarn_codec_util_version.h line
     REGEX "define CODECUTIL_VERSION_STRING")
if(NOT line MATCHES "\"${VERSION}\"")
  message(FATAL_ERROR "version header says '${line}', expected ${VERSION}")
endif()

# find_package, from a project that knows nothing of this tree.
file(WRITE ${WORK}/cmake-src/CMakeLists.txt "
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(CodecUtil ${VERSION} EXACT REQUIRED)
add_executable(consumer \"${program}\")
target_link_libraries(consumer PRIVATE CodecUtil::CodecUtil)
")
run(${CMAKE_COMMAND} -S ${WORK}/cmake-src -B ${WORK}/cmake-build -DCMAKE_PREFIX_PATH=${PREFIX}
    -DCMAKE_C_COMPILER=${CC} "-DCMAKE_C_FLAGS=${FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK}/cmake-build)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${PREFIX}/${LIBDIR} ${WORK}/cmake-build/consumer)
message(STATUS "find_package: ${run_output}")

# pkg-config, with the installed .pc file alone on its path.
set(pc_env PKG_CONFIG_LIBDIR=${PREFIX}/${LIBDIR}/pkgconfig)
run(${CMAKE_COMMAND} -E env ${pc_env} ${PKG_CONFIG} --modversion codecutil)
string(STRIP "${run_output}" pc_version)
if(NOT pc_version STREQUAL VERSION)
  message(FATAL_ERROR "codecutil.pc says ${pc_version}, expected ${VERSION}")
endif()
run(${CMAKE_COMMAND} -E env ${pc_env} ${PKG_CONFIG} --cflags --libs codecutil)
separate_arguments(pc_flags UNIX_COMMAND "${run_output}")
run(${CC} -std=c99 -Wall -Wextra -pedantic -Werror ${flags} ${program} -o ${WORK}/pc-consumer ${pc_flags})
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${PREFIX}/${LIBDIR} ${WORK}/pc-consumer)
message(STATUS "pkg-config: ${run_output}")
