#!/usr/bin/env python3
"""Compares the includes and calls of all built objects with the module table of docs/architecture.md.

usage: check_modules.py BUILD_FOLDER ARCHITECTURE.MD

Prints each fault. The exit status is 1 if there is one of these faults:
- an include or a call that the table does not allow
- an allowed dependency that no source uses
- sources that call each other in a circle
- a source that belongs to no module
"""
import fnmatch, pathlib, re, subprocess, sys

build, document = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
source = document.resolve().parents[1] / "src"

modules = {}  # name: (file name patterns, modules that it may use)
for line in document.read_text().split("## Modules", 1)[1].split("\n## ", 1)[0].splitlines():
    cells = [cell.strip() for cell in line.strip("|").split("|")]
    if len(cells) == 4 and cells[0] not in ("module", "---"):
        modules[cells[0]] = (re.findall(r"`([^`]+)`", cells[1]), re.findall(r"[\w]+", cells[2]))

def find_module(node):
    name = node.rpartition("/")[2]
    return next((m for m, (files, _) in modules.items() if any(fnmatch.fnmatch(name, f) for f in files)), None)

def make_node(path):  # a source and its header are one node; each header of src/include is a separate node
    name = path.name.split(".")[0]
    return "include/" + name if "include" in path.parts else name

def run(*command):  # returns the command's standard output
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout

includes, direct, calls = {}, {}, {}  # node -> {other node -> verb for the fault message}
defined, undefined = {}, []  # symbol -> node; list of (node, symbol)
faults = []
for block in run("ninja", "-C", build, "-t", "deps").split("\n\n"):
    target, _, rest = block.partition(": #deps")
    if not re.match(r"src/.*\.cpp\.o$", target) or "VALID" not in rest or not (build / target).exists():
        continue
    here = make_node(pathlib.Path(target))
    includes[here], direct[here], calls[here] = {}, {}, {}
    if find_module(here) is None:
        faults.append(f"{here} belongs to no module of the table")
    for path in (build / line.strip() for line in rest.splitlines()[1:]):
        path = path.resolve()
        if path.is_relative_to(source) and make_node(path) != here:
            includes[here][make_node(path)] = "includes, through other headers,"
        if path.is_relative_to(source) and make_node(path) == here:
            for name in re.findall(r'^#include "(.+)\.h"', path.read_text(), re.M):
                direct[here][name.replace("v2x/", "include/")] = "includes"
    direct[here] = {other: how for other, how in direct[here].items() if other in includes[here]}
    for symbol, kind in re.findall(r"^(\S+) ([A-Zu])\b", run("nm", "-P", build / target), re.M):
        if kind == "U":
            undefined.append((here, symbol))
        elif kind in "TDBRG":
            defined[symbol] = here
for here, symbol in undefined:
    if defined.get(symbol, here) != here:
        calls[here][defined[symbol]] = f"calls {symbol} of"

def reachable(name):  # the module and all modules that it uses, directly or through other modules
    return {name}.union(*(reachable(used) for used in modules[name][1])) if name in modules else set()

used = set()
for here in includes:
    neighbours = {find_module(here), *modules.get(find_module(here), ((), ()))[1]}
    checks = [(includes[here], reachable(find_module(here))), (direct[here], neighbours), (calls[here], neighbours)]
    for found, allowed in checks:
        for other in (other for other in found if find_module(other) not in allowed):
            faults.append(f"{here} ({find_module(here)}) {found[other]} {other} ({find_module(other)}): "
                          "the table does not allow this")
    used |= {(find_module(here), find_module(other)) for other in [*direct[here], *calls[here]]}
for name in set(map(find_module, includes)) & modules.keys():
    faults += [f"the table allows {name} to use {other}, but no source does"
               for other in modules[name][1] if (name, other) not in used]

def follow_calls(start, path):  # searches depth first for a chain of calls that leads back to its start
    for other in calls[start]:
        if other == path[0]:
            faults.append("sources call each other in a circle: " + " -> ".join(path + [other]))
        elif other not in seen:
            seen.add(other)
            follow_calls(other, path + [other])

for start in calls:
    seen = set()
    follow_calls(start, [start])

print("\n".join(sorted(set(faults))))
dependencies = sum(map(len, includes.values())) + sum(map(len, calls.values()))
print(f"{len(includes)} sources, {len(modules)} modules, {dependencies} includes and calls, {len(set(faults))} faults")
sys.exit(1 if faults or not includes else 0)
