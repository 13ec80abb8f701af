#!/usr/bin/python3
"""Applies each deliberate fault of scripts/mutants.txt to a scratch copy of the tree, builds
it and runs the tests; a fault the tests do not notice is reported as "survived".

    /usr/bin/python3 scripts/mutants.py [--scratch DIR] [--only M01,M07]
        [--tree NAME=DIR ...] [--opt -O1] [--markdown FILE]

The scratch copy (default /tmp/mathinterp-mutants) keeps its build directory between runs,
and ccache, when installed, serves the unchanged objects, so a fault costs the objects that
include the file it touches. C++ tests run first (CTest, stopping at the first failure); if
they pass, pytest runs too. Several trees (say the tests before and after a change) are judged
fault by fault side by side; a fault whose lines a tree does not hold (code written after it)
is "n/a" there. Exit status 1 if any fault survives or an unchanged tree fails.
"""

from __future__ import annotations

import argparse
import os
import re
import shutil
import subprocess
import sys
import time
from dataclasses import dataclass, field

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


@dataclass
class Fault:
    ident: str
    layer: str
    path: str
    what: str
    edits: list[tuple[str, str]] = field(default_factory=list)


def parse(text: str) -> list[Fault]:
    faults: list[Fault] = []
    old = None
    for line in text.splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        m = re.match(r"^(M\d+)\s*\|\s*(\w+)\s*\|\s*(\S+)\s*\|\s*(.+)$", line)
        if m:
            faults.append(Fault(*m.groups()))
        elif line.startswith("- "):
            old = line[2:].strip()
        elif line.startswith("+ ") and old is not None:
            faults[-1].edits.append((old, line[2:].strip()))
            old = None
        else:
            raise SystemExit(f"mutants.txt: cannot read {line!r}")
    return faults


class Absent(Exception):
    """The fault's text is not in this tree (code written after it, say)."""


def apply(fault: Fault, tree: str) -> str:
    """Writes the faulty file; returns the original text."""
    path = os.path.join(tree, fault.path)
    if not os.path.exists(path):
        raise Absent(fault.path)
    with open(path) as f:
        original = f.read()
    text = original
    for old, new in fault.edits:
        # Match the stripped line whatever its indentation.
        hits = [m.start() for m in re.finditer(re.escape(old), text)]
        if len(hits) != 1:
            raise Absent(f"{old!r} occurs {len(hits)} times in {fault.path}")
        text = text[: hits[0]] + new + text[hits[0] + len(old):]
    with open(path, "w") as f:
        f.write(text)
    return original


def run(cmd: list[str], cwd: str, timeout: int = 1800) -> bool:
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=timeout).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def copy_tree(src: str, dst: str) -> None:
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=src,
                           check=True, capture_output=True).stdout.split(b"\0")
    keep = set()
    for f in files:
        if not f:
            continue
        rel = f.decode()
        if not os.path.exists(os.path.join(src, rel)):
            continue
        keep.add(rel)
        target = os.path.join(dst, rel)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        s = os.path.join(src, rel)
        if not os.path.exists(target) or open(s, "rb").read() != open(target, "rb").read():
            shutil.copyfile(s, target)  # a fresh time stamp: the build must see the change
    # Files gone from the source tree go from the copy too (the build directory stays).
    for dirpath, dirnames, filenames in os.walk(dst):
        if os.path.relpath(dirpath, dst).split(os.sep)[0] in ("build", ".git"):
            continue
        for name in filenames:
            rel = os.path.relpath(os.path.join(dirpath, name), dst)
            if rel not in keep:
                os.remove(os.path.join(dirpath, name))


class Scratch:
    """A scratch copy of one tree with its own build directory."""

    def __init__(self, name: str, source: str, path: str, opt: str) -> None:
        self.name, self.source, self.path = name, source, path
        os.makedirs(path, exist_ok=True)
        copy_tree(source, path)
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
        self.configure = ["cmake", "-S", ".", "-B", "build", "-G", "Ninja",
                          "-DCMAKE_BUILD_TYPE=Release", f"-DCMAKE_CXX_FLAGS_RELEASE={opt} -DNDEBUG",
                          "-DMATHINTERP_BENCH=OFF", "-DMATHINTERP_EXAMPLES=OFF",
                          "-DMATHINTERP_WERROR=OFF"] + launcher
        self.ctest = ["ctest", "--test-dir", "build", "-j", str(os.cpu_count() or 2), "-LE",
                      "install", "--stop-on-failure", "--timeout", "600"]
        self.env = dict(os.environ, PYTHONPATH=os.path.join(path, "build", "python"))

    def build(self) -> bool:
        return run(["cmake", "--build", "build", "-j", str(os.cpu_count() or 2)], self.path,
                   timeout=4 * 3600)

    def pytest_passes(self) -> bool:
        cmd = ["/usr/bin/python3", "-m", "pytest", "-x", "-q", "-p", "no:cacheprovider",
               "tests/python"]
        try:
            return subprocess.run(cmd, cwd=self.path, env=self.env, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, timeout=1800).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def ready(self) -> bool:
        return run(self.configure, self.path) and self.build() and run(self.ctest, self.path) \
            and self.pytest_passes()

    def judge(self, fault: Fault) -> str:
        try:
            original = apply(fault, self.path)
        except Absent:
            return "n/a"
        try:
            if not self.build():
                return "does not build"
            if not run(self.ctest, self.path):
                return "caught (C++)"
            if not self.pytest_passes():
                return "caught (Python)"
            return "SURVIVED"
        finally:
            with open(os.path.join(self.path, fault.path), "w") as f:
                f.write(original)


def main() -> int:
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--tree", action="append", default=[],
                    help="NAME=DIR: a tree whose tests are judged (repeatable; default this one)")
    ap.add_argument("--scratch", default="/tmp/mathinterp-mutants",
                    help="scratch directory (one per tree: DIR-NAME when several)")
    ap.add_argument("--only", default="", help="comma-separated fault ids")
    ap.add_argument("--opt", default="-O1", help="optimisation level of the scratch builds")
    ap.add_argument("--markdown", default="", help="also write the table to this file")
    args = ap.parse_args()

    with open(os.path.join(ROOT, "scripts", "mutants.txt")) as f:
        faults = parse(f.read())
    if args.only:  # in the order given (cheap faults first, say)
        by_id = {x.ident: x for x in faults}
        faults = [by_id[i] for i in args.only.split(",")]

    specs = [t.split("=", 1) if "=" in t else ["tests", t] for t in args.tree] or [["tests", ROOT]]
    # Trees judged one after the other for each fault: the library objects the first builds
    # are ccache hits for the next (same sources, same relative paths).
    trees = [Scratch(name, src, args.scratch if len(specs) == 1 else f"{args.scratch}-{name}",
                     args.opt) for name, src in specs]
    for t in trees:
        if not t.ready():
            print(f"{t.name}: the unchanged tree does not build or fails its tests",
                  file=sys.stderr)
            return 1

    rows = []
    for fault in faults:
        t0 = time.time()
        verdicts = [t.judge(fault) for t in trees]
        rows.append((fault, verdicts))
        print(f"{fault.ident} {' / '.join(verdicts):34} {time.time() - t0:6.0f} s  {fault.what}",
              flush=True)

    names = " | ".join(t.name for t in trees)
    table = [f"| fault | layer | what | {names} |", "|---|---|---|" + "---|" * len(trees)]
    table += [f"| {f.ident} | {f.layer} | {f.what} | {' | '.join(v)} |" for f, v in rows]
    if args.markdown:
        with open(args.markdown, "w") as f:
            f.write("\n".join(table) + "\n")
    print("\n".join(table))
    for t in trees:
        t.build()  # leave the scratch builds unchanged for the next run
    # "n/a": the faulty line is not in that tree; the current tree must hold every fault.
    return 0 if all(v.startswith("caught") or v == "n/a" for _, vs in rows for v in vs) else 1


if __name__ == "__main__":
    sys.exit(main())
