# Cross build for 32-bit ARM (hard float), tests run under qemu-user.
# Libraries come from the cross toolchain's folder and from Debian's armhf
# multiarch folders; pass -DCMAKE_SYSROOT=DIR to build against a sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
if(CMAKE_SYSROOT)
  set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
else()
  # "/" re-roots nothing: it lets the finders see /usr/lib/arm-linux-gnueabihf.
  set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf /)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)

# pkg-config must never answer with the build machine's .pc files: only the
# armhf ones count (no match leaves the tool out rather than mixing arches).
if(CMAKE_SYSROOT)
  set(ENV{PKG_CONFIG_LIBDIR}
      "${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
else()
  set(ENV{PKG_CONFIG_LIBDIR}
      "/usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/arm-linux-gnueabihf/lib/pkgconfig:/usr/share/pkgconfig")
  unset(ENV{PKG_CONFIG_SYSROOT_DIR})
endif()
unset(ENV{PKG_CONFIG_PATH})
