#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Reads the library's object files: instruction sets stay in the units that may use them.
#
# usage: object_code_test.sh <nm> <objdump> <file that lists the objects, one a line>
set -euo pipefail
nm=$1
objdump=$2
objects=$3

failures=0
fail() {
    echo "FAILED: $1" >&2
    failures=$((failures + 1))
}

disassembly() {
    "$objdump" -d --no-show-raw-insn --no-addresses "$1" | grep $'^\t' || true
}

wide_register='%[yz]mm[0-9]'
fused='\bvfn?m(add|sub)'

# The linker keeps one copy of a weak symbol, from any unit, and plain units would run it. Only the
# reference to the exception personality is data that is the same everywhere.
check_engine() {
    local weak library
    weak=$("$nm" -C "$1" | grep -E '^[0-9a-f]* +[uVvW] ' | grep -v 'DW\.ref\.__gxx_personality_v0' || true)
    [[ -z $weak ]] || fail "weak symbols in $1: $weak"
    library=$("$nm" -uC "$1" | grep -E '\bstd::' || true)
    [[ -z $library ]] || fail "calls of the standard library in $1: $library"
    grep -qE "$2" <<<"$code" || fail "no $2 in $1: the check reads the wrong thing"
}

units=0
while read -r object; do
    code=$(disassembly "$object")
    case $object in
    */simd/units/*_x86_avx256*)
        check_engine "$object" '%ymm[0-9]'
        ! grep -qE "$fused" <<<"$code" || fail "fused operations in $object"
        ! grep -qE '%zmm[0-9]|%k[0-7]' <<<"$code" || fail "512-bit instructions in $object"
        [[ $object == */unfused_x86_avx256* ]] || ! grep -qE $'^\tvcvt(ph2ps|ps2ph)' <<<"$code" ||
            fail "conversions of F16C in $object"
        units=$((units + 1))
        ;;
    */simd/units/*_x86_avx512*)
        check_engine "$object" '%zmm[0-9]'
        fuses=$(grep -cE "$fused" <<<"$code" || true)
        [[ $object == *unfused* ]] || [[ $fuses -gt 0 ]] || fail "no fused operations in $object"
        [[ $object != *unfused* ]] || [[ $fuses -eq 0 ]] || fail "fused operations in $object"
        units=$((units + 1))
        ;;
    *)
        ! grep -qE "$wide_register" <<<"$code" || fail "vector instructions in $object"
        # With the prefix of AVX, even narrow registers need a newer processor.
        ! grep -E $'^\tv' <<<"$code" | grep -qvE $'^\tver[rw]\b' || fail "AVX instructions in $object"
        ;;
    esac
done <"$objects"

[[ $units -eq 7 ]] || fail "$units units of instruction sets among the objects, 7 expected"
[[ $failures -eq 0 ]] || exit 1
echo "checked $(wc -l <"$objects") objects"
