"""The fixtures, as their users see them: each of these tests runs pytest on a test of theirs."""
import json
import os
import re
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

import vexo_cmi
from vexo_cmi import CmiError, DeviceError, Difference, Document, DocumentError, LibraryMissing, _where
from vexo_cmi._library import program
from vexo_cmi.document import vexoctl
from vexo_cmi.gateway import AgentError, Gateway

VEXOCTL = program(_where.VEXOCTL, "vexoctl")
SITE = {"format": 1, "pdh": {"3": {"adminStatus": 1, "cableLength": 40}}}


def run(folder, test, *words):
    """Runs a test, and returns whether it passed and what pytest printed."""
    (folder / "test_it.py").write_text("import os, vexo_cmi\nfrom vexo_cmi import Document\n"
                                       f"VEXOCTL = {VEXOCTL!r}\n{test}")
    done = subprocess.run([sys.executable, "-m", "pytest", "-p", "no:cacheprovider", *words, str(folder)],
                          capture_output=True, text=True, check=False, cwd=folder)
    return done.returncode == 0, done.stdout + done.stderr


@pytest.mark.parametrize("in_ci", ["", "true"])  # where pytest shortens nothing
@pytest.mark.parametrize("begin, end", [
    ("def test_site(gateway, agent):", ""),
    ("import pytest\n@pytest.fixture\ndef site(gateway, agent):", "def test_site(site): pass"),
])
def test_a_failure_is_explained_by_the_agent_the_faults_and_the_device(tmp_path, monkeypatch, in_ci, begin, end):
    monkeypatch.setenv("CI", in_ci)
    passed, report = run(tmp_path, begin + '''
    gateway.fail("config_set_pdh_params", 8, object=3, where={"params.cableLength": 40}, times=2)
    gateway.lose("config_add_pw", object=17, times=2)
    gateway.late("pm", seconds=0.5, nth=2)
    gateway.garble(kind="ima-link", object=5, operation="ima_get", chance=0.5).end()
    with agent([VEXOCTL, "--script", "-"], ready=False) as one:
        one.wait()
    with agent([VEXOCTL, "pdh", "admin", "set", "port=3", "status=1"]):
        pass
    with agent(["sh", "-c", VEXOCTL.replace(" ", "\\\\ ") + " pdh cable_len set port=3 length=40 || echo re'fu'sed"]):
        pass
    vexo_cmi.pdh_admin_get(4)
    assert gateway.config == Document({"format": 1, "pdh": {"3": {"adminStatus": 1, "cableLength": 40}}})
''' + end)
    assert not passed
    for line in (r"E +pdh 3 cableLength: 133, expected 40", r"pdh_cable_len_set\(length=40, port=3\) = 4",
                 r" +config_set_pdh_params\(.*\) = 8", "refused", "pdh 3 adminStatus: - 2 \\+ 1",
                 r"config_get_pdh_admin\(port=4\) = 0",
                 r"fail\('config_set_pdh_params', code=8, object=3, where={'params.cableLength': 40}, times=2\): met 1",
                 r"lose\('config_add_pw', code=1, object=17, times=2\): met none",
                 r"late\('pm', seconds=0.5, nth=2\): met none",
                 r"garble\(seed=1, object=5, kind='ima-link', operation='ima_get', chance=0.5\): met none",
                 r"Calls of <agent vexoctl, process \d+, ended: 0>"):
        assert re.search(f"^.*{line}", report, re.MULTILINE), (line, report)
    assert "adminStatus: 1, expected" not in report
    assert report.count("refused") == 1


def test_what_cannot_be_told_of_a_failure_leaves_the_rest(tmp_path):
    passed, report = run(tmp_path, '''
def test_site(gateway, agent):
    gateway.calls = gateway.changes = lambda: 1 / 0
    agent([VEXOCTL, "sys", "tpid", "get"])
    gateway.drop("pm")
    assert False, "what failed"
''')
    assert not passed and report.count("can't be told: division by zero") == 2
    for line in ("what failed", "tpid: 0x8100", r"drop\('pm'\): met none"):
        assert re.search(line, report), (line, report)


def test_without_a_recorder_a_trace_is_not_empty_but_an_error(gateway, agent, monkeypatch):
    monkeypatch.setattr(_where, "RECORDER", "nowhere/no_recorder.so")
    agent([VEXOCTL, "sys", "tpid", "get"])
    with pytest.raises(LibraryMissing, match="no_recorder.so, which records, isn't there: install vexo-trace"):
        gateway.trace.calls("pwe_*")


@pytest.mark.parametrize("in_ci", ["", "true"])
def test_what_an_agent_printed_is_told_once(tmp_path, monkeypatch, in_ci):
    monkeypatch.setenv("CI", in_ci)
    passed, report = run(tmp_path, '''
def test_site(agent):
    agent(["sh", "-c", "for i in 1 2 3; do echo li'n'e $i; done; printf %0999d 7; exit 3"])
''')
    assert not passed and report.count("line 3\n") == report.count("0" * 998 + "7") == 1
    assert report.count(f"sh ended with status 3; the last it printed: {'0' * 200}...\n") >= 1
    assert "Popen" not in report  # none of the fixtures' own lines


@pytest.mark.parametrize("test, has, limit", [
    ("gateway.alarm('pdh', 99, 1)", "E +ValueError: number .pdh.: expected a whole number from 1 to 16", 1500),
    ("agent('no-such-agent')", "E +.*AgentError: the agent can't be started: .*no-such-agent", 1500),
    ("agent(['sh', '-c', 'head -c 9999999 /dev/zero; exit 3'])",
     "Output of .*, the last 100000 of 9999999 letters", 120000),
])
def test_a_report_has_the_tests_own_lines_and_an_end_of_the_output(tmp_path, test, has, limit):
    passed, report = run(tmp_path, f"def test_site(gateway, agent):\n    {test}\n")
    assert not passed and re.search(has, report) and len(report) < limit, report


def runs(pid):
    try:
        return Path(f"/proc/{pid}/cmdline").read_bytes() != b""  # of one that nobody waits for
    except OSError:
        return False


def test_nothing_is_left_of_a_test(tmp_path, monkeypatch):
    monkeypatch.setenv("TMPDIR", str(tmp_path / "tmp"))
    (tmp_path / "tmp").mkdir()
    passed, report = run(tmp_path, '''
import pytest, resource

@pytest.mark.parametrize("sets", ["", "setsid"])
def test_agent(agent, sets):
    agent(["sh", "-c", f"'{VEXOCTL}' sys tpid get; {sets} sleep 98.76 & echo $! >>../pids"],
          cwd=os.environ["TMPDIR"]).wait()

def test_full_disk():
    hard = resource.getrlimit(resource.RLIMIT_FSIZE)[1]
    resource.setrlimit(resource.RLIMIT_FSIZE, (0, hard))
    try:
        with pytest.raises(vexo_cmi.DeviceError, match="cannot make the device"):
            vexo_cmi.Gateway()
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, (hard, hard))
    assert "KV_SIM_DEVICE" not in os.environ
''')
    assert passed, report
    assert not os.listdir(tmp_path / "tmp")
    pids = (tmp_path / "pids").read_text().split()
    assert len(pids) == 2
    limit = time.monotonic() + 10
    while any(map(runs, pids)):
        assert time.monotonic() < limit


def test_each_test_has_its_own_device_also_side_by_side(tmp_path):
    passed, report = run(tmp_path, '''
import pytest
@pytest.mark.parametrize("i", range(16))
def test_new(gateway, agent, i):
    assert vexo_cmi.pdh_admin_get(3) == 2
    vexo_cmi.pdh_admin_set(1, 3)
    assert os.environ["KV_SIM_DEVICE"] == str(gateway.file)
    with open("files", "a") as files:
        print(gateway.folder, file=files)
    agent([VEXOCTL, "watch"])
''', "-n", "2")
    assert passed, report
    folders = (tmp_path / "files").read_text().split("\n")[:-1]
    assert len(set(folders)) == 16 and not any(map(os.path.exists, folders))
    assert "KV_SIM_DEVICE" not in os.environ or os.environ["KV_SIM_DEVICE"] not in folders


def test_an_agent_is_waited_for_until_it_listens_or_is_idle(gateway, agent):
    with agent([VEXOCTL, "watch"]) as one:
        assert {(of.process, of.service) for of in gateway.subscriptions} == {(one.pid, "alarms"), (one.pid, "pm")}
        gateway.alarm("pdh", 3, 5)
        gateway.wait_for(lambda: "PDH port 3" in one.output)
    assert one.status == 0 and gateway.trace.calls("vexoAlarmCallback")[0].layer == "callback"
    with agent(["sh", "-c", f"'{VEXOCTL}' pdh admin set port=3 status=1; exec sleep 100"]) as idle:
        assert vexo_cmi.pdh_admin_get(3) == 1 and idle.running
    assert idle.status == -signal.SIGTERM


def test_an_agent_that_computes_is_not_idle(gateway, agent):
    agent(["sh", "-c", f"'{VEXOCTL}' sys tpid get; i=0; while [ $i -lt 300000 ]; do i=$((i+1)); done; "
                       f"'{VEXOCTL}' pdh admin set port=3 status=1; exec sleep 100"], ready=False)
    gateway.wait_idle()
    assert vexo_cmi.pdh_admin_get(3) == 1


def test_a_suspended_agent_never_holds_the_device(gateway, agent):
    busy = agent([sys.executable, "-c", "import os, vexo_cmi\n"
                  "device = vexo_cmi.Device(os.environ['KV_SIM_DEVICE'])\n"
                  "print(flush=True)\nwhile True: device.reset()"], ready=False)
    gateway.wait_for(lambda: busy.output)
    for _ in range(10):
        busy.suspend()
        gateway.alarm_bits("pdh", 3)  # refused after five seconds where the agent holds the device
        assert not busy.busy
        busy.resume()
    busy.suspend()
    busy.stop()
    assert busy.status == -signal.SIGTERM


@pytest.mark.parametrize("command, options, says", [
    ("no-such-agent", {}, "can't be started"),
    (["sh", "-c", "echo no site; exit 3"], {}, "sh ended with status 3; the last it printed: no site"),
    (["sh", "-c", "kill -SEGV $$"], {}, "sh ended with signal SIGSEGV"),
    (["sleep", "100"], {"timeout": 0.3}, "sleep has neither subscribed nor become idle for 0.3 seconds"),
])
def test_an_agent_that_does_not_start_says_why(agent, command, options, says):
    with pytest.raises(AgentError, match=says):
        agent(command, **options)


def test_an_agent_that_ends_otherwise_than_it_should_fails_the_test(gateway, agent, monkeypatch):
    monkeypatch.setattr("vexo_cmi.gateway.PATIENCE", 0.3)
    with pytest.raises(AgentError, match="has not ended 0.3 seconds after SIGTERM"):
        with agent(["sh", "-c", f"trap '' TERM; '{VEXOCTL}' sys tpid get; while :; do sleep 1; done"]):
            pass
    with pytest.raises(AgentError, match="ended with status 7"):
        with agent(["sh", "-c", f"trap 'exit 7' TERM; '{VEXOCTL}' sys tpid get; while :; do sleep 1; done"]):
            pass
    with agent([VEXOCTL, "watch"]) as killed:
        killed.kill()
    assert killed.status == -signal.SIGKILL
    with pytest.raises(ZeroDivisionError):  # what failed first is told
        with agent(["sh", "-c", f"trap 'exit 7' TERM; '{VEXOCTL}' sys tpid get; while :; do sleep 1; done"]):
            raise ZeroDivisionError
    gateway.wait_for(lambda: not any(one.running for one in gateway.agents))


def test_documents_are_compared_by_what_both_name(gateway, tmp_path, monkeypatch):
    site = tmp_path / "a site.json"
    site.write_text(json.dumps(SITE))
    before = gateway.config
    assert before != Document(site)
    assert before.differences(Document(site)) == [
        Difference("pdh 3", "adminStatus", 2, 1), Difference("pdh 3", "cableLength", 133, 40)]
    assert vexoctl("config", "apply", str(site))[0] == 0
    assert gateway.config == Document(site) == Document(SITE) and before != gateway.config
    monkeypatch.setenv("LD_PRELOAD", "/nowhere/recorder.so")  # of the tests: what compares is no agent
    assert gateway.changes() == "pdh 3 adminStatus: - 2 + 1\npdh 3 cableLength: - 133 + 40\n"
    assert gateway.config != Document({**SITE, "pwe": {"17": {"pweType": "tdm-1"}}})
    site.write_text('{"format": 1, "pdh": {"3": {"cableLenght": 1}}}')
    with pytest.raises(DocumentError, match="did you mean 'cableLength'"):
        assert gateway.config == Document(site)
    gateway.fail("config_get_pdh_params", 8, object=3)
    with pytest.raises(DeviceError, match="pdh 3"):
        assert gateway.config


@pytest.mark.parametrize("holds", [
    lambda gateway: gateway.config == Document({"format": 1, "pdh": {"3": {"cableLength": 40}}}),
    lambda gateway: vexo_cmi.pdh_cable_len_get(3) == 40])
def test_a_condition_is_waited_for_while_the_device_restarts(gateway, holds):
    vexo_cmi.pdh_cable_len_set(40, 3)
    gateway.clock.stop()
    gateway.reboot(5)
    with pytest.raises((CmiError, DeviceError), match="is restarting"):
        gateway.wait_for(lambda: holds(gateway), timeout=0)
    away = []

    def condition():
        away.append(gateway.away)
        try:
            return holds(gateway)
        finally:
            gateway.clock.advance(5)

    assert gateway.wait_for(condition) and away == [5, 0]


def test_a_new_device_is_there_and_gone_in_milliseconds():
    """The figure itself is measured by scripts/bench; here is no more than its order."""
    times = []
    for _ in range(20):
        begin = time.perf_counter()
        Gateway().end()
        times.append(time.perf_counter() - begin)
    assert min(times) < 0.03
