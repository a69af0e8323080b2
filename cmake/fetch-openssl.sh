#!/usr/bin/env bash
# OpenSSL for the Windows build of the stand-in for the cloud library: Debian has it for its own architectures only, so
# its source package is fetched, cross built and installed into build/deps/windows. Only the static libraries are built,
# without the algorithms and protocols that TLS 1.2 and later do not need. Needs dpkg-dev, make, perl and the cross
# compiler, no privileges. Does nothing when the libraries are there already.
# shellcheck source=cmake/debian-source.sh
. "$(dirname "${BASH_SOURCE[0]}")/debian-source.sh" openssl

get_source libssl-dev "$work"

cd "$work"/source/*/
# The prefix and CC are the compiler of cmake/windows.cmake.
./Configure mingw64 --cross-compile-prefix=x86_64-w64-mingw32- --prefix="$prefix" --libdir=lib \
    CC=gcc-posix CFLAGS="-O1 -fstack-protector-strong" \
    no-{shared,tests,module,dso,engine,static-engine,autoload-config,comp,ui-console,async,sock,deprecated,makedepend} \
    no-{cms,cmp,ct,ocsp,ts,rfc3779,gost,srp,srtp,dtls,psk,nextprotoneg,ssl3,tls1,tls1_1,legacy} \
    no-{idea,seed,camellia,aria,bf,cast,rc2,rc4,rc5,mdc2,md4,rmd160,whirlpool,sm2,sm3,sm4,siphash,scrypt,ec2m,dsa,blake2}
make build_generated
make -j "$(nproc)" libcrypto.a libssl.a
cp libcrypto.a libssl.a "$prefix/lib/"
cp -r include/openssl "$prefix/include/"
touch "$stamp"
