"""clang-tidy over the sources of lib, medianode and tools; see scripts/lint. Needs a built build/release.

Most of clang-tidy's time goes into headers, so up to twelve sources of a target are checked as one, those
that the sanitizer builds compile as one. When such a batch has a finding, each of its sources is checked
by itself, and what that says holds.

A source that passed is not checked again until it, a header that it includes or a setting changes: the
stamp of a pass is named after them. Stamps are shared by all clones of a user, as the compiler's cache is.
"""

import concurrent.futures
import functools
import hashlib
import itertools
import json
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile

BUILD = pathlib.Path("build/release")
BATCH = 12  # as in CMakePresets.json
STAMPS = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "corvanth/lint"
# Its analyser takes sources that are included for code, and not for headers, when the file that includes
# them has this in its name.
JOINED_NAME = "UnifiedSource.cpp"


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


class Source:
    def __init__(self, entry):
        words = [word for word in shlex.split(entry["command"]) if not word.endswith("ccache")]
        self.object = words[words.index("-o") + 1]
        self.path = os.path.relpath(entry["file"])
        dropped = {words.index(option) + place for option in ("-o", "-c") for place in (0, 1)}
        self.flags = [word for i, word in enumerate(words) if i > 0 and i not in dropped]

    def target(self):
        return self.object.partition(".dir/")[0], self.flags


@functools.cache
def file_digest(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).digest()


def included_files():
    """{object: files it was made of}, as the compiler has told ninja."""
    found = {}
    for block in output_of("ninja", "-C", BUILD, "-t", "deps").split("\n\n"):
        head, *files = block.splitlines() or [""]
        if "#deps" in head:
            found[head.partition(":")[0]] = [str(BUILD / file.strip()) for file in files]
    return found


def stamp_of(source, files, settings):
    root = os.getcwd()
    key = hashlib.sha256(settings)
    key.update(" ".join(source.flags).replace(root, "").encode())
    for file in files:
        key.update(file_digest(file))
    return STAMPS / key.hexdigest()[:40]


def tidy(path, flags, *options):
    return subprocess.run(["clang-tidy", "--quiet", "--config-file=.clang-tidy", *options, path, "--", *flags],
                          capture_output=True, text=True)


def check(batch):
    """What is wrong with the sources; empty when nothing is."""
    if len(batch) > 1:
        with tempfile.TemporaryDirectory(prefix="corvanth-lint-") as folder:
            joined = pathlib.Path(folder) / JOINED_NAME
            joined.write_text("".join(f'#include "{os.path.abspath(source.path)}"\n' for source in batch))
            # What the joined file does, and no source may: scripts/lint looks for it itself.
            if tidy(joined, batch[0].flags, "--checks=-bugprone-suspicious-include").returncode == 0:
                return ""
    results = [tidy(source.path, source.flags) for source in batch]
    return "".join(result.stdout + result.stderr for result in results if result.returncode != 0)


def main():
    STAMPS.mkdir(parents=True, exist_ok=True)
    folders = tuple(f"{folder}{os.sep}" for folder in ("lib", "medianode", "tools"))
    entries = json.loads((BUILD / "compile_commands.json").read_text())
    sources = [source for source in map(Source, entries) if source.path.startswith(folders)]
    included = included_files()
    settings = output_of("clang-tidy", "--version").encode() + pathlib.Path(".clang-tidy").read_bytes()

    batches = []
    for _, target in itertools.groupby(sources, Source.target):
        target = list(target)
        for batch in (target[i:i + BATCH] for i in range(0, len(target), BATCH)):
            missing = [source.path for source in batch if source.object not in included]
            if missing:
                sys.exit(f"lint: {missing[0]} is not built yet: scripts/build")
            stamps = {source: stamp_of(source, included[source.object], settings) for source in batch}
            batches.append({source: stamp for source, stamp in stamps.items() if not stamp.exists()})
    failed = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for stamps, wrong in zip(batches, pool.map(lambda batch: check(list(batch)), batches)):
            if wrong:
                failed = True
                print(wrong, end="")
                continue
            for stamp in stamps.values():
                stamp.touch()
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
