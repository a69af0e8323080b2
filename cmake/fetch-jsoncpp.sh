#!/usr/bin/env bash
# jsoncpp for the Windows build: Debian has the library for its own architectures only, so its source package is
# fetched, cross built and installed into build/deps/windows. Needs dpkg-dev, cmake, ninja and the cross compiler, no
# privileges. Does nothing when the library is there already.
# shellcheck source=cmake/debian-source.sh
. "$(dirname "${BASH_SOURCE[0]}")/debian-source.sh" jsoncpp

get_source libjsoncpp-dev "$work"

cmake -G Ninja -S "$work"/source/*/ -B "$work/build" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/windows.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_CXX_FLAGS="-fstack-protector-strong -D_FORTIFY_SOURCE=2" \
    -DBUILD_SHARED_LIBS=OFF -DBUILD_OBJECT_LIBS=OFF -DBUILD_STATIC_LIBS=ON \
    -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF -DJSONCPP_WITH_CMAKE_PACKAGE=OFF
cmake --build "$work/build" --target install
touch "$stamp"
