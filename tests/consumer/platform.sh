#!/bin/sh
# Configures the project for the platform libraries in FOLDER and builds a target of it; with a
# host, runs it on that build: platform.sh SOURCE FOLDER BUILD TARGET [HOST]
set -eu
source=$1 folder=$2 build=$3 target=$4
cmake -S "$source" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=OFF \
    -DVEXO_CMI_PLATFORM_DIR="$folder" >/dev/null
cmake --build "$build" --target "$target" -j2
[ $# -lt 5 ] || LD_LIBRARY_PATH=$build/src "$5"
