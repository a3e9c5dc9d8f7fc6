"""vexotrace, run as a person and as a script would run it, on recordings of the example agent."""
import json
import os
import random
import re
import signal
import subprocess
import tempfile
import unittest
from pathlib import Path

VEXOTRACE, VEXOCTL = os.environ["VEXOTRACE"], os.environ["VEXOCTL"]
LIBRARY, SIMULATOR = Path(os.environ["VEXO_CMI_LIBRARY"]), os.environ["SIMULATOR"]
SOURCE = Path(__file__).resolve().parents[2]
KEPT = SOURCE / "tests/recordings/agent.trace"


def setUpModule():
    global folder, environment
    folder = Path(tempfile.mkdtemp())
    unittest.addModuleCleanup(subprocess.run, ["rm", "-rf", folder])
    subprocess.run(
        [os.environ["CC"], "-std=c11", f"-I{SOURCE}/include", SOURCE / "examples/agent.c", "-o",
         folder / "agent", LIBRARY, f"-Wl,-rpath,{LIBRARY.parent}:{SIMULATOR}",
         f"-Wl,-rpath-link,{SIMULATOR}"], check=True)
    environment = {**os.environ, "KV_SIM_DEVICE": str(folder / "device")}


def vexotrace(*words, status=0, test=unittest.TestCase()):
    done = subprocess.run([VEXOTRACE, *map(str, words)], capture_output=True, text=True,
                          timeout=120, env=environment)
    test.assertEqual(done.returncode, status, (words, done.stdout, done.stderr))
    return done.stdout if status != 2 else done.stderr


def vexoctl(*words):
    subprocess.run([VEXOCTL, *words], check=True, timeout=120, env=environment,
                   stdout=subprocess.DEVNULL)


def record(name, *words, faults=(), deaf=False):
    """A run of the agent on a new device, which has an alarm and the end of an interval."""
    (folder / "device").unlink(missing_ok=True)
    for fault in faults:
        vexoctl("sim", "fault", "add", *fault.split())
    agent = subprocess.Popen([VEXOTRACE, "record", "--output", folder / name, "--size", "2M", "--",
                              folder / "agent", *words], env=environment,
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    for line in agent.stdout:
        if line == "listening\n":
            services = "pm" if deaf else "both"
            vexoctl("sim", "wait", "subscribed", f"process={agent.pid}", f"services={services}")
            vexoctl("sim", "alarm", "raise", "type=pwe", "number=17", "bits=0x5")
            vexoctl("sim", "interval", "end", "interval=1")
            if not deaf:
                vexoctl("sim", "wait", "handled")
                agent.send_signal(signal.SIGTERM)
        if "registering anew" in line:
            vexoctl("sim", "wait", "subscribed", f"process={agent.pid}", "services=alarms")
            agent.send_signal(signal.SIGTERM)
    agent.wait()
    agent.stdout.close()
    return folder / name


class Comparing(unittest.TestCase):
    def test_two_runs_of_an_agent_with_threads_are_the_same(self):
        first = record("first")
        for _ in range(3):
            self.assertEqual(vexotrace("diff", first, record("again")), "")
        self.assertEqual(json.loads(vexotrace("diff", "--json", first, folder / "again")),
                         {"same": True, "first": None, "summary": []})

    def test_the_first_difference_is_told_with_the_calls_around_it_and_then_all(self):
        first, second = record("first"), record("second", faults=["function=config_add_pw value=8"])
        told = vexotrace("diff", first, second, status=1)
        self.assertRegex(told, r"^First difference: thread \d+ \(agent\), pwe=17, ")
        self.assertRegex(told, r'\n    pwe_params_get\(pwId=17\) = 0 .*not-provisioned'
                               r'(.*\n)+?  \+ pwe_params_set\(.* = 4 "injected fault')
        self.assertRegex(told, r"\n +0 +1 +0  alarm_subscribe\n")
        document = json.loads(vexotrace("diff", "--json", first, second, status=1))
        self.assertFalse(document["same"])
        self.assertEqual(document["first"]["b"][0]["result"]["code"], 4)
        self.assertIn({"name": "pwe_params_set", "object": "pwe=17", "changed": 1, "onlyInA": 0,
                       "onlyInB": 0}, document["summary"])

    def test_what_cannot_be_read_is_trouble_and_said(self):
        (folder / "text").write_text("no recording\n" * 100)
        for other in ("text", "nothing"):
            self.assertIn(f"{folder / other}: ",
                          vexotrace("diff", folder / other, folder / other, status=2))


class Showing(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.file = record("shown", faults=["function=alarm_subscribe value=8 times=1"], deaf=True)

    def names(self, *words):
        return [json.loads(line)["name"]
                for line in vexotrace("show", "--json", *words, self.file).splitlines()]

    def test_only_what_was_asked_for_is_shown(self):
        self.assertEqual(self.names("--failed", "--operation", "alarm_*"), ["alarm_subscribe"])
        self.assertEqual(self.names("--operation", "pwe_params_s?t"), ["pwe_params_set"])
        self.assertEqual(set(self.names("--object", "pwe=17")) - {"pmom_process_notification"},
                         {"pwe_params_get", "pwe_params_set", "pwe_alarms_get"})
        self.assertEqual(self.names("--object", "port=77") + self.names("--slow", "100000"), [])
        self.assertEqual(self.names("--slow", "0.000001"), self.names())
        self.assertIn("KIND", vexotrace("show", "--help"))
        vexotrace("show", "--object", "pwe", self.file, status=2)

    def test_fields_that_do_not_count_are_shown_when_all_are(self):
        words = "show", "--operation", "pwe_params_set", self.file
        self.assertNotIn("outerVlanId=0, outerVlanIdValid", vexotrace(*words))
        self.assertIn("vlan.outerVlanIdValid=0", vexotrace(*words, "--all"))

    def test_calls_of_several_processes_are_shown_by_their_times(self):
        first, second = folder / "first", folder / "second"
        with subprocess.Popen([VEXOTRACE, "record", "-o", first, "--", VEXOCTL], text=True,
                              env=environment, stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE) as process:
            def ask(number):
                print("pdh frame get", f"port={number}", file=process.stdin, flush=True)
                process.stdout.readline()
            ask(1)
            vexotrace("record", "-o", second, "--", VEXOCTL, "pdh", "frame", "get", "port=2")
            ask(3)
        lines = vexotrace("show", "--operation", "pdh_frame_get", second, first).splitlines()[::2]
        self.assertEqual([int(port) for line in lines for port in re.findall(r"port=(\d)", line)],
                         [1, 2, 3])
        own = [line.startswith(f"[{process.pid}] ") for line in lines]
        self.assertEqual(own, [True, False, True])

    def test_a_running_agent_is_followed_and_what_still_runs_is_said(self):
        (folder / "device").unlink(missing_ok=True)
        vexoctl("sim", "fault", "add", "function=config_add_pw", "effect=hang")
        agent = subprocess.Popen([VEXOTRACE, "record", "--output", folder / "followed", "--",
                                  folder / "agent"], env=environment, stdout=subprocess.DEVNULL)
        vexoctl("sim", "wait", "hanging")
        self.assertRegex(vexotrace("show", folder / "followed"),
                         r"\n.* pwe_params_set\(.*\) still running <[\d.]+ m?s>\n(.*\n)+"
                         r" +config_add_pw\(.*\) still running <")
        begun = [event["name"] for event in json.loads(
            vexotrace("export", "chrome", folder / "followed"))["traceEvents"]
            if event["ph"] == "B"]
        self.assertEqual(begun, ["pwe_params_set", "config_add_pw"])
        with subprocess.Popen([VEXOTRACE, "show", "--follow", folder / "followed"],
                              stdout=subprocess.PIPE, text=True) as follower:
            self.assertIn("pwe_params_get", follower.stdout.readline())
            vexoctl("sim", "fault", "clear")
            vexoctl("sim", "wait", "subscribed", f"process={agent.pid}")
            agent.send_signal(signal.SIGTERM)
            followed = follower.stdout.read()
        agent.wait()
        self.assertEqual(len(re.findall(r" pwe_params_set\(.*\) = 0 ", followed)), 1)
        self.assertEqual(len(re.findall(r" fini\(\)", followed)), 1)

    def test_a_recording_is_an_array_of_trace_events(self):
        events = json.loads(vexotrace("export", "chrome", self.file))["traceEvents"]
        complete = [event for event in events if event["ph"] == "X"]
        self.assertEqual(len(complete), len(vexotrace("show", self.file).splitlines()))
        for event in complete:
            self.assertGreaterEqual(min(event["ts"], event["dur"]), 0)
            self.assertLessEqual({"name", "cat", "pid", "tid", "args"}, event.keys())
        (inner,) = [event for event in complete if event["name"] == "config_add_pw"]
        (outer,) = [event for event in complete if event["name"] == "pwe_params_set"]
        self.assertLessEqual(outer["ts"], inner["ts"])
        self.assertLessEqual(inner["ts"] + inner["dur"], outer["ts"] + outer["dur"] + 0.001)


class Covering(unittest.TestCase):
    def items(self, *files):
        document = json.loads(vexotrace("cover", "--json", *files))
        return {item["name"]: item["count"] for item in document["items"]}, document

    def test_what_two_runs_have_met_is_counted_together(self):
        deaf = record("deaf", faults=["function=alarm_subscribe value=8 times=1"], deaf=True)
        failed = record("failed", faults=["function=config_add_pw value=8"])
        met, document = self.items(deaf, failed)
        self.assertEqual(met["pwe_params_set"], 2)
        self.assertEqual(met["pwe_params_set: config_add_pw"], 1)
        self.assertEqual(met["alarm_callback_register: alarm_subscribe"], 1)
        self.assertEqual(met["pwe_params_get: config_get_pw"], 0, "it told that there is none")
        self.assertEqual(met["VEXO_RC_FAILURE_4"], 1)
        self.assertEqual(met["VEXO_PWE_ACTION_CREATE in"], 2)
        self.assertEqual((met["VEXO_VLAN_MODE_DOUBLE in"], met["pdh_pm_clear"]), (0, 0))
        self.assertGreater(met["VEXO_PM_INTERVAL_1 out"], 0)
        self.assertEqual(document["met"], sum(count > 0 for count in met.values()))
        self.assertEqual(document["of"], len(met))
        self.assertIn("VEXO_OPER_STATE_5 out", [item["name"] for item in document["apart"]])
        self.assertEqual(self.items(failed)[0]["pdh"], 0)
        self.assertEqual(self.items(deaf)[0]["pdh"], 1, "a report of the ports")
        self.assertNotIn("vexo_cmi_", vexotrace("cover", deaf))
        socketless = record("socketless", faults=["function=alarm_notification_sock times=1"],
                            deaf=True)
        met = self.items(socketless)[0]
        self.assertEqual(met["alarm_callback_register: alarm_notification_sock"], 1)

    def test_too_little_is_told_by_the_status(self):
        percent = json.loads(vexotrace("cover", "--json", KEPT))["percent"]
        vexotrace("cover", "--min", percent, KEPT)
        vexotrace("cover", "--min", percent + 0.1, KEPT, status=1)
        vexotrace("cover", "--min", "much", KEPT, status=2)

    def test_lcov_reads_it_by_the_lines_of_the_header(self):
        vexotrace("cover", "--lcov", folder / "lcov.info", KEPT)
        text, found = (folder / "lcov.info").read_text(), {}
        for block in text.split("end_of_record\n")[:-1]:
            lines = Path(re.search("^SF:(.*)$", block, re.M)[1]).read_text().splitlines()
            for number, name in re.findall(r"^FN:(\d+),(\w+)$", block, re.M):
                self.assertIn(name, lines[int(number) - 1])
                found[name] = int(re.search(rf"^FNDA:(\d+),{name}$", block, re.M)[1])
                self.assertIn(f"\nDA:{number},{found[name]}\n", block)
            for number in re.findall(r"^DA:(\d+),", block, re.M):
                self.assertRegex(lines[int(number) - 1], r"\w = \d|vexo_cmi_|\(\*vexo")
        self.assertEqual(found["vexo_cmi_pwe_params_get"], 2)
        self.assertEqual(found["vexo_cmi_ima_get"], 0)


class Sweeping(unittest.TestCase):
    """An agent that is right, and the same with faults planted: see swept.cpp."""

    def sweep(self, *words, fault=(), status=0, timeout=60):
        command = ["sweep", "--json", "--timeout", timeout, *words, "--", os.environ["SWEPT"], *fault]
        report = json.loads(vexotrace(*command, status=status))
        for point in report["points"]:
            self.assertEqual(point["id"].split("+")[-1], "{function}/{object}/{call}:{effect}"
                             .format_map(point))
        verdicts = [point["verdict"] for point in report["points"]]
        self.assertEqual(report["verdicts"], {name: verdicts.count(name) for name in verdicts})
        return {point["id"]: point for point in report["points"]}

    def test_an_agent_that_is_right_has_no_bad_verdict(self):
        points = self.sweep("--effects", "code,stuck,lost,noop,drop,double,late,slow", "--jobs", 4)
        self.assertEqual({point["verdict"] for point in points.values()}, {"recovered", "reported"})
        self.assertEqual(points["config_add_pw/17/1:lost"]["operation"], "pwe_params_set")
        self.assertEqual(points["config_add_pw/17/1:code"]["difference"], [])
        self.assertEqual(points["alarm_notification_handler/pwe=17/1:drop"]["verdict"], "recovered")

    def test_each_planted_fault_is_found_by_the_verdict_that_fits(self):
        for fault, verdict, place in [
                ("unchecked", "silent", "config_set_pdh_params/3/1:code"),
                ("for-ever", "hung", "config_add_pw/17/1:stuck"),
                ("left-behind", "half", "config_add_pw/18/1:code"),
                ("deaf", "silent", "alarm_subscribe/-/1:code"),
                ("wrong-status", "silent", "config_add_pw/17/1:stuck"),
                ("freed-twice", "crashed", "config_add_pw/17/1:code"),
                ("hangs", "hung", "config_add_pw/17/1:lost"),
                ("old-value", "silent", "config_set_pdh_params/3/1:lost")]:
            with self.subTest(fault):
                words = ("--effects", "code,stuck,lost", "--only", place)
                (point,) = self.sweep(*words, fault=[fault], status=1,
                                      timeout=2 if verdict == "hung" else 60).values()
                self.assertEqual((point["id"], point["verdict"]), (place, verdict))
                self.assertEqual(self.sweep(*words)[place]["verdict"] in ("recovered", "reported"),
                                 True)
                for difference in point["difference"]:
                    self.assertEqual(list(difference), ["object", "field", "a", "b"])


class Keeping(unittest.TestCase):
    """A recording that an earlier vexotrace has made."""

    def test_it_is_read_as_it_was(self):
        shown = vexotrace("show", KEPT)
        self.assertRegex(shown, r'pwe_params_set\(pweType="tdm-1", pweAction="create".*\) = 0 <')
        self.assertRegex(shown, r'vexoAlarmCallback\(objType="pwe", object\.objId=17, ')
        times = [json.loads(line)["time"] for line in vexotrace("show", "--json", KEPT).splitlines()]
        self.assertEqual(times, sorted(times))
        self.assertEqual(vexotrace("diff", KEPT, KEPT), "")

    def test_what_it_lacks_is_said(self):
        FLAGS, DROPPED, LOST = 140, 152, 160
        lacking = bytearray(KEPT.read_bytes())
        lacking[FLAGS:FLAGS + 4] = (1 + 8 + 16 + 32).to_bytes(4, "little")
        lacking[DROPPED] = 7
        lacking[LOST] = 3
        (folder / "lacking").write_bytes(lacking)
        said = subprocess.run([VEXOTRACE, "show", folder / "lacking"], capture_output=True,
                              text=True, check=True).stderr
        for what in ("the disk was full: ", "7 events were dropped", "3 calls were not recorded",
                     "more callbacks", "more addresses",
                     "there was no device file for a snapshot"):
            self.assertIn(f"{folder / 'lacking'}: {what}", said)

    def test_damaged_it_is_read_or_refused_in_words(self):
        whole, damaged = KEPT.read_bytes(), folder / "damaged"
        source = random.Random(1)
        for count in [1, 10, 100] * 10:
            changed = bytearray(whole)
            for _ in range(count):
                changed[source.randrange(len(whole))] = source.randrange(256)
            damaged.write_bytes(changed[:source.choice([len(whole), source.randrange(len(whole))])])
            for command in (["show", "--all"], ["diff", KEPT], ["cover"], ["export", "chrome"]):
                done = subprocess.run([VEXOTRACE, *command, damaged], capture_output=True,
                                      timeout=120, text=True, errors="replace")
                self.assertIn(done.returncode, (0, 1, 2), (command, count))
                if done.returncode == 2:
                    self.assertIn("vexotrace: ", done.stderr)


if __name__ == "__main__":
    unittest.main()
