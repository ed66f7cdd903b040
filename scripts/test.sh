#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs the C++ tests and then the Python tests of the release build, both in any case, and ends
# with the engines that were tested and the closing line of each. Fails when either fails, when no
# engine was tested and when the Python tests leak objects of the module.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit
# usage: test.sh [arguments for pytest]

build=build/release
logs=$build/Testing
mkdir -p "$logs"

ctest --preset release -j"${JOBS:-1}" 2>&1 | tee "$logs/ctest.txt"
cpp_status=$?
PYTHONPATH=$build/python .venv/bin/python -X dev -m pytest tests/python "$@" 2>&1 | tee "$logs/pytest.txt"
python_status=$?

# In development mode the last lines name the objects of the module that outlive the interpreter.
leaks_status=0
if grep -n '^nanobind: leaked' "$logs/pytest.txt"; then
    leaks_status=1
fi

closing_line() {
    grep -E "$1" "$2" | tail -n 1 | grep . || echo "no closing line; see $2"
}
engines() {
    grep -ho '^\[ engine   \] .*' "$build/Testing/Temporary/LastTest.log" | cut -d' ' -f6- | sort | uniq -c |
        awk '{ printf "%s%s in %d tests", separator, $2, $1; separator = ", " }' | grep . ||
        echo "none"
}
engines=$(engines)
echo
echo "Engines: $engines"
echo "C++:    $(closing_line 'tests passed|No tests were found' "$logs/ctest.txt")"
echo "Python: $(closing_line '(passed|failed|error|no tests ran).* in [0-9.]+s' "$logs/pytest.txt" | tr -d =)"
[ "$cpp_status" -eq 0 ] && [ "$python_status" -eq 0 ] && [ "$leaks_status" -eq 0 ] &&
    [ "$engines" != none ]
