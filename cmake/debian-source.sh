# shellcheck shell=bash
# `. cmake/debian-source.sh LIBRARY` begins each fetch-LIBRARY.sh. It ends the script when the library is there already.
# Otherwise the library is built in $work, which is removed at the end, and installed into $prefix, and then $stamp is made.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
prefix=$PWD/build/deps/windows
stamp=$prefix/$1.complete
[ ! -e "$stamp" ] || exit 0
mkdir -p "$prefix"/{lib,include}
work=$(mktemp -d "$PWD/build/deps/$1.XXXXXX")
trap 'rm -rf "$work"' EXIT

# get_source PACKAGE FOLDER unpacks the Debian source package of PACKAGE to FOLDER/source. It comes from wherever this
# machine takes its packages, and needs no privileges.
get_source() {
    local package=$1 work=$2 list parts file options version
    # The machine's own package sources, asked for source packages instead, with lists and a cache apart from its own.
    eval "$(apt-config shell list Dir::Etc::sourcelist/f parts Dir::Etc::sourceparts/d)"
    mkdir -p "$work"/{sources,lists/partial,cache/archives/partial,source}
    for file in "$list" "$parts"/*.list "$parts"/*.sources; do
        [ -f "$file" ] || continue
        sed -E -e 's/^Types:.*/Types: deb-src/' -e '/^deb-src[[:space:]]/d' -e 's/^deb([[:space:]])/deb-src\1/' "$file" \
            >"$work/sources/$(basename "$file")"
    done
    options=(-q -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$work/sources"
        -o Dir::State::Lists="$work/lists" -o Dir::Cache="$work/cache" -o APT::Sandbox::User=)
    # One source that has no source packages does no harm: what counts is whether this one is found.
    apt-get "${options[@]}" update || true
    # A mirror does not always have the files of the newest version.
    for version in $(apt-cache "${options[@]}" showsrc "$package" |
        awk '/^Package:/ {name = $2} /^Version:/ {print $2, name "=" $2}' | sort -rVu | cut -d ' ' -f 2); do
        (cd "$work/source" && apt-get "${options[@]}" source "$version") && return
        rm -rf "$work"/source/*
    done
    echo "no source of $package can be fetched" >&2
    return 1
}
