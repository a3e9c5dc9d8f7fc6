"""Makes the table of where the public header declares operations, callbacks and named values."""
import re
import sys
from pathlib import Path

OPERATION = re.compile(r"^VEXO_CMI_EXPORT\s+void\s+(vexo_cmi_\w+)\(", re.MULTILINE)
CALLBACK = re.compile(r"^typedef void \(\*(\w+)\)", re.MULTILINE)
ENUMERATION = re.compile(r"^VEXO_CMI_ENUM\((\w+)\)\s*\{(.*?)\n?\};", re.MULTILINE | re.DOTALL)
CONSTANT = re.compile(r"\b(VEXO_\w+) = (\w+)")


def rows_of(header: Path):
    text = header.read_text()
    # Comments may name constants; their lines stay.
    text = re.sub(r"/\*.*?\*/", lambda found: re.sub(r"[^\n]", " ", found[0]), text, flags=re.DOTALL)

    def row(place: int, enumeration: str, name: str, value: str = "0") -> str:
        line = text.count("\n", 0, place) + 1
        return f'    {{"{header.name}", {line}, "{enumeration}", "{name}", {value}}},'

    for found in OPERATION.finditer(text):
        yield row(found.start(1), "", found[1])
    for found in CALLBACK.finditer(text):
        yield row(found.start(1), "", found[1])
    for found in ENUMERATION.finditer(text):
        for constant in CONSTANT.finditer(found[2]):
            yield row(found.start(2) + constant.start(), found[1], constant[1], constant[2])


def main() -> None:
    output, *headers = sys.argv[1:]
    rows = [row for header in headers for row in rows_of(Path(header))]
    Path(output).write_text('#include "header_lines.h"\n\nnamespace vexotrace {\n\n'
                            "const std::vector<HeaderLine> headerLines{\n"
                            + "\n".join(rows) + "\n};\n\n} // namespace vexotrace\n")


main()
