#!/bin/sh
# Builds a host by pkg-config and runs it: pkgconfig.sh PREFIX LIBDIR OUTPUT COMPILER SOURCE MODULE...
set -eu
libraries=$1/$2 output=$3 compiler=$4 source=$5
shift 5
export PKG_CONFIG_PATH="$libraries/pkgconfig"
# shellcheck disable=SC2046
"$compiler" "$source" $(pkg-config --cflags --libs "$@") -o "$output"
LD_LIBRARY_PATH=$libraries "$output"
