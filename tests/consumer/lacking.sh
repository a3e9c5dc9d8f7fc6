#!/bin/bash
# A device that lacks upgrade_status_get(), before the first run, at the start and after something
# stands in for it: lacking.sh DEVICE LIBRARY VEXOCTL VEXOTRACE WORK COMPILER SOURCE
set -eu
device=$1 library=$2 vexoctl=$3 vexotrace=$4 work=$5 compiler=$6 source=$7
unset KV_SIM_DEVICE
ulimit -c 0
export LD_LIBRARY_PATH="$device"
rm -rf "$work"
mkdir -p "$work"
cd "$work"

# expect STATUS TEXT COMMAND...; CMake breaks the lines of its messages by the paths' length.
expect() {
    wanted=$1 text=$2 status=0
    shift 2
    "$@" >output 2>&1 || status=$?
    [ $status -eq "$wanted" ] && tr -s ' \n' ' ' <output | grep -F "$text" && return
    echo "$*: status $status, not $wanted; '$text' was to be printed, not:"
    cat output
    exit 1
}

expect 1 'lack upgrade_status_get' cmake -S "$source" -B build -DVEXO_CMI_PLATFORM_DIR="$device" \
    -DVEXO_CMI_TOOLS=OFF
expect 0 'undefined symbol: upgrade_status_get' ldd -r "$library"
expect 127 'undefined symbol: upgrade_status_get' "$vexoctl" sys tpid get
# The recorder has them all.
expect 0 'tpid: 0x8100' "$vexotrace" record -- "$vexoctl" sys tpid get
expect 134 'no upgrade_status_get() behind the recorder' \
    "$vexotrace" record -- "$vexoctl" misc upgrade_info get

echo 'int upgrade_status_get(void) { return 1; }' |
    "$compiler" -shared -fPIC -x c - -o stand-in.so
export LD_PRELOAD="$work/stand-in.so"
expect 0 'tpid: 0x8100' "$vexoctl" sys tpid get
expect 1 'misc upgrade_info get: failure 1' "$vexoctl" misc upgrade_info get
expect 1 'misc upgrade_info get: failure 1' \
    "$vexotrace" record -- "$vexoctl" misc upgrade_info get
expect 1 'other refusal: misc upgrade_info get: does it answer' "$vexoctl" conform
