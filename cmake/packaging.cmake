# Debian packages: `cpack -G DEB` in a build folder configured with
# -DCMAKE_INSTALL_PREFIX=/usr (scripts/ci-ship.sh does both architectures).
#   libcodecutil1             runtime (Multi-Arch: same)
#   libcodecutil-dev          headers, .so link, CMake package, codecutil.pc
#   codecutil                 the tool and its samples
#   codecutil-platform-stubs  stand-ins for the platform's log library and HAL
set(CPACK_PACKAGE_NAME codecutil)
set(CPACK_PACKAGE_VENDOR "codecutil developers")
set(CPACK_PACKAGE_CONTACT "codecutil developers <codecutil@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "access-unit converters for hardware decoders")
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://example.org/codecutil")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Packages with shared libraries refresh the loader cache through dpkg's
# ldconfig trigger. Our own postinst and postrm keep CPack from adding its
# direct ldconfig calls.
set(_ldconfig_control ${PROJECT_SOURCE_DIR}/cmake/debian/triggers ${PROJECT_SOURCE_DIR}/cmake/debian/postinst
                      ${PROJECT_SOURCE_DIR}/cmake/debian/postrm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${_ldconfig_control})
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_EXTRA ${_ldconfig_control})

set(CPACK_COMPONENTS_ALL runtime dev platform)
if(TARGET codecutil)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()

if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps needs the target's dpkg database; the libraries' NEEDED
  # entries are stated by hand (scripts/ci-ship.sh checks that they still
  # are libc and libgcc_s only), with Debian 12's floors.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(_base_depends "libc6 (>= 2.34), libgcc-s1 (>= 3.5)")
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # Our own libraries are found in the build tree; the dependencies between
  # our packages are stated below.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY} ${CODECUTIL_HAL_DIR})
  set(_base_depends "")
endif()
set(_same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

# The log library and HAL are the platform's: the stubs package provides them
# under the names a real platform package would.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libcodecutil1)
# CPack has no Multi-Arch setting; the field rides on the line of another.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION "libs\nMulti-Arch: same")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "zarn-platform-log")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "access-unit converters for hardware decoders - runtime
 libCodecUtil rewrites container access units (H.264, H.265, MPEG-4 Part 2,
 AAC, Vorbis, Opus, DivX 3.11, VC-1, SPARK, VP6, VP8, VP9) into the bytes
 hardware decoders accept, and splits dual-layer video streams.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libcodecutil-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libcodecutil1 ${_same_version}")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "access-unit converters for hardware decoders - development files
 Headers, the CMake package CodecUtil and the pkg-config file codecutil
 for libCodecUtil.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME codecutil)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libcodecutil1 ${_same_version}, codecutil-platform-stubs ${_same_version}")
set(CPACK_COMPONENT_TOOL_DESCRIPTION
    "access-unit converters for hardware decoders - command-line tool
 codecutil feeds media files through libCodecUtil into simulated decoder
 rings, checks decoder-format byte streams and splits dual-layer streams.")

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME codecutil-platform-stubs)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_PROVIDES "zarn-platform-log, zarn-platform-hal")
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION
    "access-unit converters for hardware decoders - platform stand-ins
 Stand-ins for the platform's log library and decoder HAL, for machines that
 are not the device: a platform image brings its own.")

if(CMAKE_CROSSCOMPILING AND TARGET codecutil)
  # The tool's libav packages are named after the libraries' major versions.
  foreach(_lib libavformat libavcodec libavutil)
    string(REGEX MATCH "^[0-9]+" _major "${LIBAV_${_lib}_VERSION}")
    string(APPEND CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS ", ${_lib}${_major}")
  endforeach()
endif()
foreach(_comp RUNTIME TOOL PLATFORM)
  if(_base_depends)
    if(DEFINED CPACK_DEBIAN_${_comp}_PACKAGE_DEPENDS)
      set(CPACK_DEBIAN_${_comp}_PACKAGE_DEPENDS "${_base_depends}, ${CPACK_DEBIAN_${_comp}_PACKAGE_DEPENDS}")
    else()
      set(CPACK_DEBIAN_${_comp}_PACKAGE_DEPENDS "${_base_depends}")
    endif()
  endif()
endforeach()

# Every package carries its copyright and changelog where Debian expects them.
foreach(_comp runtime dev tool platform)
  string(TOUPPER ${_comp} _COMP)
  set(_doc ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${_COMP}_PACKAGE_NAME})
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright DESTINATION ${_doc} COMPONENT ${_comp}
          EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz DESTINATION ${_doc} COMPONENT ${_comp}
          EXCLUDE_FROM_ALL)
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${PROJECT_BINARY_DIR}/debian/changelog @ONLY)
execute_process(COMMAND gzip -9nc ${PROJECT_BINARY_DIR}/debian/changelog
                OUTPUT_FILE ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz)

include(CPack)
