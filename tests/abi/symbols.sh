#!/bin/sh
# What the built library shows the loader: symbols.sh CHECK LIBRARY SOURCE-FOLDER
# What no other library has:               symbols.sh open LIBRARY OTHER...
# Whether all of FILE is bound at load:    symbols.sh bound FILE...
set -eu
export LC_ALL=C
check=$1 library=$2 source=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Names of dynamic symbols for which a condition of awk holds: their bindings are $5, their sections
# $7; a machine's own local ones are left out. By readelf, which reads the files of every machine.
symbols() {
    condition=$1
    shift
    readelf -W --dyn-syms "$@" |
        awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && '"$condition"' { sub(/@.*/, "", $8); print $8 }' | sort -u
}

case $check in
exports)
    symbols '$7 != "UND"' "$library" >"$work/library"
    sed -n '/^global:/,/^local:/s/^ *\([A-Za-z_0-9]*\);$/\1/p' "$source/src/exports.map" |
        sort >"$work/exports.map"
    [ -s "$work/library" ]
    comm -23 "$work/exports.map" "$work/library" |
        sed 's/$/: in src\/exports.map, but no source in src\/ defines it/' >"$work/wrong"
    comm -13 "$work/exports.map" "$work/library" |
        sed 's/$/: exported, but not in src\/exports.map, which scripts\/abi writes/' >>"$work/wrong"
    cat "$work/wrong"
    [ ! -s "$work/wrong" ]
    ;;
imports)
    heap='(m|c|re)alloc|free|(posix_)?memalign|aligned_alloc|v?asprintf|strn?dup'
    exceptions='_Z.*|_Unwind_.*|__gxx_.*|__cxa_(throw|rethrow|begin|end|alloc|free|guard|pure).*'
    if symbols '$7 == "UND"' "$library" | grep -xE "$heap|$exceptions"; then
        echo 'The library imports these: it is to use neither the heap nor exceptions.'
        exit 1
    fi
    ;;
needed)
    # The loader is there anyway.
    readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -v '^ld-linux' |
        sort >"$work/needed"
    printf '%s\n' libc.so.6 libkv_alarm.so libkv_common.so libkv_config.so libkv_forker.so \
        libkv_pmom.so libkv_upgrade.so | diff -u - "$work/needed"
    ;;
open)
    shift 2
    symbols '$7 == "UND" && $5 != "WEAK"' "$library" >"$work/imports"
    symbols '$7 != "UND"' "$@" >"$work/others"
    echo gorvGetVersion >"$work/open"
    comm -23 "$work/imports" "$work/others" | diff -u "$work/open" -
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
