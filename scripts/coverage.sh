#!/usr/bin/env bash
# Builds for coverage, runs every test and prints the share of lines and branches that they reach, folder by folder.
# build/coverage/coverage.txt lists each line that they do not reach.
# usage: coverage.sh
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
scripts/setup.sh coverage
build=build/coverage
cmake --preset coverage -DV2X_DEVELOP=ON >/dev/null
cmake --build --preset coverage >"$build/build.log" 2>&1 || { tail -60 "$build/build.log"; exit 1; }
find "$build" -name '*.gcda' -delete
status=0
# Without the case that limits the size of files: the coverage counters' files meet the limit, too.
GTEST_FILTER=-ScenarioMsg.WritesWhereItIsToldAndNeverOverItsInput ctest --test-dir "$build" -j2 --output-on-failure \
  >"$build/ctest.log" 2>&1 || status=$?
tail -3 "$build/ctest.log"
gcovr --root . --object-directory "$build" --filter src/ --filter tools/ --exclude "$build/" --exclude-throw-branches \
  --txt "$build/coverage.txt" --json-summary "$build/coverage.json" >/dev/null
python3 - "$build/coverage.json" <<'PYTHON'
import collections, json, os, sys

folders = collections.defaultdict(lambda: [0, 0, 0, 0])
for entry in json.load(open(sys.argv[1]))["files"]:
    row = folders[os.path.dirname(entry["filename"])]
    for i, name in enumerate(("line_covered", "line_total", "branch_covered", "branch_total")):
        row[i] += entry[name]

def share(reached, all_):
    return f"{100 * reached / all_:6.1f} % of {all_:5}" if all_ else f"{'':>16}"

print(f"{'folder':<76}{'lines':>17}{'branches':>19}")
for folder, (lines, all_lines, branches, all_branches) in sorted(folders.items()):
    print(f"{folder:<76}{share(lines, all_lines)}  {share(branches, all_branches)}")
PYTHON
exit "$status"
