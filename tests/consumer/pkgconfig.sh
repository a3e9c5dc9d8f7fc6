#!/bin/sh
# Builds a host by pkg-config and runs it:
# pkgconfig.sh PREFIX LIBDIR OUTPUT COMPILER SOURCE MODULE...
set -eu
libraries=$1/$2 output=$3 compiler=$4 source=$5
shift 5
export PKG_CONFIG_PATH="$libraries/pkgconfig"
# A space in a path is behind a backslash.
eval "set -- $(pkg-config --cflags --libs "$@")"
"$compiler" "$source" "$@" -o "$output"
LD_LIBRARY_PATH=$libraries:$libraries/libkv-simulator "$output"
