"""The command line, run as a person and as a script would run it."""
import fcntl
import functools
import json
import operator
import os
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tarfile
import tempfile
import termios
import time
import unittest
import xml.etree.ElementTree
from pathlib import Path

VEXOCTL = os.environ["VEXOCTL"]
SOURCE = Path(__file__).resolve().parents[2]


class Terminal:
    """A program on a terminal that controls jobs, as a person has it."""

    def __init__(self, test, *command, columns=80):
        self.test, self.shown = test, ""
        try:
            self.leader, follower = os.openpty()
        except OSError as error:
            test.skipTest(f"no terminal to be had: {error}")
        fcntl.ioctl(follower, termios.TIOCSWINSZ, struct.pack("4H", 24, columns, 0, 0))
        self.process = subprocess.Popen(
            command, stdin=follower, stdout=follower, stderr=follower, env=test.environment,
            start_new_session=True, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(follower)
        test.addCleanup(os.close, self.leader)
        test.addCleanup(self.process.wait)
        test.addCleanup(self.process.kill)

    def type(self, text):
        os.write(self.leader, text.encode())

    def read(self):
        """What comes next; nothing when there is no end of the program's left."""
        ready = select.select([self.leader], [], [], 20)[0]
        self.test.assertTrue(ready, self.shown)
        try:
            return os.read(self.leader, 4096)
        except OSError:
            return b""

    def until(self, text):
        """What is shown before the text, which is waited for."""
        while text not in self.shown:
            more = self.read()
            self.test.assertTrue(more, (text, self.shown))
            self.shown += more.decode(errors="replace")
        before, self.shown = self.shown.split(text, 1)
        return before

    def answer(self, line):
        """What a prompt answers to a line, up to the next prompt."""
        self.type(line + "\n")
        self.until("\n")
        return self.until("vexoctl> ")

    def rest(self):
        return self.shown + b"".join(iter(self.read, b"")).decode()


class Device(unittest.TestCase):
    """A simulated device of its own for every test."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.environment = {**os.environ, "KV_SIM_DEVICE": str(self.folder / "device"),
                            "HOME": folder.name, "TERM": "xterm"}

    def vexoctl(self, *words, text=None, **options):
        return subprocess.run([VEXOCTL, *words], input=text, env=self.environment, text=True,
                              capture_output=True, timeout=60, check=False, **options)

    def document(self, *words, text=None, status=0):
        """What a command prints with --json: one document and nothing else."""
        done = self.vexoctl("--json", *words, text=text)
        self.assertEqual(done.returncode, status, (words, done.stdout, done.stderr))
        self.assertEqual(done.stderr, "", words)
        return json.loads(done.stdout)

    def documents(self, script):
        """What a script's commands print, one document a line."""
        done = self.vexoctl("--json", text="\n".join(script))
        self.assertEqual(done.returncode, 0, (done.stdout[-300:], done.stderr))
        return [json.loads(line) for line in done.stdout.splitlines()]

    def run_all(self, script):
        done = self.vexoctl(text="\n".join(script))
        self.assertEqual(done.returncode, 0, done.stderr)

    def calls(self):
        """The number of the device's latest call."""
        return max((call["number"] for call in self.document("sim", "journal")["calls"]), default=0)

    def wait_for(self, condition):
        end = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.02)

    def start(self, *words):
        # Signals may be ignored here, as by nohup(1).
        process = subprocess.Popen([VEXOCTL, *words], env=self.environment, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   preexec_fn=lambda: [signal.signal(number, signal.SIG_DFL) for number in (
                                       signal.SIGINT, signal.SIGTERM, signal.SIGHUP)])
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def manual(self, *operation):
        return self.document("help", *operation)

    def pages(self):
        """What help tells of each operation that is listed."""
        names = self.document("list")["operations"]
        return dict(zip(names, self.documents(f"help {name}" for name in names)))

    def call(self, page):
        """Calls the operation of a page with a value for whatever it takes."""
        given = [row for row in page["arguments"] if row["direction"] == "given"]
        words = [f"{row['name']}={expected_value(row)[0]}" for row in given if "fields" not in row]
        words += [f"{field['name']}={expected_value(field)[0]}" for row in given
                  for field in row.get("fields", []) if "condition" not in field]
        done = self.vexoctl("--json", *page["operation"].split(), *words)
        document = json.loads(done.stdout)
        self.assertEqual(document["operation"], page["operation"])
        self.assertEqual(done.returncode, 0 if document["rc"] == 0 else 1, done)
        self.assertEqual(document["rc"] == 0, document["message"] == "", document)
        return document


def operations():
    """Those that the library exports."""
    names = re.findall(r"vexo_cmi_((?:sys|pdh|pwe|ima|misc)_\w+);",
                       (SOURCE / "src/exports.map").read_text())
    return {f"{name.split('_')[0]} {'_'.join(name.split('_')[1:-1])} {name.split('_')[-1]}"
            .replace("  ", " ") for name in names}


def expected_value(row):
    """A value for an argument or a field: as it is written, and as it is read back."""
    if row["type"] == "MAC address":
        return "02:00:5e:00:00:77", "02:00:5e:00:00:77"
    if row["type"] == "text":
        return "a name", "a name"
    if "first" in row:
        value = max(row["first"], 1)
        names = [name for name, number in row.get("values", {}).items() if number == value]
        return (names or [str(value)])[0], (names or [value])[0]
    value = min(5, row.get("limit", 5))
    return str(value), value


class Words(Device):
    def test_every_exported_operation_is_listed_explained_and_callable_by_its_words(self):
        pages = self.pages()
        self.assertEqual(set(pages), operations())
        self.assertEqual(self.document("list")["calls"],
                         {name: page["calls"] for name, page in pages.items()})
        known = set(self.document("sim", "functions")["functions"])
        for name, page in pages.items():
            self.assertEqual(page["operation"], name)
            called = {one for case in page["calls"] for one in case["calls"] + case["callsPerLink"]}
            self.assertTrue(called, name)
            self.assertFalse(called - known - {"settimeofday", "gettimeofday"}, name)
            self.assertGreater(len(page["help"]), 20, name)
            self.assertNotRegex(page["help"], r"(?i)@|\*|see |\bnull\b|zero the|the caller|vexo_|"
                                r"code text|untouched|not written|\bbytes\b", name)
            document = self.call(page)
            if document["rc"] == 0:
                returned = {row["name"] for row in page["arguments"]
                            if row["direction"] == "returned"}
                self.assertEqual(returned, set(document) - {"operation", "rc", "message"})
            # The words of the operation's name, in other forms.
        for form in ("sys_src_mac_get", "vexo_cmi_sys_src_mac_get"):
            self.assertEqual(self.document(form)["operation"], "sys src_mac get")
        self.assertEqual(self.document("sys", "src-mac", "get")["operation"], "sys src_mac get")

    def test_help_tells_of_every_field_of_a_given_record_what_becomes_of_it_when_left_out(self):
        shown = re.sub(r"\s+", " ", self.vexoctl("help", "pwe", "params", "set").stdout)
        atm = "only with pweType=atm-3 or atm-4"
        for text in ("dstMac MAC address; must be given",
                     "vlan.mode=2, double or 4; left out, it is kept",
                     "t1.payloadSize number; in the platform's unit; only with pweType=tdm-1; 0 keeps it",
                     f"a.serviceFlag number; {atm}; 1 clears, 2 sets",
                     "t2.serviceFlag number; only with pweType=tdm-2; 1 sets, 2 clears"):
            self.assertIn(text, shown)

    def test_help_tells_units_where_they_are_known_and_whose_they_are_elsewhere(self):
        units = {name: row.get("unit") for operation in ("sys tod set", "pdh cable_len set")
                 for row in self.manual(*operation.split())["arguments"] for name in [row["name"]]}
        self.assertEqual(units, {"seconds": "seconds", "microseconds": "microseconds", "port": None,
                                 "length": "the platform's unit"})

    def test_help_shows_the_calls_of_an_operation_case_by_case(self):
        self.assertIn("\ncalls: config_get_pdh_params and config_set_pdh_params\n",
                      self.vexoctl("help", "pdh", "frame", "set").stdout)
        self.assertIn("\ncalls (clear): config_get_ima_params, pmom_ima_group_om_stat_get and "
                      "pmom_ima_group_om_stat_clear; for each link pmom_ima_link_om_stat_get and "
                      "pmom_ima_link_om_stat_clear\ncalls (else): ",
                      self.vexoctl("help", "ima", "om", "get").stdout)
        self.assertIn("\ncalls (length 0): nothing\n",
                      self.vexoctl("help", "pdh", "cable_len", "set").stdout)

    def test_help_tells_what_values_mean_on_the_simulated_device(self):
        shown = re.sub(r"\s+", " ", self.vexoctl("help", "pwe", "params", "set").stdout)
        self.assertIn("on the simulated device, by its own choice: pweType 1: if no sizes are given, "
                      "256 of payload", shown)
        self.assertIn(" adminStatus 1: up; 2: down; 3: in test ", shown)
        self.assertIn(" psn.param1 any: kept, without effect ", shown)
        told = set()
        for page in self.pages().values():
            for row in page["arguments"]:
                for one in [row, *row.get("fields", [])]:
                    told |= set(one.get("simulated", {}).items())
        values = self.document("sim", "values")["values"]
        self.assertEqual(told, {(row["value"], row["meaning"]) for row in values})

    def test_every_operation_has_an_example_and_all_of_them_succeed_in_turn(self):
        names = [name for area in ([], ["sim"]) for name in self.document("list", *area)["operations"]]
        tried = []
        for name, page in zip(names, self.documents(f"help {name}" for name in names)):
            self.assertTrue(page["examples"], name)
            tried += page["examples"]
        # These show calls instead, and wait for what another process does.
        others = {"sim journal follow", "sim wait subscribed", "sim wait hanging"}
        tried = [line for line in tried if not line.startswith(tuple(others))]
        answers = self.documents(tried)
        self.assertEqual(len(answers), len(tried))
        self.assertEqual({answer["operation"] for answer in answers}, set(names) - others)
        page = self.vexoctl("help", "pwe", "params", "set").stdout
        self.assertIn("\n  vexoctl pwe params set pwId=17 pweAction=create", page)

    def test_arguments_are_named_as_in_the_header(self):
        header = "".join(file.read_text() for file in (SOURCE / "include/vexo_cmi").glob("*.h"))
        declared = dict(re.findall(r"void (vexo_cmi_\w+)\(([^)]*?),?\s*vexoResult", header))
        self.assertGreater(len(declared), 80)
        for name, parameters in declared.items():
            page = self.manual(name)
            self.assertEqual([row["name"] for row in page["arguments"]],
                             re.findall(r"(\w+)(?:\[\w+\])?(?:,|$)", parameters), name)

    def test_every_enumeration_has_the_range_and_the_names_of_the_header(self):
        header = (SOURCE / "include/vexo_cmi/values.h").read_text()
        ranges, constants = {}, re.findall(r"VEXO_(\w+) = (\d+)", header)
        for name, body in re.findall(r"VEXO_CMI_ENUM\((\w+)\)\{(.*?)\};", header, re.DOTALL):
            values = [int(value) for value in re.findall(r"= (\d+)", body)]
            ranges[name] = (min(values), max(values))
        seen = {}
        for page in self.documents(f"help {name}" for name in operations()):
            for row in page["arguments"]:
                for one in [row, *row.get("fields", [])]:
                    if "first" in one and one["name"] != "pweAction":
                        seen[one["type"]] = (one["first"], one["last"])
                        for name, value in one.get("values", {}).items():
                            ending = "_" + name.upper().replace("-", "_")
                            self.assertTrue([constant for constant, number in constants
                                             if constant.endswith(ending) and
                                             int(number) == value], (one["type"], name))
        self.assertGreater(len(seen), 20)
        self.assertEqual(seen, {name: ranges[name] for name in seen})

    def test_every_offered_command_has_help_of_its_own(self):
        offered = self.vexoctl("complete", "help", "").stdout.split()
        pages = {command: self.vexoctl("help", command).stdout for command in offered}
        self.assertIn("watch", pages)
        for command, page in pages.items():
            self.assertTrue(page.startswith(command), page)
            self.assertNotEqual(page, self.vexoctl("help").stdout)

    def test_text_fits_a_terminal_of_any_width_and_is_not_wrapped_elsewhere(self):
        script = self.folder / "script"
        script.write_text("\n".join(["help", "list", "list sim", "help watch", "help metrics", "pdh pm get port=1 "
                                     "pmType=1", *(f"help {name}" for name in operations())]))
        whole = self.vexoctl("--script", str(script)).stdout
        self.assertGreater(max(map(len, whole.splitlines())), 150)
        for columns in (80, 132):
            shown = Terminal(self, VEXOCTL, "--script", str(script), columns=columns).rest()
            self.assertLessEqual(max(map(len, shown.splitlines())), columns)
            self.assertGreater(max(map(len, shown.splitlines())), columns - 20)
            self.assertEqual(shown.split(), whole.split())

    def test_completion_offers_words_arguments_and_values(self):
        def offered(*words):
            return self.vexoctl("complete", *words).stdout.split()
        self.assertEqual(offered("p"), ["pdh", "pwe"])
        self.assertEqual(offered("pdh", "fra"), ["frame"])
        self.assertEqual(offered("help", "pdh", "frame", ""), ["set", "get"])
        self.assertEqual(offered("pdh", "frame", "set", ""), ["mode=", "port="])
        self.assertEqual(offered("watch", ""), ["alarms", "pm", "active", "kind=", "object=",
                                               "bits=", "count=", "for="])
        self.assertEqual(offered("watch", "kind=ima"), ["kind=ima-group", "kind=ima-link"])
        self.assertEqual(offered("wait", "pdh", "pa"), ["params"])
        self.assertEqual(offered("wait", "pdh", "params", "get", "oper"), ["operState="])
        self.assertEqual(offered("wait", "pdh", "params", "get", "port"), ["port="])
        self.assertEqual(offered("follow", ""), ["upgrade"])
        self.assertEqual(offered("follow", "upgrade", "f"), ["for="])
        self.assertEqual(offered("metrics", ""), ["families=", "form=", "pwes=", "groups="])
        self.assertEqual(offered("metrics", "families=ima_g"),
                         ["families=ima_group_om", "families=ima_group_pm"])
        self.assertEqual(offered("pwe", "params", "set", "t1.rtp."),
                         ["t1.rtp.mode=", "t1.rtp.payloadType=", "t1.rtp.ssrc="])
        self.assertEqual(offered("sim", "alarm", "get", "type=pw"), ["type=pwe"])
        self.assertEqual(offered("sim", "alarm", "get", "type=ima-"),
                         ["type=ima-group", "type=ima-link"])
        (self.folder / "b c").touch()
        (self.folder / "bd").mkdir()
        self.assertEqual(self.vexoctl("complete", "pwe", "psn", "set", f"psn=@{self.folder}/b")
                         .stdout, f"psn=@{self.folder}/b c\npsn=@{self.folder}/bd/\n")
        self.assertEqual(offered("pwe", "vlan", "set", "mode="),
                         ["mode=untagged", "mode=double", "mode=2", "mode=4"])

    def test_bash_completes_files_behind_the_sign_and_values(self):
        completion = "/usr/share/bash-completion/bash_completion"
        if not shutil.which("bash") or not os.path.exists(completion):
            self.skipTest("no bash-completion")
        (self.folder / "psn of 7").touch()
        bash = Terminal(self, "bash", "--norc", "-i", columns=200)
        bash.type(f"PATH={Path(VEXOCTL).parent}:$PATH; PS1='ready'' to go> '; . {completion}; "
                  f". {SOURCE}/packaging/bash-completion/vexoctl; cd {self.folder}\n")
        for typed, completed in (("pwe psn set psn=@ps", r"psn=@psn\ of\ 7 "),
                                 ("pdh alarms set al", "alarmBits="),
                                 ("pwe vlan set mode=unt", "mode=untagged ")):
            bash.until("ready to go> ")
            bash.type(f"vexoctl {typed}\t")
            bash.until(completed)
            bash.type("\x01\x0b\n")


    def test_the_control_interface_of_the_simulated_device_is_offered_whole(self):
        header = re.sub(r"/\*.*?\*/", "", (SOURCE / "sim/kv_sim.h").read_text(), flags=re.DOTALL)
        tool = (SOURCE / "tools/vexoctl/sim.cpp").read_text()
        # Of recorders; as kv_sim_fault_arm; of programs that have several devices or stop agents.
        others = {"kv_sim_operation", "kv_sim_fault_add", "kv_sim_close", "kv_sim_holder"}
        self.assertEqual(set(re.findall(r"(kv_sim_\w+)\(", header)) - others,
                         set(re.findall(r"\bSIM\((kv_sim_\w+)\)", tool)) |
                         {"kv_" + name for name in re.findall(r"\bFORWARD\((sim_\w+)", tool)})

        def members(name):
            body = re.search(rf"typedef \w+ {name} {{(.*?)}}", header, re.DOTALL)[1]
            return re.findall(r"(\w+)(?:\[\w+\])?[;,]", body)
        arguments = {row["name"]: row for row in self.manual("sim", "fault", "add")["arguments"]}
        told = {"id", "met", "waiting", "spent"}
        self.assertEqual(set(arguments), set(members("kvSimFault")) - {"ofType"} - told)
        self.assertEqual([f"KV_SIM_{name.upper()}" for name in arguments["effect"]["values"]],
                         members("kvSimEffect"))
        ends = {row["name"]: row for row in self.manual("sim", "subscription", "end")["arguments"]}
        self.assertEqual([f"KV_SIM_{name.upper()}" for name in ends["ending"]["values"]],
                         members("kvSimEnding"))
        self.document("sys", "src_ip", "set", "address=0x0a000001")
        self.document("misc", "dbg_mode", "set", "mask=1")
        self.document("sys", "temp", "get")
        self.document("sim", "fault", "add", "effect=hang", "function=config_get_temperature")
        hanging = self.start("sys", "temp", "get")
        self.wait_for(lambda: self.document("sim", "fault", "list")["hanging"])
        shown = set().union(*self.document("sim", "journal", "records=1")["calls"])
        self.assertEqual(shown - {"arguments"},
                         set(members("kvSimCall")) - {"args", "argNames", "argCount", "recordSize", "outSize"})
        self.assertEqual(set(self.document("sim", "log")["records"][0]), set(members("kvSimLog")))
        self.document("sim", "fault", "clear")
        self.assertEqual(hanging.wait(), 0)
        functions = self.document("sim", "functions")["functions"]
        self.assertIn("kv_log", functions)
        for function in functions:
            self.document("sim", "fault", "add", f"function={function}")
            self.document("sim", "fault", "clear")

    def test_every_counter_is_set_by_the_name_that_its_getter_prints(self):
        for number, kind in ((1, "tdm-1"), (2, "atm-3")):
            self.document("pwe", "params", "set", f"pwId={number}", f"pweType={kind}",
                          *PSEUDOWIRES[kind])
        self.document("ima", "set", "groupId=1", "imaAction=create", "groupParam1=1",
                      "groupParam2=1")
        self.document("ima", "lnk", "add", "groupId=1", "linkId=5")
        getters = [("pm", "pdh", 3, "pdh pm get pmType=1 port=3", []),
                   ("pm", "pdh", 12, "pdh pm get pmType=1 port=12", []),
                   ("pm", "pwe", 1, "pwe pm get pmType=1 pwId=1", []),
                   ("pm", "pwe", 2, "pwe pm get pmType=1 pwId=2", []),
                   ("pm", "ima-group", 1, "ima pm get pmType=1 groupId=1", []),
                   ("pm", "ima-link", 5, "ima pm get pmType=1 groupId=1", ["links", 0]),
                   ("om", "system", 1, "misc sys_info get clear=0", []),
                   ("om", "pwe", 1, "pwe om get clear=0 pwId=1", []),
                   ("om", "pwe", 2, "pwe om get clear=0 pwId=2", []),
                   ("om", "ima-group", 1, "ima om get clear=0 groupId=1", []),
                   ("om", "ima-link", 5, "ima om get clear=0 groupId=1", ["links", 0])]

        def paths(value, path=()):
            if isinstance(value, (dict, list)):
                inner = value.items() if isinstance(value, dict) else enumerate(value)
                return {name: number for key, one in inner
                        for name, number in paths(one, (*path, str(key))).items()}
            return {".".join(path): value}

        def counters(document, part):
            record = next(one for one in document.values() if isinstance(one, dict))
            shown = paths(functools.reduce(operator.getitem, part, record))
            return {name: value for name, value in shown.items()
                    if re.search(r"(?i)(counters|om)\.\d+$|flag$|valid$", name) and
                    not name.startswith("link")}

        for command, kind, number, getter, part in getters:
            with self.subTest(getter=getter, kind=kind):
                before = counters(self.document(*getter.split()), part)
                self.assertGreater(len(before), 1)
                wanted = {name: 0 if re.search("Flag|valid", name) else 100 + index
                          for index, name in enumerate(before)}
                interval = "interval=1 " if command == "pm" else ""
                self.documents(f"sim {command} set type={kind} number={number} {interval}"
                               f"counter={name} value={value}" for name, value in wanted.items())
                self.assertEqual(counters(self.document(*getter.split()), part), wanted)
        refused = self.vexoctl(*"sim pm set type=pdh number=3 interval=1 value=1".split(),
                               "counter=layout1.counters.0")
        self.assertEqual(refused.returncode, 2)
        self.assertIn("expected layout0.counters.0 to layout0.counters.11, layout0.intervalFlag,",
                      refused.stderr)


# What is given, and what the message has to say.
BAD_INPUT = [
    (["pdh", "fram", "set", "port=1", "mode=1"], "did you mean 'pdh frame set'"),
    (["pdh", "frame"], "next can be: set, get"),
    (["nonsense"], "no command 'nonsense'"),
    ([""], "no command ''"),
    (["pdh", "frame", "set", "port=1", "mod=1"], "did you mean 'mode'"),
    (["pdh", "frame", "set", "port=1"], "mode is missing"),
    (["pdh", "frame", "set", "port=1", "mode"], "expected name=value, not 'mode'"),
    (["pdh", "frame", "set", "port=1", "=1"], "expected name=value"),
    (["pdh", "frame", "set", "port=1", "mode=1", "port=1"], "port: given twice"),
    (["pdh", "frame", "set", "port=", "mode=1"], "port: expected a number, not ''"),
    (["pdh", "frame", "set", "port=-1", "mode=1"], "port: expected a number, not '-1'"),
    (["pdh", "frame", "set", "port=0x", "mode=1"], "port: expected a number, not '0x'"),
    (["pdh", "frame", "set", "port=1x", "mode=1"], "port: expected a number, not '1x'"),
    (["pdh", "frame", "set", "port= 1", "mode=1"], "port: expected a number, not ' 1'"),
    (["pdh", "frame", "set", "port=4294967296", "mode=1"], "more than 4294967295"),
    (["pdh", "frame", "set", "port=1", "mode=fast"], "mode: expected 1, 2, 3, 4, 5 or 6, not"),
    (["pdh", "frame", "set", "port=1", "mode=7"], "expected 1, 2, 3, 4, 5 or 6, not '7'.*--force"),
    (["pwe", "params", "set", "pwId=1", "pweType=0"], "pweType: expected tdm-1, tdm-2, .*, not '0'"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"psnType":6}'], "expected 1, 2, 3, 4 or 5, not '6'"),
    (["sim", "alarm", "get", "type=pw", "number=1"],
     "expected system, pdh, pwe, ima-group or ima-link, not 'pw'; did you mean 'pwe'"),
    (["exit", "now"], "exit: expected nothing behind it"),
    (["pdh", "frame", "get", "port=1", "mode=1"], "no argument 'mode'"),
    (["pdh", "frame", "get", "--port=1"], "no option '--port=1'"),
    (["pdh", "cable_len", "set", "port=1", "length=65536"], "from 0 to 65535, not 65536"),
    (["pdh", "params", "set", "port=1", "cableLength=65536"], "from 0 to 65535, not 65536"),
    (["sys", "tpid", "set", "tpid=0x10000"], "from 0 to 65535"),
    (["ima", "alarms", "set", "alarmBits=0x400"], "made of the bits 0x7f03ff, not 0x400"),
    (["ima", "alarms", "set", "alarmBits=0x800001"], "not 0x800001"),
    (["sys", "src_mac", "set", "mac=02:00:00:00:00"], "mac: expected a MAC address"),
    (["sys", "src_mac", "set", "mac=02:00:00:00:00:0g"], "mac: expected a MAC address"),
    (["sys", "src_mac", "set", "mac=02:00:00:00:00:-1"], "mac: expected a MAC address"),
    (["misc", "dbg", "init", "info=" + 129 * "x"], "129 characters, at most 128"),
    (["misc", "upgrade", "init", "mode=1", "fileName=" + 65 * "x"], "65 characters, at most 64"),
    (["misc", "upgrade", "init", "mode=1", "fileName=" + 129 * "x"], "129 characters, at most"),
    (["pwe", "params", "set", "pwId=1"], "params is missing"),
    (["pwe", "params", "set", "pwId=1", "params=7"], "params: a record"),
    (["pwe", "params", "set", "pwId=1", "adminStatus=1", "vlan.mode=untagged", "psn.psnType=2",
      "pweType=tdm-1", "t1.payloadSize=512"], "dstMac, t1.circuit and t1.rtp.mode must be given"),
    (["pwe", "params", "set", "pwId=1", "pweAction=create", 'params={"pweType":"atm-3","psn":{}}',
      "a.circuit=1"], "adminStatus, dstMac, vlan.mode, psn.psnType, a.atmMode, a.atmType, "
     "a.atmClpMode, a.atmParam1 and a.atmParam2 must"),
    (["pwe", "psn", "set", "pwId=1", "psnType=3"], ": udpMode must"),
    (["pdh", "params", "set", "port=3", "adminStatus=1", "frameMode=2", "lineCode=1", "syncMode=2",
      "syncParam=0", "niuMode=1", "auxParam=0"], ": cableLength must"),
    (["ima", "set", "groupId=1", "imaAction=modify", "groupParam1=1"], ": groupParam2 must"),
    (["pwe", "params", "set", "pwId=1", "vlan=7"], "vlan: a record"),
    (["pwe", "params", "set", "pwId=1", "vlan.modus=7"], "no field 'modus'; did you mean 'mode'"),
    (["pwe", "params", "set", "pwId=1", "pweType.x=7"], "pweType has no fields"),
    (["pwe", "params", "set", "pwId=1", "psn.param1Valid=1"], "no field 'param1Valid'"),
    (["pwe", "params", "set", "pwId=1", "pweType=tdm-1", "t2.circuit=3"],
     "t2: only with pweType=tdm-2, not with tdm-1"),
    (["pwe", "params", "set", "pwId=1", "a.circuit=3", "pweType=tdm-1"],
     "a: only with pweType=atm-3 or atm-4, not with tdm-1"),
    (["pwe", "params", "set", "pwId=1", "t1.circuit=3"], "t1: only with pweType=tdm-1, not with 0"),
    (["pwe", "vlan", "set", "pwId=1", "mode=untagged", "vlanId=3"],
     "vlanId: only with mode=2, double or 4, not with untagged"),
    (["pwe", "vlan", "set", "pwId=1", "mode=2", "priority=300"], "from 0 to 255, not 300"),
    (["pwe", "psn", "set", "pwId=1", "psnType=1", "param3=256"], "from 0 to 255, not 256"),
    (["pwe", "psn", "set", "pwId=1", "psnType=1", "udpMode=1"], "udpMode: only with psnType=3"),
    (["pwe", "psn", "set", "pwId=1", "psn={"], "psn: not a JSON document"),
    (["pwe", "psn", "set", "pwId=1", "psn={}}"], "psn: not a JSON document"),
    (["pwe", "psn", "set", "pwId=1", "psn=@/nowhere"], "cannot read /nowhere: No such file"),
    (["pwe", "psn", "set", "pwId=1", "psn=@/"], "cannot read /: Is a directory"),
    (["pwe", "psn", "set", "pwId=1", "psn=@/dev/zero"], "longer than any record"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"psnTyp":1}'], "did you mean 'psnType'"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"psnType":-1}'], "psnType: expected 1, 2, 3, 4 or 5"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"psnType":1.5}'], "not '1.5'"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"psnType":null}'], "not 'null'"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"psnType":[1]}'], r"not '\[1\]'"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"psnType":4294967296}'], "more than 4294967295"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"psnType":1,"psnType":2}'], "'psnType' is there twice"),
    (["pwe", "psn", "set", "pwId=1", "psn=" + 20 * '{"a":' + "1" + 20 * "}"], "nested too deep"),
    (["pwe", "psn", "set", "pwId=1", 'psn={"operation":"x","rc":1}'], "holds no record"),
    (["list", "pwe", "nonsense"], "nothing under 'pwe nonsense'"),
    (["watch", "everything"], "expected alarms, pm, active, .*, count=N or for=SECONDS"),
    (["watch", "kind=pw"], "kind: expected system, .*, not 'pw'; did you mean 'pwe'"),
    (["watch", "object=3-x"], "object: expected a number"),
    (["wait"], "no command ''"),
    (["wait", "pdh", "admin", "get", "port=1"], "expected a field=value that is waited for"),
    (["wait", "pdh", "admin", "get", "port=1", "statu=1"], "did you mean 'status'"),
    (["wait", "pwe", "psn", "get", "pwId=1", "psnType=x"], "psnType: expected 1, 2, 3, 4 or 5"),
    (["wait", "pwe", "psn", "get", "psnType=1"], "pwId is missing"),
    (["watch", "--count"], "count: expected a value"),
    (["watch", "count=0"], "from 1, not 0"),
    (["follow"], "expected upgrade"),
    (["metrics", "all"], "not 'all'"),
    (["metrics", "groups=0"], "groups: expected a number from 1"),
    (["metrics", "families=alarms,pwe_on"], "no family 'pwe_on'; did you mean 'pwe_om'"),
    (["metrics", "--families", ""], "families: expected names"),
    (["metrics", "form=xml"], "form: expected text or openmetrics"),
    (["sim", "fault", "add", "function=GetObjectCoun"], "did you mean 'GetObjectCount'"),
    (["sim", "fault", "add", "function=config_get_pdh"], "did you mean 'config_get_pdh_params'"),
    (["sim", "fault", "add", "effect=lsot"], "did you mean 'lost'"),
    (["sim", "fault", "add", "function=config_add_pw", "where=pwid=3"], "did you mean 'pwId'"),
    (["sim", "fault", "add", "where=intervall=3"], "did you mean 'interval'"),
    (["sim", "fault", "add", "where=port"], "name=value, with commas"),
    (["sim", "fault", "add", "effect=drop", "where=stat=3"], "did you mean 'status'"),
    (["sim", "fault", "add", "operation=pwe params st"], "did you mean 'pwe params set'"),
    (["--device"], "--device"),
    (["--jsn", "list"], "did you mean '--json'"),
    (["--script", "/nowhere"], "cannot read /nowhere: No such file"),
    (["config", "apply", "/"], "cannot read /: Is a directory"),
    (["sys", "tpid", "get", "--timeout", "nan"], "from 0.001 to 1000000, not 'nan'"),
    (["--script", "/"], "Is a directory"),
    (["--script", "-", "list"], "either a command or --script"),
]


# What every error says in JSON.
ERROR = ["operation", "rc", "message", "error", "file", "line"]


class Input(Device):
    def test_what_is_wrong_is_told_in_words_and_in_json_and_nothing_is_called(self):
        self.document("sys", "tpid", "get")
        before = self.calls()
        for words, message in BAD_INPUT:
            with self.subTest(words=[word[:60] for word in words]):
                done = self.vexoctl(*words)
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertRegex(done.stderr, message)
                self.assertLess(len(done.stderr), 400)
                error = self.document("--json", *words, status=2)
                self.assertEqual(list(error), ERROR)
                self.assertEqual((error["rc"], error["file"], error["line"]), 3 * (None,))
                self.assertEqual(error["message"], error["error"])
                named = f"{error['operation']}: " if error["operation"] else ""
                self.assertEqual(done.stderr, f"vexoctl: {named}{error['error']}\n")
        self.assertEqual(self.calls(), before)

    def test_the_alarm_bits_that_can_be_set_are_those_that_the_platform_is_told_to_change(self):
        for setter in ("sys alarm set", "pdh alarms set", "pwe alarms set", "ima alarms set"):
            row = self.manual(*setter.split())["arguments"][0]
            before = self.calls()
            self.document(*setter.split(), f"{row['name']}={row['limit']}")
            masks = [call["arguments"]["mask"] for call in self.document("sim", "journal")["calls"]
                     if call["number"] > before and call["function"] == "alarm_set_status_bits"]
            self.assertEqual(functools.reduce(operator.or_, masks), row["limit"], setter)

    def test_a_document_of_any_depth_and_length_is_refused(self):
        for text in ("[" * 900000, '{"a":' * 200000, '"' + 900000 * "x" + '"'):
            done = self.vexoctl("pwe", "psn", "set", "pwId=1", "psn=@-", text=text)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertLess(len(done.stderr), 400)

    def test_what_the_operation_refuses_is_told_with_its_text(self):
        done = self.vexoctl("pdh", "frame", "set", "port=99", "mode=1")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, r"^vexoctl: pdh frame set: failure \d+: .*99")
        document = self.document("pdh", "frame", "set", "port=99", "mode=1", status=1)
        self.assertEqual(list(document), ERROR)
        self.assertEqual(document["operation"], "pdh frame set")
        self.assertGreater(document["rc"], 0)
        self.assertIn("99", document["message"])

    def test_a_document_that_is_none_is_refused_without_words_of_a_programmer(self):
        done = self.vexoctl("pwe", "psn", "set", "pwId=1", "psn={]")
        self.assertIn("line 1, column 2", done.stderr)
        self.assertNotIn("[", done.stderr.split("'{]")[0])

    def test_a_number_that_is_no_member_is_sent_by_force(self):
        for number, words in enumerate((["mode=7", "--force"], ["--force", "mode=8"])):
            document = self.document("pdh", "frame", "set", "port=1", *words, status=1)
            self.assertIn("frame mode", document["message"])
        self.document("pdh", "frame", "set", "port=1", "mode=0x6")
        self.document("pwe", "psn", "set", "pwId=1", 'psn={"psnType":6}', "--force", status=1)

    def test_standard_input_that_cannot_be_read_is_an_error(self):
        for source, reason in (("/", "Is a directory"), ("/proc/self/mem", "Input/output error"),
                               ("&-", "Bad file descriptor")):
            for words in ("", "--script -", "pwe psn set pwId=1 psn=@-"):
                done = subprocess.run(["sh", "-c", f'"$0" {words} <{source}', VEXOCTL],
                                      env=self.environment, capture_output=True, text=True,
                                      timeout=60, check=False)
                self.assertEqual((done.returncode, done.stdout), (2, ""), (words, source))
                self.assertIn(f"cannot read -: {reason}", done.stderr)
        self.assertEqual(self.vexoctl(text="").returncode, 0)

    def test_texts_of_any_bytes_are_printed_as_valid_json_and_do_no_harm_to_a_terminal(self):
        self.vexoctl("misc", "dbg", "init", "info=\x1b[31m")
        self.assertEqual(self.document("misc", "dbg_info", "get")["debug"]["info"], "\x1b[31m")
        self.assertIn(r"info: \x1b[31m", self.vexoctl("misc", "dbg_info", "get").stdout)
        subprocess.run([VEXOCTL, "misc", "dbg", "init", b"info=\xff\xfe" + 126 * b"x"],
                       env=self.environment, check=True)
        info = self.document("misc", "dbg_info", "get")["debug"]["info"]
        self.assertEqual(info, 2 * "\ufffd" + 126 * "x")
        self.assertIn("\ufffd", self.vexoctl("misc", "dbg_info", "get").stdout)


TDM = ("pweAction=create adminStatus=1 dstMac=02:00:5e:00:00:01 vlan.mode=double"
       " vlan.outerVlanId=100 vlan.outerPriority=3 vlan.vlanId=7 vlan.priority=0").split()
PSEUDOWIRES = {
    "tdm-1": [*TDM, "psn.psnType=1", "psn.param1=9", "psn.param3=8", "psn.param4=255",
              "t1.circuit=3", "t1.payloadSize=256", "t1.rtp.mode=on", "t1.rtp.payloadType=96",
              "t1.rtp.ssrc=0xffffffff"],
    "tdm-2": [*TDM, "psn.psnType=3", "psn.udpMode=2", "psn.param2=70000", "t2.circuit=4",
              "t2.serviceOption=0", "t2.jitterBufferSize=4000", "t2.serviceFlag=1",
              "t2.rtp.mode=on"],
    "atm-3": [*TDM, "psn.psnType=2", "psn.param1=0", "a.circuit=1", "a.serviceFlag=2",
              "a.atmMode=1", "a.atmType=2", "a.atmFlag1=1", "a.atmFlag2=2", "a.atmClpMode=4",
              "a.atmParam1=11", "a.atmParam2=12"],
}


class Records(Device):
    def test_what_a_pseudowire_is_printed_as_makes_the_same_pseudowire(self):
        for number, (kind, words) in enumerate(PSEUDOWIRES.items(), 1):
            target = f"pwId={number}"
            self.document("pwe", "params", "set", target, f"pweType={kind}", *words)
            printed = self.document("pwe", "params", "get", target)
            for word in words[1:]:
                name, given = word.split("=")
                value = printed["info"]
                for step in name.split("."):
                    value = value[step]
                if isinstance(value, int):
                    given = int(given, 0)
                self.assertEqual(value, given, name)
            document = json.dumps(printed)
            # Given back to itself, and to one that is made from it; as a file, too.
            self.document("pwe", "params", "set", target, "params=@-", text=document)
            self.assertEqual(self.document("pwe", "params", "get", target), printed)
            (self.folder / "printed").write_text(document)
            self.document("pwe", "params", "set", f"pwId={number + 10}", "pweAction=create",
                          f"params=@{self.folder}/printed")
            self.assertEqual(self.document("pwe", "params", "get", f"pwId={number + 10}"), printed)
            # What needs not be given stays.
            needed = {field["name"] for row in self.manual("pwe", "params", "set")["arguments"]
                      for field in row.get("fields", []) if field["applied"] == "applied always"}
            kept = [word for word in words if word.split("=")[0] in needed]
            self.assertLess(len(kept), len(words) - 4)
            self.document("pwe", "params", "set", target, f"pweType={kind}", *kept)
            self.assertEqual(self.document("pwe", "params", "get", target), printed)

    def check_fields(self, setter, getter, prefix="", base=(), left_out=(), between=()):
        """Sets each field of the setter's record by itself and reads it back."""
        rows = self.manual(*setter.split())["arguments"]
        fields = [field for row in rows for field in row.get("fields", [])
                  if field["name"].startswith(prefix) and field["name"] not in left_out]
        self.assertTrue(fields, setter)
        script, expected = [], []
        for field in fields:
            words = dict(word.split("=") for word in base)
            condition = field.get("condition", "")
            if condition:
                name, values = condition.split("=")
                words.setdefault(name, re.split(", | or ", values)[0])
            written, read = expected_value(field)
            words[field["name"]] = f"'{written}'"
            script += [*between, f"{setter} " + " ".join("=".join(word) for word in words.items()),
                       getter]
            expected.append((field["name"], read))
        documents = self.documents(script)[len(between) + 1::len(between) + 2]
        for (name, value), document in zip(expected, documents, strict=True):
            found = [element for element in document.values() if isinstance(element, dict)]
            found = found or document["xc"][-1:]
            for step in name.split("."):
                found = [element[step] for element in found if step in element]
            self.assertEqual(found, [value], (setter, name))

    def test_every_field_that_is_set_by_itself_is_read_back(self):
        for number, (kind, words) in enumerate(PSEUDOWIRES.items(), 1):
            self.document("pwe", "params", "set", f"pwId={number}", f"pweType={kind}", *words)
        base = ["adminStatus=1", "dstMac=02:00:5e:00:00:01", "vlan.mode=double"]
        common = {"pweType", "pweAction"}
        names = {field["name"] for row in self.manual("pwe", "params", "set")["arguments"]
                 for field in row.get("fields", [])}
        variants = {name for name in names if re.match(r"(t1|t2|a)\.", name)}
        atm = [f"a.{name}=1" for name in ("atmMode", "atmType", "atmClpMode", "atmParam1",
                                          "atmParam2")]
        for number, kind, own, given in ((1, "tdm-1", "t1.", ["t1.rtp.mode=on"]),
                                         (2, "tdm-2", "t2.", ["t2.rtp.mode=on"]),
                                         (3, "atm-3", "a.", atm)):
            others = {name for name in variants if not name.startswith(own)}
            two_state = {f"{own}{name}" for name in ("serviceFlag", "atmFlag1", "atmFlag2")}
            self.check_fields("pwe params set", f"pwe params get pwId={number}",
                              base=[f"pwId={number}", f"pweType={kind}", *base, *given,
                                    f"{own}circuit=3", "psn.psnType=2"],
                              left_out=common | others | two_state |
                              {f"{own}rtp.mode", "psn.param3", "psn.param4", "psn.udpMode"})
        for name, value in (("serviceFlag", 1), ("serviceFlag", 2)):
            self.document("pwe", "params", "set", "pwId=2", "pweType=tdm-2", *base,
                          "psn.psnType=2", "t2.circuit=4", "t2.rtp.mode=on", f"t2.{name}={value}")
            read = self.document("pwe", "params", "get", "pwId=2")
            self.assertEqual(read["info"]["t2"][name], value)
        self.check_fields("pwe vlan set", "pwe vlan get pwId=1", base=["pwId=1", "mode=double"])
        self.check_fields("pwe psn set", "pwe psn get pwId=1",
                          base=["pwId=1", "psnType=1"], left_out={"udpMode"})
        self.check_fields("pwe psn set", "pwe psn get pwId=1", prefix="udpMode", base=["pwId=1"])
        self.check_fields("pwe rtp set", "pwe rtp get pwId=1", base=["pwId=1", "mode=on"],
                          left_out={"mode"})
        self.check_fields("pwe atmop_xc set", "pwe atmop_xc get pwId=3",
                          base=["pwId=3", "xcType=1", "xcId1=1", "xcId2=2", "xcId3=3", "xcId4=4"])
        self.check_fields("pdh params set", "pdh params get port=2",
                          base=["port=2", "adminStatus=2", "frameMode=2", "lineCode=2",
                                "cableLength=2", "syncMode=2", "syncParam=2", "niuMode=2",
                                "auxParam=2"])
        self.check_fields("pdh sync set", "pdh sync get port=2",
                          base=["port=2", "mode=2", "param=2"])
        self.document("ima", "set", "groupId=1", "imaAction=create", "groupParam1=1",
                      "groupParam2=1")
        self.check_fields("ima set", "ima get groupId=1", left_out={"imaAction"},
                          base=["groupId=1", "imaAction=modify", "groupParam1=1", "groupParam2=1"])
        self.check_fields("misc upgrade init", "misc upgrade_info get", left_out={"state"},
                          base=["mode=2", "fileName=x"],
                          between=["sim clock advance seconds=60"])


class Daily(Device):
    """What is done by hand every day."""

    def setUp(self):
        super().setUp()
        for number, (kind, words) in enumerate(PSEUDOWIRES.items(), 17):
            self.document("pwe", "params", "set", f"pwId={number}", f"pweType={kind}", *words)
        self.document("ima", "set", "groupId=1", "imaAction=create", "groupParam1=1",
                      "groupParam2=2", "groupParam3=3")

    def lines(self, *words, status=0):
        done = self.vexoctl(*words)
        self.assertEqual(done.returncode, status, done)
        return done.stdout.splitlines()

    def test_one_field_of_whatever_is_read_is_changed_and_the_others_stay(self):
        objects = {"port": "port=3", "pwId": "pwId=18", "groupId": "groupId=1"}
        changed = 0
        for page in self.pages().values():
            name, rows = page["operation"], page["arguments"]
            getter = name.removesuffix("set") + "get"
            # Scalars that can't be told from the object, and what is no setting.
            if not name.endswith(" set") or "alarm" in name or name.split()[1] in ("tod", "atmop_xc"):
                continue
            words = [objects[row["name"]] for row in rows if row["name"] in objects]
            records = [row for row in rows if "fields" in row]
            fields = [field for row in records or rows for field in row.get("fields", [row])]
            if not self.document("list", *name.split()[:2])["operations"].count(getter):
                continue
            if name == "pwe atm_force_ais set":
                words = ["pwId=19"]
            before = self.document(*getter.split(), *words)
            flat = self.flat(before)
            for field in fields:
                if field["name"] in objects or field["name"] not in flat:
                    continue
                written, read = expected_value(field)
                if field["name"] in ("tpid", "force"):
                    written = read = {"tpid": 0x9100, "force": 1}[field["name"]]
                if re.search(r"^pwe|psnType$|\.mode$", field["name"]) or (records and
                                                                         field["name"] == "mode"):
                    written = read = flat[field["name"]]
                if field["name"].endswith(("serviceFlag", "atmFlag1", "atmFlag2", "param2")):
                    written = read = 1
                done = self.vexoctl(*name.split(), *words, "--change", f"{field['name']}={written}")
                self.assertEqual(done.returncode, 0, (name, field["name"], done.stderr))
                flat[field["name"]] = read
                now = self.flat(self.document(*getter.split(), *words))
                for own in ("operState", "current", "aux"):  # which change by themselves
                    now.pop(own, None), flat.pop(own, None)
                self.assertEqual(now, flat, (name, field["name"]))
                changed += 1
        self.assertGreater(changed, 60)

    def flat(self, document):
        """The fields of what a getter printed, by the names that the setter has for them."""
        found = {}

        def add(name, value):
            if isinstance(value, dict):
                for inner, element in value.items():
                    add(f"{name}.{inner}" if name else inner, element)
            else:
                found[name] = value
        for name, value in document.items():
            if name not in ("operation", "rc", "message"):
                add("" if isinstance(value, dict) else name, value)
        return found

    def test_a_change_drops_what_the_record_no_longer_has_and_misses_what_it_then_needs(self):
        self.document("pwe", "vlan", "set", "pwId=17", "--change", "mode=untagged")
        self.assertEqual(self.document("pwe", "vlan", "get", "pwId=17")["vlan"], {"mode": "untagged"})
        self.assertIn("udpMode must be given", self.vexoctl(
            "pwe", "psn", "set", "pwId=17", "--change", "psnType=3").stderr)
        self.document("pwe", "psn", "set", "pwId=17", "--change", "psnType=3", "--change=udpMode=2")
        self.assertEqual(self.document("pwe", "psn", "get", "pwId=17")["psn"]["udpMode"], 2)
        # A pseudowire that isn't there is not made, nor is anything deleted.
        before = self.document("pwe", "params", "get", "pwId=all")
        done = self.vexoctl("pwe", "params", "set", "pwId=99,17", "--change", "adminStatus=1")
        self.assertEqual((done.returncode, done.stdout), (1, "pwId=17: done\n"))
        self.assertRegex(done.stderr, "pwId=99: .*not provisioned\n.*: 1 of 2 failed\n$")
        self.assertEqual(self.document("pwe", "params", "get", "pwId=all"), before)
        self.document("sim", "fault", "add", "function=config_get_pw", "value=8", "times=1")
        error = self.document("pwe", "vlan", "set", "pwId=17", "--change", "mode=2", status=1)
        self.assertEqual(error["operation"], "pwe vlan get")
        self.assertIn("nothing reads", self.document("pwe", "pm", "clear", "pwId=17", "--change",
                                                     "x=1", status=2)["error"])

    def test_what_a_getter_tells_is_given_back_whole_in_part_and_also_without_a_record(self):
        whole = self.document("pwe", "params", "get", "pwId=18")
        for given in (whole, whole["info"], {"info": whole["info"]}):
            for word in ("params=@-", "@-"):
                self.document("pwe", "params", "set", "pwId=18", "--change", "vlan.vlanId=77")
                self.document("pwe", "params", "set", "pwId=18", word, text=json.dumps(given))
                self.assertEqual(self.document("pwe", "params", "get", "pwId=18"), whole)
        lops = self.document("sys", "lops", "get")
        self.document("sys", "lops", "set", "first=1", "second=2")
        self.document("sys", "lops", "set", "@-", text=json.dumps(lops))
        self.assertEqual(self.document("sys", "lops", "get"), lops)
        for word in ('tpid={"tpid":37120}', "tpid=@-"):
            self.document("sys", "tpid", "set", word, text="37120")
            self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 37120)
        for given, reason in (({"vlann": {"mode": 1}}, "no field 'vlann'"), ({}, "must be given"), (7, "expected an object")):
            error = self.document("pwe", "params", "set", "pwId=18", "params=@-", status=2,
                                  text=json.dumps(given))["error"]
            self.assertIn(reason, error)
        self.assertIn("nothing that this takes", self.document(
            "sys", "tpid", "set", "@-", text='{"tpit":1}', status=2)["error"])

    def test_lists_of_objects_are_a_table_a_line_each_or_a_document_and_failures_are_counted(self):
        self.assertEqual(self.lines("pwe", "admin", "set", "pwId=17-18", "status=2"),
                         ["pwId=17: done", "pwId=18: done"])
        self.assertEqual([line.split() for line in self.lines(
            "pwe", "params", "get", "pwId=all", "--fields", "adminStatus,pweType,psn.param3")],
            [["pwId", "adminStatus", "pweType", "psn.param3"], ["17", "2", "tdm-1", "8"],
             ["18", "2", "tdm-2", "0"], ["19", "1", "atm-3", "-"]])
        self.assertEqual(len(self.lines("pdh", "params", "get", "port=all")), 17)
        self.assertEqual(self.lines("pdh", "admin", "get", "port=3,5-6", "--values"),
                         ["3\t2", "5\t2", "6\t2"])
        done = self.vexoctl("pwe", "admin", "get", "pwId=16-18,1")
        self.assertEqual((done.returncode, len(done.stdout.splitlines())), (1, 3))
        self.assertRegex(done.stderr, "pwId=16: .*\n.*pwId=1: .*\n.*: 2 of 4 failed\n$")
        document = self.document("pwe", "admin", "get", "pwId=17,20", status=1)
        self.assertEqual([row["rc"] == 0 for row in document["objects"]], [True, False])
        self.assertEqual((document["failed"], document["rc"] > 0), (1, True))
        self.assertEqual(document["objects"][0]["status"], 2)
        # Where the device doesn't tell which there are, none is not the answer.
        self.document("sim", "fault", "add", "function=config_get_pw", "value=8")
        self.assertEqual(self.document("pwe", "admin", "set", "pwId=all", "status=1", status=1)
                         ["operation"], "pwe params get")
        self.assertRegex(self.vexoctl("pwe", "list", "pwes=19").stderr,
                         "^vexoctl: pwe list: pwe 1 to 19: failure .*\n$")
        for port in (1, 2, 3, 7, 10, 11):
            self.document("sim", "fault", "add", "function=config_get_pdh_params", f"object={port}",
                          "value=8")
        self.assertRegex(self.vexoctl("config", "save", "--state").stderr,
                         "config save: pdh 1 to 3, 7, 10 to 11: failure .*\n.*: pwe 1 to 1024: failure .*\n$")
        self.document("sim", "fault", "clear")
        # A document is read once for all, and nothing is called where one word is wrong.
        vlan = json.dumps(self.document("pwe", "vlan", "get", "pwId=17"))
        self.document("pwe", "vlan", "set", "pwId=18-19", "vlan=@-", "--change=vlanId=5", text=vlan)
        self.assertEqual(self.lines("pwe", "vlan", "get", "pwId=all", "--fields=vlanId", "--values"),
                         ["17\t7", "18\t5", "19\t5"])
        before = self.calls()
        for words, reason in (("pwId=5-3", "ends before it begins"), ("pwId=1-99999999", "more than"),
                              ("pwId=1-2x", "expected a number"), ("pwId=17,18 status=9", "status:"),
                              ("pwId=17 --fields=x", "no field 'x'")):
            operation = "get" if "fields" in words else "set"
            error = self.document("pwe", "admin", operation, *words.split(), status=2)["error"]
            self.assertIn(reason, error)
        self.assertEqual(self.calls(), before)
        self.assertEqual(self.document("ima", "lnk", "add", "groupId=1", "linkId=1-3")["failed"], 0)
        self.assertEqual(self.lines("ima", "lnk", "get", "groupId=all", "--fields=linkIds", "--values"),
                         ["1\t1,2,3"])

    def test_fields_are_chosen_and_ordered_and_values_stand_alone(self):
        words = ["pwe", "params", "get", "pwId=17"]
        self.assertEqual(self.lines(*words, "--fields", "vlan.vlanId,adminStatus"),
                         ["vlan.vlanId: 7", "adminStatus: 1"])
        self.assertEqual(self.lines(*words, "--fields=info.vlan.vlanId,psn.udpMode", "--values"),
                         ["7\t-"])
        self.assertEqual(list(self.document(*words, "--fields", "pweType,vlan").items())[3:],
                         [("pweType", "tdm-1"), ("vlan", self.document(*words)["info"]["vlan"])])
        self.assertEqual(self.lines("pwe", "pm", "get", "pwId=17", "pmType=1", "--fields",
                                    "generic.counters.0", "--values"), ["0"])
        self.assertIn("did you mean 'adminStatus'",
                      self.vexoctl(*words, "--fields=adminStatu").stderr)
        # What getters tell together is chosen in lists, too; elsewhere there is nothing to choose.
        self.assertEqual(self.lines("pwe", "list", "--fields=force,vlan.vlanId", "--values"),
                         ["17\t0\t7", "18\t0\t7", "19\t0\t7"])
        self.assertEqual([line.split() for line in self.lines("ima", "list", "--fields=linkIds,groupParam3")],
                         [["groupId", "linkIds", "groupParam3"], ["1", "3"]])
        self.assertEqual(self.document("pwe", "list", "--fields=pweType")[0],
                         {"pwId": 17, "pweType": "tdm-1"})
        self.assertIn("did you mean 'pweType'", self.vexoctl("pwe", "list", "--fields=pwType").stderr)
        for command in ("pwe list --change force=1", "config save --fields=pwe", "metrics --values"):
            self.assertIn("of no use", self.vexoctl(*command.split()).stderr)
        self.assertRegex(self.lines("pdh", "params", "get", "port=1-2", "--fields=cableLength")[0],
                         r"^port  cableLength \[the platform's unit\]$")

    def test_addresses_are_dotted_where_their_byte_order_is_known(self):
        self.document("sys", "src_ip", "set", "address=192.0.2.7")
        self.assertEqual(self.document("sys", "src_ip", "get")["address"], 0xC0000207)
        self.assertEqual(self.lines("sys", "src_ip", "get"), ["address: 192.0.2.7"])
        self.document("sys", "src_ip", "set", "address=10.0.0.1", "--ip-order=network")
        self.assertEqual(self.lines("sys", "src_ip", "get"), ["address: 1.0.0.10"])
        self.assertIn("IPv4 address", self.document("sys", "src_ip", "set", "address=1.2.3",
                                                    status=2)["error"])

    def test_a_call_that_hangs_is_given_up_with_a_status_of_its_own(self):
        self.document("sim", "fault", "add", "effect=hang", "function=config_get_temperature")
        for words in (["sys", "temp", "get"], ["metrics"]):
            done = self.vexoctl("--timeout", "0.2", *words)
            self.assertEqual((done.returncode, done.stdout), (3, ""))
            self.assertEqual(done.stderr, f"vexoctl: {' '.join(words)}: no answer within 0.2 seconds\n")
        done = self.vexoctl("--json", text="sys tpid get\nsys temp get --timeout=0.2\nsys tpid get")
        answers = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual((done.returncode, len(answers)), (3, 2))
        self.assertEqual([answers[1][key] for key in ("operation", "rc", "line")],
                         ["sys temp get", None, 2])
        self.document("sim", "fault", "clear")
        self.assertEqual(self.document("sys", "temp", "get", "--timeout=60")["rc"], 0)

    def test_what_ends_service_is_asked_for_on_a_terminal_only(self):
        def asked(*words, answer=None):
            terminal = Terminal(self, VEXOCTL, *words, columns=200)
            if answer:
                terminal.until("go on? [y/N] ")
                terminal.type(answer)
            shown = terminal.rest()
            return terminal.process.wait(20), "go on?" in shown
        delete = ("pwe", "params", "set", "pwId=17", "pweAction=delete")
        before = self.document("pwe", "params", "get", "pwId=all")
        for words in (("sys", "reset"), delete, ("misc", "upgrade", "init", "mode=1", "fileName=x")):
            self.assertEqual(asked(*words, answer="n\n"), (2, False))
        self.assertEqual(self.document("pwe", "params", "get", "pwId=all"), before)
        self.assertEqual(asked("sys", "tpid", "set", "tpid=0x9100"), (0, False))
        self.assertEqual(asked(*delete, answer="y\n"), (0, False))
        self.assertEqual(asked("pwe", "params", "set", "pwId=18", "pweAction=delete", "--yes"), (0, False))
        script = self.folder / "script"
        script.write_text("pwe params set pwId=19 pweAction=delete")
        self.assertEqual(asked("--script", str(script)), (0, False))
        self.assertEqual(self.document("pwe", "params", "get", "pwId=all")["objects"], [])
        self.document("sys", "reset")

    def test_a_script_that_keeps_going_counts_what_fails(self):
        script = "sys tpid set tpid=0x9100\npdh frame get port=99\nnonsense\nsys tpid get"
        done = self.vexoctl("--keep-going", text=script)
        self.assertEqual((done.returncode, done.stdout), (1, "tpid: 0x9100\n"))
        self.assertRegex(done.stderr, "-:2: pdh frame get.*\n.*-:3: there is.*\n.*2 commands failed\n$")


    def test_a_wait_ends_when_the_getter_tells_the_value_or_the_time_is_over(self):
        wait = self.start("wait", "pwe", "params", "get", "pwId=17", "adminStatus=2",
                          "vlan.vlanId=0x7", "pweType=1", "for=60")
        self.wait_for(lambda: any(call["function"] == "config_get_pw_oper_state" for call in
                                  self.document("sim", "journal", "last=50")["calls"]))
        self.assertIsNone(wait.poll())
        self.document("pwe", "admin", "set", "pwId=17", "status=2")
        self.assertEqual(wait.communicate(timeout=60),
                         ("adminStatus: 2\nvlan.vlanId: 7\npweType: tdm-1\n", ""))
        self.assertEqual(wait.returncode, 0)
        error = self.document("wait", "pdh", "admin", "get", "port=1", "status=1", "for=1", status=4)
        self.assertEqual(error["error"], "not within 1 seconds: status is 2")
        self.document("wait", "pdh", "admin", "get", "port=99", "status=1", status=1)
        self.assertRegex(self.document("wait", "pdh", "params", "get", "port=3", "operstate=1", status=2)
                         ["error"], "'operstate'; did you mean 'operState'.* waited for: adminStatus, ")

    def test_what_the_last_release_had_as_examples_still_succeeds(self):
        examples = SOURCE / "tests/vexoctl/release-1.0.0.txt"
        self.document("sim", "reset")
        done = self.vexoctl("--script", str(examples))
        self.assertEqual((done.returncode, done.stderr), (0, ""))


VALID_PWE = ("pwe params set pwId=17 pweAction=create pweType=tdm-1 adminStatus=1 "
             "dstMac=02:00:5e:00:00:11 vlan.mode=untagged psn.psnType=2 t1.circuit=3 t1.rtp.mode=off")


class Configuration(Device):
    def test_a_device_is_kept_compared_and_led_back_by_files_and_scripts(self):
        file = self.folder / "kept"
        file.touch(mode=0o640)
        self.run_all([VALID_PWE, "ima set groupId=1 imaAction=create groupParam1=1 groupParam2=2",
                      "ima lnk add groupId=1 linkId=5"])
        self.assertEqual(self.vexoctl("config", "save", str(file)).returncode, 0)
        self.assertEqual(file.stat().st_mode & 0o777, 0o640)
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()), ["device", "kept"])
        for standard in ([], ["-"]):
            self.assertEqual(self.vexoctl("config", "save", *standard).stdout, file.read_text())
        self.assertEqual(self.status("config", "diff", str(file)), (0, ""))

        self.run_all(["sys tpid set tpid=0x88a8", "ima set groupId=1 imaAction=delete",
                      "ima set groupId=2 imaAction=create groupParam1=1 groupParam2=2",
                      re.sub("t1.*", "", VALID_PWE).replace("tdm-1", "5").replace("17", "18")])
        different = ("system tpid tpid: - 0x8100 + 0x88a8\npwe 18: + 5\n"
                     "ima 1: - provisioned\nima 2: + provisioned\n")
        self.assertEqual(self.status("config", "diff", str(file), "."), (1, different))
        self.assertEqual([(one["object"], one["field"])
                          for one in self.document("config", "diff", str(file), status=1)],
                         [("system tpid", "tpid"), ("pwe 18", None), ("ima 1", None),
                          ("ima 2", None)])
        script = self.vexoctl("config", "apply", str(file), "--dry-run", "--prune").stdout
        self.assertEqual(self.status("config", "diff", str(file)), (1, different))
        self.assertEqual(self.vexoctl(text=script).returncode, 0)
        self.assertEqual(self.status("config", "diff", str(file)), (0, ""))
        self.assertEqual([one["groupId"] for one in self.document("ima", "list")], [1])
        self.assertIn("groupParam2 2", self.vexoctl("ima", "list").stdout)

        # What is refused is said; a device that tells nothing can't be compared.
        self.run_all(["sim fault add function=config_get_pdh_params object=3 value=128"])
        done = self.vexoctl("config", "diff", str(file))
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        self.assertIn("config diff: pdh 3: failure ", done.stderr)
        self.run_all(["sim reboot milliseconds=60000"])
        self.assertEqual(self.status("config", "diff", str(file)), (2, ""))

    def test_trouble_has_its_own_status_and_nothing_is_half_done(self):
        file = self.folder / "kept"
        for words in (["diff", "nothing"], ["diff"], ["apply"], ["apply", "nothing"],
                      ["save", "a", "b"], ["save", "--stat"], ["save", "/nowhere/kept"]):
            self.assertEqual(self.vexoctl("config", *words).returncode, 2, words)
        self.vexoctl("config", "save", str(file))
        self.run_all(["sys tpid set tpid=0x88a8", "sys lops set first=1 second=2",
                      "sim fault add function=config_system_tpid_set value=128 times=1"])
        failed = self.document("config", "apply", str(file), status=1)
        self.assertEqual((failed["rc"], failed["done"], failed["notUndone"]),
                         (8, ["sys lops set first=10 second=20"], []))
        self.assertEqual(failed["undone"], ["sys lops set first=1 second=2"])
        self.assertEqual(self.document("config", "apply", str(file))["rc"], 0)
        self.run_all(["sim fault add function=config_get_pdh_params object=3 value=128"])
        kept = self.vexoctl("config", "save", str(file))
        self.assertEqual((kept.returncode, json.loads(file.read_text())["pdh"]["3"]), (1, None))
        self.assertIn("pdh 3: failure 8: ", kept.stderr)

    def test_what_is_stopped_is_undone(self):
        file, script = (str(self.folder / name) for name in ("kept", "script"))
        self.vexoctl("config", "save", file)
        self.run_all(["sys lops set first=1 second=2", "sys tpid set tpid=0x88a8",
                      "pdh admin set port=3 status=1"])
        before = self.vexoctl("config", "save").stdout
        Path(script).write_text(self.vexoctl("config", "apply", file, "--dry-run").stdout)

        def hanging(*words):
            self.run_all(["sim fault add function=config_system_tpid_set effect=hang times=1"])
            process = self.start(*words)
            self.run_all(["sim wait hanging calls=1 milliseconds=60000"])
            return process

        def check(process, status, reason, undone=2):
            _, errors = process.communicate(timeout=60)
            self.assertEqual((process.returncode, errors.count("undone by: ")), (status, undone), errors)
            self.assertIn(reason, errors)
            self.assertEqual(self.vexoctl("config", "save").stdout, before)
            self.run_all(["sim fault clear"])

        for words in (["config", "apply", file], ["--atomic", "--script", script]):
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                process = hanging(*words)
                process.send_signal(number)
                self.run_all(["sim fault clear"])  # the call that runs is carried out
                check(process, 5, ": interrupted\n")
            # What hangs has done nothing; it would still do so later.
            check(hanging("--timeout=2", *words), 3, ": no answer within 2 seconds\n", undone=1)
            process = hanging(*words)
            for number in (signal.SIGTERM, signal.SIGINT):
                process.send_signal(number)
            self.assertIn(process.wait(60), (-signal.SIGTERM, -signal.SIGINT))
            self.run_all(["sim fault clear", "sys lops set first=1 second=2"])
        self.assertEqual(self.vexoctl("config", "save").stdout, before)
        # Nothing is undone where that was not wanted; and a script goes on with nothing.
        process = hanging("config", "apply", file, "--keep-going", "--json")
        process.send_signal(signal.SIGTERM)
        self.run_all(["sim fault clear"])
        told = json.loads(process.communicate(timeout=60)[0])
        self.assertEqual((process.returncode, told["rc"], told["undone"]), (5, None, []))
        self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 0x8100)

    def status(self, *words):
        done = self.vexoctl(*words)
        return done.returncode, done.stdout


class Conformance(Device):
    """A device's page of differences, and that it is left as it was."""

    def conform(self, *words, status=0):
        done = self.vexoctl("conform", *words, cwd=self.folder)
        self.assertEqual((done.returncode, done.stderr), (status, ""), done.stdout)
        return done.stdout

    def in_service(self):
        """A device that somebody uses; what it is set to."""
        self.run_all([
            *(f"pdh params set port={port} adminStatus=1 frameMode=6 lineCode=4 cableLength=65535 syncMode=5 "
              "syncParam=4294967295 niuMode=4 auxParam=0" for port in range(1, 17)),
            VALID_PWE.replace("pwId=17", "pwId=7"), "ima set groupId=1 imaAction=create groupParam1=1 groupParam2=128 groupParam3=25",
            "ima lnk add groupId=1 linkId=1", "sys tpid set tpid=0xffff", "sys temp set first=150 second=150",
            "misc dbg init info=conform", "misc upgrade init mode=1 fileName=load.bin",
            "sim clock advance seconds=30", "sim clock stop",
            "sys alarm set bits=1", "sim pm set type=pdh number=3 interval=1 counter=layout0.counters.4 value=9"])
        return self.vexoctl("config", "save", "--state").stdout

    def test_a_device_in_service_does_not_differ_and_stays_as_it_was(self):
        self.in_service()
        before = self.vexoctl("config", "save").stdout
        self.assertIn(" 0 other value, 0 other refusal, ", self.conform())
        self.assertIn(" 0 other value, 0 other refusal, 0 not tried\n", self.conform("--write"))
        self.assertEqual(self.vexoctl("config", "save").stdout, before)
        self.assertEqual(self.document("sys", "alarm", "get")["bits"], 1)
        self.assertFalse((self.folder / "vexoctl-conform.saved").exists())

    def test_a_page_is_kept_and_compared_with_a_later_one(self):
        page = self.folder / "page.json"
        page.write_text(self.conform("--json"))
        kept = json.loads(page.read_text())
        self.assertEqual(kept["device"]["version"]["text"][0], "boot 1.4.2")
        self.assertRegex(kept["date"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertEqual(kept["questions"], sum(kept[name] for name in (
            "same", "other value", "other refusal", "not tried")))
        for words in ([], ["--write"]):
            self.assertIn("\n0 changed since " + kept["date"], self.conform("--against", str(page), *words))
        self.run_all(["sim set name=version.2 value='platform 8'", "sim fault add function=config_get_sys_lpbk value=8"])
        told = self.conform(f"--against={page}", "--junit", str(self.folder / "junit.xml"), status=1)
        self.assertIn("other refusal: misc sys_lbk get: does it answer\n  device:    refused with 4\n"
                      "  simulated: answers\n", told)
        self.assertIn("changed: sys version get: what does it tell\n"
                      "  before:    version.text.2: platform 7.3.1\n  now:       version.text.2: platform 8\n", told)
        suite = xml.etree.ElementTree.parse(self.folder / "junit.xml").getroot()
        self.assertEqual(int(suite.get("tests")), len(suite))
        failures = [case.get("classname") for case in suite if case.find("failure") is not None]
        self.assertEqual(failures, ["sys status get", "sys version get", "misc sys_lbk get"])
        self.assertEqual(len(suite.findall("*/skipped")), int(suite.get("skipped")))

    def test_what_is_interrupted_is_put_back_and_what_was_killed_by_the_file(self):
        before = self.in_service()
        file = self.folder / "vexoctl-conform.saved"

        def hanging():
            """A run that hangs in the midst of its settings."""
            self.run_all(["sim fault add function=config_set_pdh_lpbk effect=hang"])
            process = self.start("conform", "--write", "--saved", str(file))
            self.run_all(["sim wait hanging calls=1 milliseconds=60000"])
            self.assertTrue(file.exists())
            return process

        for number in (signal.SIGINT, signal.SIGTERM):
            process = hanging()
            process.send_signal(number)
            self.run_all(["sim fault clear"])
            page, told = process.communicate(timeout=60)
            self.assertEqual((process.returncode, told), (5, "vexoctl: conform: interrupted\n"))
            self.assertRegex(page, r"not tried: \d+: interrupted\n")
            self.assertEqual(self.vexoctl("config", "save", "--state").stdout, before)
            self.assertFalse(file.exists())
        process = hanging()
        second = self.vexoctl("conform", "--write", "--saved", "second", cwd=self.folder)
        self.assertEqual((second.returncode, second.stdout), (2, ""))
        self.assertIn("another conform --write runs on this device", second.stderr)
        process.kill()
        process.communicate()
        self.run_all(["sim fault clear", "pdh frame set port=16 mode=1", "sys alarm set bits=0"])
        self.assertIn("pwe 1", self.vexoctl("pwe", "list").stdout)
        other = self.vexoctl("--device", str(self.folder / "other"), "sim", "set", "name=version.2", "value=1")
        self.assertEqual(other.returncode, 0)
        refused = self.vexoctl("--device", str(self.folder / "other"), "conform", "--write", cwd=self.folder)
        self.assertEqual(refused.returncode, 2, refused.stderr)
        self.assertIn("another device", refused.stderr)
        done = self.vexoctl("conform", "--write", cwd=self.folder)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertIn("putting back what a run that was ended has left", done.stderr)
        self.assertEqual(self.vexoctl("config", "save", "--state").stdout, before)

    def test_garbage_is_not_put_back_and_what_is_not_known_to_be_is_told(self):
        before = self.in_service()
        for function in ("alarm_get_active_bits", "alarm_get_notification", "config_get_debug_info_params",
                         "config_get_pdh_lpbk", "config_get_pdh_params", "config_get_pwe_if", "config_get_sys_lpbk",
                         "config_get_system_mode", "config_get_system_params"):
            self.run_all([f"sim fault add function={function} effect=garbage value=7"])
            told = self.vexoctl("conform", "--write", cwd=self.folder)
            self.assertEqual(told.returncode, 1, (function, told.stderr))
            self.assertRegex(told.stdout, "could not be|is not told|doesn't tell", function)
            self.run_all(["sim fault clear"])
            self.assertEqual(self.vexoctl("config", "save", "--state").stdout, before, function)
        self.run_all(["sim fault add function=config_get_pdh_oper_state effect=garbage value=7"])
        self.assertNotIn("put back", self.conform("--write", status=1), "no part of what is set")
        self.run_all(["sim fault clear", "sim fault add function=config_get_pdh_lpbk effect=garbage value=1"])
        self.assertIn("other refusal: pdh lpbk get: one that isn't there\n", self.conform(status=1))
        self.run_all(["sim fault clear", "sim fault add function=config_set_pdh_lpbk effect=nothing"])
        self.assertIn("put back: not known: what is read doesn't follow what is set", self.conform("--write", status=1))

    def test_a_simulated_device_is_made_like_that_of_a_page(self):
        page = self.folder / "page.json"
        self.run_all(["sim set name=ports value=4", "sim set name=groups value=2", "sim set name=code.no-object value=2048",
                      "sim set name=refused.pdhFrameMode value=0x60",
                      "sim fault add function=config_get_sys_lpbk value=8"])
        page.write_text(self.conform("--write", "--json", status=1))
        self.environment["KV_SIM_DEVICE"] = str(self.folder / "other")
        self.assertEqual(self.document("sim", "create", "--like", str(page))["notTakenOver"], [])
        self.assertIn("\n0 changed since ", self.conform("--write", "--against", str(page)))
        for words, said in (("pdh admin get port=5", "128"), ("ima get groupId=3", "128"), ("pwe admin get pwId=5", "1"),
                            ("pdh frame set port=1 mode=6", "2"), ("misc sys_lbk get", "4")):
            done = self.vexoctl(*words.split())
            self.assertIn(f": failure {said}: ", done.stderr)
        self.run_all(["pdh frame set port=4 mode=4", "sim reset", "pdh frame set port=5 mode=6"])
        done = self.vexoctl("sim", "create", "--like", str(self.folder / "other"))
        self.assertEqual((done.returncode, done.stdout), (2, ""))

    def test_a_report_has_all_that_helps_and_no_addresses(self):
        self.in_service()
        (self.folder / "vexo.trace").write_bytes(b"a recording")

        def report(*words):
            done = self.vexoctl("report", "report.tar", *words, cwd=self.folder)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            with tarfile.open(self.folder / "report.tar") as archive:
                return {Path(member.name).name: archive.extractfile(member).read().decode() for member in archive}
        told = report()
        self.assertEqual(list(told), ["libraries.txt", "device.json", "conform.json", "configuration.json", "log.json",
                                      "recording.trace"])
        self.assertRegex(told["libraries.txt"], r"config_get_pw \S*libkv_config\.so\n")
        self.assertEqual(json.loads(told["conform.json"])["other value"], 0)
        self.assertEqual(json.loads(told["configuration.json"])["pwe"]["7"]["dstMac"], "00:00:00:00:00:00")
        addresses = r"02:00:5e|3221225985"
        self.assertNotRegex(str(told), addresses)
        self.assertRegex(report("--with-addresses")["configuration.json"], addresses)
        page = self.folder / "page.json"
        page.write_text(self.conform("--json"))
        date = json.loads(page.read_text())["date"]
        self.assertEqual(json.loads(report("--page", str(page))["conform.json"])["date"], date)

    def test_a_page_or_file_that_is_none_is_refused(self):
        (self.folder / "vexoctl-conform.saved").write_text("{}")
        for words, said in ((["--against", "vexoctl-conform.saved"], "not a page of conform"),
                            (["--against"], "expected a file behind it"), (["--writ"], "did you mean '--write'"),
                            (["--saved", "x"], "only with --write"), (["--write"], "not what conform --write saves"),
                            (["--write", "--saved", "nowhere/x"], "cannot write nowhere/x"),
                            (["--write", "--saved", 300 * "x"], "File name too long"),
                            (["--junit", "nowhere/x"], "cannot write nowhere/x")):
            done = self.vexoctl("conform", *words, cwd=self.folder)
            self.assertEqual(done.returncode, 2, (words, done.stdout, done.stderr))
            self.assertIn(said, done.stderr)


class Session(Device):
    def test_a_script_stops_at_the_first_failure_and_says_where(self):
        for lines, status, where in (
                (["sys tpid set tpid=0x1111", "", "pdh frame get port=99", "sys tpid set tpid=0x2222"], 1, 3),
                (["sys tpid set tpid=0x1111", "# x", "sys tpid sit tpid=0x2222", "sys tpid set tpid=0x2222"], 2, 3),
                (["sys tpid set \\", "tpid=0x1111", "list \\", "nonsense"], 2, 3),
                (["sys tpid set tpid=0x1111", "sys tpid set 'tpid=0x2222"], 2, 2)):
            script = self.folder / "script"
            script.write_text("\n".join(lines))
            for how in (["--script", str(script)], []):
                text = "\n".join(lines) if not how else None
                done = self.vexoctl(*how, text=text)
                self.assertEqual(done.returncode, status)
                self.assertIn(f"stopped at line {where}", done.stderr)
                file = str(script) if how else "-"
                self.assertRegex(done.stderr, f"^vexoctl: {file}:{where}: ")
                self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 0x1111)
                done = self.vexoctl("--json", *how, text=text)
                answers = [json.loads(line) for line in done.stdout.splitlines()]
                self.assertEqual(["error" in answer or answer["rc"] != 0 for answer in answers],
                                 [False, True])
                self.assertEqual(list(answers[1]), ERROR)
                self.assertEqual((answers[1]["file"], answers[1]["line"]), (file, where))

    def test_an_atomic_script_that_fails_leaves_the_device_as_it_was(self):
        self.documents(["pdh admin set port=2 status=1",
                        "ima set groupId=1 imaAction=create groupParam1=1 groupParam2=1",
                        "ima lnk add groupId=1 linkId=4"])
        before = self.vexoctl("config", "save").stdout
        lines = ["pdh admin set port=1-3 status=1", "sys tpid set tpid=0x2222",
                 "ima lnk delete groupId=1 linkId=4", "ima set groupId=1 imaAction=delete",
                 "pwe params set " + " ".join(["pwId=7", "pweType=tdm-1",
                                               *PSEUDOWIRES["tdm-1"]]),
                 "pwe admin set pwId=7 status=2", "pwe params get pwId=7", "list pwe"]
        for failing, status in (("pwe admin set pwId=7,8 status=1", 1), ("sys tpid set tpid=x", 2),
                                ("wait pdh admin get port=4 status=1 for=1", 4)):
            done = self.vexoctl("--atomic", text="\n".join([*lines, failing]))
            self.assertEqual(done.returncode, status, done.stderr)
            self.assertIn("vexoctl: undone by: sys tpid set tpid=0x8100\n", done.stderr)
            self.assertNotIn("not undone", done.stderr)
            self.assertEqual(self.vexoctl("config", "save").stdout, before)
        done = self.vexoctl("--atomic", "--json", text="\n".join([*lines, "pwe admin get pwId=8"]))
        told = json.loads(done.stdout.splitlines()[-1])
        self.assertEqual((len(told["undone"]) > 4, told["notUndone"]), (True, []))
        script = ["sim fault add function=config_system_tpid_set skip=1 value=128",
                  "sim fault add function=config_get_pdh_params object=9 value=128"]
        self.assertEqual(self.vexoctl(text="\n".join(script)).returncode, 0)
        done = self.vexoctl("--atomic", text="\n".join([*lines, "pdh admin set port=9 status=1"]))
        self.assertIn("could not be undone", done.stderr)
        self.assertIn("vexoctl: not undone: sys tpid set tpid=0x8100: ", done.stderr)
        self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 0x2222)
        self.assertEqual(self.document("ima", "get", "groupId=1")["rc"], 0)

    def test_what_can_not_be_undone_is_refused_before_an_atomic_script_begins(self):
        for line in ("sys reset", "pdh pm clear port=1", "misc tpgm_stat get", "sim reset",
                     "config apply x", "watch count=1", "metrics", "sys tpid sit tpid=1"):
            before = self.calls()
            done = self.vexoctl("--atomic", text=f"sys tpid set tpid=0x2222\n\n{line}")
            self.assertEqual((done.returncode, self.calls()), (2, before), line)
            self.assertIn("vexoctl: -:3: ", done.stderr)
        self.assertEqual(self.vexoctl("--atomic", text="sys tpid set tpid=0x2222").returncode, 0)
        self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 0x2222)
        for words in (["--atomic", "sys", "tpid", "get"], ["--atomic", "--keep-going"]):
            self.assertEqual(self.vexoctl(*words, text="").returncode, 2)

    def test_a_script_may_have_comments_and_line_ends_of_any_kind(self):
        self.documents(['misc dbg init "info=a b" # and a comment\r', "\r", "  # nothing \\",
                        "sys\ttpid set tpid=0x88A8"])
        self.assertEqual(self.document("misc", "dbg_info", "get")["debug"]["info"], "a b")
        shown = self.vexoctl(text="sys tpid get --json\nsys tpid get").stdout.splitlines()
        self.assertEqual((json.loads(shown[0])["tpid"], shown[1:]), (0x88A8, ["tpid: 0x88a8"]))

    def test_quotes_and_backslashes_are_the_shells(self):
        for word in (r"info=it\'s'\ '\"\"#x\"", r"'a\nb'", r'"a\nb"', r'"a\"b\\c\$d\`e\f"', r"a\nb\\",
                     r"''", "x\\\ny", '"x\\\ny"', r"\#x", "\"a 'b' c\"", r"h\ällo", "'x'\\\n\\\ny"):
            word = "info=" + word.removeprefix("info=")
            shells = subprocess.run(["bash", "-c", f"printf %s {word}"], capture_output=True,
                                    text=True, check=True).stdout
            self.documents([f"misc dbg init {word}"])
            read = self.document("misc", "dbg_info", "get")["debug"]["info"]
            self.assertEqual("info=" + read, shells, word)

    def test_help_and_exit_work_wherever_a_command_does(self):
        pages = {"sys tpid set": self.vexoctl("help", "sys", "tpid", "set").stdout,
                 "watch": self.vexoctl("help", "watch").stdout,
                 "": self.vexoctl("help").stdout}
        self.assertEqual(len(set(pages.values())), 3)
        for words, page in pages.items():
            for asked in (f"{words} --help", f"{words} -h", f"{words} ?", f"? {words}",
                          f"help {words}"):
                self.assertEqual(self.vexoctl(text=asked).stdout, page, asked)
                if words or not asked.strip().startswith("-"):
                    self.assertEqual(self.vexoctl(*asked.split()).stdout, page, asked)
        self.assertEqual(self.vexoctl("sys", "tpid", "set", "tpid=1", "-h").stdout,
                         pages["sys tpid set"])
        for word in ("exit", "quit"):
            done = self.vexoctl(text=f"sys tpid get\n{word}\nnonsense")
            self.assertEqual((done.returncode, done.stdout), (0, "tpid: 0x8100\n"))
            self.assertEqual(self.document(word), {"operation": word, "rc": 0, "message": ""})
        done = self.vexoctl(text="sys tpid get --device x")
        self.assertIn("--device can only be given when vexoctl is started", done.stderr)
        self.assertEqual(self.document("sys tpid", "get")["operation"], "sys tpid get")

    def prompt(self, columns=80):
        terminal = Terminal(self, VEXOCTL, columns=columns)
        terminal.until("vexoctl> ")
        return terminal

    def test_the_prompt_completes_and_survives_ctrl_c(self):
        (self.folder / "ein psn").write_text('{"psnType": 6}')
        terminal = self.prompt()
        self.assertEqual(terminal.answer("sys tp\tse\ttp\t0x1234"), "")
        for _ in range(2):
            self.assertIn("tpid: 0x1234", terminal.answer("half a comm\x03sys tpid get"))
        self.assertIn("psnType: expected",
                      terminal.answer(f"pwe psn set pwId=1 psn=@{self.folder}/ei\t"))
        terminal.type("sys tpid \t")
        terminal.until("set  get")
        terminal.until("sys tpid ")
        self.assertIn("tpid: 0x1234", terminal.answer("get"))
        terminal.type("sys tpid get \\\n")
        terminal.until("\n> ")
        self.assertIn('"tpid":4660', terminal.answer("--json"))
        terminal.type("exit\n")
        self.assertEqual(terminal.process.wait(20), 0)

    def test_the_prompt_of_a_job_that_was_stopped_goes_on(self):
        shell = Terminal(self, "bash", "--norc", "-i")
        shell.type(f"{VEXOCTL}\n")
        shell.until("vexoctl> ")
        for _ in range(2):
            # Stopped while it is about to show what was typed.
            shell.type("sys tpid \x1a")
            shell.until("Stopped")
            shell.type("fg\n")
            shell.until("vexoctl> sys tpid ")
        self.assertIn("tpid: 0x8100", shell.answer("\x01\x0bsys tpid get"))

    def test_the_prompt_takes_and_shows_any_letter(self):
        for locale in ("C", "C.UTF-8"):
            self.environment["LC_ALL"] = locale
            terminal = self.prompt()
            terminal.answer("misc dbg init info=häxx\x7f\x7fllo€")
            self.assertEqual(self.document("misc", "dbg_info", "get")["debug"]["info"], "hällo€")
            self.assertIn("info: hällo€", terminal.answer("misc dbg_info get"))
            # A word is completed behind letters of more than one byte.
            self.assertIn("no argument 'ü'", terminal.answer("misc dbg init ü=€ inf\t"))

    def test_the_history_is_kept_as_it_grows(self):
        terminals = [self.prompt(), self.prompt()]
        for terminal, line in ((0, "sys tpid set tpid=0x1234"), (1, "list nonsenseä"),
                               (0, "sys tpid get")):
            terminals[terminal].answer(line)
        for terminal in terminals:
            terminal.process.kill()
        terminal = self.prompt()
        for line in ("sys tpid get", "list nonsenseä", "tpid=0x1234"):
            terminal.type("\x10")
            terminal.until(line)
        history = self.folder / ".vexoctl_history"
        self.assertEqual(history.stat().st_mode & 0o777, 0o600)
        history.write_text(history.read_text().splitlines()[0] + "\n" +
                           "".join(f"line{number}\n" for number in range(1500)))
        self.prompt()
        self.assertEqual(history.read_text().splitlines()[1:],
                         [f"line{number}" for number in range(500, 1500)])


class Notifications(Device):
    def started(self, *words):
        before = self.calls()
        process = self.start(*words)
        end = time.monotonic() + 20
        wanted = {"alarm_subscribe"} if "alarms" in words else {"alarm_subscribe", "pmom_subscribe"}
        while True:
            calls = self.document("sim", "journal", "last=100")["calls"]
            if wanted <= {call["function"] for call in calls if call["number"] > before}:
                return process
            self.assertLess(time.monotonic(), end)
            time.sleep(0.02)

    def test_alarms_and_reports_of_another_process_come_one_line_each_with_names(self):
        self.document("pwe", "params", "set", "pwId=7", "pweType=tdm-1", *PSEUDOWIRES["tdm-1"])
        self.document("ima", "set", "groupId=2", "imaAction=create", "groupParam1=1",
                      "groupParam2=1")
        self.document("ima", "lnk", "add", "groupId=2", "linkId=9")
        self.document("pwe", "params", "set", "pwId=8", "pweType=atm-3", *PSEUDOWIRES["atm-3"])
        self.document("sim", "pm", "set", "type=pwe", "number=8", "interval=1",
                      "counter=atm.counters.0", "value=11")
        # A line more than the watches print, in the same report.
        self.document("ima", "set", "groupId=3", "imaAction=create", "groupParam1=1",
                      "groupParam2=1")
        watches = [self.started("watch", "--count", "9"),
                   self.started("--json", "watch", "count=9")]
        for kind, number in (("system", 1), ("pdh", 3), ("pwe", 7), ("ima-link", 9)):
            self.document("sim", "alarm", "raise", f"type={kind}", f"number={number}", "bits=5")
        # One line is there before the next happens: nothing waits in a buffer.
        self.assertRegex(watches[0].stdout.readline(), "^alarm system 1: active 0x00000005")
        self.document("sim", "alarm", "clear", "type=pdh", "number=3", "bits=4")
        self.document("sim", "pm", "set", "type=pdh", "number=3", "interval=1",
                      "counter=layout0.counters.0", "value=12")
        # The platform chooses the kind of the counters, whatever type the pseudowire reads as.
        self.document("sim", "fault", "add", "function=config_get_pw", "object=8", "effect=garbage")
        self.document("sim", "interval", "end", "interval=1")
        lines = watches[0].stdout.read().splitlines()
        self.assertEqual(watches[0].wait(20), 0)
        self.assertEqual([re.sub(":.*", "", line) for line in lines],
                         ["alarm PDH port 3", "alarm pseudowire 7", "alarm IMA link 9",
                          "alarm PDH port 3", "pm interval 1 PDH",
                          "pm interval 1 pseudowire 7 (generic)",
                          "pm interval 1 pseudowire 8 (atm)", "pm interval 1 IMA group 2"])
        self.assertIn("active 0x00000001, raised 0x00000000, cleared 0x00000004", lines[3])
        self.assertRegex(lines[4], r"16 ports; port 3 \(layout0\) line( \d+)* 12( \d+)* common")
        self.assertTrue(lines[6].endswith(": 11 0 0 0"), lines[6])
        self.assertIn("link 9:", lines[7])
        answers = [json.loads(line) for line in watches[1].stdout]
        self.assertEqual([answer["notification"] for answer in answers], 5 * ["alarm"] + 4 * ["pm"])
        self.assertEqual([answer["objType"] for answer in answers],
                         ["system", "pdh", "pwe", "ima", "pdh", "pdh", "pwe", "pwe", "ima"])
        self.assertEqual(answers[7]["pwe"]["atm"], {"counters": [11, 0, 0, 0], "valid": 1})
        self.assertEqual(answers[1]["object"], {"objId": 3, "status": 5, "delta": 5})
        self.assertEqual([port["port"] for port in answers[5]["pdh"]], list(range(1, 17)))
        self.assertEqual({"layout0", "layout1"},
                         {key for port in answers[5]["pdh"] for key in port if "layout" in key})

    def test_a_watch_shows_what_is_wanted_and_begins_with_what_is_active(self):
        for port, bits in ((3, 5), (4, 1)):
            self.document("sim", "alarm", "raise", "type=pdh", f"number={port}", f"bits={bits}")
        self.document("sim", "clock", "stop")
        self.document("sim", "clock", "set", "seconds=1767225600")
        words = ["watch", "alarms", "active", "kind=system,pdh", "object=1-3", "bits=0x2001"]
        watches = [self.started("--time", "utc", *words, "count=4"),
                   self.started("--json", *words, "count=4"),
                   self.started("--time=local", *words, "count=1")]
        stamp = "2026-01-01T00:00:00.000000"
        begun = [watch.stdout.readline() for watch in watches]
        self.assertEqual(begun[0], f"{stamp}Z active PDH port 3: 0x00000005\n")
        self.assertEqual(json.loads(begun[1]), {"notification": "active", "objType": "pdh",
                                                "objId": 3, "status": 5})
        self.assertRegex(begun[2], r"^20[0-9T:.-]+[+-]\d\d:\d\d active PDH")
        self.document("sim", "alarm", "raise", "type=pdh", "number=3", "bits=0x10")
        for kind, number, change in (("pdh", 4, "clear"), ("pdh", 3, "clear"), ("pdh", 3, "raise"),
                                     ("pwe", 17, "raise"), ("system", 1, "raise")):
            if kind == "pwe":
                self.document("pwe", "params", "set", "pwId=17", "pweType=tdm-1",
                              *PSEUDOWIRES["tdm-1"])
            self.document("sim", "alarm", change, f"type={kind}", f"number={number}", "bits=0x2001")
        lines = watches[0].stdout.read().splitlines()
        self.assertEqual([line.removeprefix(stamp + "Z ").split(":")[0] for line in lines],
                         ["alarm PDH port 3", "alarm PDH port 3", "alarm system 1"])
        self.assertIn("raised 0x00002001 (the log has taken 512 records since it was cleared)", lines[2])
        self.assertEqual(len(watches[1].stdout.readlines()), 3)

    def test_colours_are_for_terminals_that_want_them(self):
        self.document("sim", "alarm", "raise", "type=pdh", "number=3", "bits=5")
        for setting, coloured in (("", True), ("1", False)):
            self.environment["NO_COLOR"] = setting
            shown = Terminal(self, VEXOCTL, "watch", "alarms", "active", "count=1").rest()
            self.assertEqual("\x1b[31m0x00000005\x1b[0m" in shown, coloured, shown)

    def test_a_watch_ends_by_ctrl_c_and_by_time(self):
        process = self.started("watch", "alarms")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(20), 0)
        begin = time.monotonic()
        self.assertEqual(self.vexoctl("watch", "pm", "--for", "1").returncode, 0)
        self.assertGreaterEqual(time.monotonic() - begin, 1)

    def test_events_that_a_watch_lost_are_counted_and_its_status_tells(self):
        for words, output in (["watch", "alarms"], "stderr"), (["--json", "watch", "alarms"], "stdout"):
            process = self.started(*words)
            process.send_signal(signal.SIGSTOP)
            os.waitid(os.P_PID, process.pid, os.WSTOPPED)
            self.document("sim", "alarm", "burst", "type=pdh", "number=3", "status=1", "delta=1",
                          "count=5000")
            [listener] = self.document("sim", "subscriptions")["subscriptions"]
            self.assertEqual(listener, {"process": process.pid, "service": "alarms",
                                        "waiting": 4095, "lost": 905})
            process.send_signal(signal.SIGCONT)
            # Also while nobody reads the events.
            self.assertTrue(select.select([process.stderr], [], [], 20)[0])
            self.assertEqual(process.stderr.readline(), "vexoctl: watch: 905 events were lost\n")
            process.send_signal(signal.SIGINT)
            told = dict(zip(("stdout", "stderr"), process.communicate(timeout=60)))
            self.assertEqual(process.returncode, 1)
            self.assertIn("905 events were lost", told[output][-200:])
            self.assertEqual(told["stdout"].count("objId" if output == "stdout" else "alarm PDH"), 4095)

    @unittest.skipIf("thread" in os.environ.get("SANITIZER", ""), "its thread passes for a service's")
    def test_a_watch_whose_subscription_is_refused_says_so_and_fails(self):
        for function, service in ("alarm_subscribe", "alarms"), ("pmom_subscribe", "PM reports"):
            self.document("sim", "fault", "add", f"function={function}", "value=128")
            done = self.vexoctl("watch", "for=60")
            self.assertEqual((done.returncode, done.stdout), (1, ""))
            self.assertIn(f"refused or ended the subscription to {service}", done.stderr)
            self.document("sim", "fault", "clear")

    def test_an_upgrade_is_followed_through_its_states(self):
        self.assertEqual(self.vexoctl("follow", "upgrade").stdout, "upgrade: state 1\n")
        for failing, states in ((0, [2, 3, 4, 5]), (4, [2, 3, 6])):
            self.document("sim", "clock", "stop")
            self.document("sim", "upgrade", "fail", f"state={failing}")
            self.document("misc", "upgrade", "init", "mode=1", "fileName=load.bin")
            process = self.start("--json", "follow", "upgrade", "--for=30")
            shown = []
            for state in states:
                line = json.loads(process.stdout.readline())
                self.assertEqual(line["fileName"], "load.bin")
                shown.append(line["state"])
                self.document("sim", "clock", "advance", "seconds=5")
            self.assertEqual(process.wait(20), 1 if failing else 0)
            self.assertEqual(shown, states)


class Metrics(Device):
    def families(self, *words, status=0, error=""):
        try:
            from prometheus_client.openmetrics.parser import text_string_to_metric_families
        except ImportError:
            self.fail("the parser is missing: install python3-prometheus-client")
        done = self.vexoctl("metrics", "families=all", "form=openmetrics", *words)
        self.assertEqual(done.returncode, status)
        self.assertRegex(done.stderr, f"^{error}$")
        return {family.name: family for family in text_string_to_metric_families(done.stdout)}

    def value(self, name, **labels):
        wanted = {key: str(value) for key, value in labels.items()}
        samples = [sample for family in self.families().values() for sample in family.samples
                   if sample.name == name and wanted.items() <= sample.labels.items()]
        return samples[0].value if samples else None

    def test_counters_and_alarms_are_openmetrics_to_another_parser(self):
        for number, (kind, words) in enumerate(PSEUDOWIRES.items(), 1):
            self.document("pwe", "params", "set", f"pwId={number}", f"pweType={kind}", *words)
        self.document("ima", "set", "groupId=2", "imaAction=create", "groupParam1=1",
                      "groupParam2=1")
        self.document("ima", "lnk", "add", "groupId=2", "linkId=9")
        self.document("sim", "om", "set", "type=pwe", "number=1", "counter=tdmCounters.1",
                      "value=4000000000")
        self.document("sim", "alarm", "raise", "type=pdh", "number=3", "bits=0x12")
        families = self.families()
        self.assertEqual({name: family.type for name, family in families.items()},
                         {"vexo_alarm": "gauge", "vexo_alarms": "gauge",
                          "vexo_alarm_mask": "gauge",
                          "vexo_system_temperature": "gauge", "vexo_pdh_pm": "gauge",
                          "vexo_pwe_pm": "gauge", "vexo_pwe_om": "counter",
                          "vexo_ima_group_pm": "gauge", "vexo_ima_group_om": "counter",
                          "vexo_ima_link_pm": "gauge", "vexo_ima_link_om": "counter"})
        for family in families.values():
            self.assertTrue(family.documentation, family.name)
            places = [tuple(sample.labels.items()) for sample in family.samples]
            self.assertEqual(len(places), len(set(places)), family.name)
        self.assertEqual(self.value("vexo_pwe_om_total", pw=1, counter=1), 4000000000)
        self.assertEqual(self.value("vexo_ima_link_om_total", group=2, link=9, counter=0), 0)
        self.assertEqual(self.value("vexo_alarms", object="pdh", number=3), 2)
        self.assertEqual(self.value("vexo_alarm_mask", object="pdh", number=3), 0x12)
        self.assertEqual(self.value("vexo_alarm", object="pdh", number=3, bit=4), 1)
        self.assertIsNone(self.value("vexo_alarm", object="pdh", number=3, bit=0))
        self.assertEqual(self.value("vexo_alarms", object="pwe", number=2), 0)
        self.assertIsNone(self.value("vexo_alarms", object="pwe", number=4))

    def test_the_text_form_is_clean_and_a_pseudowire_has_at_most_twelve_values(self):
        for number, (kind, words) in enumerate(PSEUDOWIRES.items(), 1):
            self.document("pwe", "params", "set", f"pwId={number}", f"pweType={kind}", *words)
            self.document("sim", "alarm", "raise", "type=pwe", f"number={number}",
                          "bits=0xffffffff")
        self.document("ima", "set", "groupId=2", "imaAction=create", "groupParam1=1",
                      "groupParam2=1")
        self.document("ima", "lnk", "add", "groupId=2", "linkId=9")
        before = self.calls()
        usual = self.vexoctl("metrics").stdout
        own = re.findall(r'^\w+{(?:object="pwe",number|pw)="3"', usual, re.MULTILINE)
        self.assertTrue(3 <= len(own) <= 12, usual)
        called = {call["function"] for call in self.document("sim", "journal", "last=1000")["calls"]
                  if call["number"] > before}
        self.assertFalse({name for name in called if "_pm_" in name}, "what nobody asked for")
        for shown in (usual, self.vexoctl("metrics", "families=all").stdout):
            try:
                done = subprocess.run(["promtool", "check", "metrics"], input=shown, text=True,
                                      capture_output=True, check=False)
            except FileNotFoundError:
                self.fail("promtool is missing: install prometheus")
            self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))
            self.assertIn("# TYPE vexo_pwe_om_total counter", shown)
            self.assertIn("# TYPE vexo_ima_link_om_total counter", shown)
        self.assertIn("\nvexo_alarm{", shown)
        some = self.vexoctl("metrics", "--families=vexo_pdh_pm,system_temperature").stdout
        self.assertEqual(set(re.findall("^vexo_\\w+", some, re.MULTILINE)),
                         {"vexo_pdh_pm", "vexo_system_temperature"})

    def test_an_interval_without_data_is_absent(self):
        self.document("sim", "pm", "set", "type=pdh", "number=3", "interval=2",
                      "counter=layout0.counters.0", "value=12")
        line = {"port": 3, "interval": 2, "set": "line", "counter": 0}
        self.assertEqual(self.value("vexo_pdh_pm", **line), 12)
        self.document("sim", "pm", "set", "type=pdh", "number=3", "interval=2",
                      "counter=layout0.intervalFlag", "value=0")
        read = self.document("pdh", "pm", "get", "port=3", "pmType=2")["pm"]["layout0"]
        self.assertEqual((read["intervalFlag"], read["counters"][0]), (0, 12))
        self.assertIsNone(self.value("vexo_pdh_pm", port=3, interval=2))
        self.assertIsNotNone(self.value("vexo_pdh_pm", port=3, interval=1))

    def test_what_cannot_be_read_is_told_and_the_rest_is_there(self):
        for number, kind in enumerate(PSEUDOWIRES, 1):
            self.document("pwe", "params", "set", f"pwId={number}", f"pweType={kind}",
                          *PSEUDOWIRES[kind])
        self.document("ima", "set", "groupId=2", "imaAction=create", "groupParam1=1",
                      "groupParam2=1")
        self.document("ima", "lnk", "add", "groupId=2", "linkId=3")

        def places(families):
            return {(sample.name, *sample.labels.items()) for family in families.values()
                    for sample in family.samples}
        whole = places(self.families())
        for function, number, failed, family, label in (
                ("alarm_get_active_bits", 3, "3 reads failed, first alarms of PDH port 3",
                 "vexo_alarm", ("number", "3")),
                ("config_get_pw", 2, "5 reads failed, first parameters of pseudowire 2",
                 "vexo_pwe", ("pw", "2")),
                ("pmom_pdh_pm_stat_get", 16, "3 reads failed, first PM of PDH port 16",
                 "vexo_pdh_pm", ("port", "16")),
                ("pmom_ima_link_pm_stat_get", 3, "3 reads failed, first PM of IMA group 2",
                 "vexo_ima_link_pm", ("link", "3"))):
            self.document("sim", "fault", "add", f"function={function}", f"object={number}",
                          "value=2")
            read = places(self.families(status=1, error=f".*{failed}: failure 2: .*\n"))
            self.document("sim", "fault", "clear")
            lost = {place for place in whole if place[0].startswith(family) and label in place}
            self.assertEqual(whole - read, lost)
            self.assertTrue(lost)
        # Counters of neither kind are none, and nobody asked for the operational state.
        self.document("sim", "fault", "add", "function=pmom_pw_pm_stat_get", "object=1",
                      "effect=garbage")
        self.document("sim", "fault", "add", "function=config_get_pw_oper_state", "value=2")
        self.assertEqual({place[0] for place in whole - places(self.families())}, {"vexo_pwe_pm"})
        self.document("sim", "fault", "clear")
        some = places(self.families("pwes=1", "--groups=1"))
        self.assertEqual({label for place in some for label in place[1:]
                          if label[0] in ("pw", "group")}, {("pw", "1")})
        self.families("pwes=1025", status=1, error=".*6 reads failed, .* pseudowire 1025: .*\n")
        self.document("sim", "fault", "add", "value=2")
        self.assertEqual(self.vexoctl("metrics", "form=openmetrics").stdout, "# EOF\n")
        self.assertIn("JSON", self.document("metrics", status=2)["error"])


class Surroundings(Device):
    def test_processes_that_name_the_same_device_share_it_and_others_do_not(self):
        other = str(self.folder / "other")
        self.document("sys", "tpid", "set", "tpid=0x1234")
        self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 0x1234)
        self.assertEqual(self.document("--device", other, "sys", "tpid", "get")["tpid"], 0x8100)
        self.document("sys", "tpid", "set", "tpid=0x1111", "--device=" + other)
        self.assertEqual(self.document("sys", "tpid", "get", "--device", other)["tpid"], 0x1111)
        self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 0x1234)

    def test_a_fault_lets_calls_pass_first_and_the_journal_has_their_records(self):
        self.document("sim", "fault", "add", "function=config_get_pwe_if", "value=2", "skip=1",
                      "times=1")
        for status in (0, 1, 0):
            self.document("sys", "lops", "get", status=status)
        self.document("sys", "lops", "set", "first=0x1234", "second=2")
        for records, shown in ((0, False), (1, True)):
            [call] = self.document("sim", "journal", "last=1", f"records={records}")["calls"]
            self.assertEqual("34120000" in call.get("record", ""), shown)

    def test_the_journal_is_followed_from_a_call_on_and_pending_ones_come_again(self):
        self.environment["KV_SIM_JOURNAL"] = "8"
        for _ in range(10):
            self.document("sys", "tpid", "set", "tpid=37120")
        self.document("sim", "fault", "add", "function=config_get_temperature", "effect=hang")
        self.start("sys", "temp", "get")
        self.document("sim", "wait", "hanging")
        following = self.start("--json", "sim", "journal", "follow", "from=1", "count=10")
        lines = [json.loads(following.stdout.readline()) for _ in range(9)]
        self.assertEqual(lines[0], {"lost": 3})
        self.assertEqual([call["number"] for call in lines[1:]], [*range(4, 12)])
        self.assertIn("pending", lines[-1])
        self.document("sim", "fault", "clear")
        again = json.loads(following.stdout.readline())
        self.assertEqual((again["number"], again["function"], again.get("code")),
                         (11, "config_get_temperature", 0))
        self.assertEqual(following.wait(60), 0)
        text = self.vexoctl("sim", "journal", "get", "function=config_system_tpid_set", "last=1")
        self.assertRegex(text.stdout, r"^10 [-:.0-9]+T[-:.0-9]+Z \d+/\d+ config_system_tpid_set tpid=37120: 0 "
                                      r"\([.0-9]+ us\)\n$")

    def test_waits_end_when_it_has_come_about_or_fail_with_what_there_is_instead(self):
        for words, instead in ((("subscribed", "services=both"),
                                "no process has subscribed to alarms and PM reports"),
                               (("hanging",), "0 calls hang, not 1")):
            failed = self.document("sim", "wait", *words, "milliseconds=1", status=1)
            self.assertEqual(failed["message"], instead)
        watching = self.start("watch", "count=1")
        self.document("sim", "wait", "subscribed", f"process={watching.pid}", "services=both")
        self.document("sim", "alarm", "raise", "type=pdh", "number=3", "bits=1")
        self.document("sim", "wait", "handled")
        self.assertEqual(watching.wait(60), 0)
        self.document("sim", "wait", "idle", "quiet=20")

    def test_a_fault_tells_what_it_is_for_and_how_often_it_met(self):
        added = [self.document("sim", "fault", "add", *words)["id"] for words in (
            ["function=config_set_pdh_params", "effect=nothing", "type=pdh", "object=3",
             "where=params.frameMode=2,port=3", "nth=2"],
            ["effect=drop", "times=1", "where=type=pdh,delta=0x4"],
            ["operation=pdh frame set", "process=1", "chance=500000", "seed=7"])]
        for mode in (2, 2, 2):
            self.document("pdh", "frame", "set", "port=3", f"mode={mode}")
        self.document("sim", "alarm", "raise", "type=pdh", "number=1", "bits=0x4")
        common = {"operation": "sim fault find", "rc": 0, "message": "", "waiting": 0}
        expected = [
            {"function": "config_set_pdh_params", "type": "pdh", "object": 3, "nth": 2,
             "where": {"params.frameMode": 2, "port": 3}, "effect": "nothing",
             "skip": 0, "times": 0, "met": 1, "spent": True},
            {"service": "alarms", "where": {"type": 1, "delta": 4}, "effect": "drop",
             "skip": 0, "times": 0, "met": 1, "spent": True},
            {"function": "any", "process": 1, "operation": "vexo_cmi_pdh_frame_set",
             "effect": "code", "value": 1, "skip": 0, "times": 0, "chance": 500000, "seed": 7,
             "met": 0, "spent": False}]
        for fault, row in zip(added, expected, strict=True):
            self.assertEqual(self.document("sim", "fault", "find", f"id={fault}"),
                             {**common, "id": fault, **row})
        self.assertIn("seed: only with chance", self.document("sim", "fault", "add", "seed=7", status=2)["error"])
        [left] = self.document("sim", "fault", "list")["faults"]
        self.assertEqual(left["id"], added[2])

    def test_an_agent_finds_the_device_restarted(self):
        self.document("sys", "tpid", "set", "tpid=0x9100")
        self.document("sim", "clock", "stop")
        self.document("sim", "reboot", "milliseconds=60000", "keepConfiguration=1", "clock=0")
        self.assertEqual(self.document("sys", "tpid", "get", status=1)["message"],
                         "the device is restarting")
        self.assertEqual(self.document("sim", "clock", "get")["away"], 60000)
        self.document("sim", "clock", "advance", "seconds=60")
        self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 0x9100)
        clock = self.document("sim", "clock", "get")
        self.assertEqual((clock["seconds"], clock["away"]), (0, 0))

    def test_a_person_is_told_once_that_the_device_is_gone_with_the_process(self):
        named = self.environment.copy()
        unnamed = {name: value for name, value in named.items() if name != "KV_SIM_DEVICE"}
        command = "sys tpid set tpid=0x1234\nsys tpid get\n"
        for environment, words, terminal, times in (
                (unnamed, [], True, 1), (unnamed, ["watch", "for=1"], True, 1),
                (unnamed, ["metrics"], True, 1), (unnamed, ["help"], True, 0),
                ({**unnamed, "KV_SIM_DEVICE": ""}, [], True, 1), (unnamed, [], False, 0),
                (named, [], True, 0), (unnamed, ["--device", named["KV_SIM_DEVICE"]], True, 0)):
            leader, follower = pty.openpty() if terminal else os.pipe()
            done = subprocess.run([VEXOCTL, *words], input=command, env=environment, text=True,
                                  stdout=subprocess.PIPE, stderr=follower, check=False, timeout=60)
            os.write(follower, b"end\n")
            os.close(follower)
            told = os.read(leader, 4096).decode()
            os.close(leader)
            self.assertEqual((done.returncode, told.count("gone with this process")), (0, times),
                             (words, told))

    def test_a_device_file_that_cannot_be_used_is_refused_and_left_alone(self):
        file = self.folder / "notes"
        file.write_text("not a device")
        done = self.vexoctl("--device", str(file), "sys", "tpid", "get")
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertIn(str(file), done.stderr)
        self.document("--device", str(file), "sys", "tpid", "get", status=2)
        self.assertEqual(file.read_text(), "not a device")

    def test_output_that_cannot_be_written_is_a_failure_and_gets_nowhere_else(self):
        for words in (["list"], ["metrics"], ["--help"], ["--version"], ["pdh", "--help"]):
            with open("/dev/full", "w", encoding="ascii") as full:
                done = subprocess.run([VEXOCTL, *words], stdout=full, stderr=subprocess.PIPE,
                                      env=self.environment, text=True, check=False)
            self.assertEqual(done.returncode, 1, words)
            self.assertIn("cannot write: No space left on device", done.stderr, words)
        done = subprocess.run(["sh", "-c", '"$0" sys tpid get >&-', VEXOCTL], text=True,
                              stderr=subprocess.PIPE, env=self.environment, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(self.document("sys", "tpid", "get")["tpid"], 0x8100)

    def use_other_platform(self):
        library = self.folder / "platform"
        subprocess.run([SOURCE / "tests/consumer/stub_platform.sh", os.environ["VEXO_CMI_LIBRARY"],
                        os.environ["CC"], library], check=True)
        self.environment["LD_LIBRARY_PATH"] = str(library)
        return library

    def test_metrics_end_on_a_platform_that_has_every_object(self):
        for file in self.use_other_platform().glob("*.c"):
            file.write_text(file.read_text().replace("return 1;", "return 0;"))
            subprocess.run([os.environ["CC"], "-shared", "-fPIC",
                            f"-Wl,-soname,libkv_{file.stem}.so", file, "-o",
                            file.with_name(f"libkv_{file.stem}.so")], check=True)
        shown = self.vexoctl("metrics").stdout
        self.assertEqual(set(re.findall('vexo_alarms{object="pdh",number="(\\d+)"}', shown)),
                         {str(port) for port in range(1, 17)})

    def test_on_other_platform_libraries_operations_work_and_the_simulated_device_is_missing(self):
        self.use_other_platform()
        document = self.document("pdh", "frame", "get", "port=1", status=1)
        self.assertEqual(document["rc"], 1)
        self.assertEqual(document["message"], "not on this platform")
        self.assertEqual(set(self.document("list")["operations"]), operations())
        self.assertNotIn("simulated", self.vexoctl("help", "pdh", "admin", "set").stdout)
        for words in (["sim", "clock"], ["help", "sim", "clock"], ["--device", "x", "list"]):
            self.assertIn("real platform libraries", self.document(*words, status=2)["error"])
        self.assertNotIn("sim", self.vexoctl("complete", "").stdout.split())

    def test_no_call_passes_where_a_real_platform_library_is_loaded_beside_simulated_ones(self):
        pages = self.pages()
        for blind in ("misc dbg_mode set", "misc log reset"):  # look at no answer of the platform's
            del pages[blind]
        for real in self.use_other_platform().glob("libkv_*.so"):
            alone = self.folder / real.stem
            alone.mkdir()
            real.rename(alone / real.name)
            self.environment["LD_LIBRARY_PATH"] = str(alone)
            for page in pages.values():
                document = self.call(page)
                with self.subTest(real.name, operation=page["operation"]):
                    self.assertRegex(document["message"], f"mixed: libkv_.* {real.name} is not")
            done = self.vexoctl("--device", "x", "list")
            self.assertEqual(done.returncode, 2)
            self.assertIn(real.name, done.stderr)


if __name__ == "__main__":
    unittest.main()
