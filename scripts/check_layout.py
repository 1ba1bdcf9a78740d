#!/usr/bin/python3
"""Checks the folder rules of the tree: which folder's code may include
which folder's headers.  The rules are written out in docs/design.md; this is
their one executable form.

    /usr/bin/python3 scripts/check_layout.py [ROOT]

Every #include of a C or C++ file under src/, tools/, apps/, python/src/ and
outside/ is resolved to a file of the tree (beside the including file first,
then below the include roots src/, tools/ and outside/<component>/); an
include that resolves to no file of the tree is a system or third-party
header and is not judged.  tests/, bench/, fuzz/ and examples/ may include
anything.

An include that breaks a rule fails the check, unless the line is listed in
scripts/layout-exceptions.txt ("path: included/header.hpp"), which names the
known ones still to go; those are printed, not failed.  A listed exception
that no longer occurs fails too, so that the list only ever shrinks.
"""
import re
import sys
from pathlib import Path

SOURCE_SUFFIXES = {".hpp", ".cpp", ".h", ".cc"}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')

# The folders whose code is judged, and what each may not include.  A rule is
# (what it forbids, a test on the included file's path relative to the root).
LIBRARY_TEMPLATES = ("src/pallion/memory/", "src/pallion/array/", "src/pallion/values/")


def is_detail(path):
    return "/detail/" in path


RULES = {
    "src/": [
        ("anything but the library and the outside components",
         lambda p: not (p.startswith("src/") or p.startswith("outside/"))),
    ],
    "tools/": [
        ("a detail/ header of the library", is_detail),
        ("the program, the binding or the tests",
         lambda p: p.startswith(("apps/", "python/", "tests/", "bench/", "fuzz/"))),
    ],
    "apps/": [
        ("a detail/ header of the library", is_detail),
        ("the Python binding or the tests", lambda p: p.startswith(("python/", "tests/", "bench/", "fuzz/"))),
    ],
    "python/src/": [
        ("a detail/ header of the library", is_detail),
        ("the program or the tests", lambda p: p.startswith(("apps/", "tests/", "bench/", "fuzz/"))),
    ],
    "outside/": [
        ("anything but outside components and the header-side templates (pallion/memory, array, values)",
         lambda p: not (p.startswith("outside/") or (p.startswith(LIBRARY_TEMPLATES) and not is_detail(p)))),
    ],
}


def folder_of(relative):
    return next(folder for folder in RULES if relative.startswith(folder))


def include_roots(root):
    roots = [root / "src", root / "tools"]
    roots += sorted(p for p in (root / "outside").glob("*/") if p.is_dir())
    return roots


def resolve(root, includer, name, roots):
    for base in [includer.parent] + roots:
        candidate = (base / name).resolve()
        if candidate.is_file() and root in candidate.parents:
            return candidate.relative_to(root).as_posix()
    return None


def violations(root):
    """Yields (file, line number, included name, resolved path, rule text)."""
    roots = include_roots(root)
    for folder, rules in RULES.items():
        for source in sorted((root / folder).rglob("*")):
            if source.suffix not in SOURCE_SUFFIXES or not source.is_file():
                continue
            relative = source.relative_to(root).as_posix()
            for number, line in enumerate(source.read_text(errors="replace").splitlines(), 1):
                match = INCLUDE.match(line)
                if not match:
                    continue
                target = resolve(root, source, match.group(1), roots)
                if target is None:
                    continue
                for text, forbids in rules:
                    if forbids(target):
                        yield relative, number, match.group(1), target, text


def read_exceptions(path):
    allowed = set()
    if path.is_file():
        for line in path.read_text().splitlines():
            line = line.split("#", 1)[0].strip()
            if line:
                source, _, name = line.partition(":")
                allowed.add((source.strip(), name.strip()))
    return allowed


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).resolve().parent.parent).resolve()
    exceptions_file = root / "scripts" / "layout-exceptions.txt"
    allowed = read_exceptions(exceptions_file)
    seen, failed = set(), False
    for source, number, name, target, rule in violations(root):
        if (source, name) in allowed:
            seen.add((source, name))
            print(f"still to go: {source}:{number}: includes {name} ({rule})")
        else:
            failed = True
            print(f"{source}:{number}: includes {name} ({target}): {folder_of(source)} must not include {rule}")
    for source, name in sorted(allowed - seen):
        failed = True
        print(f"{exceptions_file.relative_to(root)}: {source}: {name} no longer occurs; remove the line")
    if failed:
        print("folder rules: broken (above); the rules are in docs/design.md")
        return 1
    print(f"folder rules: kept ({len(seen)} known exceptions still to go)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
