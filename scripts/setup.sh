#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes a machine ready to build and test: installs the Debian packages that are missing, creates
# .venv and fills it from scripts/requirements.txt. Does nothing where nothing is missing.
#
# setup.sh bench     also installs the peers that the benchmarks compare with, those for Python into
#                    .venv-bench
# setup.sh fuzz      also installs a compiler with a fuzzer
# setup.sh lint      also installs clang-tidy
# setup.sh coverage  also installs gcovr into .venv
#
# PYTHON names the interpreter that .venv is made from (default: python3).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

python="${PYTHON:-python3}"
purpose="${1:-}"

fail() {
    echo "setup: $*" >&2
    exit 1
}

has_header() {
    echo "#include <$1>" | g++ -std=c++20 -x c++ -E - >/dev/null 2>&1
}

has_python_header() {
    # The interpreter in use may be one that brings its own headers.
    local folder
    folder=$("$python" -c 'import sysconfig; print(sysconfig.get_path("include"))' 2>/dev/null) &&
        [ -f "$folder/Python.h" ]
}

has_venv() {
    "$python" -c 'import ensurepip, venv' 2>/dev/null
}

has_fuzzer() {
    printf 'extern "C" int LLVMFuzzerTestOneInput(const char*, long) { return 0; }' |
        clang++-16 -fsanitize=fuzzer,address -x c++ - -o /dev/null 2>/dev/null
}

# Each package is asked for by what it brings, so that a tool from elsewhere counts as well.
missing_packages() {
    { command -v g++ && command -v make; } >/dev/null || echo build-essential
    command -v cmake >/dev/null || echo cmake
    command -v ninja >/dev/null || echo ninja-build
    command -v ccache >/dev/null || echo ccache
    command -v clang >/dev/null || command -v clang-14 >/dev/null || echo clang-14
    command -v clang-format-14 >/dev/null || command -v clang-format >/dev/null || echo clang-format
    command -v "$python" >/dev/null || echo python3
    has_python_header || echo python3-dev
    has_venv || echo python3-venv
    has_header gtest/gtest.h || echo libgtest-dev
    has_header gmock/gmock.h || echo libgmock-dev
    has_header benchmark/benchmark.h || echo libbenchmark-dev
    if [ "$purpose" = bench ]; then
        has_header openblas-pthread/cblas.h || echo libopenblas-dev
        has_header lapacke.h || echo liblapacke-dev
    fi
    [ "$purpose" != lint ] || command -v run-clang-tidy >/dev/null ||
        command -v run-clang-tidy-14 >/dev/null || echo clang-tidy
    [ "$purpose" != fuzz ] || has_fuzzer || echo clang-16 libclang-rt-16-dev
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

install_packages() {
    local wanted="$*"
    command -v apt-get >/dev/null ||
        fail "missing: $wanted (Debian's names). There is no apt-get here; install them and try again."
    [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null ||
        fail "missing: $wanted. Run 'apt-get install $wanted' as root and try again."
    echo "setup: installing $wanted"
    export DEBIAN_FRONTEND=noninteractive
    as_root apt-get update -qq || fail "apt-get update failed; still missing: $wanted"
    # shellcheck disable=SC2086 # one word a package
    as_root apt-get install -qq -y --no-install-recommends $wanted >/dev/null ||
        fail "apt-get install failed; still missing: $wanted"
}

# ready_environment FOLDER REQUIREMENTS INTERPRETER
ready_environment() {
    local folder="$1" requirements="$2" interpreter="$3" stamp="$1/.ready"
    if [ ! -e "$stamp" ] || [ "$requirements" -nt "$stamp" ] ||
        ! "$folder/bin/python" -c '' 2>/dev/null; then
        fill_environment "$folder" "$requirements" "$interpreter"
    fi
    touch "$stamp"
}

fill_environment() {
    local folder="$1" requirements="$2" interpreter="$3"
    if [ -e "$folder" ] && ! "$folder/bin/python" -m pip --version >/dev/null 2>&1; then
        echo "setup: $folder does not run here, making it anew"
        rm -rf "$folder"
    fi
    if [ ! -e "$folder" ]; then
        echo "setup: creating $folder with $("$interpreter" --version)"
        "$interpreter" -m venv "$folder" || fail "'$interpreter -m venv $folder' failed"
    fi
    echo "setup: installing the Python packages of $requirements"
    "$folder/bin/python" -m pip install --quiet --disable-pip-version-check -r "$requirements" ||
        fail "pip could not install the packages of $requirements into $folder"
}

[ -z "${PYTHON:-}" ] || command -v "$PYTHON" >/dev/null || fail "there is no interpreter PYTHON=$PYTHON"

mapfile -t missing < <(missing_packages)
if [ "${#missing[@]}" -gt 0 ]; then
    install_packages "${missing[@]}"
    hash -r
    mapfile -t missing < <(missing_packages)
    [ "${#missing[@]}" -eq 0 ] || fail "still missing after installation: ${missing[*]}"
fi

"$python" -c 'import sys; sys.exit(sys.version_info < (3, 10))' ||
    fail "$("$python" --version) is too old, 3.10 or later is needed; name another one with PYTHON=..."

ready_environment .venv scripts/requirements.txt "$python"
# The module that is measured was built for the interpreter of .venv.
[ "$purpose" != bench ] ||
    ready_environment .venv-bench scripts/requirements-bench.txt .venv/bin/python
[ "$purpose" != coverage ] || [ -x .venv/bin/gcovr ] ||
    .venv/bin/python -m pip install --quiet --disable-pip-version-check 'gcovr>=7,<9' ||
    fail "pip could not install gcovr into .venv"
