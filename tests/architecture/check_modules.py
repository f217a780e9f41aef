#!/usr/bin/env python3
"""Compares what the objects of a build include and call with the module table of docs/architecture.md.

usage: check_modules.py BUILD_FOLDER ARCHITECTURE.MD

Fails on an include or a call that the table does not allow, on an entry of the table that nothing uses, on files that
call each other in a circle, and on a source without a module.
"""
import fnmatch, pathlib, re, subprocess, sys

build, document = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
source = document.resolve().parents[1] / "src"

modules = {}  # name: (file name patterns, modules that it may use)
for line in document.read_text().split("## Modules", 1)[1].split("\n## ", 1)[0].splitlines():
    cells = [cell.strip() for cell in line.strip("|").split("|")]
    if len(cells) == 4 and cells[0] not in ("module", "---"):
        modules[cells[0]] = (re.findall(r"`([^`]+)`", cells[1]), re.findall(r"[\w]+", cells[2]))

def module(node):
    name = node.rpartition("/")[2]
    return next((m for m, (files, _) in modules.items() if any(fnmatch.fnmatch(name, f) for f in files)), None)

def node(path):  # one for a source and its header; the headers of src/include are nodes of their own
    name = path.name.split(".")[0]
    return "include/" + name if "include" in path.parts else name

def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout

includes, direct, calls = {}, {}, {}  # node: {other node: how}
defined, undefined = {}, []  # symbol: node; (node, symbol)
faults = []
for block in output("ninja", "-C", build, "-t", "deps").split("\n\n"):
    target, _, rest = block.partition(": #deps")
    if not re.match(r"src/.*\.cpp\.o$", target) or "VALID" not in rest or not (build / target).exists():
        continue
    here = node(pathlib.Path(target))
    includes[here], direct[here], calls[here] = {}, {}, {}
    if module(here) is None:
        faults.append(f"{here}: not in the table")
    for path in (build / line.strip() for line in rest.splitlines()[1:]):
        path = path.resolve()
        if path.is_relative_to(source) and node(path) != here:
            includes[here][node(path)] = "includes, through other headers,"
        if path.is_relative_to(source) and node(path) == here:
            for name in re.findall(r'^#include "(.+)\.h"', path.read_text(), re.M):
                direct[here][name.replace("v2x/", "include/")] = "includes"
    direct[here] = {other: how for other, how in direct[here].items() if other in includes[here]}
    for symbol, kind in re.findall(r"^(\S+) ([A-Zu])\b", output("nm", "-P", build / target), re.M):
        if kind == "U":
            undefined.append((here, symbol))
        elif kind in "TDBRG":
            defined[symbol] = here
for here, symbol in undefined:
    if defined.get(symbol, here) != here:
        calls[here][defined[symbol]] = f"calls {symbol} of"

def reachable(name):  # a used module's header may include those of the modules that it uses
    return {name}.union(*(reachable(used) for used in modules[name][1])) if name in modules else set()

used = set()
for here in includes:
    neighbours = {module(here), *modules.get(module(here), ((), ()))[1]}
    checks = [(includes[here], reachable(module(here))), (direct[here], neighbours), (calls[here], neighbours)]
    for found, allowed in checks:
        for other in (other for other in found if module(other) not in allowed):
            faults.append(f"{here} ({module(here)}) {found[other]} {other} ({module(other)}): not in the table")
    used |= {(module(here), module(other)) for other in [*direct[here], *calls[here]]}
for name in set(map(module, includes)) & modules.keys():
    faults += [f"{name} may use {other}, but does not" for other in modules[name][1] if (name, other) not in used]

def reach(start, path):  # depth first; a way back to the start is a circle
    for other in calls[start]:
        if other == path[0]:
            faults.append("circle: " + " -> ".join(path + [other]))
        elif other not in seen:
            seen.add(other)
            reach(other, path + [other])

for start in calls:
    seen = set()
    reach(start, [start])

print("\n".join(sorted(set(faults))))
arrows = sum(map(len, includes.values())) + sum(map(len, calls.values()))
print(f"{len(includes)} sources, {len(modules)} modules, {arrows} arrows, {len(set(faults))} faults")
sys.exit(1 if faults or not includes else 0)
