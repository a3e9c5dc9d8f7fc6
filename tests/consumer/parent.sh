#!/bin/sh
# A project that takes this one in, and hides its own names, has a host that runs on the simulated
# device. It gets no tool unasked; no tests, nothing that is installed, and no build type, even with
# the tool: parent.sh SOURCE BUILD
set -eu
source=$1 build=$2
rm -rf "$build"

configure() {
    cmake -S "$source/tests/consumer/parent" -B "$build" \
        -DFETCHCONTENT_SOURCE_DIR_VEXO_CMI="$source" "$@" >/dev/null
    cmake --build "$build" --target help >"$build/targets"
}
configure -DCMAKE_CXX_VISIBILITY_PRESET=hidden
cmake --build "$build" -j2 >/dev/null
"$build/consumer"
if grep vexoctl "$build/targets"; then exit 1; fi

configure -DVEXO_CMI_TOOLS=ON
grep vexoctl "$build/targets"
ctest --test-dir "$build" -N | grep -x 'Total Tests: 0'
cmake --install "$build" --prefix "$build/installed"
[ "$(cd "$build/installed" && find . ! -type d)" = ./parent/CMakeLists.txt ]
grep -x CMAKE_BUILD_TYPE:STRING= "$build/CMakeCache.txt"
