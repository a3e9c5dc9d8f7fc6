"""Makes the help texts of the operations from the comments of the public header."""
import re
import sys
from pathlib import Path

COMMENTED = re.compile(
    r"/\*\*((?:(?!\*/).)*)\*/\s*VEXO_CMI_EXPORT\s+void\s+(vexo_cmi_\w+)\(", re.DOTALL)


def plain(comment: str) -> str:
    """A comment without its frame and its commands, paragraph by paragraph."""
    lines = [re.sub(r"^\s*\* ?", "", line).strip() for line in comment.strip().splitlines()]
    text = "\n".join(lines)
    text = re.sub(r"@ref \w+", "the header", re.sub(r"@p ", "", text))
    text = text.replace("`", "")
    paragraphs = []
    for block in re.split(r"\n\s*\n|(?=\n@param )", text):
        block = " ".join(block.split())
        block = re.sub(r"^@param (\w+) ", r"\1: ", block)
        if block and not block.startswith("result: "):
            paragraphs.append(block)
    return "\n".join(paragraphs)


def main() -> None:
    output, *headers = sys.argv[1:]
    rows = []
    for header in headers:
        for comment, name in COMMENTED.findall(Path(header).read_text()):
            text = plain(comment).replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
            rows.append(f'    {{"{name}", "{text}"}},')
    Path(output).write_text(
        '#include "help.h"\n\nnamespace describe {\n\n'
        "const std::map<std::string_view, std::string_view> help{\n"
        + "\n".join(rows) + "\n};\n\n} // namespace describe\n")


main()
