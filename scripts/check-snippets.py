#!/usr/bin/env python3
"""Checks that every piece of C++ and CMake in the documents is a part of a file that is built.

A line above such a block names the file and the part:

    <!-- examples/guide/merge.cpp [merge] -->

The part stands between two comments with its name in the file. With --write the blocks are replaced by the parts.
"""
import pathlib
import re
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENTS = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").glob("*.md"))]
BLOCK = re.compile(r"(?:^<!-- (?P<file>\S+) \[(?P<part>\w+)\] -->\n)?^```(?P<kind>cpp|cmake)\n(?P<text>.*?)^```$",
                   re.MULTILINE | re.DOTALL)


def part_of(name, part):
    """The lines between the two marks, without their indentation."""
    mark = re.compile(rf"^\s*(?://|#) \[{part}\]\n", re.MULTILINE)
    pieces = mark.split((ROOT / name).read_text())
    if len(pieces) != 3:
        raise ValueError(f"{name}: the mark [{part}] was expected twice, found {len(pieces) - 1} times")
    return textwrap.dedent(pieces[1])


def checked(document, write):
    text = document.read_text()
    problems = []

    def replaced(block):
        line = text.count("\n", 0, block.start("kind")) + 1
        where = f"{document.relative_to(ROOT)}:{line}"
        if not block["file"]:
            problems.append(f"{where}: this block names no file")
            return block[0]
        try:
            expected = part_of(block["file"], block["part"])
        except (OSError, ValueError) as error:
            problems.append(f"{where}: {error}")
            return block[0]
        if block["text"] != expected and not write:
            problems.append(f"{where}: this block differs from {block['file']} [{block['part']}]; "
                            "scripts/check-snippets.py --write copies the file's text")
        begin, end = (at - block.start() for at in block.span("text"))
        return block[0][:begin] + expected + block[0][end:]

    result = BLOCK.sub(replaced, text)
    if write and result != text:
        document.write_text(result)
    return problems


found = [problem for document in DOCUMENTS for problem in checked(document, "--write" in sys.argv[1:])]
print("\n".join(found), end="\n" if found else "")
sys.exit(1 if found else 0)
