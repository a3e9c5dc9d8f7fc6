"""The agent under test, which options of pytest name, and how its tests see what it does."""
import functools
import os
import random
import re
import shlex
import shutil
import time
from pathlib import Path

import pytest

from vexo_cmi import Document, DocumentError

OPTIONS = {
    "--agent": ("gatewayd --period 0.02 --patience {patience} {site}",
                "command that starts it; {site} is the file of --site, {patience} the seconds after which it "
                "is to give up a call that doesn't return"),
    "--site": (str(Path(__file__).resolve().parent.parent / "gatewayd" / "site.json"),
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


def pytest_sessionstart(session):
    if not session.config.option.collectonly:
        checked(session.config)


@functools.lru_cache(maxsize=None)
def checked(config):
    """The options, when they can be."""
    return Options(lambda name: config.getoption(name, OPTIONS[name][0]))


class Options:
    """What is told of the agent under test; a UsageError where that can't be."""

    def __init__(self, option):
        self.site = Document(os.path.abspath(option("--site")))
        try:
            self.site.differences(self.site)  # reads it, and checks it
            self.ports, self.pseudowires = ([int(number) for number in self.site.content.get(kind, {})]
                                            for kind in ("pdh", "pwe"))
        except (DocumentError, OSError) as error:
            raise pytest.UsageError(f"--site: {error}") from error
        if len(self.ports) < 2 or len(self.pseudowires) < 2:
            raise pytest.UsageError(f"--site: {self.site.file}: two ports and two pseudowires are needed")
        try:
            self._words = shlex.split(option("--agent"))
        except ValueError as error:
            raise pytest.UsageError(f"--agent: {error}: {option('--agent')}") from error
        program = (self.command(1) or [""])[0]
        if not shutil.which(program):
            raise pytest.UsageError(f"--agent: {program!r} " + (
                "is no program that can be run" if os.path.exists(program) else "is not there, nor in PATH"))
        self._alarm, self._report = option("--alarm"), option("--report")
        for name, text in (("--alarm", self.alarm("pdh", 1, 1)), ("--report", self.report("pdh", 1, 1))):
            if not text.strip():
                raise pytest.UsageError(f"{name}: expected what the agent prints")
        self.limit, self.seed = option("--limit"), option("--seed")
        if not re.fullmatch(r"[0-9]*\.?[0-9]+", self.limit) or not float(self.limit):
            raise pytest.UsageError(f"--limit: expected seconds, not {self.limit!r}")
        self.limit = float(self.limit)

    @staticmethod
    def _filled(name, text, **values):
        try:
            return text.format(**values)
        except (AttributeError, IndexError, KeyError, ValueError) as error:
            raise pytest.UsageError(f"{name}: braces stand around {', '.join(values)} only, or are doubled: "
                                    f"{text}") from error

    def command(self, patience):
        """The words that start the agent."""
        return [self._filled("--agent", word, site=self.site.file, patience=patience) for word in self._words]

    def alarm(self, kind, number, bits):
        """What it prints of the alarms of an object."""
        return self._filled("--alarm", self._alarm, kind=kind, number=number, bits=bits)

    def report(self, kind, number, interval):
        """What it prints of an object in a report."""
        return self._filled("--report", self._report, kind=kind, number=number, interval=interval)


class Subject:
    """The agent under test on a test's gateway, and what it is to do there."""

    def __init__(self, gateway, options):
        self.gateway = gateway
        self._options = options
        self.site, self.ports, self.pseudowires = options.site, options.ports, options.pseudowires
        self.limit = options.limit
        self.random = random.Random(options.seed)

    def start(self, patience=10, **options):
        """Starts it, and waits until it has subscribed or is idle."""
        return self.gateway.agent(self._options.command(patience), **options)

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
        self._wait_printed(running, self._options.alarm(kind, number, bits))

    def wait_reports(self, running, kind, number, **counts):
        """Waits until it has told so many reports of an object in each interval."""
        for interval, count in counts.items():
            self._wait_printed(running, self._options.report(kind, number, int(interval.lstrip("_"))), count)

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
    return Subject(gateway, checked(request.config))
