"""Makes the help texts of the operations from the comments of the public header. What only a caller
in C needs is left out: remarks, and what is said of the places for outputs."""
import re
import sys
from pathlib import Path

COMMENTED = re.compile(r"/\*\*((?:(?!\*/).)*)\*/\s*VEXO_CMI_EXPORT\s+void\s+(vexo_cmi_\w+)\(([^)]*)\)",
                       re.DOTALL)
OUTPUT = re.compile(r"(?<!const )\b\w+ (?:\*(\w+)|(\w+)\[)")


def lines_of(comment: str) -> str:
    """A comment without its frame."""
    return "\n".join(re.sub(r"^\s*\* ?", "", line).strip()
                     for line in comment.strip().splitlines())


def plain(text: str, outputs: set[str]) -> str:
    """A comment's lines without its commands and marks, paragraph by paragraph."""
    text = re.sub(r"@p |`|\*\*", "", text)
    paragraphs = []
    for block in re.split(r"\n\s*\n|(?=\n@|\n- )", text):
        block = " ".join(block.split())
        parameter = re.match(r"@param (\w+) ", block)
        if parameter and parameter[1] not in outputs:
            block = f"{parameter[1]}: {block[parameter.end():]}"
        if block and not block.startswith("@"):
            paragraphs.append(block)
    return "\n".join(paragraphs)


def main() -> None:
    output, *headers = sys.argv[1:]
    rows = []
    for header in headers:
        for comment, name, parameters in COMMENTED.findall(Path(header).read_text()):
            outputs = {first or second for first, second in OUTPUT.findall(parameters)}
            help_text = plain(lines_of(comment), outputs)
            help_text = help_text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
            rows.append(f'    {{"{name}", "{help_text}"}},')
    Path(output).write_text(
        '#include "help.h"\n\nnamespace describe {\n\n'
        "const std::map<std::string_view, std::string_view> help{\n"
        + "\n".join(rows) + "\n};\n\n} // namespace describe\n")


if __name__ == "__main__":
    main()
