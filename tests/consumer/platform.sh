#!/bin/sh
# Builds a host within a project that takes this one in, for the platform libraries in FOLDER, and
# runs it: platform.sh SOURCE FOLDER BUILD
set -eu
source=$1 folder=$2 build=$3
cmake -S "$source/tests/consumer/parent" -B "$build" -DFETCHCONTENT_SOURCE_DIR_VEXO_CMI="$source" \
    -DVEXO_CMI_PLATFORM_DIR="$folder" >/dev/null
cmake --build "$build" -j2
"$build/consumer"
