#!/usr/bin/env bash
# libaom and libyuv for the Windows build of the software media runtime: Debian has them for its own architectures only,
# so their source packages are fetched, cross built and installed into build/deps/windows. Of libaom only the real-time
# encoder is built. Needs dpkg-dev, cmake, ninja, nasm, perl and the cross compiler, no privileges. Does nothing when the
# libraries are there already.
# shellcheck source=cmake/debian-source.sh
. "$(dirname "${BASH_SOURCE[0]}")/debian-source.sh" media

get_source libaom-dev "$work/aom"
get_source libyuv-dev "$work/yuv"

# On Windows the stack is aligned to 16 bytes, and GCC would store 32-byte vectors there with aligned moves.
flags="-fstack-protector-strong -Wa,-muse-unaligned-vector-move"
common=(-G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/windows.cmake" -DCMAKE_BUILD_TYPE=Release
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib -DBUILD_SHARED_LIBS=OFF
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags")
cmake "${common[@]}" -S "$work"/aom/source/*/ -B "$work/aom/build" -DAOM_TARGET_CPU=x86_64 \
    -DCONFIG_REALTIME_ONLY=1 -DCONFIG_AV1_DECODER=0 -DCONFIG_AV1_HIGHBITDEPTH=0 \
    -DENABLE_DOCS=0 -DENABLE_EXAMPLES=0 -DENABLE_TESTS=0 -DENABLE_TESTDATA=0 -DENABLE_TOOLS=0
cmake --build "$work/aom/build" --target install
cmake "${common[@]}" -S "$work"/yuv/source/*/ -B "$work/yuv/build" -DCMAKE_DISABLE_FIND_PACKAGE_JPEG=ON
cmake --build "$work/yuv/build" --target yuv
cp "$work/yuv/build/libyuv.a" "$prefix/lib/"
cp -r "$work"/yuv/source/*/include/. "$prefix/include/"
touch "$stamp"
