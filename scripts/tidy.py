#!/usr/bin/env python3
"""Runs clang-tidy over sources of a configured build; exit status 1 when it finds anything.

Most of its time goes into headers. Therefore sources of one folder that are compiled alike are joined into one file, which
is checked once. A source that does not compile there, because another one has the same private names, is left for a second
file. The analyser leaves out tests/, which run under sanitizers, and tools/, where the argument parser's header takes most of
its time.

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

LARGEST_GROUP = 16
ANALYSER = ["--checks=clang-analyzer-*,-clang-analyzer-optin.performance.Padding"]
# A third of the default depth, in a third of the time; and the standard library's functions are not followed.
for word in ("-analyzer-config", "max-nodes=75000", "-analyzer-config", "c++-stdlib-inlining=false"):
    ANALYSER += ["--extra-arg=-Xclang", f"--extra-arg={word}"]

build = Path(sys.argv[1]).resolve()
sources = {str(Path(source).resolve()): source for source in sys.argv[2:]}


def groups():
    """Entries of the compilation database, in lists that can be one file."""
    alike = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        name = sources.pop(entry["file"], None)
        if name is None:
            continue
        words = shlex.split(entry["command"])
        del words[words.index("-o") : words.index("-o") + 2]
        words += ["-I", os.path.dirname(entry["file"])]  # for what it includes from its own folder
        entry["command"] = shlex.join(word for word in words if word != entry["file"])
        alike.setdefault((os.path.dirname(name), entry["command"]), []).append(entry)
    if sources:
        sys.exit(f"tidy.py: not in {build}: {' '.join(sources.values())}")
    for found in alike.values():
        for first in range(0, len(found), LARGEST_GROUP):
            yield found[first : first + LARGEST_GROUP]


def check_group(number, group):
    """Returns what clang-tidy says of the sources as one file."""
    source_folder = os.path.relpath(os.path.dirname(group[0]["file"]))
    folder = build / "tidy" / source_folder / str(number)
    folder.mkdir(parents=True, exist_ok=True)
    joined = folder / "joined.cpp"
    lines = []
    places = [None]  # source and number of each line
    for entry in group:
        of_source = Path(entry["file"]).read_text().splitlines()
        lines += of_source
        places += [f"{entry['file']}:{line}:" for line in range(1, len(of_source) + 1)]
    joined.write_text("\n".join(lines) + "\n")
    command = f"{group[0]['command']} {shlex.quote(str(joined))}"
    (folder / "compile_commands.json").write_text(json.dumps([dict(group[0], file=str(joined), command=command)]))
    analyser = [] if source_folder.startswith(("tests", "tools")) else ANALYSER
    run = subprocess.run(
        ["clang-tidy", "--quiet", "-p", folder, "--extra-arg=-Wno-shadow", *analyser, joined],  # by names of another source
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    said = re.sub(f"^{re.escape(str(joined))}:(\\d+):", lambda found: places[int(found[1])], run.stdout, flags=re.M)
    clashing = set(re.findall(r"^(/[^:\n]+):\d+:\d+: error: .*\[clang-diagnostic-error", said, re.M))
    later = [entry for entry in group if entry["file"] in clashing]
    if not later or len(later) == len(group):
        return said if run.returncode else ""
    rest = [entry for entry in group if entry["file"] not in clashing]
    return check_group(f"{number}a", rest) + check_group(f"{number}b", later)


for config in Path().glob("*/.clang-tidy"):  # what holds for a folder holds for the files that are made of it
    (build / "tidy" / config).parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(config, build / "tidy" / config)
with ThreadPoolExecutor(os.cpu_count()) as pool:
    runs = [pool.submit(check_group, number, group) for number, group in enumerate(groups())]
    has_findings = False
    for run in runs:
        has_findings = run.result() != "" or has_findings
        print(run.result(), end="", flush=True)
sys.exit(1 if has_findings else 0)
