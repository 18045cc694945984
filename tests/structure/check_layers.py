"""Holds the tree to its layers: a folder includes only itself and what stands below it."""

import pathlib
import re
import sys
import tempfile

# Bottom to top. A folder may include any folder named before it.
LAYERS = ["log", "utils", "core", "net", "audio", "conf", "messaging", "media", "app"]
APPLICATIONS = ["medianode", "tools"]
ORDER = LAYERS + APPLICATIONS
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def folder_of(path, root):
    parts = path.relative_to(root).parts
    return parts[1] if parts[0] == "lib" else parts[0]


def violations(root):
    found, checked = [], 0
    files = [p for top in ["lib"] + APPLICATIONS for p in sorted((root / top).rglob("*"))]
    for path in files:
        if path.suffix not in {".h", ".cpp", ".c"}:
            continue
        checked += 1
        own = folder_of(path, root)
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            place = f"{path.relative_to(root)}:{number}"
            target = match.group(1).split("/")[0]
            if "/" not in match.group(1) or target not in ORDER:
                found.append(f'{place}: "{match.group(1)}" is not written as "folder/file.h"')
            elif ORDER.index(target) > ORDER.index(own):
                found.append(f"{place}: {own} includes {target}, which stands above it")
    return found, checked


def self_test():
    with tempfile.TemporaryDirectory() as name:
        root = pathlib.Path(name)
        for folder in ["lib/core", "lib/log", "medianode", "tools"]:
            (root / folder).mkdir(parents=True)
        (root / "lib/core/a.h").write_text('#include "log/log.h"\n#include <vector>\n')
        (root / "lib/log/b.h").write_text('#include "core/a.h"\n')
        (root / "medianode/c.cpp").write_text('#include "tools/d.h"\n#include "c.h"\n')
        found, checked = violations(root)
        assert checked == 3 and len(found) == 3, found


if __name__ == "__main__":
    if sys.argv[1] == "--self-test":
        self_test()
        sys.exit(0)
    problems, files_checked = violations(pathlib.Path(sys.argv[1]))
    print("\n".join(problems) or f"{files_checked} files hold to the layers")
    sys.exit(1 if problems or files_checked == 0 else 0)
