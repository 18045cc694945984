"""Holds the tree to its layers: a folder includes only itself and what stands below it.

And RapidJSON, everywhere, to the one header that makes it throw when memory runs out."""

import pathlib
import re
import sys
import tempfile

# Bottom to top. A folder may include any folder named before it.
LAYERS = ["log", "utils", "core", "net", "audio", "conf", "messaging", "media", "app"]
APPLICATIONS = ["medianode", "tools"]
ORDER = LAYERS + APPLICATIONS
EVERYWHERE = ["lib", *APPLICATIONS, "tests", "bench", "fuzz"]
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
# Its declarations alone may be had without.
RAPIDJSON = re.compile(r"^\s*#\s*include\s+<rapidjson/(?!fwd\.h)")
RAPIDJSON_HEADER = "lib/utils/utils_json.h"


def folder_of(path, root):
    parts = path.relative_to(root).parts
    return parts[1] if parts[0] == "lib" else parts[0]


def violations(root):
    found, checked = [], 0
    files = [p for top in EVERYWHERE for p in sorted((root / top).rglob("*"))]
    for path in files:
        if path.suffix not in {".h", ".cpp", ".c"}:
            continue
        checked += 1
        own = folder_of(path, root)
        for number, line in enumerate(path.read_text().splitlines(), 1):
            place = f"{path.relative_to(root)}:{number}"
            if RAPIDJSON.match(line) and path != root / RAPIDJSON_HEADER:
                found.append(f"{place}: RapidJSON is had by including {RAPIDJSON_HEADER}")
            match = INCLUDE.match(line)
            if not match or own not in ORDER:
                continue
            target = match.group(1).split("/")[0]
            if "/" not in match.group(1) or target not in ORDER:
                found.append(f'{place}: "{match.group(1)}" is not written as "folder/file.h"')
            elif ORDER.index(target) > ORDER.index(own):
                found.append(f"{place}: {own} includes {target}, which stands above it")
    return found, checked


def check_that_it_finds():
    """A check that finds nothing has to show that it can."""
    files = {"lib/core/a.h": '#include "log/log.h"\n#include <vector>\n', "lib/log/b.h": '#include "core/a.h"\n',
             "medianode/c.cpp": '#include "tools/d.h"\n#include "c.h"\n', RAPIDJSON_HEADER: "#include <rapidjson/document.h>\n",
             "tests/e.cpp": "#include <rapidjson/fwd.h>\n#include <rapidjson/writer.h>\n"}
    with tempfile.TemporaryDirectory() as root:
        for name, text in files.items():
            path = pathlib.Path(root, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        found, checked = violations(pathlib.Path(root))
        assert checked == 5 and len(found) == 4, found


if __name__ == "__main__":
    check_that_it_finds()
    problems, files_checked = violations(pathlib.Path(sys.argv[1]))
    print("\n".join(problems) or f"{files_checked} files hold to the layers")
    sys.exit(1 if problems or files_checked == 0 else 0)
