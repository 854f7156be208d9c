"""Tests bench/report with a benchmark program that gives the figures of docs/performance-rows.csv:
the page and the chart must become those of docs/.
"""
import csv
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
PARTS = re.compile(r"(<!-- [\w-]+, by bench/report -->\n).*?(<!-- end -->)", re.DOTALL)
MACHINE = re.compile(r"<!-- machine,.*?<!-- end -->", re.DOTALL)


def read_rows(folder):
    with open(folder / "performance-rows.csv", encoding="utf-8") as file:
        rows = {line.pop("benchmark"): line for line in csv.DictReader(file)}
    return {name: {k: float(v) for k, v in row.items() if v} for name, row in rows.items()}


class Report(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build, self.docs = pathlib.Path(folder.name) / "build", pathlib.Path(folder.name)
        (self.build / "bench").mkdir(parents=True)
        (self.build / "CMakeCache.txt").write_text(
            f"CMAKE_CXX_COMPILER:FILEPATH={sys.executable}\n")
        program = self.build / "bench/tev-bench"
        program.write_text(f'#!/bin/sh\ncp {self.build}/run.json "${{1#--benchmark_out=}}"\n')
        program.chmod(0o755)
        self.page = (SOURCE / "docs/performance.md").read_text(encoding="utf-8")
        (self.docs / "performance.md").write_text(PARTS.sub(r"\1\2", self.page), encoding="utf-8")

    def report(self, rows):
        results = [
            {"name": name + "/min_time:0.020/manual_time", "run_name": name, "iterations": 7,
             "real_time": figures.get("time_ns", 0) / 1000, "cpu_time": 1, "time_unit": "us",
             **{key: value for key, value in figures.items() if key != "time_ns"}}
            for name, figures in rows.items()
        ]
        (self.build / "run.json").write_text(json.dumps({
            "context": {"date": "2031-05-06T07:08:09+00:00", "mhz_per_cpu": 1234},
            "benchmarks": results}))
        return subprocess.run([SOURCE / "bench/report", self.build, "--docs", self.docs],
                              capture_output=True, text=True, timeout=60)

    def test_page_is_made_from_the_rows(self):
        rows = read_rows(SOURCE / "docs")
        run = self.report(rows)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        page = (self.docs / "performance.md").read_text(encoding="utf-8")
        self.assertEqual(MACHINE.sub("", page), MACHINE.sub("", self.page))
        self.assertRegex(page, r"\| measured on \| 2031-05-06 \|\n\| processor \| .*, 1\.2 GHz, ")
        self.assertEqual((self.docs / "performance.svg").read_text(),
                         (SOURCE / "docs/performance.svg").read_text())
        written = read_rows(self.docs)
        for name, figures in rows.items():
            self.assertLessEqual(figures.items(), written[name].items())

    def test_incomplete_run_changes_nothing(self):
        before = (self.docs / "performance.md").read_text(encoding="utf-8")
        rows = read_rows(SOURCE / "docs")
        for missing in ("swap/", "samplingPass/devices:8/counters:64/planes:4/interleaved:1"):
            run = self.report({k: v for k, v in rows.items() if not k.startswith(missing)})
            self.assertEqual(run.returncode, 1, missing)
            self.assertNotIn("Traceback", run.stderr)
        self.assertEqual(sorted(path.name for path in self.docs.iterdir()),
                         ["build", "performance.md"])
        self.assertEqual((self.docs / "performance.md").read_text(encoding="utf-8"), before)


unittest.main()
