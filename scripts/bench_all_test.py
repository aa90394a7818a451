#!/usr/bin/env python3
"""Tests bench_all.py with programs that only pretend to work, so that it takes a second."""

import json
import pathlib
import subprocess
import sys
import tempfile
import types
import unittest

import bench_all

SCRIPT = pathlib.Path(__file__).with_name("bench_all.py")

RENDERER = """#!/bin/sh
mkdir -p "$1"
for i in $(seq "$2"); do : > "$1/$i.jpg"; done
"""
ORVO = """#!/bin/sh
echo '{"phases": [{"name": "read", "milliseconds": 30}, {"name": "write", "milliseconds": 10}]}'
"""
FAILING = "#!/bin/sh\nexit 3\n"
MARKED = "kept\n<!-- bench_all: single -->\nold\n<!-- bench_all: end of single -->\nkept too\n"


class BenchAll(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)
        (self.root / "bin").mkdir()
        (self.root / "docs").mkdir()
        self.page = self.root / "docs" / "performance.md"
        self.page.write_text(MARKED)
        for tool in ("bench_render", "bench_render_focus", "bench_render_pano"):
            self.program(tool, RENDERER)
        self.orvo = self.program("orvo", ORVO)

    def program(self, name, text):
        path = self.root / "bin" / name
        path.write_text(text)
        path.chmod(0o755)
        return path

    def run_bench(self, *arguments):
        return subprocess.run([sys.executable, SCRIPT, "--root", self.root, "--bin", self.root / "bin", *arguments,
                               self.root / "work"], capture_output=True, text=True, check=False)

    def recorded(self, *arguments):
        result = self.run_bench("--json", self.root / "runs.json", *arguments)
        self.assertEqual(result.returncode, 0, result.stderr)
        return json.loads((self.root / "runs.json").read_text()), result

    def test_programs_take_turns_three_times_and_are_recorded(self):
        record, result = self.recorded("--only", "single", "--against", self.program("before", ORVO))
        own, other = record["jobs"]["single"]["programs"]
        self.assertEqual([len(own["runs"]), len(other["runs"])], [3, 3])
        self.assertEqual(other["program"], own["program"] + ", other build")
        self.assertGreater(other["memory_ratio"], 0)
        self.assertEqual(record["jobs"]["single"]["steps"], {"read": 0.75, "write": 0.25})
        self.assertIn("Steps: read 75 %, write 25 %.", result.stdout)

    def test_ratio_is_the_median_of_ours_by_theirs_in_each_round(self):
        runs = [[types.SimpleNamespace(seconds=each) for each in seconds] for seconds in ((1, 2, 9), (4, 4, 3))]
        self.assertEqual(bench_all.ratio(*runs, "seconds"), 0.5)

    def test_large_merges_run_once(self):
        record, _ = self.recorded("--only", "merge_huge")
        self.assertEqual(len(record["jobs"]["merge_huge"]["programs"][0]["runs"]), 1)

    def test_every_job_and_growth_run(self):
        record, _ = self.recorded("--quick")
        self.assertEqual(len(record["jobs"]), 12)
        self.assertEqual(list(record["growth"]), ["megapixels", "frames"])

    def test_peer_that_fails_is_left_out(self):
        record, result = self.recorded("--only", "single", "--against", self.program("before", FAILING))
        self.assertEqual(len(record["jobs"]["single"]["programs"]), 1)
        self.assertIn("other build is left out", result.stderr)

    def test_own_failure_ends_the_script(self):
        self.orvo.write_text(FAILING)
        result = self.run_bench("--only", "single")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("bench_all: Command", result.stderr)

    def test_writes_between_the_markers_only(self):
        self.assertEqual(self.run_bench("--only", "single", "--write").returncode, 0)
        text = self.page.read_text()
        self.assertTrue(text.startswith("kept\n<!-- bench_all: single -->\n\n| program |"), text)
        self.assertTrue(text.endswith("\n\n<!-- bench_all: end of single -->\nkept too\n"), text)

    def test_refuses_before_it_measures(self):
        for arguments, reason in ((("--only", "nothing"), "there is no such job"),
                                  (("--against", "/nothing"), "is not a program"),
                                  (("--only", "merge", "--write"), "has no markers of merge"),
                                  (("--json", "/nothing/runs.json"), "its folder is missing"),
                                  (("--quick", "--write"), "not for the page")):
            with self.subTest(arguments):
                result = self.run_bench(*arguments)
                self.assertNotEqual(result.returncode, 0)
                self.assertIn(reason, result.stderr)
                self.assertNotIn("| program |", result.stdout)


if __name__ == "__main__":
    unittest.main()
