#!/usr/bin/env bash
# jsoncpp for the Windows build: Debian has the library for its own architectures only, so its source package is
# fetched from wherever this machine takes its packages, cross built and installed into build/deps/windows.
# Needs dpkg-dev, cmake, ninja and the cross compiler, no privileges. Does nothing when the library is there already.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

prefix=$PWD/build/deps/windows
stamp=$prefix/jsoncpp.complete
[ -e "$stamp" ] && exit 0

mkdir -p build/deps
work=$(mktemp -d "$PWD/build/deps/jsoncpp.XXXXXX")
trap 'rm -rf "$work"' EXIT

# The machine's own package sources, asked for source packages instead, with lists and a cache apart from its own.
eval "$(apt-config shell list Dir::Etc::sourcelist/f parts Dir::Etc::sourceparts/d)"
mkdir -p "$work"/{sources,lists/partial,cache/archives/partial,source}
for file in "$list" "$parts"/*.list "$parts"/*.sources; do
    [ -f "$file" ] || continue
    sed -E -e 's/^Types:.*/Types: deb-src/' -e '/^deb-src[[:space:]]/d' -e 's/^deb([[:space:]])/deb-src\1/' "$file" \
        >"$work/sources/$(basename "$file")"
done
apt=(apt-get -q -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$work/sources"
    -o Dir::State::Lists="$work/lists" -o Dir::Cache="$work/cache" -o APT::Sandbox::User=)
# One source that has no source packages does no harm: what counts is whether this one is found.
"${apt[@]}" update || true
(cd "$work/source" && "${apt[@]}" source libjsoncpp-dev)

cmake -G Ninja -S "$work"/source/*/ -B "$work/build" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/windows.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_CXX_FLAGS="-fstack-protector-strong -D_FORTIFY_SOURCE=2" \
    -DBUILD_SHARED_LIBS=OFF -DBUILD_OBJECT_LIBS=OFF -DBUILD_STATIC_LIBS=ON \
    -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF -DJSONCPP_WITH_CMAKE_PACKAGE=OFF
cmake --build "$work/build" --target install
touch "$stamp"
