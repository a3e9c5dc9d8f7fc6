"""The agent under test, which options of pytest name, and how its tests see what it does."""
import random
import re
import signal
import time
from pathlib import Path

import pytest

from vexo_cmi import Document

OPTIONS = {
    "--agent": ("gatewayd --period 0.02 --patience {patience} {site}",
                "command that starts it; {site} is the file of --site, {patience} the seconds after which it "
                "is to give up a call that doesn't return"),
    "--site": (str(Path(__file__).parent.parent / "gatewayd" / "site.json"),
               "document with what it is to bring the device to: two ports and two pseudowires at least"),
    "--alarm": ("alarm {kind} {number}: active 0x{bits:08X}",
                "what it prints when alarms of a pdh port or pwe have changed"),
    "--report": ("pm {kind} {number}: interval {interval}:", "what it prints of an object in a PM report"),
    "--limit": ("10", "seconds that it may take for what it is to do at once"),
    "--seed": (str(random.randrange(1 << 32)), "of what is chosen at random"),
}


def pytest_addoption(parser):
    group = parser.getgroup("scenarios", "the agent under test")
    for name, (default, meaning) in OPTIONS.items():
        group.addoption(name, default=default, help=f"{meaning} ({default})".replace("%", "%%"))


def pytest_report_header(config):
    return f"scenarios: --seed={config.getoption('--seed')} --agent='{config.getoption('--agent')}'"


class Subject:
    """The agent under test on a test's gateway, and what it is to do there."""

    def __init__(self, gateway, option):
        self.gateway = gateway
        self._option = option
        self.site = Document(option("--site"))
        self.ports, self.pseudowires = ([int(number) for number in self.site.content.get(kind, {})]
                                        for kind in ("pdh", "pwe"))
        if len(self.ports) < 2 or len(self.pseudowires) < 2:
            raise pytest.UsageError(f"{option('--site')}: two ports and two pseudowires are needed")
        self.limit = float(option("--limit"))
        self.random = random.Random(option("--seed"))

    def start(self, patience=10, **options):
        """Starts it, and waits until it has subscribed or is idle."""
        return self.gateway.agent(
            self._option("--agent").format(site=self._option("--site"), patience=patience), **options)

    def suspend(self, running):
        """Stops it until it gets SIGCONT."""
        running.send(signal.SIGSTOP)
        threads = Path(f"/proc/{running.pid}/task")
        self.gateway.wait_for(lambda: all((thread / "stat").read_text().rpartition(")")[2].split()[0] == "T"
                                          for thread in threads.iterdir()))

    def wait_provisioned(self, expected=None):
        """Waits until the device is as the site says."""
        end = time.monotonic() + self.limit
        while True:
            late = time.monotonic() > end
            config = self.gateway.config
            if late or config == (expected or self.site):
                break
        assert config == (expected or self.site)

    def wait_alarm(self, running, kind, number, bits):
        """Waits until it has told which alarms an object has."""
        self._wait_printed(running, self._option("--alarm").format(kind=kind, number=number, bits=bits))

    def wait_reports(self, running, kind, number, **counts):
        """Waits until it has told so many reports of an object in each interval."""
        for interval, count in counts.items():
            self._wait_printed(running, self._option("--report").format(
                kind=kind, number=number, interval=interval.lstrip("_")), count)

    def _wait_printed(self, running, text, count=1):
        end = time.monotonic() + self.limit
        while time.monotonic() < end and running.output.count(text) < count:
            time.sleep(0.001)
        found = running.output.count(text)
        assert found >= count, f"{running!r} has printed {text!r} {found} times"

    def wait_at_rest(self, *agents):
        """Waits until all have asked for a while and changed nothing; or ask nothing more."""
        asked = {one.pid: 0 for one in agents}
        end = time.monotonic() + self.limit
        for call in self.gateway.follow(self.gateway.end_of_journal(), timeout=1):
            if re.match("config_(set|add|del)", call.function):
                asked = dict.fromkeys(asked, 0)
            elif call.process in asked:
                asked[call.process] += 1
            if min(asked.values()) >= 100:
                return
            assert time.monotonic() < end, "they go on changing the device"


@pytest.fixture
def subject(gateway, request):
    """The agent under test."""
    return Subject(gateway, request.config.getoption)
