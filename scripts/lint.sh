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

build=build/release
log=$build/clang-tidy.txt
own="$PWD/(src|python|tests|bench|examples)/"
run-clang-tidy -quiet -j"${JOBS:-1}" -p "$build" -extra-arg=-ferror-limit=0 "^$own" >"$log" 2>&1 ||
    true # also for findings that do not count
sed -i 's/\x1b\[[0-9;]*m//g' "$log"

expected=$(grep -E "\"file\": \"$own" "$build/compile_commands.json" | sort -u | wc -l)
files=$(grep -cE '^clang-tidy.* -p=' "$log" || true)
if [ "$expected" -eq 0 ] || [ "$files" -ne "$expected" ]; then
    echo "lint: clang-tidy read $files of $expected files; see $log" >&2
    exit 1
fi
if grep -E 'readability-identifier-naming|fatal error:|terminated by signal' "$log" | sort -u; then
    echo "lint: wrong names or unreadable files among $files; see $log" >&2
    exit 1
fi
echo "lint: names are right in $files files and what they include"
