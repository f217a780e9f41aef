#!/usr/bin/env bash
# Builds the coverage preset and runs all tests except one. Prints the share of lines and branches that the tests execute, by
# folder. build/coverage/coverage.txt lists the lines that no test executes. The exit status is that of ctest.
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
# The excluded test limits the size of files. The limit also applies to the files of the coverage counters.
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

def format_share(executed, total):
    return f"{100 * executed / total:6.1f} % of {total:5}" if total else f"{'':>16}"

print(f"{'folder':<76}{'lines':>17}{'branches':>19}")
for folder, (lines, all_lines, branches, all_branches) in sorted(folders.items()):
    print(f"{folder:<76}{format_share(lines, all_lines)}  {format_share(branches, all_branches)}")
PYTHON
exit "$status"
