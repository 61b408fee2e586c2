#!/usr/bin/env bash
# Installs a finished build into a scratch prefix and builds an outside program
# against the installed KVXMessage package, as a user of the library would.
# Usage: run_install_test.sh <cmake> <build-dir> <config> <consumer-src> <c++ compiler> <c++ flags> <version>
set -euo pipefail

if [ "$#" -ne 7 ]; then
    echo "usage: $0 <cmake> <build-dir> <config> <consumer-src> <c++ compiler> <c++ flags> <version>" >&2
    exit 2
fi
cmake_cmd=$1
build_dir=$2
config=$3
consumer_src=$4
cxx=$5
cxx_flags=$6
version=$7

work=$(mktemp -d "${TMPDIR:-/tmp}/kvx-install-test.XXXXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() {
    echo "install test: $*" >&2
    exit 1
}

config_args=()
if [ -n "$config" ]; then
    config_args=(--config "$config")
fi

echo "== installing into $prefix"
"$cmake_cmd" --install "$build_dir" --prefix "$prefix" "${config_args[@]}" >"$work/install.log" 2>&1 ||
    { cat "$work/install.log" >&2; fail "cmake --install failed (is the build complete?)"; }

# The layout users rely on.
for header in KVXDefs.h KVXCommon.h KVXCore.h; do
    [ -f "$prefix/include/kvx/$header" ] || fail "missing include/kvx/$header"
done
libdir=
for candidate in "$prefix"/lib "$prefix"/lib64 "$prefix"/lib/*-linux-gnu*; do
    if [ -e "$candidate/libKVXMessage.so" ]; then
        libdir=$candidate
        break
    fi
done
[ -n "$libdir" ] || fail "libKVXMessage.so not installed under $prefix/lib"
major=${version%%.*}
for lib in KVXCommon KVXCore KVXMessage; do
    [ -L "$libdir/lib$lib.so" ] || fail "lib$lib.so is not a link"
    [ -e "$libdir/lib$lib.so.$major" ] || fail "lib$lib.so.$major missing"
    [ -f "$libdir/lib$lib.so.$version" ] || fail "lib$lib.so.$version missing"
done
# Each library finds its installed siblings by itself.
if command -v ldd >/dev/null 2>&1; then
    for lib in KVXCore KVXMessage; do
        if ldd "$libdir/lib$lib.so" | grep -q "not found"; then
            ldd "$libdir/lib$lib.so" >&2
            fail "lib$lib.so has unresolved library dependencies"
        fi
    done
fi
package_dir=$libdir/cmake/KVXMessage
for file in KVXMessageConfig.cmake KVXMessageConfigVersion.cmake KVXMessageTargets.cmake; do
    [ -f "$package_dir/$file" ] || fail "missing $file"
done
# The internal object library must stay out of the package.
if grep -rq kvx_message_objects "$package_dir"; then
    fail "the package refers to the internal object library"
fi

echo "== building the outside program"
flags_args=()
if [ -n "$cxx_flags" ]; then
    flags_args=("-DCMAKE_CXX_FLAGS=$cxx_flags" "-DCMAKE_EXE_LINKER_FLAGS=$cxx_flags")
fi
"$cmake_cmd" -S "$consumer_src" -B "$work/build" \
    -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON \
    -DKVX_EXPECTED_PACKAGE_DIR="$package_dir" \
    -DKVX_EXPECTED_VERSION="$version" \
    "${flags_args[@]}" >"$work/configure.log" 2>&1 ||
    { cat "$work/configure.log" >&2; fail "configuring the outside program failed"; }
"$cmake_cmd" --build "$work/build" >"$work/build.log" 2>&1 ||
    { cat "$work/build.log" >&2; fail "building the outside program failed"; }

echo "== running the outside program"
"$work/build/kvx_consumer" || fail "the outside program failed"
echo "install test passed"
