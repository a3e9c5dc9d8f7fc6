#!/bin/sh
# An older library lacks what HOST uses: the loader refuses HOST before it has begun:
# older.sh COMPILER SONAME WORK HOST...
set -eu
compiler=$1 soname=$2 work=$3
shift 3
rm -rf "$work"
mkdir -p "$work"
echo | "$compiler" -shared -x c - -Wl,-soname,"$soname" -o "$work/$soname"
for host; do
    if LD_LIBRARY_PATH=$work "$host" >"$work/output" 2>&1; then
        echo "$host runs without the library's functions."
        exit 1
    fi
    cat "$work/output"
    grep -q 'undefined symbol: vexo_cmi_' "$work/output"
    if grep begun "$work/output"; then
        echo "$host has begun."
        exit 1
    fi
done
