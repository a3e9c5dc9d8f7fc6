"""A small agent that is right, and twelve that are wrong in one thing each, for the scenarios:
wrong_agent.py NAME SITE PATIENCE"""
import json
import os
import signal
import sys
import threading
import time
from pathlib import Path

import vexo_cmi as cmi

stop = threading.Event()
signal.signal(signal.SIGTERM, lambda *_: stop.set())


class Right:
    """Looks at the device again and again, and knows of it only what it has just read."""

    def __init__(self, site, patience):
        self.ports = {int(number): row["cableLength"] for number, row in site["pdh"].items()}
        self.pseudowires = {int(number): row["t1"]["circuit"] for number, row in site["pwe"].items()}
        self.alarms = {}
        self.patience = patience
        self.since = time.monotonic()

    def now(self):
        return time.monotonic()

    def read_port(self, port):
        params = cmi.pdh_params_get(port)
        return (params.adminStatus, params.cableLength) == (cmi.AdminStatus.STATUS_1, self.ports[port])

    def set_port(self, port):
        cmi.pdh_admin_set(cmi.AdminStatus.STATUS_1, port)
        cmi.pdh_cable_len_set(self.ports[port], port)

    def read_pseudowire(self, number):
        params = cmi.pwe_params_get(number)
        return params.pweAction == cmi.PweAction.CREATE and params.t1.circuit == self.pseudowires[number]

    def set_pseudowire(self, number):
        cmi.pwe_params_set(cmi.PweParams(
            pweType=cmi.PweType.TDM_1, pweAction=cmi.PweAction.CREATE, adminStatus=cmi.AdminStatus.STATUS_1,
            dstMac="02:00:5e:00:00:11", vlan=cmi.PweVlan(mode=cmi.VlanMode.UNTAGGED),
            psn=cmi.PwePsn(psnType=cmi.PwePsnType.TYPE_2, param1=number),
            t1=cmi.PweServiceT1(circuit=self.pseudowires[number], rtp=cmi.PweRtp(mode=cmi.PweRtpMode.OFF))), number)

    def bring(self):
        for numbers, read, change in ((self.ports, self.read_port, self.set_port),
                                      (self.pseudowires, self.read_pseudowire, self.set_pseudowire)):
            for number in numbers:
                try:
                    if not read(number):
                        change(number)
                except cmi.CmiError as error:
                    self.failed(error)

    def failed(self, error):
        print(error, flush=True)

    def hear(self, alarm):
        if alarm.object and alarm.objType in (cmi.ObjType.PDH, cmi.ObjType.PWE):
            self.tell(alarm.objType.name.lower(), alarm.object.objId, alarm.object.status)

    def tell(self, kind, number, bits):
        if self.alarms.get((kind, number), 0) != bits:
            print(f"alarm {kind} {number}: active 0x{bits:08X}", flush=True)
        self.alarms[kind, number] = bits

    def report(self, pm):
        for number in self.ports if pm.objType == cmi.ObjType.PDH else ():
            print(f"pm pdh {number}: interval {int(pm.pdh[number - 1].pmType)}:", flush=True)

    def to_read(self):
        return [*(("pdh", port) for port in self.ports), *(("pwe", number) for number in self.pseudowires)]

    def read_alarms(self):
        for kind, number in self.to_read():
            try:
                self.tell(kind, number, (cmi.pdh_alarms_get if kind == "pdh" else cmi.pwe_alarms_get)(number))
            except cmi.CmiError as error:
                self.failed(error)

    def listen(self):
        cmi.alarm_callback_register(self.hear)
        cmi.pm_callback_register(self.report)

    def watch(self):
        """A call that does not return can't be ended, but the process can."""
        while self.now() - self.since < self.patience:
            time.sleep(self.patience / 10)
        os._exit(1)

    def run(self):
        threading.Thread(target=self.watch, daemon=True).start()
        self.bring()
        self.listen()
        while not stop.wait(0.02):
            self.since = self.now()
            self.bring()
            self.read_alarms()


class ReconcileAfterARestart(Right):
    """Is done when the last pseudowire is there."""
    done = None

    def bring(self):
        if self.done is None:
            self.done = self.read_pseudowire(min(self.pseudowires))
        if not self.done:
            super().bring()


class LostAnswerAtACreate(Right):
    """Creates until the device says that it has done so, and does nothing else meanwhile."""

    def __init__(self, site, patience):
        super().__init__(site, patience)
        self.made = set()

    def read_pseudowire(self, number):
        return number in self.made

    def set_pseudowire(self, number):
        while not stop.is_set():
            self.since = self.now()
            try:
                super().set_pseudowire(number)
            except cmi.CmiError as error:
                self.failed(error)
                stop.wait(0.02)
            else:
                self.made.add(number)
                return

    def run(self):
        self.listen()
        super().run()


class LostAlarm(Right):
    """Takes events for all that there is."""

    def to_read(self):
        return []


class StormOfAlarms(Right):
    """Takes its time for each event."""

    def hear(self, alarm):
        time.sleep(0.05)
        super().hear(alarm)


class DayOfPm(Right):
    """Knows one interval."""

    def report(self, pm):
        if pm.objType == cmi.ObjType.PDH and pm.pdh[0].pmType == cmi.PmType.TYPE_1:
            super().report(pm)


class Hang(Right):
    """Waits for ever."""

    def watch(self):
        pass


class RebootWhileProvisioning(Right):
    """Never looks again at what it has set."""

    def __init__(self, site, patience):
        super().__init__(site, patience)
        self.set = set()

    def read_port(self, port):
        return port in self.set or super().read_port(port)

    def set_port(self, port):
        super().set_port(port)
        self.set.add(port)


class ClockBack(Right):
    """Plans by the time of day, which on a device is the device's."""

    def __init__(self, site, patience):
        super().__init__(site, patience)
        self.clock = cmi.Device().clock
        self.next = 0

    def bring(self):
        if self.clock.now.timestamp() >= self.next:
            super().bring()
            self.next = self.clock.now.timestamp()


class UpgradeFailed(Right):
    """Leaves the device alone from when an upgrade begins until it has succeeded."""

    def bring(self):
        if cmi.misc_upgrade_info_get().state in (cmi.UpgradeState.STATE_1, cmi.UpgradeState.STATE_5):
            super().bring()


class Overflow(Right):
    """Reads the alarms of what an event has told of before."""

    def to_read(self):
        return list(self.alarms)


class TwoAgentsOnOneDevice(Right):
    """Sets what is as it should be, too."""

    def read_port(self, port):
        return False


class KilledAnywhere(Right):
    """Lets a file say that it runs."""

    def run(self):
        lock = Path(os.environ["KV_SIM_DEVICE"] + ".lock")
        lock.touch(exist_ok=False)
        super().run()
        lock.unlink()


if __name__ == "__main__":
    with open(sys.argv[2], encoding="utf-8") as file:
        globals()[sys.argv[1]](json.load(file), float(sys.argv[3])).run()
