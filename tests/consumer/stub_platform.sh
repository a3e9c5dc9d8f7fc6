#!/bin/sh
# Makes platform libraries that know no operation, with all that LIBRARY wants of them:
# stub_platform.sh LIBRARY COMPILER FOLDER
set -eu
library=$1 compiler=$2 folder=$3
rm -rf "$folder"
mkdir -p "$folder"
# Symbols with a version, as a device's may be.
echo 'KV_1.0 { global: *; };' >"$folder/versions.map"
for name in config alarm pmom upgrade forker common; do
    case $name in
    config) functions='config_|GetObjectCount' ;;
    common) functions='kv_' ;;
    *) functions=${name}_ ;;
    esac
    nm -D --undefined-only "$library" | grep -oE " U ($functions)[A-Za-z_]*" |
        while read -r _ function; do
            case $function in
            *_string) echo "const char *$function(void) { return \"not on this platform\"; }" ;;
            *) echo "int $function(void) { return 1; }" ;;
            esac
        done >"$folder/$name.c"
    "$compiler" -shared -fPIC -Wl,-soname,"libkv_$name.so" \
        -Wl,--version-script="$folder/versions.map" "$folder/$name.c" \
        -o "$folder/libkv_$name.so"
done
