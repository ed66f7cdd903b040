# SPDX-License-Identifier: Apache-2.0
"""Fails where a file includes one of a floor, or of a room of the CPU backend, that stands above its own.

Fails as well where a public header includes one that is not installed.
"""

import pathlib
import re
import sys

# From the ground up. A file belongs to the longest entry that its path below src/ or
# include/tessaline/ begins with, a public header of the CPU backend to the room of its source.
FLOORS = [
    "catalogue",
    "storage",
    "execution",
    "dispatch",
    "backend/common",
    "backend/cpu/numbers",
    "backend/cpu/runtime",
    "backend/cpu/simd/plain",
    "backend/cpu/simd/tables",
    "backend/cpu/simd/sets",
    "backend/cpu/simd/kernels",
    "backend/cpu/simd/units",
    "backend/cpu/steps",
    "backend/cpu/lu",
    "backend/cpu/determinants",
    "backend/cpu/eigen_hermitian",
    "backend/cpu/eigen_general",
    "backend/cpu/floating",
    "backend/cpu/engine",
    "backend/cpu/rows",
    "backend/cuda",
    "frontend",
]
HEADERS_WITHOUT_SOURCE = {
    "cpu_chunk_body": "runtime",
    "cpu_runtime_options": "runtime",
    "cpu_simd": "simd/tables",
    "launch_cpu_kernel_step": "steps",
}

ROOT = pathlib.Path(__file__).resolve().parent.parent
ROOTS = [ROOT / "src", ROOT / "include" / "tessaline"]


def rooms_of_sources():
    backend = ROOT / "src/backend/cpu"
    return {path.stem: path.parent.relative_to(backend).as_posix() for path in backend.rglob("*.cpp")}


def floor_of(path, rooms):
    name = path.as_posix()
    if path.parent.as_posix() == "backend/cpu":
        room = rooms.get(path.stem) or HEADERS_WITHOUT_SOURCE.get(path.stem)
        name = f"backend/cpu/{room}/{path.name}"
    matches = [floor for floor in FLOORS if name.startswith(floor + "/")]
    return FLOORS.index(max(matches, key=len)) if matches else None


def main():
    rooms = rooms_of_sources()
    files = faults = 0
    for root in ROOTS:
        for path in sorted(root.rglob("*")):
            if path.suffix not in (".h", ".cpp", ".cu"):
                continue
            own = floor_of(path.relative_to(root), rooms)
            files += own is not None
            for public, name in re.findall(r'^#include "(tessaline/)?([^"]+)"', path.read_text(), re.M):
                if root.name == "tessaline" and not public:
                    faults += 1
                    print(f"{path.relative_to(ROOT)} is installed and includes {name}, which is not")
                other = floor_of(pathlib.PurePath(name), rooms)
                if own is not None and other is not None and other > own:
                    faults += 1
                    print(f"{path.relative_to(ROOT)} ({FLOORS[own]}) includes {name} ({FLOORS[other]})")
    print(f"includes: {files} files, {faults} against the order of the floors or out of what is installed")
    return 1 if faults or not files else 0


sys.exit(main())
