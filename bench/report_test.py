#!/usr/bin/env python3
"""Checks the performance report against made-up benchmark results: the
right figure is picked, verdicts go the right way, and a failed benchmark
fails the report."""
import json
import os
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))


def entry(name, cpu, unit="ns", aggregate=None, **counters):
    e = {"name": name + ("_" + aggregate if aggregate else ""), "run_name": name,
         "run_type": "aggregate" if aggregate else "iteration", "iterations": 10,
         "real_time": cpu * 3, "cpu_time": cpu, "time_unit": unit}
    if aggregate:
        e["aggregate_name"] = aggregate
    e.update(counters)
    return e


class ReportTest(unittest.TestCase):
    def run_report(self, benchmarks, wire=None):
        self.tmp = tempfile.TemporaryDirectory()
        self.addCleanup(self.tmp.cleanup)
        res = os.path.join(self.tmp.name, "res")
        docs = os.path.join(self.tmp.name, "docs")
        os.makedirs(res)
        os.makedirs(docs)
        with open(os.path.join(res, "x_bench.json"), "w") as f:
            json.dump({"context": {}, "benchmarks": benchmarks}, f)
        if wire:
            with open(os.path.join(res, "wire_efficiency.json"), "w") as f:
                json.dump(wire, f)
        rc = subprocess.run([sys.executable, os.path.join(HERE, "report.py"), "--results", res,
                             "--docs", docs, "--build", self.tmp.name, "--plots", "0"]).returncode
        with open(os.path.join(docs, "performance.md")) as f:
            return rc, f.read()

    def line(self, text, start):
        return next(l for l in text.splitlines() if l.startswith(start))

    def test_verdicts_use_the_fastest_repetition(self):
        rc, md = self.run_report([
            entry("BM_PollRound_SharedMirror", 2600),
            entry("BM_PollRound_SharedMirror", 2100),
            entry("BM_PollRound_SharedMirror", 1900, aggregate="median"),
            entry("BM_PollRound_SharedMirror", 2300),
            entry("BM_PollRound_PerStationStore", 4.0, unit="us"),
            entry("BM_GetRegisterData_SharedMirror", 150),
            entry("BM_GetRegisterData_PerStationStore/1000", 100),
            entry("BM_GetRegisterData_PerStationStore/50000", 250),
        ])
        self.assertEqual(rc, 0)
        self.assertIn("2.10 µs | **missed**", self.line(md, "| Polling round, 64-register read, shared"))
        self.assertIn("4.00 µs | met", self.line(md, "| Polling round, 64-register read, per-station"))
        self.assertIn("150 ns | met", self.line(md, "| `GetRegisterData`, one word, shared"))
        self.assertIn("2.50× (250 ns vs 100 ns) | **missed**",
                      self.line(md, "| `GetRegisterData`, one word, per-station"))
        self.assertIn("not measured", self.line(md, "| `SetRegisterData`"))

    def test_rebuild_series_and_ratio(self):
        rc, md = self.run_report([
            entry("BM_RebuildReadList/vars:20000/multi:0", 10, unit="ms"),
            entry("BM_RebuildReadList/vars:100000/multi:0", 55, unit="ms"),
            entry("BM_RebuildReadList/vars:20000/multi:1", 25, unit="ms"),
            entry("BM_RebuildReadList/vars:100000/multi:1", 100, unit="ms"),
            entry("BM_Heap_PerStationKeys/50000/iterations:1", 5, unit="ms",
                  store_heap_bytes=5120000, bytes_per_key=102.4, keys=50000),
        ])
        self.assertEqual(rc, 0)
        self.assertIn("10.00 ms | met", self.line(md, "| `ReCreatReadVarList`, 20,000 variables, single"))
        self.assertIn("5.50× (55.00 ms) | met", self.line(md, "| `ReCreatReadVarList`, 100,000 vs 20,000, single"))
        self.assertIn("25.00 ms | **missed**", self.line(md, "| `ReCreatReadVarList`, 20,000 variables, several"))
        self.assertIn("4.00×", self.line(md, "| `ReCreatReadVarList`, 100,000 vs 20,000, several"))
        self.assertIn("5000 KiB (102 bytes a key)", self.line(md, "| Driver: per-station store"))

    def test_failed_benchmark_fails_the_report(self):
        bad = entry("BM_SetRegisterData_Queue1000/1000", 900)
        bad.update(error_occurred=True, error_message="write queue did not keep its length")
        rc, md = self.run_report([bad, entry("BM_CalCRC/256", 2800)])
        self.assertNotEqual(rc, 0)
        self.assertIn("failed: write queue did not keep its length", md)
        self.assertIn("not measured", self.line(md, "| `SetRegisterData`"))

    def test_wire_ratios(self):
        side = {"frames": 100, "bytes": 2000, "pty_ms": 10.0, "cpu_ms": 2.0, "line_ms_9600": 3000.0,
                "line_ms_19200": 1500.0, "line_ms_115200": 400.0, "failures": 0}
        single = dict(side, frames=600, bytes=5000, pty_ms=30.0, cpu_ms=7.0, line_ms_9600=7500.0,
                      line_ms_19200=3750.0, line_ms_115200=1600.0)
        rc, md = self.run_report([], wire={
            "variables": 600, "scans": 1, "driver": side, "one_per_variable": single,
            "ratio_frames": 6.0, "ratio_bytes": 2.5, "ratio_time": 3.0,
            "driver_distinct_frames": 98, "values_differ": 0})
        self.assertEqual(rc, 0)
        self.assertIn("| 6.0× | 2.5× | 3.0× | 3.5× | 2.5× | 2.5× | 4.0× |", md)
        self.assertIn("98 of the driver's 100 frames", md)


if __name__ == "__main__":
    unittest.main()
