#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs the C++ tests and then the Python tests of the release build, both in any case, and ends
# with the closing line of each. Fails when either fails.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

build=build/release
logs=$build/Testing
mkdir -p "$logs"

ctest --preset release -j"${JOBS:-1}" 2>&1 | tee "$logs/ctest.txt"
cpp_status=$?
PYTHONPATH=$build/python .venv/bin/python -m pytest tests/python 2>&1 | tee "$logs/pytest.txt"
python_status=$?

closing_line() {
    grep -E "$1" "$2" | tail -n 1 | grep . || echo "no closing line; see $2"
}
echo
echo "C++:    $(closing_line 'tests passed|No tests were found' "$logs/ctest.txt")"
echo "Python: $(closing_line '(passed|failed|error|no tests ran).* in [0-9.]+s' "$logs/pytest.txt" | tr -d =)"
[ "$cpp_status" -eq 0 ] && [ "$python_status" -eq 0 ]
