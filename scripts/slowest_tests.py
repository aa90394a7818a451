#!/usr/bin/env python3
"""Prints the slowest tests of a run, read from the reports that GoogleTest wrote.

usage: scripts/slowest_tests.py FOLDER [COUNT]

FOLDER holds the XML reports (build/PRESET/Testing/reports); COUNT is 20 if missing.
"""
import pathlib
import sys
import xml.etree.ElementTree


def seconds_of_tests(folder: pathlib.Path) -> list[tuple[float, str]]:
    tests = []
    for report in folder.glob("*.xml"):
        try:
            root = xml.etree.ElementTree.parse(report).getroot()
        except xml.etree.ElementTree.ParseError:
            continue  # a program that crashed leaves half a report; ctest has named it
        for case in root.iter("testcase"):
            if case.get("status") == "run":
                tests.append((float(case.get("time", 0)), f"{case.get('classname')}.{case.get('name')}"))
    return sorted(tests, reverse=True)


def main() -> None:
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    count = int(sys.argv[2]) if len(sys.argv) == 3 else 20
    tests = seconds_of_tests(pathlib.Path(sys.argv[1]))
    print(f"{len(tests)} GoogleTest cases ran for {sum(t for t, _ in tests):.0f} s; the slowest:")
    for seconds, name in tests[:count]:
        print(f"{seconds:8.2f} s  {name}")


if __name__ == "__main__":
    main()
