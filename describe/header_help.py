"""Makes the help texts of the operations from the comments of the public header."""
import re
import sys
from pathlib import Path

COMMENT = r"/\*\*((?:(?!\*/).)*)\*/"
COMMENTED = re.compile(COMMENT + r"\s*VEXO_CMI_EXPORT\s+void\s+(vexo_cmi_\w+)\(", re.DOTALL)
PAGE = re.compile(r"@page (\w+) [^\n]*\n(.*)", re.DOTALL)
REFERENCE = re.compile(r"see\s+@ref (\w+)")
# Code, with the line that announces it.
CODE = re.compile(r"[^\n]*:\n@code.*?@endcode\n?", re.DOTALL)


def lines_of(comment: str) -> str:
    """A comment without its frame."""
    return "\n".join(re.sub(r"^\s*\* ?", "", line).strip()
                     for line in comment.strip().splitlines())


def plain(text: str) -> str:
    """A comment's lines without its commands and marks, paragraph by paragraph."""
    text = re.sub(r"@p |`|\*\*", "", text)
    paragraphs = []
    for block in re.split(r"\n\s*\n|(?=\n@param |\n- )", text):
        block = " ".join(block.split())
        block = re.sub(r"^@param (\w+) ", r"\1: ", block)
        if block and not block.startswith("result: "):
            paragraphs.append(block)
    return "\n".join(paragraphs)


def main() -> None:
    output, *headers = sys.argv[1:]
    texts = [Path(header).read_text() for header in headers]
    pages = dict(page.groups() for text in texts for comment in re.findall(COMMENT, text, re.DOTALL)
                 if (page := PAGE.search(lines_of(comment))))
    rows = []
    for text in texts:
        for comment, name in COMMENTED.findall(text):
            lines = lines_of(comment)
            rules = [CODE.sub("", pages[page]) for page in REFERENCE.findall(lines)]
            help_text = plain("\n\n".join([REFERENCE.sub("see below", lines), *rules]))
            help_text = help_text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
            rows.append(f'    {{"{name}", "{help_text}"}},')
    Path(output).write_text(
        '#include "help.h"\n\nnamespace describe {\n\n'
        "const std::map<std::string_view, std::string_view> help{\n"
        + "\n".join(rows) + "\n};\n\n} // namespace describe\n")


main()
