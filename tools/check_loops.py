#!/usr/bin/env python3
"""Reports include loops between the units of the given folders.

A unit is a header and its source (foo.h and foo.cpp); a unit depends on
every other unit whose header one of its files includes.  Test files and
test fixtures (*_test.cpp, testing/) are left out: they sit above what
they test.  Exits 1 when a loop is found, naming the units in it.
"""
import os
import re
import subprocess
import sys

INCLUDE = re.compile(r'^#include "([^"]+)"', re.M)


def units(folders):
    files = subprocess.run(["git", "ls-files"] + folders, capture_output=True, text=True,
                           check=True).stdout.split()
    out = {}
    for f in files:
        if not f.endswith((".h", ".cpp")) or f.endswith("_test.cpp") or "/testing/" in f:
            continue
        out.setdefault(os.path.splitext(f)[0], []).append(f)
    return out


def main():
    folders = sys.argv[1:] or ["hsm"]
    us = units(folders)
    deps = {u: set() for u in us}
    for u, files in us.items():
        for f in files:
            with open(f, encoding="utf-8", errors="replace") as fh:
                for inc in INCLUDE.findall(fh.read()):
                    v = os.path.splitext(inc)[0]
                    if v != u and v in us:
                        deps[u].add(v)
    # Tarjan's strongly connected components: any with two or more units
    # is a loop.
    index, low, stack, on, loops = {}, {}, [], set(), []
    counter = [0]

    def visit(u):
        index[u] = low[u] = counter[0]
        counter[0] += 1
        stack.append(u)
        on.add(u)
        for v in sorted(deps[u]):
            if v not in index:
                visit(v)
                low[u] = min(low[u], low[v])
            elif v in on:
                low[u] = min(low[u], index[v])
        if low[u] == index[u]:
            comp = []
            while True:
                w = stack.pop()
                on.discard(w)
                comp.append(w)
                if w == u:
                    break
            if len(comp) > 1:
                loops.append(sorted(comp))

    sys.setrecursionlimit(10000)
    for u in sorted(us):
        if u not in index:
            visit(u)
    for comp in loops:
        print("include loop: " + " -> ".join(comp))
    return 1 if loops else 0


if __name__ == "__main__":
    sys.exit(main())
