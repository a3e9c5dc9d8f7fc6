#!/bin/sh
# Configurations that end with a text that says why; STUB has platform libraries and their sources:
# refused.sh SOURCE STUB WORK COMPILER
set -eu
source=$1 stub=$2 work=$3 compiler=$4
rm -rf "$work"
mkdir -p "$work"

# refused TEXT OPTION...
refused() {
    text=$1
    shift
    if cmake -S "$source" -B "$work/build" -DBUILD_TESTING=OFF "$@" >"$work/output" 2>&1; then
        echo "Not refused: $*"
        exit 1
    fi
    tr -s ' \n' ' ' <"$work/output" | grep -F "$text" || {
        cat "$work/output"
        exit 1
    }
}

refused "there is no folder $work/nowhere" -DVEXO_CMI_PLATFORM_DIR="$work/nowhere"

cp -r "$stub" "$work/platform"
grep -v 'alarm_\(un\)\?subscribe(' "$stub/alarm.c" |
    "$compiler" -shared -x c - -o "$work/platform/libkv_alarm.so"
refused "the libraries in $work/platform lack alarm_subscribe, alarm_unsubscribe " \
    -DVEXO_CMI_PLATFORM_DIR="$work/platform"

echo bad >"$work/platform/libkv_config.so"
refused "not all libraries in $work/platform can be read: " \
    -DVEXO_CMI_PLATFORM_DIR="$work/platform"

rm "$work/platform/libkv_forker.so"
refused "$work/platform has no libkv_forker.so" -DVEXO_CMI_PLATFORM_DIR="$work/platform"

refused "Missing: CLI11, nlohmann_json. 'scripts/setup build' installs what is needed, \
-DVEXO_CMI_TOOLS=OFF leaves out what needs it." -DVEXO_CMI_PLATFORM_DIR= \
    -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON
