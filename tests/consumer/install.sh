#!/bin/sh
# Installs each component alone, compares it with its list, and leaves them all together in
# WORK/moved, a prefix other than they were installed into:
# install.sh SOURCE BUILD WORK LIBDIR VERSION
set -eu
source=$1 build=$2 work=$3 libdir=$4 version=$5
rm -rf "$work"
for component in runtime development tools trace simulator python; do
    cmake --install "$build" --component $component --prefix "$work/$component" >/dev/null
    "$source/packaging/compare.sh" $component "$work/$component" "$libdir" "$version"
done
cmake --install "$build" --prefix "$work/installed" >/dev/null
"$source/packaging/compare.sh" '*' "$work/installed" "$libdir" "$version"
mv "$work/installed" "$work/moved"
