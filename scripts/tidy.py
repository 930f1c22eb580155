#!/usr/bin/env python3
"""Runs clang-tidy over sources of a configured build; exit status 1 when it finds anything.

Most of its time goes into headers. Therefore sources of one folder that are compiled alike are included into one file,
which is checked once. A source that does not compile there, because another one has the same private names, is left
for a second file. The analyser starts only at functions of the main file and therefore gets each source by itself. It
leaves out tests/, which run under sanitizers, and tools/, where the argument parser's header takes most of its time.

usage: tidy.py BUILD_FOLDER SOURCE..."""
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

LARGEST_GROUP = 24
ANALYSER = ["--checks=-*,clang-analyzer-*,-clang-analyzer-optin.performance.Padding"]
for word in ("-analyzer-config", "max-nodes=75000"):  # a third of the default depth, in a third of the time
    ANALYSER += ["--extra-arg=-Xclang", f"--extra-arg={word}"]

build = Path(sys.argv[1]).resolve()
sources = {str(Path(source).resolve()): source for source in sys.argv[2:]}


def tidy(file, folder, *options):
    command = ["clang-tidy", "--quiet", "-p", folder, *options, file]
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)


def groups():
    """Entries of the compilation database, in lists that can be one file."""
    alike = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        name = sources.pop(entry["file"], None)
        if name is None:
            continue
        words = shlex.split(entry["command"])
        del words[words.index("-o") : words.index("-o") + 2]
        entry["command"] = shlex.join(word for word in words if word != entry["file"])
        alike.setdefault((os.path.dirname(name), entry["command"]), []).append(entry)
    if sources:
        sys.exit(f"tidy.py: not in {build}: {' '.join(sources.values())}")
    for found in alike.values():
        for first in range(0, len(found), LARGEST_GROUP):
            yield found[first : first + LARGEST_GROUP]


def check_group(number, group):
    """Returns what clang-tidy says of the sources as one file."""
    folder = build / "tidy" / os.path.relpath(os.path.dirname(group[0]["file"])) / str(number)
    folder.mkdir(parents=True, exist_ok=True)
    joined = str(folder / "joined.cpp")
    Path(joined).write_text("".join(f'#include "{entry["file"]}"\n' for entry in group))
    entry = dict(group[0], file=joined, command=f"{group[0]['command']} {shlex.quote(joined)}")
    (folder / "compile_commands.json").write_text(json.dumps([entry]))
    run = tidy(joined, folder, "--checks=-bugprone-suspicious-include", "--extra-arg=-w")  # compilers have warned
    clashing = set(re.findall(r"^(/[^:\n]+):\d+:\d+: error: .*\[clang-diagnostic-error", run.stdout, re.M))
    later = [entry for entry in group if entry["file"] in clashing]
    if not later or len(later) == len(group):
        return run.stdout if run.returncode else ""
    rest = [entry for entry in group if entry["file"] not in clashing]
    return check_group(f"{number}a", rest) + check_group(f"{number}b", later)


def analyse(source):
    run = tidy(source, build, *ANALYSER)
    return run.stdout if run.returncode else ""


for config in Path().glob("*/.clang-tidy"):  # what holds for a folder holds for the files that are made of it
    (build / "tidy" / config).parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(config, build / "tidy" / config)
analysed = [source for source in sources.values() if not source.startswith(("tests/", "tools/"))]
with ThreadPoolExecutor(os.cpu_count()) as pool:
    runs = [pool.submit(check_group, number, group) for number, group in enumerate(groups())]
    runs += [pool.submit(analyse, source) for source in analysed]
    has_findings = False
    for run in runs:
        has_findings = run.result() != "" or has_findings
        print(run.result(), end="", flush=True)
sys.exit(1 if has_findings else 0)
