"""Holds the manual pages to what they are about: every option that corvanth --help prints and every option
and key of docs/configuration.md stands in a page, and pages name none that there is not.

check_man_pages.py SOURCE_FOLDER CORVANTH
"""

import pathlib
import re
import subprocess
import sys

OPTION_IN_HELP = re.compile(r"^ +(?:-\w[, ] *)?--([a-z][a-z-]*)", re.MULTILINE)
OPTION_IN_PAGE = re.compile(r"(?:Fl |, )-([a-z][a-z-]*)")
KEY_IN_DOCS = re.compile(r"^\| `([a-z]+_[a-z_]+|port)` \|", re.MULTILINE)
KEY_IN_PAGE = re.compile(r"\b([a-z]+_[a-z_]+|port)\b")


def help_of(*command):
    return subprocess.run([*command, "--help"], check=True, capture_output=True, text=True).stdout


def sections(page, macro):
    """Text by heading of that macro; a heading's first word is its name when it names a command."""
    parts = re.split(rf"^\.{macro} +", page, flags=re.MULTILINE)[1:]
    return {part.split("\n", 1)[0]: part for part in parts}


def described_in(text):
    """Options of the lines that head an item: elsewhere they are referred to."""
    return {option for line in text.splitlines() if line.startswith(".It")
            for option in OPTION_IN_PAGE.findall(line)}


def compare(place, described, needed):
    return ([f"{place}: {name} is not described" for name in sorted(needed - described)]
            + [f"{place}: {name} is described, and there is none" for name in sorted(described - needed)])


def check_tool(page, tool):
    commands = re.findall(r"^  ([a-z]+) {2,}", help_of(tool).split("Subcommands:")[1], re.MULTILINE)
    by_heading = sections(page, "Ss")
    shared = {name: described_in(text) for name, text in by_heading.items() if name[0].isupper()}
    problems = compare("corvanth(1), commands", {h.split()[0] for h in by_heading if h not in shared},
                       set(commands))
    for command in commands:
        text = next((t for h, t in by_heading.items() if h.split()[0] == command), "")
        needed = set(OPTION_IN_HELP.findall(help_of(tool, command))) - {"help"}
        heading, _, body = text.partition("\n")
        described = set(OPTION_IN_PAGE.findall(heading)) | described_in(body)
        described |= set(OPTION_IN_PAGE.findall(body)) & needed
        for name, options in shared.items():
            if f".Sx {name}" in text:
                described |= options & needed if name == "Site options" else options
        problems += compare(f"corvanth(1), {command}", described, needed)
    return problems


def check_node(page, configuration):
    """The node prints no help: docs/configuration.md has its options."""
    table = "\n".join(re.findall(r"^\| (`-.*?`) \|", configuration, re.MULTILINE))
    problems = compare("corvanthmedianode(8), options", described_in(page),
                       set(re.findall(r"--([a-z][a-z-]*)", table)))
    settings = re.search(r"^\.Sh SETTINGS\n(.*?)^\.Sh", page, re.MULTILINE | re.DOTALL).group(1)
    return problems + compare("corvanthmedianode(8), settings",
                              set(KEY_IN_PAGE.findall(settings)) - {"sample_detection", "audio_activity"},
                              set(KEY_IN_DOCS.findall(configuration)))


def main(source, tool):
    man = source / "packaging/man"
    tool_page, node_page = (man / "corvanth.1").read_text(), (man / "corvanthmedianode.8").read_text()
    configuration = (source / "docs/configuration.md").read_text()

    problems = check_tool(tool_page, tool) + check_node(node_page, configuration)
    # A check that finds nothing has to show that it can.
    assert check_tool(tool_page.replace("Fl -spacing", "Fl -spading"), tool)
    assert check_node(node_page.replace("-pid-file-default", ""), configuration)
    assert check_node(node_page.replace("media_sources", ""), configuration)
    print("\n".join(problems) or "the pages say what the programs say")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]), sys.argv[2]))
