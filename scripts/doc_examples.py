#!/usr/bin/python3
"""Runs the examples of README.md and docs/*.md against a build, so that the
code a reader copies works as written.

Fenced blocks are taken by their language:
  cpp      a complete program: extracted when configuring (--extract-cpp),
           built by CMake against the library (docs/CMakeLists.txt), and run
           here; it must exit with 0.
  console  a session: each "$ command" (a trailing backslash continues it on
           the next line) is run with bash, stderr joined to stdout, and what
           it prints must be the lines below it.  A line "..." stands for any
           number of lines, a line ending in "..." for any line that begins
           with the text before it.
  python   a script, run with Debian's /usr/bin/python3; it must exit with 0.
  pycon    ">>>" lines checked with doctest.
Other languages (sh, cmake, text, json) are shown, never run.  A block whose
fence follows the line <!-- fragment --> is a piece of a program and is not
run.  Every block runs in a fresh folder that holds `examples`, `scripts` and
`build.sh` (the source's) and `build/release` (the build folder), with the program's folder first on
PATH and PYTHONPATH set to the Python package of the build.

    scripts/doc_examples.py --source ROOT --extract-cpp DIR     (prints the programs' names)
    scripts/doc_examples.py --source ROOT --build DIR [--cpp DIR] [--program FILE] [--python DIR]
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

RUN = {"cpp", "console", "python", "pycon"}
FRAGMENT = "<!-- fragment -->"
FENCE = re.compile(r"^```(\S*)\s*$")


class Block:
    def __init__(self, page, line, language, text, fragment, number):
        self.page, self.line, self.language, self.text, self.fragment = page, line, language, text, fragment
        self.number = number  # among the page's blocks of its language, from 1

    @property
    def where(self):
        return f"{self.page}:{self.line}"

    @property
    def name(self):
        """The name of a C++ block's program: the page's name and the block's number in it."""
        return f"doc_{Path(self.page).stem.lower()}_{self.number}"


def blocks_of(root):
    pages = [root / "README.md"] + sorted((root / "docs").glob("*.md"))
    for page in pages:
        lines = page.read_text().splitlines()
        relative = page.relative_to(root).as_posix()
        index, counts = 0, {}
        while index < len(lines):
            match = FENCE.match(lines[index])
            if not match:
                index += 1
                continue
            language, start = match.group(1), index
            end = start + 1
            while end < len(lines) and lines[end].rstrip() != "```":
                end += 1
            previous = next((lines[i].strip() for i in range(start - 1, -1, -1) if lines[i].strip()), "")
            counts[language] = counts.get(language, 0) + 1
            yield Block(relative, start + 1, language, "\n".join(lines[start + 1:end]) + "\n", previous == FRAGMENT,
                        counts[language])
            index = end + 1


def extract_cpp(root, folder):
    """Writes each C++ program to FOLDER/<name>.cpp (only when changed, so that
    a rebuild compiles only what changed) and prints the names, ;-separated."""
    folder.mkdir(parents=True, exist_ok=True)
    names = []
    for block in blocks_of(root):
        if block.language != "cpp" or block.fragment:
            continue
        source = f'#line {block.line + 1} "{root / block.page}"\n{block.text}'
        target = folder / f"{block.name}.cpp"
        if not target.is_file() or target.read_text() != source:
            target.write_text(source)
        names.append(block.name)
    print(";".join(names), end="")


def matches(expected, actual):
    """Whether the printed lines fit the expected ones, with "..." as above."""
    if not expected:
        return not actual
    head, rest = expected[0], expected[1:]
    if head == "...":
        return any(matches(rest, actual[i:]) for i in range(len(actual) + 1))
    if not actual:
        return False
    fits = actual[0].startswith(head[:-3]) if head.endswith("...") else actual[0] == head
    return fits and matches(rest, actual[1:])


def session(text):
    """The commands of a console block, each with the lines it must print."""
    steps, lines = [], text.splitlines()
    index = 0
    while index < len(lines):
        line = lines[index].rstrip()
        index += 1
        if not line.startswith("$ "):
            if not steps:
                raise ValueError(f"output before the first command: {line!r}")
            steps[-1][1].append(line)
            continue
        command = line[2:]
        while command.endswith("\\") and index < len(lines):
            command = command[:-1] + " " + lines[index].strip()
            index += 1
        steps.append((command, []))
    return steps


MARK = "\x1epallion-doc-step"


def run_console(block, folder, environment):
    steps = session(block.text)
    script = ["exec 2>&1"]
    for number, (command, _) in enumerate(steps):
        script += ["status=$?", f"printf '%s\\n' '{MARK}{number}'", "(exit $status)", command]
    done = subprocess.run(["bash", "-c", "\n".join(script)], cwd=folder, env=environment, capture_output=True,
                          text=True, errors="replace", timeout=120)
    printed = re.split(MARK + r"\d+\n", done.stdout)[1:]
    failures = []
    for (command, expected), output in zip(steps, printed):
        actual = [line.rstrip() for line in output.splitlines()]
        if not matches([line.rstrip() for line in expected], actual):
            failures.append(f"$ {command}\n  expected:\n    " + "\n    ".join(expected or ["(nothing)"]) +
                            "\n  printed:\n    " + "\n    ".join(actual or ["(nothing)"]))
    return failures


def run_process(command, folder, environment):
    done = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True, errors="replace",
                          timeout=300)
    if done.returncode != 0:
        return [f"exit status {done.returncode}\n{done.stdout}{done.stderr}".rstrip()]
    return []


def run(block, arguments, folder, environment):
    if block.language == "console":
        return run_console(block, folder, environment)
    if block.language == "cpp":
        program = Path(arguments.cpp) / block.name
        built = Path(arguments.cpp) / f"{block.name}.cpp"
        if not program.is_file() or not built.is_file() or not built.read_text().endswith(block.text):
            return [f"{program} is not built from this text: build again (the docs changed since)"]
        return run_process([str(program)], folder, environment)
    script = folder / ("example.py" if block.language == "python" else "example.txt")
    script.write_text(block.text)
    if block.language == "python":
        return run_process(["/usr/bin/python3", "-B", str(script)], folder, environment)
    return run_process(["/usr/bin/python3", "-B", "-m", "doctest", str(script)], folder, environment)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--source", required=True)
    parser.add_argument("--extract-cpp")
    parser.add_argument("--build")
    parser.add_argument("--cpp")
    parser.add_argument("--program")
    parser.add_argument("--python")
    arguments = parser.parse_args()
    root = Path(arguments.source).resolve()
    if arguments.extract_cpp:
        extract_cpp(root, Path(arguments.extract_cpp))
        return 0

    missing = {"cpp": arguments.cpp, "console": arguments.program, "python": arguments.python,
               "pycon": arguments.python}
    environment = dict(os.environ, PYTHONDONTWRITEBYTECODE="1")
    if arguments.program:
        environment["PATH"] = str(Path(arguments.program).resolve().parent) + os.pathsep + environment["PATH"]
    if arguments.python:
        environment["PYTHONPATH"] = str(Path(arguments.python).resolve())
    ran = skipped = 0
    failed = []
    for block in blocks_of(root):
        if block.language not in RUN or block.fragment:
            continue
        # A session that imports the package needs it built, as the Python blocks do.
        if not missing[block.language] or (block.language == "console" and "build/release/python" in block.text
                                           and not arguments.python):
            print(f"{block.where}: {block.language}: skipped, not built here")
            skipped += 1
            continue
        with tempfile.TemporaryDirectory(prefix="pallion-doc-") as scratch:
            folder = Path(scratch)
            for name in ("examples", "scripts", "build.sh"):
                (folder / name).symlink_to(root / name)
            (folder / "build").mkdir()
            (folder / "build" / "release").symlink_to(Path(arguments.build).resolve())
            failures = run(block, arguments, folder, environment)
        ran += 1
        print(f"{block.where}: {block.language}: {'FAILED' if failures else 'ok'}")
        for failure in failures:
            print("  " + failure.replace("\n", "\n  "))
        if failures:
            failed.append(block.where)
    print(f"doc examples: {ran} run, {len(failed)} failed, {skipped} skipped")
    return 1 if failed or ran == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
