#!/usr/bin/env python3
"""Writes the case-mapping tables of src/string from the files of the Unicode Character Database.

    tools/unicode/generate_case_mappings.py [FOLDER] > src/string/VQCaseMappings.h

FOLDER holds UnicodeData.txt, SpecialCasing.txt and DerivedAge.txt of any version from 4.0 on (the default is where
Debian's package unicode-data puts them). The tables are those of Unicode 4.0, whatever the version of the files:
a mapping counts when the letter and what it becomes are both as old as that. Nothing is written unless the tables
have the sizes, and the check sums, that services were built against.
"""

import sys
import zlib
from pathlib import Path

AGE = (4, 0)
LAST = 0xFFFF

# direction: singles, ranges, multi-character mappings, CRC-32 of lines "CODE>MAPPED MAPPED\n"
EXPECTED = {
    "Upper": (386, 28, 102, 0xD6FF6BAB),
    "Lower": (380, 31, 1, 0x3BA29A93),
}

NOTICE = """\
// Derived from data files of the Unicode Character Database (UnicodeData.txt, SpecialCasing.txt, DerivedAge.txt),
// cut to Unicode 4.0 and rearranged:
//
// Copyright (c) 1991-2005 Unicode, Inc. All rights reserved. Distributed under the Terms of Use in
// http://www.unicode.org/copyright.html.
//
// Permission is hereby granted, free of charge, to any person obtaining a copy of the Unicode data files and any
// associated documentation (the "Data Files") or Unicode software and any associated documentation (the "Software")
// to deal in the Data Files or Software without restriction, including without limitation the rights to use, copy,
// modify, merge, publish, distribute, and/or sell copies of the Data Files or Software, and to permit persons to
// whom the Data Files or Software are furnished to do so, provided that (a) the above copyright notice(s) and this
// permission notice appear with all copies of the Data Files or Software, (b) both the above copyright notice(s)
// and this permission notice appear in associated documentation, and (c) there is clear notice in each modified
// Data File or in the Software as well as in the documentation associated with the Data File(s) or Software that
// the data or software has been modified.
//
// THE DATA FILES AND SOFTWARE ARE PROVIDED "AS IS", WITHOUT WARRANTY OF ANY KIND, EXPRESS OR IMPLIED, INCLUDING BUT
// NOT LIMITED TO THE WARRANTIES OF MERCHANTABILITY, FITNESS FOR A PARTICULAR PURPOSE AND NONINFRINGEMENT OF THIRD
// PARTY RIGHTS. IN NO EVENT SHALL THE COPYRIGHT HOLDER OR HOLDERS INCLUDED IN THIS NOTICE BE LIABLE FOR ANY CLAIM,
// OR ANY SPECIAL INDIRECT OR CONSEQUENTIAL DAMAGES, OR ANY DAMAGES WHATSOEVER RESULTING FROM LOSS OF USE, DATA OR
// PROFITS, WHETHER IN AN ACTION OF CONTRACT, NEGLIGENCE OR OTHER TORTIOUS ACTION, ARISING OUT OF OR IN CONNECTION
// WITH THE USE OR PERFORMANCE OF THE DATA FILES OR SOFTWARE.
//
// Except as contained in this notice, the name of a copyright holder shall not be used in advertising or otherwise
// to promote the sale, use or other dealings in these Data Files or Software without prior written authorization of
// the copyright holder."""


def fields(path):
    for line in path.read_text(encoding="utf-8").splitlines():
        line = line.split("#", 1)[0].strip()
        if line:
            yield [field.strip() for field in line.split(";")]


def old_enough(folder):
    """The code points that Unicode 4.0 has."""
    codes = set()
    for span, age in fields(folder / "DerivedAge.txt"):
        if tuple(map(int, age.split("."))) <= AGE:
            first, _, last = span.partition("..")
            codes.update(range(int(first, 16), int(last or first, 16) + 1))
    return codes


def mappings(folder, direction):
    """Code -> what it becomes, for every letter of the plane that becomes something else."""
    known = old_enough(folder)
    simple_field = {"Upper": 12, "Lower": 13}[direction]
    special_field = {"Upper": 3, "Lower": 1}[direction]
    letters = set()
    result = {}
    for line in fields(folder / "UnicodeData.txt"):
        code = int(line[0], 16)
        if not line[2].startswith("L") or code > LAST or code not in known:
            continue
        letters.add(code)
        if line[simple_field]:
            mapped = int(line[simple_field], 16)
            if mapped <= LAST and mapped in known:
                result[code] = [mapped]
    for line in fields(folder / "SpecialCasing.txt"):
        code = int(line[0], 16)
        mapped = [int(one, 16) for one in line[special_field].split()]
        condition = line[4]
        if not condition and len(mapped) > 1 and code in letters and known.issuperset(mapped):
            result[code] = mapped
    return dict(sorted(result.items()))


def runs(simple):
    """Neighbours whose targets are neighbours as well, as (first, length, first target)."""
    found = []
    for code, mapped in simple.items():
        if found and code == found[-1][0] + found[-1][1] and mapped == found[-1][2] + found[-1][1]:
            found[-1][1] += 1
        else:
            found.append([code, 1, mapped])
    return found


def check_sum(result):
    lines = (f"{code:04X}>{' '.join(f'{one:04X}' for one in mapped)}\n" for code, mapped in result.items())
    return zlib.crc32("".join(lines).encode("ascii"))


def array(kind, name, entries):
    """The entries, as many as fit into each line."""
    lines = [""]
    for entry in entries:
        if len(lines[-1]) + len(entry) + 2 > 112:
            lines.append("")
        lines[-1] += (" " if lines[-1] else "") + entry + ","
    body = "\n".join(f"    {line}" for line in lines)
    return f"constexpr {kind} {name}[] = {{\n{body}\n}};\n"


def tables(folder, direction):
    result = mappings(folder, direction)
    all_runs = runs({code: mapped[0] for code, mapped in result.items() if len(mapped) == 1})
    singles = [run for run in all_runs if run[1] == 1]
    ranges = [run for run in all_runs if run[1] > 1]
    multis = {code: mapped for code, mapped in result.items() if len(mapped) > 1}
    sizes = (len(singles), len(ranges), len(multis), check_sum(result))
    if sizes != EXPECTED[direction]:
        sys.exit(f"{direction}: {sizes} instead of {EXPECTED[direction]}")

    codes, places = [], {}
    for code, mapped in multis.items():
        places[code] = len(codes)
        codes += mapped
    multi_entries = [f"{{0x{code:04X}, {len(mapped)}, k{direction}MultiCodes + {places[code]}}}"
                     for code, mapped in multis.items()]
    return "\n".join([
        array("SSingle", f"k{direction}Singles", [f"{{0x{one[0]:04X}, 0x{one[2]:04X}}}" for one in singles]),
        array("SRange", f"k{direction}Ranges", [f"{{0x{one[0]:04X}, {one[1]}, 0x{one[2]:04X}}}" for one in ranges]),
        array("unsigned short", f"k{direction}MultiCodes", [f"0x{one:04X}" for one in codes]),
        array("SMulti", f"k{direction}Multis", multi_entries),
    ])


def main():
    folder = Path(sys.argv[1] if len(sys.argv) > 1 else "/usr/share/unicode")
    print(f"""\
// VQCaseMappings: the case mappings of Unicode 4.0 for letters of the Basic Multilingual Plane.
// Written by tools/unicode/generate_case_mappings.py; not to be changed by hand.
//
{NOTICE}
#pragma once

#include <VQStringUtilities.h>

namespace VQStringUtilities {{

using SSingle = TVQCaseMappings<unsigned short>::SSingle;
using SRange = TVQCaseMappings<unsigned short>::SRange;
using SMulti = TVQCaseMappings<unsigned short>::SMulti;

// clang-format off
{tables(folder, "Upper")}
{tables(folder, "Lower")}// clang-format on

}}  // namespace VQStringUtilities""")


if __name__ == "__main__":
    main()
