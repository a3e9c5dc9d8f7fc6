#!/bin/sh
# Runs an installed vexoctl where there are platform libraries, some of them, bad ones and none:
# vexoctl.sh PREFIX LIBDIR PLATFORM WORK
set -eu
vexoctl=$1/bin/vexoctl simulator=$1/$2/libkv-simulator platform=$3 work=$4
unset KV_SIM_DEVICE LD_LIBRARY_PATH

# expect STATUS TEXT [VARIABLE=VALUE...] COMMAND...
expect() {
    wanted=$1 text=$2 status=0
    shift 2
    output=$(env "$@" 2>&1) || status=$?
    [ $status -eq "$wanted" ] && echo "$output" | grep -qF "$text" && return 0
    echo "$*: status $status, not $wanted; '$text' was to be printed, not:"
    echo "$output"
    exit 1
}
is_simulated='tpid: 0x8100'
is_real='not on this platform'

rm -rf "$work"
mkdir -p "$work/some" "$work/bad"
cp "$platform/libkv_common.so" "$work/some"
echo bad >"$work/bad/libkv_config.so"
ln -s "$vexoctl" "$work/link"

expect 0 "$is_simulated" "$vexoctl" sys tpid get
expect 0 "$is_simulated" "$work/link" sys tpid get
expect 1 "$is_real" LD_LIBRARY_PATH="$platform" "$vexoctl" sys tpid get
expect 0 "$is_simulated" LD_LIBRARY_PATH="$platform" KV_SIM_DEVICE="$work/device" "$vexoctl" sys tpid get
expect 0 "$is_simulated" LD_LIBRARY_PATH="$platform" "$vexoctl" sys tpid get --device "$work/device"
expect 0 "$is_simulated" LD_LIBRARY_PATH="$platform" "$vexoctl" --device="$work/device" sys tpid get

# A platform that is not whole is not taken for none.
expect 127 libkv_config.so LD_LIBRARY_PATH="$work/some" "$vexoctl" sys tpid get
expect 127 libkv_config.so LD_LIBRARY_PATH="$work/bad" "$vexoctl" sys tpid get
expect 1 'libkv_common.so is not' LD_LIBRARY_PATH="$work/some:$simulator" "$vexoctl" sys tpid get

cp -R "$1" "$work/alone"
rm -r "$work/alone/$2/libkv-simulator"
vexoctl=$work/alone/bin/vexoctl
expect 1 'there are no platform libraries' "$vexoctl" sys tpid get
expect 1 'there are no platform libraries' KV_SIM_DEVICE="$work/device" "$vexoctl" sys tpid get
expect 1 "$is_real" LD_LIBRARY_PATH="$platform" "$vexoctl" sys tpid get
expect 2 'there is none' LD_LIBRARY_PATH="$platform" "$vexoctl" --device "$work/device" list
