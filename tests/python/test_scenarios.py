"""The scenarios pass with agents that are right, and each fails with the one that has its fault."""
import json
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

SCENARIOS = Path(os.environ["VEXO_CMI_SOURCE"]) / "examples/scenarios"
GATEWAYD = os.environ["VEXO_CMI_GATEWAYD"]
SITE = {"format": 1, "pdh": {"1": {"adminStatus": 1, "cableLength": 40}, "2": {"adminStatus": 1, "cableLength": 50}},
        "pwe": {"17": {"pweType": "tdm-1", "t1": {"circuit": 1}}, "18": {"pweType": "tdm-1", "t1": {"circuit": 2}}}}
FAULTS = {  # and by what each shows
    "reconcile_after_a_restart": "pwe 18: none, expected",
    "lost_answer_at_a_create": "pwe 18: none, expected",
    "lost_alarm": "has printed 'alarm pdh 1: active 0x00000005' 0 times",
    "storm_of_alarms": "has not dealt with [0-9]* alarm events",
    "day_of_pm": "has printed 'pm pdh 1: interval 2:' 0 times",
    "hang": "what was waited for has not come about",
    "reboot_while_provisioning": "pdh 1 cableLength: 133, expected 40",
    "clock_back": "pwe 17: none, expected",
    "upgrade_failed": "pwe 17: none, expected",
    "overflow": "has printed 'alarm pdh 1: active 0x00000001' 0 times",
    "two_agents_on_one_device": "they go on changing the device",
    "killed_anywhere": "FileExistsError",
}


def run(folder, scenario, *options):
    """Runs scenarios, and returns how many passed and failed, and what pytest printed."""
    # Their place comes first: the options are known there.
    done = subprocess.run([sys.executable, "-m", "pytest", SCENARIOS, "-p", "no:cacheprovider", "-k", scenario,
                           *options], capture_output=True, text=True, check=False, cwd=folder)
    counts = dict(re.findall(r"(\d+) (passed|failed|error)", (done.stdout.splitlines() or [""])[-1]))
    return {what: int(count) for count, what in counts.items()}, done.stdout + done.stderr


@pytest.fixture(name="written")
def written_in_python(tmp_path):
    """The options for an agent of wrong_agent.py."""
    (tmp_path / "a site.json").write_text(json.dumps(SITE))
    agent = f"'{sys.executable}' '{Path(__file__).parent / 'wrong_agent.py'}'"
    return lambda name: (f"--site={tmp_path}/a site.json", f"--agent={agent} {name} '{{site}}' {{patience}}")


def test_gatewayd_is_right(tmp_path):
    counts, report = run(tmp_path, "test", f"--agent='{GATEWAYD}' --period 0.02 --patience {{patience}} {{site}}")
    assert counts == {"passed": len(FAULTS)}, report


def test_an_agent_in_python_is_right(tmp_path, written):
    counts, report = run(tmp_path, "test", *written("Right"))
    assert counts == {"passed": len(FAULTS)}, report


@pytest.mark.parametrize("option, says", [
    ("--agent=", "--agent: '' is not there, nor in PATH"),
    ("--agent='x", "--agent: No closing quotation: 'x"),
    ("--agent=/nowhere/agent {site}", "--agent: '/nowhere/agent' is not there, nor in PATH"),
    (f"--agent={__file__}", f"--agent: '{__file__}' is no program that can be run"),
    ("--agent=env {sight}", "--agent: braces stand around site, patience only, or are doubled: {sight}"),
    ("--site=missing.json", "--site: cannot read {here}/missing.json: No such file or directory"),
    ("--site=small.json", "--site: {here}/small.json: two ports and two pseudowires are needed"),
    ("--alarm=", "--alarm: expected what the agent prints"),
    ("--report={}", "--report: braces stand around kind, number, interval only, or are doubled: {}"),
    ("--limit=0", "--limit: expected seconds, not '0'"),
    ("--limit=nan", "--limit: expected seconds, not 'nan'"),
])
def test_an_option_that_cannot_be_ends_the_run_with_a_line(tmp_path, written, option, says):
    (tmp_path / "small.json").write_text('{"format": 1, "pdh": {"1": {}}}')
    counts, report = run(tmp_path, "test", *written("Right"), option)
    assert (counts, report.strip()) == ({}, "ERROR: " + says.replace("{here}", str(tmp_path)))


@pytest.mark.parametrize("scenario", FAULTS)
def test_an_agent_is_found_that_fails_at(tmp_path, written, scenario):
    name = "".join(word.capitalize() for word in scenario.split("_"))
    counts, report = run(tmp_path, f"test_{scenario}", *written(name), "--limit=1")
    assert counts == {"failed": 1} and re.search(FAULTS[scenario], report), report
