#!/bin/sh
# What the built library shows the loader: symbols.sh CHECK LIBRARY SOURCE-FOLDER
# Whether all of FILE is bound at load:    symbols.sh bound FILE...
set -eu
export LC_ALL=C
check=$1 library=$2 source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

imports() {
    nm -D --undefined-only "$library" | awk '{ sub(/@.*/, "", $NF); print $NF }' | sort
}

case $check in
exports)
    nm -D --defined-only "$library" | awk '{ print $NF }' | sort >"$work/library"
    sed -n '/^global:/,/^local:/s/^ *\([A-Za-z_0-9]*\);$/\1/p' "$source/src/exports.map" |
        sort >"$work/exports.map"
    cat "$source"/include/vexo_cmi/*.h | grep -v '^#' | tr '\n' ' ' |
        grep -o 'VEXO_CMI_EXPORT [^();]*(' | sed 's/.*[ *]\([A-Za-z_0-9]*\)($/\1/' | sort >"$work/headers"
    [ -s "$work/library" ]
    diff -u "$work/exports.map" "$work/library"
    diff -u "$work/headers" "$work/library"
    ;;
imports)
    heap='(m|c|re)alloc|free|(posix_)?memalign|aligned_alloc|v?asprintf|strn?dup'
    exceptions='_Z.*|_Unwind_.*|__gxx_.*|__cxa_(throw|rethrow|begin|end|alloc|free|guard|pure).*'
    if imports | grep -xE "$heap|$exceptions"; then
        echo 'The library imports these: it is to use neither the heap nor exceptions.'
        exit 1
    fi
    ;;
needed)
    readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort >"$work/needed"
    printf '%s\n' libc.so.6 libkv_alarm.so libkv_common.so libkv_config.so libkv_forker.so \
        libkv_pmom.so libkv_upgrade.so | diff -u - "$work/needed"
    ;;
open)
    ldd -r "$library" 2>&1 | sed -n 's/^undefined symbol: \([^[:space:]]*\).*/\1/p' >"$work/open"
    echo gorvGetVersion | diff -u - "$work/open"
    ;;
bound)
    shift
    for file; do
        readelf -d "$file" | grep -qE '\(FLAGS_1\).* NOW' || {
            echo "$file leaves functions to be bound at their first call."
            exit 1
        }
    done
    ;;
*)
    exit 2
    ;;
esac
