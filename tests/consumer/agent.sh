#!/bin/sh
# Builds the example against the installed library and steers its device from outside:
# agent.sh SOURCE PREFIX LIBDIR WORK COMPILER
set -eu
source=$1 prefix=$2 work=$4 compiler=$5
libraries=$prefix/$3
export PKG_CONFIG_PATH="$libraries/pkgconfig"
export KV_SIM_DEVICE="$work/device"

rm -rf "$work"
mkdir -p "$work"
eval "set -- $(pkg-config --cflags --libs vexo_cmi)"
"$compiler" -std=c11 -Wall -Wextra -Wpedantic -Werror "$source/examples/agent.c" "$@" \
    -o "$work/agent"
LD_LIBRARY_PATH=$libraries/libkv-simulator:$libraries "$work/agent" 21 >"$work/output" &
agent=$!
trap 'kill -9 $agent 2>/dev/null || :' EXIT

# Does COMMAND again and again until the agent has printed TEXT: until_printed TEXT COMMAND...
until_printed() {
    text=$1
    shift
    for _ in $(seq 200); do
        ! grep -qF "$text" "$work/output" || return 0
        "$@"
        sleep 0.1
    done
    echo "The agent has not printed '$text', only:"
    cat "$work/output"
    return 1
}

until_printed listening :
until_printed 'alarm: PDH port 3: active 0x00000005' \
    "$prefix/bin/vexoctl" sim alarm burst type=pdh number=3 status=5 delta=5 count=1
until_printed 'pm: interval 1, pseudowire 21' "$prefix/bin/vexoctl" sim interval end interval=1
kill -TERM $agent
wait $agent
until_printed ended :
