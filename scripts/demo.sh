#!/bin/bash
# The demonstration: drives a new simulated device with vexoctl and stops on anything unexpected.
# scripts/demo.sh [VEXOCTL]
set -euo pipefail

tool=${1:-vexoctl}
[[ $tool != */* ]] || PATH=$(cd "$(dirname "$tool")" && pwd):$PATH

folder=$(mktemp -d)
export KV_SIM_DEVICE=$folder/device
watcher=
trap '[ -z "$watcher" ] || kill "$watcher" 2>/dev/null; rm -rf "$folder"' EXIT

bold='' plain=''
if [ -t 1 ]; then
    bold=$'\e[1m' plain=$'\e[0m'
fi

say() {
    printf '\n'
    printf '# %s\n' "$@"
}

fail() {
    printf '\nUnexpected: %s\n' "$*" >&2
    exit 1
}

show() {
    fold -s -w 96 <<<"$*" | sed "1s/^/$bold\$ /; 1!s/^/      /; \$!s/\$/\\\\/; \$s/\$/$plain/"
}

# expect STATUS COMMAND...: shows a command and its output.
expect() {
    local wanted=$1 status=0
    shift
    show "$@"
    output=$("$@" 2>&1) || status=$?
    [ -z "$output" ] || printf '%s\n' "$output"
    [ "$status" -eq "$wanted" ] || fail "exit status $status, not $wanted"
}
run() {
    expect 0 "$@"
}
refused() {
    expect 1 "$@"
    [ -n "$output" ] || fail "a refusal without a text"
}

# Whether the latest output has a line that matches.
has() {
    grep -qE -- "$1" <<<"$output" || fail "no line matches '$1'"
}

say "A gateway, fresh from the factory: what it is and what it runs"
run vexoctl sys inventory get
has '^text1: .'
run vexoctl sys version get
has '  - .'

say "Set up the system, and read it back"
run vexoctl sys tdm_mode set mode=2
run vexoctl sys src_mac set mac=00:1a:2b:3c:4d:5e
run vexoctl sys tpid set tpid=0x88a8
run vexoctl sys tdm_mode get
has '^mode: 2$'
run vexoctl sys src_mac get
has '^mac: 00:1a:2b:3c:4d:5e$'
run vexoctl --json sys tpid get
has "\"tpid\": $((0x88a8))"

say "What the platform refuses, it refuses in its own words, and nothing has changed"
refused vexoctl sys tpid set tpid=0x10
refused vexoctl sys src_mac set mac=01:00:5e:00:00:01
run vexoctl sys src_mac get
has '^mac: 00:1a:2b:3c:4d:5e$'

say "A command that can't be right is not even sent"
expect 2 vexoctl sys tpid set tpid=70000
expect 2 vexoctl sys tpdi set tpid=7

say "A TDM pseudowire with RTP in a double tag"
run vexoctl pwe params set pwId=17 pweAction=create pweType=tdm-1 adminStatus=1 \
    dstMac=00:1a:2b:00:00:11 vlan.mode=double vlan.outerVlanId=100 vlan.vlanId=7 vlan.priority=5 \
    psn.psnType=2 psn.param1=4711 t1.circuit=3 t1.rtp.mode=on t1.rtp.payloadType=97
run vexoctl pwe params get pwId=17
has '^  outerVlanId: 100$'
has '^    payloadType: 97$'

say "One field of it changed; the rest stays"
run vexoctl pwe payload set pwId=17 size=512
refused vexoctl pwe payload set pwId=17 size=9000
run vexoctl pwe payload get pwId=17
has '^size: 512$'
run vexoctl pwe vlan get pwId=17
has '^outerVlanId: 100$'

say "An ATM pseudowire with two cross-connects; the TDM one deleted"
run vexoctl pwe params set pwId=18 pweAction=create pweType=atm-3 adminStatus=1 \
    dstMac=00:1a:2b:00:00:12 vlan.mode=untagged psn.psnType=2 \
    a.circuit=1 a.atmMode=1 a.atmType=1 a.atmClpMode=1 a.atmParam1=0 a.atmParam2=0
run vexoctl pwe atmop_xc set pwId=18 xcType=1 xcId1=0 xcId2=32 xcId3=0 xcId4=33
run vexoctl pwe atmop_xc set pwId=18 xcType=1 xcId1=0 xcId2=34 xcId3=0 xcId4=35
refused vexoctl pwe atmop_xc set pwId=18 xcType=1 xcId1=0 xcId2=34 xcId3=0 xcId4=35
refused vexoctl pwe atmop_xc set pwId=17 xcType=1 xcId1=0 xcId2=32 xcId3=0 xcId4=33
run vexoctl pwe atmop_xc get pwId=18
has '^count: 2$'
run vexoctl pwe params set pwId=17 pweAction=delete
refused vexoctl pwe payload get pwId=17

say "A PDH port taken into service, with a loopback"
run vexoctl pdh params set port=3 adminStatus=1 frameMode=2 lineCode=1 cableLength=30 \
    syncMode=2 syncParam=0 niuMode=1 auxParam=0
run vexoctl pdh lpbk set port=3 loopback=2
run vexoctl pdh params get port=3
has '^cableLength: 30$'
has '^loopback: 2$'
refused vexoctl pdh lpbk set port=99 loopback=2

say "An IMA group with two links"
run vexoctl ima set groupId=1 imaAction=create groupParam1=1 groupParam2=1
run vexoctl ima lnk add groupId=1 linkId=4
run vexoctl ima lnk add groupId=1 linkId=5
refused vexoctl ima lnk add groupId=1 linkId=5
run vexoctl ima lnk get groupId=1
has '^linkIds: 4 5$'

say "Keep-alives set the device clock: the first, and one more than 900 s later; not one in between." \
    "The clock is the simulated device's own, and stopped here; the host's is never set."
script="sim clock stop
sys kato send seconds=1700000000 microseconds=0
sim clock get
sys kato send seconds=1700000050 microseconds=0
sim clock get
sim clock advance seconds=901
sys kato send seconds=1700001000 microseconds=0
sim clock get
sim clock run"
show "vexoctl --json --script - <<END"
printf '%s\nEND\n' "$script"
output=$(vexoctl --json --script - <<<"$script") || fail "exit status $?"
printf '%s\n' "$output"
seconds=$(sed -nE 's/.*"seconds":([0-9]+).*/\1/p' <<<"$output" | tr '\n' ' ')
[ "$seconds" = "1700000000 1700000000 1700001000 " ] || fail "the clock read $seconds"

say "Watched from one terminal, driven from another: an alarm raised and cleared, a PM interval ends"
show "vexoctl watch count=5 for=60 &"
vexoctl watch count=5 for=60 >"$folder/events" &
watcher=$!
seen=0
# events COUNT: waits for the next lines of the watch, and shows them.
events() {
    local tries
    for ((tries = 0; tries < 300; ++tries)); do
        [ "$(wc -l <"$folder/events")" -lt $((seen + $1)) ] || break
        sleep 0.1
    done
    output=$(tail -n +$((seen + 1)) "$folder/events")
    seen=$((seen + $1))
    printf '    watch | %s\n' "${output//$'\n'/$'\n    watch | '}"
    [ "$(wc -l <<<"$output")" -eq "$1" ] || fail "expected $1 more lines of the watch"
}
vexoctl sim wait subscribed services=both || fail "the watch has not subscribed"

run vexoctl sim alarm raise type=pdh number=3 bits=0x5
events 1
has '^alarm PDH port 3: .*raised 0x00000005'
run vexoctl pdh alarms get port=3
has '^alarmBits: 0x5$'
run vexoctl sim alarm clear type=pdh number=3 bits=0x5
events 1
has '^alarm PDH port 3: .*cleared 0x00000005'
run vexoctl sim pm set type=pwe number=18 interval=1 counter=atm.counters.0 value=12
run vexoctl sim interval end interval=1
events 3
has '^pm interval 1 pseudowire 18 .*12'
wait "$watcher" || fail "the watch ended with status $?"
watcher=

say "Done. 'vexoctl list' names all $(vexoctl list | wc -l) operations, 'vexoctl help OPERATION' explains one."
