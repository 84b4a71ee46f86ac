#!/usr/bin/env bash
# Installs a zmu build tree into a temporary prefix, moves the prefix (the package must not depend
# on where it was installed), and builds against it from outside: the CMake consumer project with
# find_package(zmu), a one-file program with pkg-config, and one translation unit that includes
# every installed header.
#
# consumer-test.sh <build dir> <cmake> <generator> <make program> <c++ compiler> <build type> <pkg-config>
set -euo pipefail

if [[ $# -ne 7 ]]; then
    echo "usage: $0 <build dir> <cmake> <generator> <make program> <c++ compiler> <build type> <pkg-config>" >&2
    exit 2
fi
build=$1 cmake=$2 generator=$3 make_program=$4 cxx=$5 build_type=$6 pkg_config=$7
here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../.." && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/zmu-install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Each step's output is shown only when the step fails.
step() {
    local name=$1
    shift
    if ! "$@" >"$work/step.log" 2>&1; then
        echo "FAILED: $name" >&2
        cat "$work/step.log" >&2
        exit 1
    fi
    echo "ok: $name"
}

step "install" "$cmake" --install "$build" --prefix "$work/staged"
mv "$work/staged" "$work/prefix"
prefix=$work/prefix

# The package files name no path of the source tree, the build or the staging prefix.
if grep -rlF -e "$source" -e "$build" -e "$work/staged" "$prefix/lib/cmake" "$prefix/lib/pkgconfig"; then
    echo "FAILED: the installed package refers to the source or build tree or the staging prefix (files above)" >&2
    exit 1
fi
echo "ok: no absolute paths in the package"

step "configure consumer" "$cmake" -S "$here/consumer" -B "$work/consumer" -G "$generator" \
    -DCMAKE_MAKE_PROGRAM="$make_program" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE="$build_type" \
    -DCMAKE_PREFIX_PATH="$prefix"
step "build consumer" "$cmake" --build "$work/consumer"
# The consumer reaches libzmu through the run path CMake gave it, with no LD_LIBRARY_PATH.
libraries=$(env -u LD_LIBRARY_PATH ldd "$work/consumer/zmu_consumer")
if ! grep -qF "$prefix/lib/libzmu.so.0" <<<"$libraries"; then
    echo "FAILED: the consumer does not load the installed libzmu.so.0" >&2
    echo "$libraries" >&2
    exit 1
fi
echo "ok: the consumer loads the installed libzmu.so.0"
mkdir "$work/logs"
step "run consumer" env -u LD_LIBRARY_PATH "$work/consumer/zmu_consumer" "$work/logs"

export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
step "pkg-config knows zmu" "$pkg_config" --exists --print-errors zmu
read -r -a flags <<<"$("$pkg_config" --cflags --libs zmu)"
step "build with pkg-config" "$cxx" -std=c++17 -Wall -Wextra "$here/pkgconfig/uses_zmu.cpp" "${flags[@]}" \
    -o "$work/uses_zmu"
step "run pkg-config program" env LD_LIBRARY_PATH="$prefix/lib" "$work/uses_zmu"

# Every installed header resolves its includes inside the installed tree and the system's.
read -r -a cflags <<<"$("$pkg_config" --cflags zmu)"
(cd "$prefix/include/zmu" && find . -name '*.h' | sort | sed 's|^\./\(.*\)$|#include "\1"|') >"$work/all_headers.cpp"
step "all headers compile" "$cxx" -std=c++17 -fPIC -fsyntax-only -Wall -Wextra -Werror "${cflags[@]}" "$work/all_headers.cpp"
