#!/bin/sh
# Leads a device the integrator's way, to a page, a simulated device that is like it, a replay and a
# report: way.sh DEVICE WORK VEXOCTL VEXOTRACE [EMULATOR...]
# BUILT_FOR_IT names the folder of a library that was linked with its libraries.
set -eu
device=$1 work=$2 vexoctl=$3 vexotrace=$4
shift 4 # what is left starts a program
unset KV_SIM_DEVICE
rm -rf "$work"
mkdir -p "$work"
cd "$work"
exec 3>&1
trap '[ $? -eq 0 ] || tail -n 20 page against there here' EXIT

on_device() {
    LD_LIBRARY_PATH=${BUILT_FOR_IT:+$BUILT_FOR_IT:}$device${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH} "$@"
}

case $device in
*/other) differs=1 ;;
*) differs=0 ;;
esac

# exits STATUS COMMAND...
exits() {
    wanted=$1 status=0
    shift
    "$@" || status=$?
    [ $status -eq "$wanted" ] && return
    echo "$*: status $status, not $wanted" >&3
    exit 1
}

# wants TEXT FILE...
wants() {
    grep -m 1 -F -- "$@" && return
    echo "'$1' isn't in $2"
    exit 1
}

exits 2 on_device "$@" "$vexoctl" list sim 2>refused
wants "nothing under 'sim'" refused
exits $differs on_device "$@" "$vexoctl" conform --write --json >page.json
exits $differs on_device "$@" "$vexoctl" conform >page
case $differs in
1)
    wants 'device:    numbers up to: 6' page
    wants 'device:    number 0: refused with 1; number 4294967295: refused with 1' page
    ;;
0) wants ' 0 other value, 0 other refusal' page ;;
esac
"$@" "$vexoctl" --device "$work/like" sim create --like page.json 2>left
[ ! -s left ]
"$@" "$vexoctl" --device "$work/like" conform --write --against page.json >against
wants '0 changed since' against

# The sixth port is the last of the other device; there are more here.
cat >agent <<'AGENT'
pdh cable_len set port=6 length=30
pdh cable_len get port=6
sys kato send seconds=1700000000 microseconds=0
sys kato send seconds=1700000400 microseconds=0
sys tod set seconds=1700002000 microseconds=0
sys kato send seconds=1700002000 microseconds=0
pwe params set pwId=900 pweAction=create pweType=tdm-1 adminStatus=1 dstMac=00:1a:2b:00:00:11 vlan.mode=untagged psn.psnType=1 t1.circuit=1 t1.rtp.mode=1
pwe payload get pwId=900
pdh cable_len get port=7
AGENT
on_device "$@" "$vexotrace" record --output agent.trace -- \
    "$@" "$vexoctl" --script agent >there 2>&1 || echo "status $?" >>there
"$@" "$vexotrace" replay agent.trace -- "$@" "$vexoctl" --script agent >here 2>&1 ||
    echo "status $?" >>here
cmp there here
case $differs in
1) wants 'pdh cable_len get: failure 1: E-77: this unit has six ports' here ;;
0) wants 'length: 133' here ;;
esac
on_device "$@" "$vexoctl" report report.tar --page page.json --recording agent.trace
tar -xOf report.tar vexo-report/libraries.txt >libraries
wants "config_get_pw $device/libkv_config.so" libraries
[ -z "${BUILT_FOR_IT:-}" ] || wants "$BUILT_FOR_IT/libvexo_cmi.so" libraries
tar -xOf report.tar vexo-report/recording.trace | cmp - agent.trace
