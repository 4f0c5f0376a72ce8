# Install rules and the CMake and pkg-config packages. Components:
#   runtime   libCodecUtil.so.1 and its SONAME link
#   dev       headers, the .so link, the CMake package, codecutil.pc
#   tool      the codecutil executable and its bundled samples
#   platform  stand-ins for the platform's log library and HAL (a real
#             platform image brings its own)
include(CMakePackageConfigHelpers)

# Headers go into their own folder: several have generic names (registry.h).
set(CODECUTIL_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/codecutil)
set(CODECUTIL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/CodecUtil)

# Source and build folders on the target's include path stay build-only; the
# installed target sees the installed header folder instead.
get_target_property(_dirs CodecUtil INTERFACE_INCLUDE_DIRECTORIES)
set(_wrapped "")
foreach(_dir IN LISTS _dirs)
  if(_dir MATCHES "^\\$<")
    list(APPEND _wrapped "${_dir}")
  else()
    list(APPEND _wrapped "$<BUILD_INTERFACE:${_dir}>")
  endif()
endforeach()
list(APPEND _wrapped "$<INSTALL_INTERFACE:${CODECUTIL_INSTALL_INCLUDEDIR}>")
set_property(TARGET CodecUtil PROPERTY INTERFACE_INCLUDE_DIRECTORIES "${_wrapped}")

install(TARGETS CodecUtil EXPORT CodecUtilTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)

# The public headers, the platform types and log header they include, and the
# splitter's C headers.
file(GLOB _public_headers ${PROJECT_SOURCE_DIR}/Inc/*.h)
list(APPEND _public_headers
     ${PROJECT_BINARY_DIR}/include/zarn_codec_util_version.h
     ${PROJECT_SOURCE_DIR}/platform/zarnutil/include/zarn_types.h
     ${PROJECT_SOURCE_DIR}/platform/zarnutil/include/zarn_debug.h)
if(TARGET vessplitter_obj)
  foreach(_h io_base.h io_buffer.h registry.h sei_sps_parser.h avc_sei_sps_parser.h
             hevc_sei_sps_parser.h vessplitter.h)
    list(APPEND _public_headers ${PROJECT_SOURCE_DIR}/vessplitter/${_h})
  endforeach()
endif()
install(FILES ${_public_headers} DESTINATION ${CODECUTIL_INSTALL_INCLUDEDIR} COMPONENT dev)

install(TARGETS zarnutil halavstream zarnutil_headers EXPORT CodecUtilPlatformTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT platform)
install(FILES ${PROJECT_SOURCE_DIR}/platform/halavstream/include/zhal_avstream.h
        DESTINATION ${CODECUTIL_INSTALL_INCLUDEDIR} COMPONENT platform)

install(EXPORT CodecUtilTargets NAMESPACE CodecUtil:: DESTINATION ${CODECUTIL_INSTALL_CMAKEDIR}
        COMPONENT dev)
install(EXPORT CodecUtilPlatformTargets NAMESPACE CodecUtil:: DESTINATION ${CODECUTIL_INSTALL_CMAKEDIR}
        COMPONENT platform)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/CodecUtilConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/CodecUtilConfig.cmake
                              INSTALL_DESTINATION ${CODECUTIL_INSTALL_CMAKEDIR})
# Same major version is compatible; the pointer size must match too.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CodecUtilConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/CodecUtilConfig.cmake ${PROJECT_BINARY_DIR}/CodecUtilConfigVersion.cmake
        DESTINATION ${CODECUTIL_INSTALL_CMAKEDIR} COMPONENT dev)

# pkg-config: the prefix is found from the .pc file's own place, so the
# installed tree can move.
file(RELATIVE_PATH CODECUTIL_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" CODECUTIL_PC_TO_PREFIX "${CODECUTIL_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/codecutil.pc.in ${PROJECT_BINARY_DIR}/codecutil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/codecutil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT dev)
