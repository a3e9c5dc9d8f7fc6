"""Makes the generated parts of the Python module: generate.py ROWS INTERFACE CONTROL SIMULATOR HEADER...

From the description's ROWS (a JSON document) and the public HEADERs the INTERFACE: enumerations,
records and operations; from the header SIMULATOR the CONTROL of the simulated device.
"""
import json
import os.path
import re
import sys
import textwrap
from pathlib import Path
from typing import Any, Dict, Iterator, List, Set, Tuple

from header_help import COMMENTED, OUTPUT, lines_of, plain

ENUMERATION = re.compile(r"(?:/\*\*((?:(?!\*/).)*)\*/\s*)?VEXO_CMI_ENUM\((\w+)\)\s*\{(.*?)\n?\};", re.DOTALL)
STRUCTURE = re.compile(r"(?:/\*\*((?:(?!\*/).)*)\*/\s*)?typedef struct (\w+) \{\n(.*?)\n\} \w+;", re.DOTALL)
NAMED = re.compile(r"typedef enum (\w+) \{(.*?)\} \w+;", re.DOTALL)
MEMBER = re.compile(r"(?:/\*\*(?P<before>(?:(?!\*/).)*)\*/\s*)?"
                    r"(?P<type>(?:const )?\w+) (?P<star>\*?)(?P<name>\w+)(?:\[(?P<count>\w+)\])?;"
                    r"(?:[ ]*/\*\*<(?P<behind>(?:(?!\*/).)*)\*/)?", re.DOTALL)
CONTROL = re.compile(r"(?:/\*\*((?:(?!\*/).)*)\*/\s*)?KV_SIM_EXPORT ([\w ]+?[ *]+)(kv_sim_\w+)\(([^)]*)\);",
                     re.DOTALL)
CALLBACK = re.compile(r"typedef void \(\*(\w+)\)\((\w+) \*")
VALUE = re.compile(r"\b(\w+) = (\d+)")

Row = Dict[str, Any]

C_TYPES = {"uint8_t": "c_uint8", "uint32_t": "c_uint32", "uint64_t": "c_uint64", "int": "c_int",
           "unsigned": "c_uint", "char": "c_char", "const char *": "c_char_p", "char *": "c_char_p",
           "const char **": "POINTER(c_char_p)"}
NUMBER = 0xFFFFFFFF


def sentences(comment: str) -> str:
    """A comment's text on one line, as Python names things."""
    text = " ".join(plain(re.sub(r"^[<\s]*\*? ?", "", comment or "", flags=re.MULTILINE), set()).split())
    return pythonic(text)


def pythonic(text: str) -> str:
    """A header's text in the module's names."""
    text = re.sub(r"\bvexo_cmi_(\w+)", r"\1", re.sub(r"\bvexo([A-Z]\w*)", r"\1", text))
    text = re.sub(r"\bVEXO_(\w+)", lambda found: CONSTANTS.get(found[0], found[0]), text)
    return text.replace("#", "").replace("@ref pweparams", "pwe.h").replace("\\", "\\\\")


def docstring(text: str, indent: str = "    ") -> str:
    """A docstring, wrapped paragraph by paragraph."""
    lines = [wrapped for paragraph in text.split("\n")
             for wrapped in textwrap.wrap(paragraph, 96 - len(indent), subsequent_indent="    " * (
                 paragraph.startswith("- ") or bool(re.match(r"\w+: ", paragraph)))) or [""]]
    if len(lines) == 1:
        return f'{indent}"""{lines[0]}"""\n'
    return f'{indent}"""' + f"\n{indent}".join(lines).replace(f"\n{indent}\n", "\n\n") + f'\n{indent}"""\n'


def class_of(name: str) -> str:
    return re.sub("^(vexo|kvSim)", "", name)


# ---- The interface ----

CONSTANTS: Dict[str, str] = {}


def members_of(body: str) -> List[Tuple[str, str, str]]:
    """Constants of an enumeration with their names in Python and their values: VEXO_PWE_TYPE_TDM_1
    is TDM_1; what would be a mere number, TYPE_5."""
    found = VALUE.findall(re.sub(r"/\*.*?\*/", "", body, flags=re.DOTALL))
    prefix = os.path.commonprefix([constant for constant, _ in found]).rpartition("_")[0]
    names = [constant[len(prefix) + 1:] for constant, _ in found]
    return [(constant, f"{prefix.split('_')[-1]}_{name}" if name.isdigit() else name, value)
            for (constant, value), name in zip(found, names)]


def constants_of(headers: List[str]) -> None:
    for text in headers:
        for _, enumeration, body in ENUMERATION.findall(text):
            for constant, name, _ in members_of(body):
                CONSTANTS[constant] = f"{class_of(enumeration)}.{name}"


def enumerations(headers: List[str]) -> Iterator[str]:
    for text in headers:
        for comment, enumeration, body in ENUMERATION.findall(text):
            lines = "".join(f"    {name} = {value}\n" for _, name, value in members_of(body))
            yield (f"class {class_of(enumeration)}(Enumeration):\n"
                   f"{docstring(sentences(comment))}{lines}")


def element_type(row: Row) -> str:
    return {"word": "int", "text": "str", "mac": "str"}.get(row["kind"]) or class_of(row["type"])


def condition(by: str = "", values: Tuple[int, ...] = ()) -> Row:
    """For which values of another field there is a field; of many, for which there is none."""
    if not by:
        return {}
    others = tuple(value for value in range(16) if value not in values)
    return {"by": repr(by), **({"values": tuple(values)} if len(values) < 8 else {"unless": others})}


def field(record: Row, row: Row, needed_in_records: Set[Tuple[str, str]]) -> Tuple[str, str]:
    """A field's declaration and its row of the layout."""
    offsets = {other["name"]: other["offset"] for other in record["fields"]}
    covered = any(other.get("told") and other["offset"] == row["offset"]
                  for other in record["fields"] if other is not row)
    kind = element_type(row)
    is_list = row["count"] > 1
    annotation = f"List[{kind}]" if is_list else kind
    conditional = row["leftOut"] or row["optional"] or "by" in row or "told" in row
    declaration = f"    {row['name']}: " + (
        f"Optional[{annotation}] = None" if conditional else f"{annotation} = MUST_BE_GIVEN")
    options = {"size": row["size"] if row["size"] != 4 else None,
               "many": row["count"] if is_list else None,
               "flag": offsets[row["flag"]] if "flag" in row else None,
               "left_out": True if row["leftOut"] else None,
               "optional": True if row["optional"] else None,
               "written": True if row["hidden"] and covered else None,
               "counted": repr(row["counted"]) if "counted" in row else None,
               **condition(*row.get("by", ())),
               "told": row.get("told"), "alone": tuple(row["alone"]) if "alone" in row else None,
               "limit": row["limit"] if row.get("limit", NUMBER) != NUMBER else None,
               "needs": tuple(name for name in row.get("needs", ())
                              if (row["type"], name) in needed_in_records) or None}
    given = "".join(f", {name}={value}" for name, value in options.items() if value is not None)
    kinds = {"text": "TEXT", "mac": "MAC"}
    return declaration, f"    Field({row['name']!r}, {row['offset']}, {kinds.get(row['kind'], kind)}{given}),"


def visible(record: Row) -> Iterator[Row]:
    """Fields that people see: arrangements of hidden words give way to the words themselves."""
    hidden = {row["offset"] for row in record["fields"] if row["hidden"]}
    told = {row["offset"] for row in record["fields"] if "told" in row}
    for row in record["fields"]:
        if (row["offset"] in told) if row["hidden"] else not ("told" in row and row["offset"] in hidden):
            yield row


def records(rows: List[Row], headers: List[str]) -> Iterator[str]:
    structures = {name: (comment, body) for text in headers
                  for comment, name, body in STRUCTURE.findall(text)}
    may_be_left_out = {(record["name"], row["name"])
                       for record in rows for row in record["fields"]
                       if row["leftOut"]}
    waiting = [record for record in rows if record["name"] in structures]
    done: Set[str] = set()
    while waiting:
        record = [one for one in waiting
                  if all(row["type"] in done for row in visible(one) if row["kind"] == "record")][0]
        waiting.remove(record)
        done.add(record["name"])
        comment, body = structures[record["name"]]
        text = pythonic("\n".join(" ".join(block.split()) for block in plain(
            re.sub(r"\n- ", "\n\n- ", lines_of(comment)), set()).split("\n")))
        fields = {found["name"]: sentences(found["before"] or found["behind"])
                  for found in MEMBER.finditer(body) if found["before"] or found["behind"]}
        shown = list(visible(record))
        parts = [f"{row['name']}: {fields[row['name']]}" for row in shown if row["name"] in fields]
        lines = [field(record, row, may_be_left_out) for row in shown]
        yield (f"@layout(\n    {record['size']},\n" + "".join(f"{row}\n" for _, row in lines)
               + f")\n@dataclass\nclass {class_of(record['name'])}(Record):\n"
               + docstring("\n".join([text, *([""] * bool(parts)), *parts]))
               + "".join(f"{declaration}\n" for declaration, _ in lines))


def parameters_of(headers: List[str]) -> Dict[str, List[str]]:
    return {name: [part.strip() for part in parameters.split(",")]
            for text in headers for _, name, parameters in COMMENTED.findall(text)}


def operation(row: Row, parameters: List[str], text: str) -> Iterator[str]:
    name = row["name"].replace("vexo_cmi_", "")
    outs = [argument for argument in row["arguments"] if argument["out"]]
    counters = {argument["countedBy"] for argument in outs if "countedBy" in argument}
    given, prepared, passed, checks, results = [], [], [], [], []
    for argument, parameter in zip(row["arguments"], parameters):
        own, kind = argument["name"], element_type(argument)
        told = repr(f"{name}: {own}")
        size = argument["size"] * argument["count"]
        is_word = argument["kind"] in ("word", "enumeration")
        if not argument["out"]:
            given.append(f"{own}: {kind}")
            if is_word:
                limit = argument["limit"]
                usual = "is not int" if kind == "int" else f"not in (int, {kind})"
                of_kind = "" if kind == "int" else f", {kind}"
                checks.append(f"    if {own}.__class__ {usual} or not 0 <= {own} <= {limit}:\n"
                              f"        {own} = whole({told}, {own}, {limit}{of_kind})\n")
                passed.append(f"byref(Word({own}))" if "*" in parameter else own)
            else:
                passed.append({"record": f"given({told}, {own}, {kind})", "mac": f"mac_bytes({told}, {own})",
                               "text": f"text_bytes({told}, {own}, {argument['limit']})"}[argument["kind"]])
            continue
        passed.append(f"byref({own})")
        counted = argument.get("countedBy")
        prepared.append((own, "Word()" if is_word and not counted else f"untouched({size})"))
        if counted and is_word:
            results.append((own, "List[int]", f"words({own}.raw, {counted}.value)"))
        elif counted:
            results.append((own, f"List[{kind}]", f"records({kind}, {own}.raw, {counted}.value)"))
        elif own not in counters:
            results.append((own, kind, {"word": f"{own}.value", "enumeration": f"{kind}({own}.value)",
                                        "record": f"{kind}.read({own}.raw)",
                                        "mac": f"mac_text({own}.raw)"}[argument["kind"]]))
    several = len(results) > 1
    made = "".join(word.capitalize() for word in name.replace("_get", "_values").split("_"))
    answer = made if several else results[0][1] if results else "None"
    if several:
        yield (f"class {made}(NamedTuple):\n{docstring(f'What {name}() returns.')}"
               + "".join(f"    {own}: {kind}\n" for own, kind, _ in results) + "\n\n")
    prepared.append(("result", "Result()"))
    yield (f"def {name}({', '.join(given)}) -> {answer}:\n{docstring(text)}" + "".join(checks)
           + f"    {', '.join(own for own, _ in prepared)} = {', '.join(value for _, value in prepared)}\n"
           f"    _{name}({', '.join([*passed, 'byref(result)'])})\n"
           f"    if result.rc:\n        raise failure({name!r}, result)\n"
           + ("" if not results else "    return " + (
               f"{made}({', '.join(value for *_, value in results)})" if several else results[0][2]) + "\n"))


HEAD = '''"""{title}

Made by python/generate.py from {source}.
"""
# The names are the header's, so that they are the same everywhere.
# pylint: disable=invalid-name
'''


def interface(rows: Row, headers: List[str]) -> str:
    constants_of(headers)
    comments = {name: (comment, parameters) for text in headers
                for comment, name, parameters in COMMENTED.findall(text)}
    help_of = {name: pythonic(plain(lines_of(comment), {a or b for a, b in OUTPUT.findall(parameters)}))
               for name, (comment, parameters) in comments.items()}
    callbacks = {name: record for text in headers for name, record in CALLBACK.findall(text)}
    parameters = parameters_of(headers)
    described = {row["name"] for row in rows["operations"]}
    parts = [HEAD.format(title="Enumerations, records and operations of the CMI library.",
                         source="the description of the interface and its header")
             + "from __future__ import annotations\n\n"
             "from ctypes import byref\nfrom dataclasses import dataclass\n"
             "from typing import Callable, List, NamedTuple, Optional\n\n"
             "from ._library import call, callback, failure, operation\n"
             "from ._records import (MAC, MUST_BE_GIVEN, TEXT, Enumeration, Field, Record, Result, Word,\n"
             "                       given, layout, mac_bytes, mac_text, records, text_bytes,\n"
             "                       untouched, whole, words)\n",
             "", *enumerations(headers), *records(rows["records"], headers)]
    for row in rows["operations"]:
        name = row["name"].replace("vexo_cmi_", "")
        parts.append(f"_{name} = operation({row['name']!r}, __name__)\n\n\n"
                     + "".join(operation(row, parameters[row["name"]], help_of[row["name"]])))
    for name, (_, given) in comments.items():
        if name in described:
            continue
        own = name.replace("vexo_cmi_", "")
        if given == "void":
            parts.append(f"def {own}() -> None:\n{docstring(help_of[name])}    call({name!r})\n")
        else:
            record = class_of(callbacks[given.split()[0]])
            parts.append(
                f"def {own}(function: Optional[Callable[[{record}], None]]) -> None:\n"
                f"{docstring(help_of[name])}    callback({name!r}, function, {record})\n")
    names = re.findall(r"^(?:class|def) (\w+)", "\n".join(parts), re.MULTILINE)
    parts[1] = "__all__ = [\n" + "".join(f"    {name!r},\n" for name in names) + "]\n"
    return "\n\n".join(parts)


# ---- The control of the simulated device ----

def c_type(text: str, structures: Set[str]) -> str:
    text = " ".join(text.replace("*", " *").split()).replace("* *", "**")
    if text in C_TYPES:
        return C_TYPES[text]
    pointee = re.sub(r"^const | \*$", "", text)
    return f"POINTER({class_of(pointee) if pointee in structures else C_TYPES[pointee]})"


def control(header: str) -> str:
    structures = {name: (comment, body) for comment, name, body in STRUCTURE.findall(header)}
    values = dict(VALUE.findall(re.sub(r"/\*.*?\*/", "", header, flags=re.DOTALL)))
    parts = [HEAD.format(title="What the simulated device is told and asked: its header.",
                         source="kv_sim.h")
             + "from ctypes import POINTER, c_char, c_char_p, c_int, c_uint, c_uint32, c_uint64, c_uint8\n"
             "from enum import IntEnum\nfrom typing import Any\n\nfrom ._records import Structure\n\n"
             + "".join(f"{name.replace('KV_SIM_', '')} = {value}\n" for name, value in values.items())]
    for name, body in NAMED.findall(header):
        members = re.findall(r"\b[A-Z_]{4,}\b", re.sub(r"/\*.*?\*/", "", body, flags=re.DOTALL))
        parts.append(f"class {class_of(name)}(IntEnum):\n" + docstring(f"{name} of kv_sim.h.") + "".join(
            f"    {member.replace('KV_SIM_', '')} = {value}\n" for value, member in enumerate(members)))
    for name, (comment, body) in structures.items():
        found = list(MEMBER.finditer(re.sub(r"\n\s+\* ?", " ", body)))
        texts = [f"{member['name']}: {sentences(member['before'] or member['behind'])}"
                 for member in found if member["before"] or member["behind"]]
        rows = []
        for member in found:
            kind = (class_of(member["type"]) if member["type"] in structures
                    else C_TYPES[member["type"] + " *" * bool(member["star"])])
            count = member["count"] and values.get(member["count"], member["count"])
            rows.append(f'        ("{member["name"]}", {kind}{f" * {count}" if count else ""}),\n')
        parts.append(f"class {class_of(name)}(Structure):\n"
                     + docstring("\n".join([sentences(comment) or f"{name} of kv_sim.h.",
                                            *([""] * bool(texts)), *texts]))
                     + "    _fields_ = [\n" + "".join(rows) + "    ]\n")
    prototypes = []
    for _, result, name, parameters in CONTROL.findall(header):
        kinds = ", ".join([] if parameters == "void" else [
            f"{own!r}: {c_type(kind, set(structures))}"
            for kind, own in re.findall(r"\s*([^,]*?)(\w+)(?:,|$)", parameters)])
        row = f"{name!r}: ({c_type(result, set(structures))}, {{{kinds}}}),"
        prototypes.append("\n".join(textwrap.wrap(row, 100, initial_indent=" " * 4,
                                                  subsequent_indent=" " * 8)) + "\n")
    parts.append("PROTOTYPES: \"dict[str, tuple[Any, dict[str, Any]]]\" = {\n" + "".join(prototypes) + "}\n")
    return "\n\n".join(parts)


def main() -> None:
    rows, interface_file, control_file, simulator, *headers = map(Path, sys.argv[1:])
    texts = [header.read_text() for header in sorted(headers)]
    interface_file.write_text(interface(json.loads(rows.read_text()), texts))
    control_file.write_text(control(simulator.read_text()))


main()
