# Sourced by the other scripts: installs the Debian 12 packages the build,
# the tools and the tests need, when any is missing.
codecutil_install_deps() {
    local packages="g++ cmake ninja-build pkg-config make googletest libbenchmark-dev
        ffmpeg libavformat-dev libavcodec-dev libavutil-dev x264 x265
        qemu-user g++-arm-linux-gnueabihf binutils-arm-linux-gnueabihf python3
        clang-14 libclang-rt-14-dev llvm-14 clang-format-14
        abigail-tools lintian dpkg-dev file gzip"
    local missing=""
    for p in $packages; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
    done
    if [ -n "$missing" ]; then
        echo "installing:$missing"
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq
        # shellcheck disable=SC2086
        apt-get install -y -qq --no-install-recommends $missing
    fi
}
