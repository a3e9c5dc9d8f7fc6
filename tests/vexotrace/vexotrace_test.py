"""vexotrace, run as a person and as a script would run it, on recordings of the example agent."""
import json
import os
import random
import re
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path
from unittest.mock import patch
from xml.etree import ElementTree

VEXOTRACE, VEXOCTL = os.environ["VEXOTRACE"], os.environ["VEXOCTL"]
LIBRARY, SIMULATOR = Path(os.environ["VEXO_CMI_LIBRARY"]), os.environ["SIMULATOR"]
SOURCE = Path(__file__).resolve().parents[2]
KEPT = SOURCE / "tests/recordings/agent.trace"


def build(source, agent):
    subprocess.run(
        [os.environ["CC"], "-std=c11", f"-I{SOURCE}/include", folder / source, "-o",
         folder / agent, LIBRARY, f"-Wl,-rpath,{LIBRARY.parent}:{SIMULATOR}",
         f"-Wl,-rpath-link,{SIMULATOR}"], check=True)


def variant(name, *changes):
    """The example agent, but for some of its lines."""
    text = (SOURCE / "examples/agent.c").read_text()
    for old, new in changes:
        assert text.count(old) == 1, old
        text = text.replace(old, new)
    (folder / f"{name}.c").write_text(text)
    build(f"{name}.c", name)
    return name


def setUpModule():
    global folder, environment
    folder = Path(tempfile.mkdtemp())
    unittest.addModuleCleanup(subprocess.run, ["rm", "-rf", folder])
    if os.environ["CC"]:  # not under sanitizers, whose runtime it would lack
        build(SOURCE / "examples/agent.c", "agent")
    environment = {**os.environ, "KV_SIM_DEVICE": str(folder / "device")}


def vexotrace(*words, status=0, test=unittest.TestCase()):
    done = subprocess.run([VEXOTRACE, *map(str, words)], capture_output=True, text=True,
                          timeout=120, env=environment)
    test.assertEqual(done.returncode, status, (words, done.stdout, done.stderr))
    return done.stdout if status != 2 else done.stderr


def vexoctl(*words):
    subprocess.run([VEXOCTL, *words], check=True, timeout=120, env=environment,
                   stdout=subprocess.DEVNULL)


def record(name, *words, agent="agent", faults=(), deaf=False, apart=False):
    """A run of the agent on a new device, which has an alarm and the end of an interval: apart, when
    the alarm has been handled."""
    (folder / "device").unlink(missing_ok=True)
    for interval in (1, 2, 3):  # None ends by itself meanwhile.
        vexoctl("sim", "interval", "period", f"interval={interval}", "seconds=0")
    for fault in faults:
        vexoctl("sim", "fault", "add", *fault.split())
    agent = subprocess.Popen([VEXOTRACE, "record", "--output", folder / name, "--size", "2M", "--",
                              folder / agent, *words], env=environment,
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    for line in agent.stdout:
        if line == "listening\n":
            services = "pm" if deaf else "both"
            vexoctl("sim", "wait", "subscribed", f"process={agent.pid}", f"services={services}")
            vexoctl("sim", "alarm", "raise", "type=pwe", "number=17", "bits=0x5")
            if apart:
                vexoctl("sim", "wait", "handled")
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

    def test_words_that_cannot_be_right_are_told(self):
        for words, reason in ((["shwo"], "there is no 'shwo' here"),
                              (["export", "firefox", KEPT], "there is no 'firefox' here"),
                              (["show"], "file is required"),
                              (["show", "--slow", "nan", KEPT], "from 0 to 1000000000, not 'nan'"),
                              (["cover", "--min", "101", KEPT], "from 0 to 100, not '101'"),
                              (["record", "--size", "-1", "--", "true"], "--size: from 1048576 to ")):
            said = vexotrace(*words, status=2)
            self.assertTrue(said.startswith("vexotrace: ") and said.count("\n") == 1, said)
            self.assertIn(reason, said)

    def test_output_that_cannot_be_written_is_trouble(self):
        for words in (["show"], ["cover"], ["export", "chrome"]):
            with open("/dev/full", "w", encoding="ascii") as full:
                done = subprocess.run([VEXOTRACE, *words, KEPT], stdout=full,
                                      stderr=subprocess.PIPE, text=True, check=False)
            self.assertEqual(done.returncode, 2, words)
            self.assertIn("vexotrace: the output can't be written\n", done.stderr, words)

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

    AGENT = (os.environ["SWEPT"],)

    def report(self, *words, agent=AGENT, status=0, timeout=60):
        words += ("--timeout", timeout) if timeout else ()
        return vexotrace("sweep", *words, "--", *agent, status=status)

    def sweep(self, *words, **how):
        report = json.loads(self.report("--json", *words, **how))
        verdicts = [point["verdict"] for point in report["points"]]
        self.assertEqual(report["verdicts"], {name: verdicts.count(name) for name in verdicts})
        return {point["id"]: point for point in report["points"]}

    def left(self):
        """What sweeps of this test have left: files, and processes."""
        left = [*environment["TMPDIR"].iterdir()]
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if str(environment["TMPDIR"]).encode() in (process / "environ").read_bytes():
                    left.append((process / "cmdline").read_bytes())
            except OSError:
                pass
        return left

    def setUp(self):
        environment["TMPDIR"] = Path(tempfile.mkdtemp(dir=folder))
        environment["PATH"] = f"{Path(VEXOCTL).parent}:{os.environ['PATH']}"

    def tearDown(self):
        self.assertEqual(self.left(), [])
        del environment["TMPDIR"]

    def test_an_agent_that_is_right_has_no_bad_verdict(self):
        before = (folder / "device").read_bytes() if (folder / "device").exists() else None
        points = self.sweep("--effects", "code,stuck,lost,noop,drop,double,late,slow", "--jobs", 4)
        self.assertEqual({point["verdict"] for point in points.values()}, {"recovered", "reported"})
        for point in points.values():
            self.assertEqual(point["id"], "{function}/{object}/{call}:{effect}".format_map(point))
        point = points["config_add_pw/17/1:code"]
        self.assertEqual((point["operation"], point["step"], point["difference"]),
                         ("pwe_params_set", 1, []))
        self.assertEqual(points["alarm_notification_handler/pwe=17/1:drop"]["verdict"], "recovered")
        self.assertEqual(before, (folder / "device").read_bytes() if before else None)

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
                words = ("--only", place)
                (point,) = self.sweep(*words, agent=[*self.AGENT, fault], status=1,
                                      timeout=2 if verdict == "hung" else 60).values()
                self.assertEqual((point["id"], point["verdict"]), (place, verdict))
                for difference in point["difference"]:
                    self.assertEqual(list(difference), ["object", "field", "a", "b"])
                self.assertIn(self.sweep(*words)[place]["verdict"], ("recovered", "reported"))

    def test_who_names_what_failed_need_not_name_what_was_done_before_or_not_begun(self):
        set_ = "vexoctl pdh admin set status=1 port=$port 2>$TMPDIR/why"
        frame = "vexoctl pdh frame set mode=3 port=$port && "
        for effect, act, say, status, verdict, unnamed in [
                ("lost", set_, "port $port failed", 3, "reported", None),
                ("lost", set_, "port $port failed", 0, "silent", []),
                ("lost", set_, "failed", 3, "half", ["pdh 5"]),
                ("code", set_, "port $port failed", 3, "reported", None),
                ("code", set_, "failed", 3, "half", ["pdh 4", "pdh 5"]),
                ("code", frame + set_, "port 5 failed", 3, "half", ["pdh 4"]),
                ("code", frame + set_, "port $port failed", 3, "reported", None)]:
            script = f"for port in 3 4 5; do {act} || {{ echo {say}; exit {status}; }}; done"
            words = ("--only", f"config_set_pdh_admin/4/1:{effect}")
            how = {"agent": ["sh", "-c", script], "status": int(verdict != "reported")}
            (point,) = self.sweep(*words, **how).values()
            self.assertEqual((point["verdict"], point.get("unnamed")), (verdict, unnamed), script)
        self.assertRegex(self.report(*words, agent=["sh", "-c", script.replace("port $port", "it")],
                                     status=1), r"""
    not named: pdh 4, pdh 5
    ended with status 3, having written:
        it failed
1 fault: 1 half
$""")

    def test_success_is_believed_unless_what_is_said_is_new_and_of_what_is_wrong(self):
        set_ = "vexoctl pdh admin set port=3 status=1 2>$TMPDIR/why"
        for script, verdict in [
                (f"echo port 3 at $$; {set_}; true", "silent"),
                (f"{set_} || echo port 3", "reported"),
                (f"vexoctl pdh frame set port=4 mode=3; {set_} || echo port 34", "silent"),
                (f"vexoctl pdh frame set port=4 mode=3; {set_} || echo port 3", "reported"),
                (f"trap 'exit 0' TERM; {set_} || exit 0; sleep 60 & wait", "reported")]:
            (point,) = self.sweep("--only", "config_set_pdh_admin/3/1:code",
                                  agent=["sh", "-c", script], status=int(verdict == "silent")).values()
            self.assertEqual(point["verdict"], verdict, script)

    def test_the_device_is_judged_without_the_fault(self):
        script = ("vexoctl pdh params get port=3 >$TMPDIR/told 2>&1 || "
                  "vexoctl pdh admin set port=3 status=1")
        (point,) = self.sweep("--only", "config_get_pdh_params/3/1:stuck",
                              agent=["sh", "-c", script], status=1).values()
        self.assertEqual((point["verdict"], point["difference"][0]["field"]),
                         ("silent", "adminStatus"))

    def test_a_call_that_hangs_goes_on_when_the_time_is_up(self):
        (point,) = self.sweep("--only", "config_add_pw/17/1:hang", timeout=None).values()
        self.assertEqual(point["verdict"], "recovered")

    def test_an_agent_that_is_slower_after_a_fault_does_not_hang(self):
        (point,) = self.sweep("--only", "config_set_pdh_admin/3/1:code", timeout=None, agent=[
            "sh", "-c", "vexoctl pdh admin set port=3 status=1 || { sleep 2; exit 1; }"]).values()
        self.assertEqual(point["verdict"], "reported")

    def test_what_is_met_on_the_way_back_fails_too(self):
        second = "config_add_pw/17/1:code+config_add_pw/17/2:lost"
        points = self.sweep("--depth", 2, "--points", "config_add_pw", "--effects", "code,lost")
        self.assertEqual(points[second]["call"], 2)
        self.assertEqual({point["verdict"] for point in points.values()}, {"recovered"})
        self.assertEqual([*self.sweep("--only", second)], [second])
        self.assertEqual([*points][0], "config_add_pw/17/1:code")
        parts = [[fault.split(":")[0] for fault in id.split("+")] for id in points]
        self.assertFalse({first for first, *_ in parts} & {more for _, *all in parts for more in all},
                         "what is met without a fault, too, isn't part of the way back")

    def test_shards_make_a_whole(self):
        words = ("--points", "pwe_params_set", "--effects", "code,lost,noop")
        whole, files = json.loads(self.report("--json", *words)), []
        for shard in "3/3", "1/3", "2/3":
            files.append(folder / f"shard{shard[0]}")
            files[-1].write_text(self.report("--json", *words, "--shard", shard))
        self.assertEqual(json.loads(vexotrace("sweep", "--json", "--merge", *files)), whole)
        self.assertGreater(min(len(json.loads(file.read_text())["points"]) for file in files), 1)
        self.assertIn("lack 2/3", vexotrace("sweep", "--merge", *files[:2], status=2))
        worse = json.loads(files[0].read_text())
        worse["sweep"]["depth"] = 2
        (folder / "worse").write_text(json.dumps(worse))
        self.assertIn(f"worse: is of another sweep than {files[0]}: depth is 2, not 1",
                      vexotrace("sweep", "--merge", *files, folder / "worse", status=2))
        worse["sweep"]["depth"] = 1
        worse["points"][0]["verdict"] = "half"
        worse["sweep"]["faults"] = "others"
        (folder / "worse").write_text(json.dumps(worse))
        for again in [*files, folder / "worse"], [folder / "worse", *files]:
            done = subprocess.run([VEXOTRACE, "sweep", "--json", "--merge", *again], text=True,
                                  capture_output=True, env=environment, check=False)
            self.assertEqual((done.returncode, json.loads(done.stdout)["verdicts"]["half"]), (1, 1))
            self.assertIn(": shard 3/3 again: ", done.stderr)
            self.assertIn(": the agent's faults are others than in ", done.stderr)

    def test_interrupted_it_leaves_nothing_and_goes_on(self):
        kept = folder / "kept"
        words = ("sweep", "--json", "--jobs", "1", "--resume", kept, "--effects", "code,hang",
                 "--timeout", "1", "--points", "pwe_params_set", "--", *self.AGENT)
        for how in signal.SIGINT, signal.SIGKILL:
            with subprocess.Popen([VEXOTRACE, *words], env=environment, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL) as sweep:
                before = kept.read_text() if kept.exists() else ""
                while not kept.exists() or kept.read_text().count("\n") < before.count("\n") + 2:
                    self.assertIsNone(sweep.poll())
                    time.sleep(0.01)
                self.assertIn("kept: another sweep is", vexotrace(*words, status=2))
                sweep.send_signal(how)
            self.assertEqual(sweep.returncode, 2 if how == signal.SIGINT else -how)
            while how == signal.SIGKILL and self.left():
                time.sleep(0.01)
            self.assertEqual(self.left(), [])
        text = kept.read_text()
        kept.write_text(text + text.splitlines()[-1][:50])
        report = json.loads(vexotrace(*words))
        self.assertTrue(kept.read_text().startswith(text))
        self.assertEqual(kept.read_text().count("\n"), len(report["points"]) + 1)
        self.assertIn("--check is another", vexotrace(*words[:-2], "--check", "true", *words[-2:],
                                                      status=2))
        kept.write_text("of mine\n")
        self.assertIn("kept: is none of a sweep's", vexotrace(*words, status=2))
        self.assertEqual(kept.read_text(), "of mine\n")

    def test_verdicts_of_an_agent_that_was_another_are_refused(self):
        kept, outer, inner = folder / "judged", folder / "outer", folder / "inner"
        inner.write_text("vexoctl pdh admin set port=3 status=1 || exit\n")
        outer.write_text('echo $$ >>"$1"; . "${0%/*}/inner"\n')
        how = {"agent": ["sh", outer, folder / "log"]}
        words = ("--resume", kept, "--effects", "code")
        first = self.report(*words, **how)
        text = kept.read_text()
        self.assertEqual((self.report(*words, **how), kept.read_text()), (first, text))
        for file, change, said in [(inner, ("status=1", "status=3"), "the agent does something else"),
                                   (inner, ("|| exit", "\nvexoctl pdh admin get port=4"),
                                    "the agent does something else"),
                                   (outer, ("echo", "printf"), "the command names has changed")]:
            file.write_text(file.read_text().replace(*change))
            self.assertIn(f"{said} since", self.report(*words, **how, status=2))
        self.assertEqual(kept.read_text(), text)

    def test_judged_once_they_are_judged_deeper_and_by_more_effects(self):
        words = ("--points", "config_add_pw", "--resume", folder / "deeper")
        self.sweep(*words, "--effects", "code")
        self.sweep(*words, "--effects", "code", "--depth", 2)
        deep = ("--effects", "code,lost", "--depth", 2)
        self.assertEqual([*self.sweep(*words, *deep)], [*self.sweep(*words[:2], *deep)])

    def test_an_agent_that_does_not_end_is_told_to_when_it_is_at_rest(self):
        words = ("--points", "config_add_pw", "--effects", "code,noop")
        for until in [], ["--until", "vexoctl sim wait subscribed services=both"]:
            points = self.sweep(*words, *until, agent=[folder / "agent"])
            self.assertEqual({id: point["verdict"] for id, point in points.items()},
                             {"config_add_pw/17/1:code": "reported",
                              "config_add_pw/17/1:noop": "reported"})
        self.assertIn("neither to an end nor to rest",
                      self.report("--until", "false", agent=[folder / "agent"], status=2, timeout=1))

    def test_an_agent_does_with_its_folder_as_it_likes(self):
        set_ = "vexoctl pdh admin set port=3 status=1 || exit 1; "
        for do in "rm -rf $TMPDIR", "mkdir -p $TMPDIR/inner/most && chmod 0 $TMPDIR/inner $TMPDIR":
            points = self.sweep("--effects", "code,lost", "--check", "ls $TMPDIR",
                                agent=["sh", "-c", set_ + do])
            self.assertEqual({point["verdict"] for point in points.values()}, {"reported"}, do)

    def test_the_check_counts(self):
        script = ("sh", "-c", "vexoctl pdh admin set port=5 status=1; vexoctl pdh admin get port=3 "
                  ">/dev/null || { echo oh; vexoctl sim alarm raise type=pdh number=3 bits=1; }")
        words = ("--points", "config_get_pdh_admin", "--effects", "code")
        (point,) = self.sweep(*words, agent=script).values()
        self.assertEqual(point["verdict"], "recovered")
        check = ("--check", "vexoctl pdh alarms get port=3 | grep -q ': 0x0*$'")
        (point,) = self.sweep(*words, *check, agent=script, status=1).values()
        self.assertEqual((point["verdict"], point["difference"]), ("silent", []))
        self.assertIn("the check failed", self.report("--check", "false", status=2))

    def test_what_is_not_the_same_each_time_is_told(self):
        (point,) = self.sweep(agent=["sh", "-c", "vexoctl sys tpid set tpid=$((0x600 + $$ % 0xF000))"],
                              status=1).values()
        self.assertEqual(point["verdict"], "unstable")
        self.assertEqual(point["difference"][0]["object"], "system tpid")
        for others, do, verdict in [("-gt 1", ":", None), ("-gt 2", ":", "unmet"),
                                    ("-eq 3", ":", "reported"),
                                    ("-gt 2", "vexoctl sys tpid set tpid=9", "unstable")]:
            runs = Path(tempfile.mkdtemp(dir=folder))
            script = (f"vexoctl sys tpid get || exit; : >{runs}/$$; if test $(ls {runs} | wc -l) "
                      f"{others}; then {do}; else vexoctl pdh admin get port=3; fi")
            points = self.sweep("--effects", "code", "--jobs", 1, agent=["sh", "-c", script],
                                status=int(verdict == "unstable"))
            self.assertEqual(points.get("config_get_pdh_admin/3/1:code", {}).get("verdict"),
                             verdict, script)

    def test_a_crash_of_any_process_is_one(self):
        for script in "$0 freed-twice; exit $?", "$0 freed-twice & exit 0", \
                "$0 freed-twice || kill -KILL $$":
            (point,) = self.sweep("--only", "config_add_pw/17/1:code", status=1,
                                  agent=["bash", "-c", f"({script})", *self.AGENT]).values()
            self.assertEqual(point["verdict"], "crashed", script)

    def test_what_agents_survive_is_covered(self):
        for fault, survived in ((), True), (("left-behind",), False):
            (folder / "sweep.json").write_text(self.report(
                "--json", "--points", "pwe_params_set", "--effects", "code,lost",
                agent=[*self.AGENT, *fault], status=not survived))
            cover = json.loads(vexotrace("cover", "--json", folder / "sweep.json"))
            items = {item["name"]: item for item in cover["items"]}
            self.assertEqual(items["pwe_params_set: config_add_pw"]["survived"], survived)
            self.assertGreater(items["pwe_params_set: config_add_pw"]["count"], 0)
            self.assertEqual(items["pdh_frame_set: config_set_pdh_params"]["count"], 0)
            self.assertGreater(items["pwe_params_set"]["count"], 0)
        self.assertRegex(vexotrace("cover", folder / "sweep.json"),
                         r"not survived:\n(    .*\n)*    pwe_params_set: config_add_pw\n")
        (folder / "sweep.json").write_text("{}")
        self.assertIn("neither", vexotrace("cover", folder / "sweep.json", status=2))

    def test_the_report_is_read_by_others(self):
        words = ("--points", "config_add_pw", "--effects", "code,lost", "--junit", folder / "junit")
        agent = [*self.AGENT, "left-behind"]
        tap = self.report(*words, "--tap", agent=agent, status=1)
        self.assertRegex(tap, r"^TAP version 13\n1\.\.4\nnot ok 1 - config_add_pw/17/1:code half\n"
                              r"  ---\n  verdict: half\n  difference:\n    - \"pwe 17: - tdm-1\"\n")
        suite = ElementTree.parse(folder / "junit").getroot()
        self.assertEqual((suite.get("tests"), suite.get("failures")), ("4", "4"))
        self.assertEqual([case.get("name") for case in suite],
                         re.findall(r"^not ok \d+ - (\S+)", tap, re.M))
        self.assertRegex(self.report(*words, agent=agent, status=1),
                         r"^config_add_pw/17/1:code: half, in pwe_params_set\n    pwe 17: - tdm-1\n"
                         r"(.*\n)+4 faults: 4 half\n$")

    def test_what_cannot_be_swept_is_said(self):
        own = folder / "own.c"
        own.write_text("int main;\n")
        for said, words in [("there is no 'explode'", ["--effects", "explode", "--", "true"]),
                            ("sweep: --timeout: expected a number from 0.01 to 86400, not 'nan'",
                             ["--timeout", "nan", "--", "true"]),
                            ("sweep: there is no '--bogus' here", ["--bogus"]),
                            ("I/N", ["--shard", "4/3", "--", "true"]),
                            ("check failed: echo no; false\n    no",
                             ["--check", "echo no; false", "--", *self.AGENT]),
                            ("no command", ["--json"]),
                            ("called nothing", ["--", "true"]),
                            ("no-such-agent: No such file", ["--", "no-such-agent"]),
                            ("ended with status 1\n    oh", ["--", "sh", "-c", "echo oh; exit 1"]),
                            ("there is no config_add_pw/1/1:code",
                             ["--only", "config_add_pw/1/1:code", "--", *self.AGENT]),
                            ("can fail is named nonesuch",
                             ["--points", "nonesuch", "--", *self.AGENT]),
                            ("no report", ["--merge", KEPT]),
                            ("--merge excludes command", ["--merge", KEPT, "--", "true"]),
                            ("--shard excludes --merge", ["--merge", KEPT, "--shard", "1/2"]),
                            ("excludes --tap", ["--tap", "--json", "--", "true"]),
                            ("--effects: is empty", ["--effects", "", "--", "true"]),
                            ("own.c is another file", ["--junit", own, "--", *self.AGENT]),
                            (f"{folder}: Is a directory", ["--junit", folder, "--", *self.AGENT]),
                            ("no/junit: No such", ["--junit", folder / "no/junit", "--", "true"])]:
            told = vexotrace("sweep", *words, status=2)
            self.assertIn(said, told)
            self.assertTrue(told.startswith("vexotrace sweep: "), told)
        self.assertEqual(own.read_text(), "int main;\n")

# What vexoctl, as an agent, is told to do; of each call that changes something and of those that
# read, some.
SCRIPT = """\
sys src_mac set mac=02:00:5e:10:00:01
sys lops set first=3 second=4
sys temp set first=60 second=80
pdh params set port=3 adminStatus=1 frameMode=2 lineCode=1 cableLength=40 syncMode=1 syncParam=0 \
niuMode=1 auxParam=0
pdh frame set port=4 mode=3
pdh lpbk set port=4 loopback=2
pdh admin get port=3
pdh pm get port=3 pmType=1
pdh pm clear port=3
pwe params set pwId=17 pweType=tdm-1 pweAction=create adminStatus=1 dstMac=02:00:5e:10:00:63 \
vlan.mode=untagged psn.psnType=2 psn.param1=4711 t1.circuit=3 t1.payloadSize=256 t1.rtp.mode=1
pwe params get pwId=17
pwe pdv set pwId=17 size=6000
pwe vlan set pwId=17 mode=double outerVlanId=5 vlanId=7
pwe admin set status=2 pwId=17
pwe alarms get pwId=17
pdh params get port=77
pdh params get port=78
sys rpt_mode set mode=2 value=1
misc tpgm init tpgmParam1=1 tpgmParam2=2 tpgmParam3=3
sys kato send seconds=1000 microseconds=0
sys tod set seconds=2000 microseconds=0
ima set groupId=1 imaAction=create groupParam1=1 groupParam2=128 groupParam3=25
ima lnk add linkId=5 groupId=1
ima lnk add linkId=4 groupId=1
"""

# A change of the script (a line is left out, doubled, put before the one above it or replaced in
# part), and what is told of it.
CHANGES = [
    (("00:01", "00:02"), "config_set_pwe_src_mac_addr", 'mac: "02:00:5e:10:00:02" in place of'),
    (("first=3 second=4", "first=3 second=5"), "config_set_pwe_lops_threshold",
     "threshold.second: 5 in place of 4"),
    (("first=60", "first=61"), "config_set_temperature_thr", "threshold.first: 61 in place of 60"),
    (("cableLength=40", "cableLength=41"), "config_set_pdh_params",
     "params.cableLength: 41 in place of 40"),
    (("port=4 mode=3", "port=4 mode=2"), "config_set_pdh_params",
     "params.frameMode: 2 in place of 3"),
    (("pdh frame set port=4", "pdh frame set port=5"), "config_get_pdh_params",
     "port: 5 in place of 4"),
    (("loopback=2", "loopback=3"), "config_set_pdh_lpbk", "loopback.lpbk: 3 in place of 2"),
    (("pmType=1", "pmType=2"), "pmom_pdh_pm_stat_get", "interval: 2 in place of 1"),
    (("pdh pm clear port=3", "pdh pm clear port=4"), "pmom_pdh_pm_stat_clear",
     "port: 4 in place of 3"),
    (("param1=4711", "param1=4712"), "config_add_pw", "config.enc3.param1: 4712 in place of 4711"),
    (("size=6000", "size=6001"), "config_set_pw_jitter_size", "size: 6001 in place of 6000"),
    (("outerVlanId=5", "outerVlanId=6"), "config_set_pw", "config.outerVlanId: 6 in place of 5"),
    (("status=2 pwId", "status=3 pwId"), "config_set_pw_admin", "status: 3 in place of 1"),
    (("mode=2 value", "mode=1 value"), "alarm_set_notification", "mode: "),
    (("tpgmParam2=2", "tpgmParam2=9"), "config_init_tpgm", "setup.params: [1,9,3] in place of"),
    (("linkId=5", "linkId=6"), "config_add_ima_link", "link: 6 in place of 5"),
    (("linkId=4", "earlier"), "config_add_ima_link", "link: 4 in place of 5"),
    (("pwe pdv set", None), "config_set_pw", ""),
    (("pwe admin set", "twice"), "config_set_pw_admin", ""),
    (("sys temp set", "earlier"), "config_set_temperature_thr", ""),
    (("pdh admin get", None), "none came", "config_get_pdh_admin"),
    (("sys tod", "twice"), "settimeofday", ""),
]


def changed(script, place, how):
    lines = script.splitlines(keepends=True)
    (at,) = [i for i, line in enumerate(lines) if place in line]
    if how is None:
        del lines[at]
    elif how == "twice":
        lines.insert(at, lines[at])
    elif how == "earlier":
        lines.insert(at - 1, lines.pop(at))
    else:
        lines[at] = lines[at].replace(place, how)
    return "".join(lines)


class Replaying(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        (folder / "script").write_text(SCRIPT)
        (folder / "device").unlink(missing_ok=True)
        cls.file = folder / "scripted"
        cls.told = subprocess.run(
            [VEXOTRACE, "record", "--output", cls.file, "--size", "1M", "--", VEXOCTL,
             "--keep-going", "--script", folder / "script"],
            capture_output=True, env=environment, text=True, timeout=120)

    def replay(self, *words, script=None, command=None, file=None):
        if script is not None:
            (folder / "changed").write_text(script)
            command = [VEXOCTL, "--keep-going", "--script", folder / "changed"]
        done = subprocess.run([VEXOTRACE, "replay", *words, file or self.file, "--", *command],
                              capture_output=True, text=True, timeout=120, env=environment)
        return done.returncode, done.stdout, done.stderr

    def test_what_is_repeated_is_answered_as_it_was(self):
        status, told, why = self.replay(script=SCRIPT)
        self.assertEqual((status, told), (1, self.told.stdout), why)  # ports that aren't there
        self.assertEqual(re.findall("failure.*", why), re.findall("failure.*", self.told.stderr))
        self.assertEqual(len(set(re.findall("failure.*", why))), 2)

    def test_asking_more_or_less_often_before_a_change_makes_no_difference_after_it(self):
        create = next(line for line in SCRIPT.splitlines(True) if "action=create" in line.lower())
        asked, changes = "pwe pdv get pwId=17\n", "pwe pdv set pwId=17 size=6000\n"
        (folder / "asking").write_text(create + 3 * asked + changes + asked)
        (folder / "device").unlink(missing_ok=True)
        vexotrace("record", "--output", folder / "polled", "--size", "1M", "--", VEXOCTL,
                  "--script", folder / "asking")
        for times in (1, 3, 6):
            status, told, why = self.replay(script=create + times * asked + changes + 2 * asked,
                                            file=folder / "polled")
            self.assertEqual((status, re.findall(r"\d+", told)),
                             (0, times * ["5000"] + 2 * ["6000"]), why)

    def test_each_planted_change_is_found_at_its_call(self):
        for (place, how), name, field in CHANGES:
            with self.subTest(place=place, how=how):
                status, _, told = self.replay(script=changed(SCRIPT, place, how))
                self.assertEqual(status, 3, told)
                self.assertRegex(told, rf"(?m)^  actual +{re.escape(name)}\b")
                self.assertIn(field, told)
                self.assertEqual(told.count("  actual "), 1)

    def test_where_the_same_call_comes_later_is_told_with_the_calls_before(self):
        script = changed(changed(SCRIPT, "sys temp set", "earlier"), "sys temp set", "earlier")
        told = self.replay(script=script)[2]
        self.assertRegex(told, r"(?m)^  expected  config_set_pwe_src_mac_addr\(.*\n"
                               r"  actual    config_set_temperature_thr\(first=60, second=80\)\n"
                               r"  later     .* 2 calls later: config_set_temperature_thr\(")
        self.assertRegex(self.replay(script=changed(SCRIPT, "size=6000", "size=1"))[2],
                         r"\n  before    config_get_pw_oper_state\(pwId=17\)  at .*params_get\n")

    def test_it_goes_on_and_counts_or_takes_what_is_like_it(self):
        script = SCRIPT
        for place, how in (("size=6000", "size=1"), ("first=60", "first=6"), ("sys lops", None),
                           ("pdh pm clear", "twice")):
            script = changed(script, place, how)
        status, _, told = self.replay("--continue", script=script)
        # One is left out and the next has another value: they are one. To clear are three calls.
        self.assertEqual((status, told.count("  actual ")), (3, 5), told)
        self.assertIn(": 5 differences in ", told)
        status, _, told = self.replay("--loose", script=script)
        self.assertEqual((status, told.count("vexotrace:")), (1, 0), told)
        for unknown in "sys clk_out set first=1 second=2\n", "pdh admin get port=4\n":
            status, _, told = self.replay("--loose", script=unknown)
            self.assertEqual(status, 3, told)

    def test_an_agent_with_threads_and_faults_does_the_same_again_and_ends(self):
        for name, times, words in (("heard", 3, {}), ("deafened", 1, {
                "faults": ["function=alarm_subscribe value=8 times=1"], "deaf": True})):
            file = record(name, **words)
            told = set()
            for _ in range(times):
                status, out, why = self.replay(command=[folder / "agent"], file=file)
                self.assertEqual((status, why), (0, ""), out)
                told.add(out)
            self.assertEqual(len(told), 1, told)
            self.assertIn("\nended\n", out)

    def test_what_was_told_of_alarms_is_answered_to_who_asks_more_often(self):
        quick = variant("quick", ("second = {1, 0}", "second = {0, 50000000}"))
        status, out, why = self.replay(command=[folder / quick], file=record("asked"))
        self.assertEqual((status, why), (0, ""), out)
        self.assertNotIn("registering anew", out)

    def test_signals_are_passed_on(self):
        waits = "trap 'echo told; exit' USR1; echo ready; while :; do sleep 0.05; done"
        with subprocess.Popen([VEXOTRACE, "replay", self.file, "--", "sh", "-c", waits], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              env=environment) as started:
            self.assertEqual(started.stdout.readline(), "ready\n")
            started.send_signal(signal.SIGUSR1)
            self.assertEqual(started.stdout.read(), "told\n")

    def test_what_an_agent_does_when_told_to_end_is_done_again(self):
        parting = variant("parting", ("  reconcile();", "  ;"), ("vexo_cmi_fini();", """
            vexo_cmi_fini();
            vexoResult result;
            if (argc == 1)
                vexo_cmi_pwe_admin_set(2, watched, &result);
            puts(readAlarms(&active) ? "read" : "not read");"""))
        # Of alarms, which the last event tells of, is answered what was, too: here, a failure.
        file = record("parted", agent=parting, faults=[
            "effect=drop service=pm", "function=alarm_get_active_bits value=8 skip=1"])
        self.assertIn("config_set_pw_admin", vexotrace("show", file))
        status, out, why = self.replay(command=[folder / parting], file=file)
        self.assertEqual(status, 0, why)
        self.assertIn("\nnot read\nended\n", out)
        status, out, why = self.replay(command=[folder / parting, "17"], file=file)
        self.assertEqual(status, 3, out)
        self.assertRegex(why, r"expected  config_set_pw_admin\(.*\n  actual    none came")

    # So that an agent knows whether a report has come, and only listens.
    LISTENING = [("  reconcile();", "  ;"),
                 ("atomic_uint known;", "atomic_uint known, reports; static int turns;"),
                 ("    switch (pm->objType) {", "    ++reports; switch (pm->objType) {")]

    def test_handlers_are_at_work_together_where_they_were_and_else_one_after_the_other(self):
        paired = variant("paired", *self.LISTENING,
                         ("    watched = pwId;", "    watched = pwId; turns = atoi(argv[2]);"),
                         ("    if (alarm->objType == VEXO_OBJ_TYPE_IMA)", """
            const struct timespec turn = {0, 10000000};
            for (int i = 0; i < turns && !reports; ++i)
                nanosleep(&turn, NULL);
            puts(reports ? "together" : "alone");
            if (alarm->objType == VEXO_OBJ_TYPE_IMA)"""))
        for told, turns in ("together", "2000"), ("alone", "20"):
            file = record(told, "17", turns, agent=paired, apart=told == "alone")
            status, out, why = self.replay(command=[folder / paired, "17", turns], file=file)
            self.assertEqual((status, why), (0, ""), out)
            self.assertIn(f"\n{told}\n", out)

    def test_who_ends_by_itself_is_left_alone_and_who_went_another_way_is_killed(self):
        file = record("ended", agent=variant("listening", *self.LISTENING))
        # A second after all that there is to hear.
        itself = variant("itself", *self.LISTENING, ("sigaddset(&end, SIGTERM)", "(void)0"),
                         ("second = {1, 0}", "second = {0, 50000000}"), ("taken > 0 ?", "1 ?"),
                         ("while ((taken", "while (!(reports && known && ++turns > 20) && (taken"))
        status, out, why = self.replay(command=[folder / itself], file=file)
        self.assertEqual((status, why), (0, ""), out)
        self.assertIn("\nended\n", out)

        another = f'watched = pwId; system("{VEXOCTL} sys version get");'
        command = [folder / variant("two", *self.LISTENING, ("watched = pwId;", another))]
        status, out, why = self.replay(command=command, file=file)
        self.assertEqual((status, why.count("another process called")), (3, 1), why)
        self.assertNotIn("ended", out)

        # It waits for what comes after a question that it doesn't ask; ten seconds of this clock.
        (folder / "clock.c").write_text("""
            #define _GNU_SOURCE
            #include <errno.h>
            #include <string.h>
            #include <sys/syscall.h>
            #include <time.h>
            #include <unistd.h>
            int clock_gettime(clockid_t clock, struct timespec *now)
            {
                const long failed = syscall(SYS_clock_gettime, clock, now);
                if (strcmp(program_invocation_short_name, "vexotrace") == 0)
                    now->tv_sec = 50 * now->tv_sec + now->tv_nsec / 20000000;
                return (int)failed;
            }""")
        subprocess.run([os.environ["CC"], "-shared", "-fPIC", folder / "clock.c", "-o",
                        folder / "clock.so"], check=True)
        forgetful = variant("forgetful", *self.LISTENING, ("reading the pseudowire back", ""), ("""
    vexo_cmi_pwe_params_get(&info, pwId, &result);
    if (!succeeded("", &result))""", """
    if (0)"""))
        with patch.dict(environment, LD_PRELOAD=str(folder / "clock.so")):
            status, out, why = self.replay(command=[folder / forgetful], file=file)
        self.assertEqual((status, why.count("; it is ended\n")), (3, 1), why)
        self.assertNotIn("ended", out)

    def test_what_the_recording_does_not_know_its_snapshot_does(self):
        (folder / "device").unlink(missing_ok=True)
        vexoctl("pdh", "frame", "set", "port=4", "mode=5")
        asked = "pdh frame set port=3 mode=6\n"
        (folder / "short").write_text(asked)
        file = folder / "with-snapshot"
        vexotrace("record", "--snapshot", "--output", file, "--size", "1M", "--", VEXOCTL,
                  "--script", folder / "short")
        vexoctl("sim", "reset")
        status, told, why = self.replay(
            script=asked + "pdh frame get port=4\npdh params get port=3\n", file=file)
        self.assertEqual(status, 0, why)
        self.assertEqual(re.findall(r"(?:frameMode|mode): (\d)", told), ["5", "6"],
                         "of a port that was not asked for, and of one since its change")
        status, told, _ = self.replay("--continue", script=asked + asked, file=file)
        self.assertEqual(status, 3)
        (folder / "device").unlink()
        self.assertIn("device: No such file",
                      vexotrace("record", "--snapshot", "-o", file, "--", VEXOCTL, "list", status=2))

    def test_vexoctl_looks_into_the_recorded_device(self):
        def look(*words, status):
            done = subprocess.run([VEXOCTL, "--device", f"trace:{self.file}", *words], text=True,
                                  capture_output=True, timeout=120, env=environment)
            self.assertEqual(done.returncode, status, done.stderr)
            return done.stdout + done.stderr
        self.assertEqual(look("pdh", "admin", "get", "port=3", status=0), "status: 1\n")
        self.assertIn("jitterBufferSize: 6000", look("pwe", "params", "get", "pwId=17", status=0))
        self.assertIn("no answer", look("pdh", "admin", "get", "port=9", status=1))
        self.assertIn("can't be changed", look("sys", "lops", "set", "first=3", "second=4",
                                               status=1))
        self.assertIn("sim", look("sim", "clock", "get", status=2))
        self.assertIn("nothing: No such file", subprocess.run(
            [VEXOCTL, "--device=trace:nothing", "list"], capture_output=True, text=True,
            env=environment).stderr)

    def test_a_recording_that_an_earlier_vexotrace_has_made_is_replayed(self):
        told = vexotrace("replay", KEPT, "--", folder / "agent")
        self.assertIn("active 0x00000005, changed 0x00000005\n", told)
        self.assertIn("active 0x00000004, changed 0x00000001\nended\n", told)

    def test_what_a_32_bit_device_did_is_shown_and_replayed_here(self):
        kept = KEPT.with_name("armhf.trace")
        self.assertIn("settimeofday(tv_sec=1700000000, tv_usec=0, zone=0) = 0",
                      vexotrace("show", kept))
        # What the recorded clock reads decides whether a keep-alive sets it.
        script = ("pdh cable_len set port=6 length={}\npdh cable_len get port=6\n"
                  "sys kato send seconds=1700000000 microseconds=0\n"
                  "sys kato send seconds=1700000400 microseconds=0\n"
                  "sys tod set seconds=1700002000 microseconds=0\n"
                  "sys kato send seconds=1700002000 microseconds=0\n"
                  "pwe params set pwId=900 pweAction=create pweType=tdm-1 adminStatus=1 "
                  "dstMac=00:1a:2b:00:00:11 vlan.mode=untagged psn.psnType=1 t1.circuit=1 "
                  "t1.rtp.mode=1\npwe payload get pwId=900\npdh cable_len get port=7\n")
        status, out, why = self.replay(script=script.format(30), file=kept)
        self.assertEqual((status, out), (1, "length: 30\nsize: 256\n"))
        self.assertIn("failure 1: E-77: this unit has six ports", why)
        status, _, why = self.replay(script=script.format(31), file=kept)
        self.assertEqual(status, 3)
        self.assertIn("params.cableLength: 31 in place of 30", why)

    def test_a_daemon_is_followed_and_addresses_that_are_stand_ins_are_taken_as_the_same(self):
        # Each is recorded, replayed as it was, with other addresses, and with another number.
        cases = (("vexoctl sys src_mac set mac=02:11:22:33:44:{}", "55", "56", None),
                 ("vexoctl sys src_ip set address=32322414{}", "35", "36", None),
                 ("(setsid sh -c 'sleep 0.3; vexoctl pdh cable_len set port=1 length={}' &)",
                  "30", None, "31"))
        for line, recorded, same, other in cases:
            line = line.replace("vexoctl", str(VEXOCTL))
            file = folder / "kept"
            subprocess.run([VEXOTRACE, "record", "--redact", "--output", file, "--size", "1M",
                            "--", "sh", "-c", line.format(recorded)], check=True, env=environment,
                           stdout=subprocess.PIPE, timeout=120)
            for value, status in ((recorded, 0), (same, 0), (other, 3)):
                if value:
                    found = self.replay(command=["sh", "-c", line.format(value)], file=file)
                    self.assertEqual(found[0], status, (line, value, found))

    def test_what_cannot_be_replayed_is_said(self):
        self.assertIn("no recording", vexotrace("replay", folder / "script", "--", "true",
                                                status=2))
        self.assertIn("command", vexotrace("replay", self.file, "--", status=2))
        for command, why in ((["true"], "called nothing"),
                             ([folder / "nothing"], "No such file"),
                             (["sh", "-c", f"{VEXOCTL} sys lops set first=3 second=4 & "
                                           f"wait; {VEXOCTL} sys version get"], "another process")):
            status, _, told = self.replay("--continue", command=command)
            self.assertEqual(status, 3)
            self.assertIn(why, told)


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
