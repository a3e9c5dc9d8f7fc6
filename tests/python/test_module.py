"""The module: what holds for every operation and record, and the device's control."""
import ast
import ctypes.util
import dataclasses
import inspect
import json
import operator
import os
import re
import shlex
import shutil
import subprocess
import sys
import threading
import typing
from pathlib import Path

import pytest

import vexo_cmi
from vexo_cmi import (AdminStatus, CmiError, Device, DeviceError, ImaAction, ImaGroupSet, PweAction, PweParams,
                      PwePsn, PwePsnType, PweRtp, PweRtpMode, PweServiceA, PweServiceT1, PweType, PweVlan,
                      VlanMode, _control, _interface, _records, _where)
from vexo_cmi.document import vexoctl

PACKAGE = Path(vexo_cmi.__file__).parent
SOURCE = Path(os.environ["VEXO_CMI_SOURCE"])
OPERATIONS = {name: function for name, function in vars(_interface).items()
              if inspect.isfunction(function) and "_" in name and not name.startswith("_")
              and "callback" not in name and function.__module__ == _interface.__name__}
RECORDS = [record for record in vars(_interface).values()
           if inspect.isclass(record) and issubclass(record, _records.Record) and record.size]

PSEUDOWIRE = PweParams(
    pweType=PweType.TDM_1, pweAction=PweAction.CREATE, adminStatus=AdminStatus.STATUS_1,
    dstMac="02:00:5e:00:00:11", vlan=PweVlan(mode=VlanMode.UNTAGGED),
    psn=PwePsn(psnType=PwePsnType.TYPE_2, param1=4711),
    t1=PweServiceT1(circuit=3, payloadSize=256, rtp=PweRtp(mode=PweRtpMode.ON, payloadType=96)))


def test_sizes_and_offsets_are_the_compilers(tmp_path):
    """Also of the simulated device's control, whose header describes itself."""
    members = {"t1": "service.t1", "t2": "service.t2", "a": "service.a", "generic": "body.generic",
               "atm": "body.atm", "tdmCounters": "counters", "atmCounters": "counters"}
    places = {f"sizeof(vexo{record.__name__})": record.size for record in RECORDS}
    for record in RECORDS:
        for field in record.fields:
            name = members.get(field.name, field.name)
            places[f"offsetof(vexo{record.__name__}, {name})"] = field.offset
            if field.flag is not None:
                places[f"offsetof(vexo{record.__name__}, {name}Valid)"] = field.flag
    structures = [one for one in vars(_control).values()
                  if inspect.isclass(one) and issubclass(one, _control.Structure) and hasattr(one, "_fields_")]
    for one in structures:
        places[f"sizeof(kvSim{one.__name__})"] = ctypes.sizeof(one)
        for name, *_ in one._fields_:
            places[f"offsetof(kvSim{one.__name__}, {name})"] = getattr(one, name).offset
    assert len(RECORDS) == 39 and len(structures) == 9
    assert {"offsetof(vexoPwePsn, param4Valid)", "offsetof(kvSimCall, argNames)"} < set(places)
    program = tmp_path / "places.c"
    program.write_text(
        '#include <kv_sim.h>\n#include <vexo_cmi.h>\n#include <stddef.h>\n'
        + "".join(f'_Static_assert({place} == {value}, "{place} is not {value}");\n'
                  for place, value in places.items()))
    subprocess.run([os.environ.get("CC", "cc"), "-fsyntax-only", f"-I{SOURCE}/include", f"-I{SOURCE}/sim",
                    program], check=True)


def words_of(example):
    """What is given in an example, as nested dictionaries."""
    given = {}
    for word in shlex.split(example):
        name, equals, value = word.partition("=")
        if equals:
            *path, last = name.split(".")
            place = given
            for part in path:
                place = place.setdefault(part, {})
            place[last] = value
    return given


def python_value(kind, words):
    """A value of this kind, from how vexoctl is given it."""
    if dataclasses.is_dataclass(kind):
        hints = typing.get_type_hints(kind)
        return kind(**{name: python_value(hints[name], value)
                       for name, value in words.items() if name in hints})
    if typing.get_origin(kind) is typing.Union:
        return python_value(typing.get_args(kind)[0], words)
    if kind is str:
        return words
    if kind is int or words[0].isdigit():
        return int(words, 0) if kind is int else kind(int(words))
    return kind[words.upper().replace("-", "_")]


def shown(value):
    """A value as vexoctl shows it, enumerations as numbers."""
    if dataclasses.is_dataclass(value):
        return {name: shown(part) for name, part in vars(value).items() if part is not None}
    if isinstance(value, list):
        return [shown(part) for part in value]
    return int(value) if isinstance(value, int) else value


def numbers(value):
    """The same of what vexoctl shows."""
    names = {"provisioned": 2, "not-provisioned": 1, "create": 2, "untagged": 1, "double": 3, "off": 1,
             "on": 2, "set": 2, "clear": 1, **{f"{kind}-{i}": i for kind in ("tdm", "atm") for i in range(5)}}
    if isinstance(value, dict):
        value = {name: numbers(part) for name, part in value.items()}
        for layout, count in (("layout0", 13), ("layout1", 8)):
            if layout in value:
                lines = value.pop(layout)
                value["lineCounters"] = [*lines["counters"], lines["intervalFlag"]]
                assert len(value["lineCounters"]) == count
        return value
    if isinstance(value, list):
        return [numbers(part) for part in value]
    return names.get(value, value) if isinstance(value, str) else value


def test_every_operation_does_and_tells_what_it_does_in_vexoctl(gateway, tmp_path):
    """On two new devices, in the order of the examples."""
    examples = []
    for name in json.loads(vexoctl("--json", "list")[1])["operations"]:
        examples += [(name, line) for line in json.loads(vexoctl("--json", "help", *name.split())[1])["examples"]]
    assert {name.replace(" ", "_") for name, _ in examples} == set(OPERATIONS)
    script = tmp_path / "script"
    script.write_text("sim clock stop\nsim clock set seconds=1700000000\n"
                      + "".join(f"{line}\n" for _, line in examples))
    other = str(tmp_path / "device")
    status, output, error = vexoctl("--json", "--script", str(script), device=other)
    assert status == 0, error + output
    told = [json.loads(line) for line in output.splitlines()]
    told = [row for row in told if row["operation"] in dict(examples)]
    assert len(told) == len(examples) > 87
    gateway.clock.stop()
    gateway.clock.set(1700000000)
    for (name, line), expected in zip(examples, told):
        function = OPERATIONS[name.replace(" ", "_")]
        kinds = typing.get_type_hints(function)
        words = words_of(line)
        given = [python_value(kinds[one], words.get(one, words)) for one in inspect.signature(function).parameters]
        result = function(*given)
        for key in ("operation", "rc", "message"):
            del expected[key]
        if name == "sys version get":  # of the host
            continue
        results = list(expected.values())
        if hasattr(result, "_fields"):
            assert shown(list(result)) == results, name
        elif name != "sys status get":
            results = [one for one in results if not (isinstance(result, list) and isinstance(one, int))]
            assert [shown(result)] * (result is not None) == numbers(results), name
    save = ("config", "save", "--state")
    assert vexoctl(*save)[1] == vexoctl(*save, device=other)[1]


@pytest.mark.parametrize("call, error, says", [
    (lambda: vexo_cmi.sys_tpid_set(0x10000), ValueError,
     "sys_tpid_set: tpid: expected a whole number from 0 to 65535, not 65536"),
    (lambda: vexo_cmi.pdh_admin_get(-1), ValueError, "pdh_admin_get: port: expected a whole number"),
    (lambda: vexo_cmi.pdh_admin_get(1 << 32), ValueError, "pdh_admin_get: port: expected"),
    (lambda: vexo_cmi.pdh_admin_get(1.5), TypeError, "pdh_admin_get: port: expected a whole number"),
    (lambda: vexo_cmi.pdh_admin_get("3"), TypeError, "pdh_admin_get: port: expected a whole number"),
    (lambda: vexo_cmi.pdh_admin_set(3, AdminStatus.STATUS_1), TypeError,
     "pdh_admin_set: port: expected a whole number from 0 to 4294967295, not <AdminStatus.STATUS_1: 1>"),
    (lambda: vexo_cmi.pdh_admin_set(VlanMode.UNTAGGED, 3), TypeError,
     "pdh_admin_set: status: expected AdminStatus, not <VlanMode.UNTAGGED: 1>"),
    (lambda: vexo_cmi.pdh_admin_set(1 << 32, 3), ValueError, "pdh_admin_set: status: expected a whole number"),
    (lambda: vexo_cmi.sys_src_mac_set("02:00:5e"), ValueError, "sys_src_mac_set: mac: expected a MAC address"),
    (lambda: vexo_cmi.sys_src_mac_set("02:00:5e:00:00:1g"), ValueError, "mac: expected a MAC address"),
    (lambda: vexo_cmi.sys_src_mac_set(None), TypeError, "sys_src_mac_set: mac: expected a MAC address"),
    (lambda: vexo_cmi.misc_dbg_init("x" * 129), ValueError, "misc_dbg_init: info: expected at most 128 bytes"),
    (lambda: vexo_cmi.misc_dbg_init(7), TypeError, "misc_dbg_init: info: expected a text"),
    (lambda: vexo_cmi.pwe_vlan_set(PSEUDOWIRE, 17), TypeError, "pwe_vlan_set: vlan: expected PweVlan"),
    (lambda: vexo_cmi.pwe_vlan_set(None, 17), TypeError, "pwe_vlan_set: vlan: expected PweVlan, not None"),
    (lambda: vexo_cmi.pwe_vlan_set(PweVlan(), 17), TypeError, "pwe_vlan_set: vlan.mode must be given"),
    (lambda: vexo_cmi.pwe_vlan_set(PweVlan(mode=AdminStatus.STATUS_1), 17), TypeError,
     "pwe_vlan_set: vlan.mode: expected VlanMode, not <AdminStatus.STATUS_1: 1>"),
    (lambda: vexo_cmi.pwe_vlan_set(PweVlan(mode=VlanMode.UNTAGGED, vlanId=3), 17), ValueError,
     "pwe_vlan_set: vlan.vlanId: there is none with mode <VlanMode.UNTAGGED: 1>"),
    (lambda: vexo_cmi.pwe_vlan_set(PweVlan(mode=VlanMode.MODE_2, vlanId=0x10000), 17), ValueError,
     "pwe_vlan_set: vlan.vlanId: expected a whole number from 0 to 65535"),
    (lambda: vexo_cmi.pwe_params_set(dataclasses.replace(PSEUDOWIRE, t1=None), 17), TypeError,
     "pwe_params_set: params.t1 must be given"),
    (lambda: vexo_cmi.pwe_params_set(dataclasses.replace(
        PSEUDOWIRE, t1=PweServiceT1(circuit=3, rtp=PweRtp(payloadType=96))), 17), TypeError,
     "pwe_params_set: params.t1.rtp.mode must be given"),
    (lambda: vexo_cmi.ima_set(ImaGroupSet(imaAction=ImaAction.CREATE), 1), TypeError,
     "groupParam1 must be given"),
    (lambda: vexo_cmi.alarm_callback_register(3), TypeError, "alarm_callback_register: expected a function, not 3"),
    (lambda: vexo_cmi.ima_set(ImaGroupSet(imaAction=3, groupParam1=1, groupParam2=1), 1), CmiError,
     "ima_set: failure 1: Bad IMA action"),
    (lambda: vexo_cmi.pdh_admin_get(17), CmiError, "pdh_admin_get: failure 4: "),
])
def test_bad_input_is_named_and_asks_nothing_of_the_device(gateway, call, error, says):
    with pytest.raises(error, match=re.escape(says)) as caught:
        call()
    if error is CmiError:
        assert (caught.value.operation in says, caught.value.rc, str(caught.value.rc in vexo_cmi.Rc)) \
            == (True, vexo_cmi.Rc(caught.value.rc), "True")
    else:
        assert gateway.last_call == 0


def test_what_is_left_out_of_a_record_is_kept_and_what_is_none_is_not_there(gateway):
    vexo_cmi.pwe_params_set(PSEUDOWIRE, 17)
    vexo_cmi.pwe_rtp_set(PweRtp(ssrc=7), 17)
    told = vexo_cmi.pwe_params_get(17)
    assert told.t1.rtp == PweRtp(mode=PweRtpMode.ON, payloadType=96, ssrc=7)
    vexo_cmi.pwe_rtp_set(PweRtp(mode=PweRtpMode.OFF), 17)
    assert vexo_cmi.pwe_rtp_get(17) == PweRtp(mode=PweRtpMode.OFF)
    assert (told.t2, told.a, told.vlan.vlanId, told.psn.param3) == (None, None, None, None)
    gateway.settings["link.speed"] = 7  # a code that the library does not know
    assert vexo_cmi.misc_sys_info_get(0).linkSpeed is None
    vexo_cmi.pwe_params_set(PweParams(pweAction=PweAction.DELETE), 17)
    told = vexo_cmi.pwe_params_get(17)
    assert (told.pweAction, told.pweType.name, told.pweType) == (PweAction.DELETE, "0", 0)


def test_callbacks_get_what_happens_until_they_are_unregistered(gateway):
    alarms, others, reports = [], [], []
    vexo_cmi.pwe_params_set(PSEUDOWIRE, 17)
    vexo_cmi.pwe_params_set(dataclasses.replace(PSEUDOWIRE, pweType=PweType.ATM_3, t1=None, a=PweServiceA(
        circuit=1, atmMode=1, atmType=1, atmClpMode=1, atmParam1=0, atmParam2=0)), 18)
    vexo_cmi.alarm_callback_register(alarms.append)
    vexo_cmi.pm_callback_register(reports.append)
    vexo_cmi.ima_set(ImaGroupSet(imaAction=ImaAction.CREATE, groupParam1=1, groupParam2=1), 2)
    gateway.wait_subscribed(os.getpid(), "both")
    gateway.set_pm("pdh", 5, 1, 1, 42)
    gateway.alarm("pdh", 3, 5)
    gateway.wait_handled()
    vexo_cmi.alarm_callback_register(others.append)
    gateway.alarm("ima-group", 2, 1)
    for _ in range(2):
        gateway.end_interval(1)
        gateway.wait_handled()
    vexo_cmi.alarm_callback_unregister()
    vexo_cmi.pm_callback_unregister()
    gateway.alarm("pdh", 3, 0)
    assert [(one.objType.name, one.object.objId, one.object.status, one.ima) for one in alarms] == [("PDH", 3, 5, None)]
    assert [(one.objType.name, one.ima.groupId, one.object) for one in others] == [("IMA", 2, None)]
    assert [one.objType.name for one in reports] == ["PDH", "PWE", "PWE", "IMA"] * 2
    assert [one.pdh[4].lineCounters[0] for one in reports[::4]] == [42, 0]
    assert [(one.pwe.pwId, len(one.pwe.generic.counters), one.pwe.atm) for one in reports[1::4]] == [(17, 13, None)] * 2
    assert [(one.pwe.pwId, one.pwe.generic, len(one.pwe.atm.counters)) for one in reports[2::4]] == [(18, None, 4)] * 2


def test_a_call_that_hangs_lets_other_threads_run(gateway):
    fault = gateway.hang("config_get_pdh_admin")
    told = []
    thread = threading.Thread(target=lambda: told.append(vexo_cmi.pdh_admin_get(3)))
    thread.start()
    gateway.wait_hanging()
    assert (gateway.hanging, fault.waiting, told) == (1, 1, [])
    fault.end()
    thread.join()
    assert told == [AdminStatus.STATUS_2]


def test_the_whole_control_of_the_device_is_there(gateway):
    """Each function has its place, and what is set through it is told."""
    source = (PACKAGE / "device.py").read_text()
    missing = [name for name in _control.PROTOTYPES if not re.search(f'"{name[len("kv_sim_"):]}"(?!:)', source)]
    # Which operation a thread is in a recorder says, and faults are added by the one that tells the id.
    assert missing == ["kv_sim_fault_add", "kv_sim_operation"]

    vexo_cmi.pdh_admin_set(AdminStatus.STATUS_1, 3)
    fault = gateway.lose("config_set_pdh_params", 8, object=3, where={"params.cableLength": 7}, times=1)
    for length in (6, 7):
        try:
            vexo_cmi.pdh_cable_len_set(length, 3)
        except CmiError as error:
            assert (length, error.rc) == (7, vexo_cmi.Rc.FAILURE_4)
    assert (vexo_cmi.pdh_cable_len_get(3), fault.met, fault.spent, gateway.faults) == (7, 1, True, [])
    last, = (call for call in gateway.calls("config_set_pdh_params") if call.fault)
    assert (last.arguments, last.code, last.fault) == ({"port": 3}, 8, fault.id)
    assert gateway.call(last.number).given == last.given != b""

    gateway.clock.stop()
    gateway.clock.set(1700000000)
    gateway.clock.advance(hours=1)
    assert gateway.clock.now.timestamp() == 1700003600 and gateway.clock.stopped
    gateway.grow(vexo_cmi.Rate("pdh", 3, counter=1, amount=5, seconds=1))
    gateway.clock.advance(10)
    assert gateway.pm("pdh", 3, 1, 1) == 50 and gateway.rates[0].number == 3
    gateway.set_om("pdh" and "system", 1, 4, 99)
    assert gateway.om("system", 1, 4) == 99
    gateway.settings["temperature"] = 55
    assert vexo_cmi.sys_temp_get().current == 55 and "temperature" in list(gateway.settings)
    assert "params.cableLength" in gateway.functions["config_set_pdh_params"]
    gateway.reboot(5)
    assert gateway.away == 5
    with pytest.raises(CmiError):
        vexo_cmi.pdh_admin_get(3)
    gateway.clock.advance(5)
    assert (gateway.away, vexo_cmi.pdh_cable_len_get(3)) == (0, 7)
    gateway.reset()
    assert vexo_cmi.pdh_admin_get(3) == AdminStatus.STATUS_2


@pytest.mark.parametrize("error, call, says", [(error, *row) for error, rows in {
    ValueError: [
        (lambda device: device.fail("config_get_pdh_admim"),
         "no platform function 'config_get_pdh_admim': did you mean 'config_get_pdh_admin'"),
        (lambda device: device.fail("pdh_admin_get"), "'pdh_admin_get' is an operation, not a platform function"),
        (lambda device: device.fail(operation="pdh_admim_get"),
         "no operation of the library 'pdh_admim_get': did you mean 'pdh_admin_get'"),
        (lambda device: device.calls("config_get_pdh_admim"), "did you mean 'config_get_pdh_admin'"),
        (lambda device: device.trace.calls("pdh_admim_get"), "did you mean 'pdh_admin_get'"),
        (lambda device: device.trace.calls("xyz_*"), "no operation, platform function or callback 'xyz_*'"),
        (lambda device: device.fail("config_add_pw", where={"config.circiut": 1}), "'config.circuit'"),
        (lambda device: device.fail("config_add_pw", where={"pwId": -1}), "where: pwId: expected a whole number"),
        (lambda device: device.fail(where=dict.fromkeys("abcd", 1)), "where: expected at most 3"),
        (lambda device: device.fail("config_get_pdh_admin", object=17),
         "object (pdh): expected a whole number from 1 to 16"),
        (lambda device: device.fail(kind="ima-link", object=65),
         "object (ima-link): expected a whole number from 1 to 64"),
        (lambda device: device.fail(object=0), "object: expected a whole number from 1"),
        (lambda device: device.fail("config_get_pdh_admin", 0), "code: expected a whole number from 1 to 4294967295"),
        (lambda device: device.lose("config_add_pw", 1 << 32), "code: expected a whole number from 1 to 4294967295"),
        (lambda device: device.fail(nth=0), "nth: expected a whole number from 1 to 4294967295, not 0"),
        (lambda device: device.fail(nth=-1), "nth: expected a whole number from 1"),
        (lambda device: device.fail(times=-1), "times: expected a whole number from 0 to 4294967295, not -1"),
        (lambda device: device.fail(chance=0), "chance: expected a number from 1e-06 to 1, not 0"),
        (lambda device: device.fail(chance=1.1), "chance: expected"),
        (lambda device: device.slow(seconds=-1), "seconds: expected a number from 0 to 4294967.295, not -1"),
        (lambda device: device.slow(seconds=float("nan")), "seconds: expected a number from 0"),
        (lambda device: device.wait_handled(float("inf")), "timeout: expected a number from 0"),
        (lambda device: device.clock.advance(days=-1), "days: expected a number from 0 to"),
        (lambda device: device.clock.set(-1), "time: expected a number from 0 to 253402300799"),
        (lambda device: device.alarm("pdh", 3, 1 << 40), "bits: expected a whole number from 0 to 4294967295"),
        (lambda device: device.alarm("pdh", 99, 1), "number (pdh): expected a whole number from 1 to 16, not 99"),
        (lambda device: device.alarm("port", 3, 1),
         "expected one of system, pdh, ima-group, pwe, ima-link, not 'port'"),
        (lambda device: device.grow(vexo_cmi.Rate("pdh", 3, 1, amount=-1, seconds=1)), "amount: expected"),
        (lambda device: device.fail(where={"x" * 99: 1}), "where: expected at most "),
        (lambda device: operator.setitem(device.settings, "temperature", "7\0"), "temperature: expected at most 255"),
        (lambda device: device.settings["temperature\0"], "name of a setting: expected at most"),
        (lambda device: device.wait_idle(-1), "quiet: expected a number from 0"),
        (lambda device: device.agent(""), "expected the command of an agent, not ''"),
        (lambda device: device.set_om("system", 1, 4, 1 << 64),
         "value: expected a whole number from 0 to 18446744073709551615"),
        (lambda device: device.call(-1), "number: expected a whole number from 0"),
    ],
    TypeError: [
        (lambda device: device.alarm("pdh", "3", 1), "number (pdh): expected a whole number from 1 to 16, not '3'"),
        (lambda device: device.fail("config_get_pdh_admin", "8"), "code: expected a whole number"),
        (lambda device: device.fail(8), "platform function: expected a name, not 8"),
        (lambda device: device.set_period(1, 0.5), "seconds: expected a whole number"),
        (lambda device: device.fail(times=1.5), "times: expected a whole number"),
        (lambda device: device.slow(seconds="1"), "seconds: expected a number, not '1'"),
        (lambda device: device.settings[3], "name of a setting: expected a text, not 3"),
        (lambda device: device.fail(operation=3), "operation of the library: expected a name, not 3"),
        (lambda device: device.fail("config_add_pw", where={3: 1}), "where: expected a text, not 3"),
        (lambda device: device.fail(where=["pwId"]), "where: expected numbers by their names, not ['pwId']"),
        (lambda device: device.wait_handled("1"), "timeout: expected a number, not '1'"),
        (lambda device: device.grow(("pdh", 3)), "expected a Rate, not ('pdh', 3)"),
    ],
    DeviceError: [
        (lambda device: device.settings["temperatur"], "temperatur"),
        (lambda device: operator.setitem(device.settings, "temperature", 1 << 40), "temperature"),
        (lambda device: device.fail(nth=1, times=1), "without skip and times"),
        (lambda device: device.wait_subscribed(timeout=-1), "subscribed"),
        (lambda device: device.call(7), "7"),
    ]}.items() for row in rows])
def test_the_device_says_what_it_cannot_do(gateway, error, call, says):
    before = [gateway.clock.stop(), gateway.clock.now, gateway.pending]
    with pytest.raises(error, match=re.escape(says)):
        call(gateway)
    assert (gateway.faults, gateway.last_call, gateway.rates) == ([], 0, [])
    assert [None, gateway.clock.now, gateway.pending] == before


def test_a_process_goes_from_device_to_device_unless_it_listens(gateway, tmp_path):
    vexo_cmi.pdh_admin_set(AdminStatus.STATUS_1, 3)
    other = Device(tmp_path / "other")
    assert vexo_cmi.pdh_admin_get(3) == AdminStatus.STATUS_2
    with pytest.raises(DeviceError, match=f"{gateway.file} isn't in use any more: .* one device at a time"):
        gateway.alarm("pdh", 3, 1)
    with pytest.raises(DeviceError, match="No such file or directory"):
        Device("/nowhere/device")
    assert other.alarm_bits("pdh", 3) == 0
    Device(gateway.file)
    assert vexo_cmi.pdh_admin_get(3) == AdminStatus.STATUS_1
    vexo_cmi.alarm_callback_register(print)
    gateway.wait_subscribed()
    with pytest.raises(DeviceError, match="listens"):
        gateway.close()


def run_python(program, **environment):
    """Runs a program in a process of its own, and returns what it printed."""
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, check=False,
                          env={**os.environ, **environment})
    return done.stdout + done.stderr


def test_a_recording_has_what_python_calls(gateway):
    program = "import vexo_cmi; vexo_cmi.pdh_admin_get(3)"
    with gateway.agent([sys.executable, "-c", program]):
        pass
    tree, = (one for one in gateway.trace if one.name == "pdh_admin_get")
    assert [call.name for call in tree.all()] == ["pdh_admin_get", "config_get_pdh_admin"]
    assert gateway.calls("config_get_pdh_admin")[-1].operation == "pdh_admin_get"


def test_a_host_with_a_version_of_its_own_is_asked_for_it(tmp_path):
    program = ("import vexo_cmi; print(vexo_cmi.sys_version_get().text[7],"
               " 'libvexo_host' in open('/proc/self/maps').read())")
    assert run_python(program) == f"python3-vexo-cmi {vexo_cmi.__version__} True\n"
    library = tmp_path / "host.so"
    subprocess.run([os.environ.get("CC", "cc"), "-shared", "-fPIC", "-x", "c", "-", "-o", library], check=True,
                   text=True, input='#include <string.h>\nint gorvGetVersion(char *to, int size)'
                                    '{ strncpy(to, "host 7", size); return 0; }')
    assert run_python(program, LD_PRELOAD=str(library)) == "host 7 False\n"


def test_without_the_library_it_says_what_to_do(tmp_path):
    shutil.copytree(PACKAGE, tmp_path / "vexo_cmi")
    environment = {"PYTHONPATH": str(tmp_path), "PATH": "/nowhere", "LD_LIBRARY_PATH": "", "KV_SIM_DEVICE": ""}
    if ctypes.util.find_library("vexo_cmi"):
        pytest.skip("the library is installed on this system")
    told = {call: run_python(f"import vexo_cmi\ntry: {call}\nexcept vexo_cmi.LibraryMissing as error: print(error)",
                             **environment)
            for call in ("vexo_cmi.pdh_admin_get(3)", "vexo_cmi.Device()",
                         "vexo_cmi.Document({}) == vexo_cmi.Document({})")}
    starts = ["the CMI library can't be loaded: libvexo_cmi.so.1: ", "the simulated device can't be loaded: libkv_",
              "vexoctl isn't there: install it"]
    for text, start in zip(told.values(), starts):
        assert text.startswith(start) and text.count("\n") == 1 and "nstall" in text


def test_what_there_is_is_listed():
    """help() and type checkers go by that."""
    assert set(vexo_cmi.__all__) == {name for name, value in vars(vexo_cmi).items()
                                     if not (name.startswith("_") or inspect.ismodule(value))}


def test_python_3_9_understands_it():
    for file in PACKAGE.glob("*.py"):
        ast.parse(file.read_text(), feature_version=(3, 9))
    assert "from __future__ import annotations" in (PACKAGE / "_interface.py").read_text()
    assert _where.VERSION == vexo_cmi.__version__
