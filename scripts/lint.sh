#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks the names of all C++ code of the release build with clang-tidy, by .clang-tidy.
#
# Only findings about names count: clang-tidy 14 lacks some C++20 that g++ 12 has (source_location,
# structured bindings in lambda captures) and parses on after such an error.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

command -v run-clang-tidy >/dev/null || {
    echo "lint: clang-tidy is missing (apt-get install clang-tidy)" >&2
    exit 1
}

log=build/release/clang-tidy.txt
run-clang-tidy -quiet -j"${JOBS:-1}" -p build/release -extra-arg=-ferror-limit=0 \
    -extra-arg=-fno-color-diagnostics "^$PWD/(src|python|tests|bench|examples)/" \
    >"$log" 2>&1 || true
sed -i 's/\x1b\[[0-9;]*m//g' "$log"

files=$(grep -c '^clang-tidy.* -p=' "$log") || {
    echo "lint: clang-tidy read no file; see $log" >&2
    exit 1
}
if grep -E 'readability-identifier-naming|fatal error:' "$log" | sort -u; then
    echo "lint: wrong names or unreadable files among $files; see $log" >&2
    exit 1
fi
echo "lint: names are right in $files files and what they include"
