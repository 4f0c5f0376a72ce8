#!/usr/bin/env bash
# Shipping checks, beside the test suite:
#   - the default armhf cross build (Release, default options) and its .debs
#   - the amd64 Release build and its .debs; a second build of the library in
#     another folder, as a subproject of a parent project, must give a
#     byte-identical libCodecUtil.so
#   - abidiff of the amd64 library against the committed ABI baseline
#   - lintian on every .deb (errors fail)
#   - the amd64 .debs installed with dpkg: codecutil --version, the bundled
#     samples, and the consumer build against the installed -dev; then purged
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
version=$(sed -n 's/^project(codecutil VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
# -g: DWARF for abidw, and the reproducibility check then covers debug info
# too; cpack strips the packaged binaries.
release=(-G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS=-g -DCMAKE_CXX_FLAGS=-g
         -DCODECUTIL_WERROR=ON -DCMAKE_INSTALL_PREFIX=/usr)

echo "== armhf: default cross build and packages =="
rm -rf build/ship-armhf
cmake -S . -B build/ship-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake -DCMAKE_BUILD_TYPE=Release \
    -DCODECUTIL_WERROR=ON -DCMAKE_INSTALL_PREFIX=/usr
cmake --build build/ship-armhf -j "$jobs"
(cd build/ship-armhf && cpack)
# The armhf packages state their dependencies by hand (no dpkg-shlibdeps for
# a foreign architecture): the libraries may need nothing else.
for so in build/ship-armhf/lib/*.so build/ship-armhf/hal/*.so; do
    extra=$(readelf -d "$so" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
            grep -vxE 'libc\.so\.6|libgcc_s\.so\.1|libzarnutil\.so|libdl\.so\.2' || true)
    if [[ -n $extra ]]; then
        echo "$so needs $extra: add it to the cross-build Depends in cmake/packaging.cmake" >&2
        exit 1
    fi
done

echo "== amd64: Release build and packages =="
rm -rf build/ship-amd64
cmake -S . -B build/ship-amd64 "${release[@]}" -DCODECUTIL_TESTS=OFF
cmake --build build/ship-amd64 -j "$jobs"
(cd build/ship-amd64 && cpack)

echo "== reproducible, and usable as a subproject =="
# The library again, in another folder, as a parent project's subproject
# (add_subdirectory) with a program linking CodecUtil::CodecUtil: it must
# build, run, and give a byte-identical libCodecUtil.so.
other=$(mktemp -d "${TMPDIR:-/tmp}/codecutil-repro.XXXXXX")
trap 'rm -rf "$other"' EXIT
mkdir "$other/parent"
cat >"$other/parent/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(parent C CXX)
add_subdirectory("$PWD" codecutil)
add_executable(player "$PWD/tests/c_api/convert_h264.c")
target_link_libraries(player PRIVATE CodecUtil::CodecUtil)
CMAKE
cmake -S "$other/parent" -B "$other/build" "${release[@]}" >/dev/null
cmake --build "$other/build" -j "$jobs" >/dev/null
"$other/build/player"
lib=lib/libCodecUtil.so.$version
cmp "build/ship-amd64/$lib" "$other/build/codecutil/$lib"
echo "ok: $lib identical from build/ship-amd64 and, as a subproject, $other/build/codecutil"

echo "== ABI against abi/libCodecUtil.abi =="
if ! abidiff --no-show-locs abi/libCodecUtil.abi "build/ship-amd64/$lib"; then
    echo "ABI differs from the baseline. If the change is intended, update the baseline in the"
    echo "same commit (README, Versioning and ABI):"
    echo "  abidw --no-corpus-path --no-comp-dir-path --no-show-locs --drop-undefined-syms \\"
    echo "      build/ship-amd64/$lib > abi/libCodecUtil.abi"
    exit 1
fi
echo "ok: ABI matches the baseline"

echo "== lintian =="
debs=(build/ship-armhf/*.deb build/ship-amd64/*.deb)
lintian --fail-on error "${debs[@]}"
echo "ok: lintian reports no errors on ${#debs[@]} packages"

echo "== amd64 packages installed =="
packages=(libcodecutil1 libcodecutil-dev codecutil codecutil-platform-stubs)
for p in "${packages[@]}"; do
    if dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        echo "$p is installed already; refusing to replace it" >&2
        exit 1
    fi
done
trap 'dpkg --purge "${packages[@]}" >/dev/null || true; rm -rf "$other"' EXIT
dpkg -i build/ship-amd64/*.deb
[[ $(codecutil --version) == "codecutil $version" ]] || { echo "codecutil --version: $(codecutil --version)"; exit 1; }
(cd "$other" && codecutil convert -o samples-out >/dev/null)
cmake -DWORK="$PWD/build/ship-consumer" -DSOURCE_DIR="$PWD" -DPREFIX=/usr -DCC=cc -DVERSION="$version" \
    -DLIBDIR="lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" -DPKG_CONFIG=pkg-config \
    -P tests/consumer/consume.cmake
dpkg --purge "${packages[@]}"
echo "ok: installed, used and removed"
