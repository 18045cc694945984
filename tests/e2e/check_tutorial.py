"""Runs a page's commands, in order and in one shell, and compares what they print with what the page says.

check_tutorial.py PAGE FOLDER_OF_EXECUTABLES [--print]

In a block of "console" a line with "$ " begins a command, "> " goes on with it, and what follows is its
output, standard error included. "…" stands for any text of a line, and alone on a line for any number of
lines. The ports 5060 and 6000 of the page are replaced by free ones. --print prints what was printed,
for the page to be written from.
"""

import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
import running_site  # noqa: E402

LONGEST_S = 800
PORTS = ["5060", "6000"]


def commands_of(page):
    """[(command, expected output)] of all console blocks."""
    found = []
    for block in re.findall(r"^```console\n(.*?)^```$", page, re.MULTILINE | re.DOTALL):
        for line in block.splitlines():
            if line.startswith("$ "):
                found.append((line[2:], []))
            elif line.startswith("> ") and not found[-1][1]:
                found[-1] = (found[-1][0] + "\n" + line[2:], [])
            else:
                found[-1][1].append(line)
    return [(command, "\n".join(output)) for command, output in found]


def pattern_of(expected):
    lines = []
    for line in expected.splitlines():
        lines.append(r"(?:.*\n)*" if line.strip() == "…"
                     else ".*".join(re.escape(part) for part in line.split("…")) + r"\n")
    return re.compile("".join(lines))


def run(commands, executables, folder):
    """What each command printed; None for one that was never reached."""
    script = "\n".join(f"{{\n{command}\n}} > {folder}/output.{i} 2>&1" for i, (command, _) in enumerate(commands))
    work = folder / "work"
    work.mkdir()
    shell = subprocess.Popen(["bash", "-c", script], cwd=work, stdin=subprocess.DEVNULL, start_new_session=True,
                             env=os.environ | {"PATH": f"{executables}:{os.environ['PATH']}"})
    try:
        shell.wait(LONGEST_S)
    except subprocess.TimeoutExpired:
        print(f"not done after {LONGEST_S} s")
    finally:
        try:
            os.killpg(shell.pid, signal.SIGKILL)  # what a failure left running
        except ProcessLookupError:
            pass
        shell.wait()
    outputs = [folder / f"output.{i}" for i in range(len(commands))]
    return [output.read_text() if output.exists() else None for output in outputs]


def main(page, executables, show):
    text = page.read_text()
    for written in PORTS:
        text = re.sub(rf"\b{written}\b", str(running_site.free_udp_port()), text)
    commands = commands_of(text)
    with tempfile.TemporaryDirectory(prefix="corvanth-tutorial-") as folder:
        printed = run(commands, executables, pathlib.Path(folder))

    problems = 0
    for (command, expected), output in zip(commands, printed):
        if show:
            print(f"$ {command}\n{output}", end="")
        elif output is None or not pattern_of(expected).fullmatch(output):
            problems += 1
            print(f"$ {command}\n--- printed:\n{output}--- the page says:\n{expected}\n")
    print(f"{len(commands)} commands, {problems} printed something else")
    return 1 if problems or not commands else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve(), "--print" in sys.argv))
