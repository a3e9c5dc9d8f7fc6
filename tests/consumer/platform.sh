#!/bin/sh
# Builds everything for the platform libraries in FOLDER, and runs a host on that:
# platform.sh SOURCE FOLDER BUILD HOST
set -eu
source=$1 folder=$2 build=$3 host=$4
cmake -S "$source" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=OFF \
    -DVEXO_CMI_PLATFORM_DIR="$folder" >/dev/null
cmake --build "$build" -j2
LD_LIBRARY_PATH=$build/src "$host"
