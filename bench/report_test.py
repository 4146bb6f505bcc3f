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


def entry(name, cpu, unit="ns", aggregate=None, **extra):
    e = {"name": name + ("_" + aggregate if aggregate else ""), "run_name": name,
         "run_type": "aggregate" if aggregate else "iteration", "iterations": 10,
         "real_time": cpu * 3, "cpu_time": cpu, "time_unit": unit}
    if aggregate:
        e["aggregate_name"] = aggregate
    e.update(extra)
    return e


def run_report(benchmarks, wire=None, plain=None):
    with tempfile.TemporaryDirectory() as tmp:
        res, docs = os.path.join(tmp, "res"), os.path.join(tmp, "docs")
        os.makedirs(res)
        os.makedirs(docs)
        for name, data in (("x_bench.1", {"context": {}, "benchmarks": benchmarks}),
                           ("x_bench_plain.1", plain and {"context": {}, "benchmarks": plain}),
                           ("wire_efficiency", wire)):
            if data:
                with open(os.path.join(res, name + ".json"), "w") as f:
                    json.dump(data, f)
        rc = subprocess.run([sys.executable, os.path.join(HERE, "report.py"), "--results", res,
                             "--docs", docs, "--build", tmp, "--plots", "0"]).returncode
        with open(os.path.join(docs, "performance.md")) as f:
            return rc, f.read()


class ReportTest(unittest.TestCase):
    def test_verdicts_pick_the_fastest_repetition_and_ratios(self):
        side = {"frames": 100, "bytes": 2000, "pty_ms": 10.0, "cpu_ms": 2.0, "line_ms_9600": 3000.0,
                "line_ms_19200": 1500.0, "line_ms_115200": 400.0, "failures": 0}
        single = dict(side, frames=600, bytes=5000, pty_ms=30.0, cpu_ms=7.0, line_ms_9600=7500.0,
                      line_ms_19200=3750.0, line_ms_115200=1600.0)
        rc, md = run_report([
            entry("BM_PollRound_SharedMirror", 2600),
            entry("BM_PollRound_SharedMirror", 2100),
            entry("BM_PollRound_SharedMirror", 1900, aggregate="median"),  # never a figure
            entry("BM_PollRound_SharedMirror", 2300),
            entry("BM_GetRegisterData_SharedMirror", 0.15, unit="us"),
            entry("BM_GetRegisterData_PerStationStore/1000", 100),
            entry("BM_GetRegisterData_PerStationStore/50000", 250),
            entry("BM_RebuildReadList/vars:20000/multi:0", 10, unit="ms"),
            entry("BM_RebuildReadList/vars:100000/multi:0", 55, unit="ms"),
            entry("BM_RebuildReadList/vars:20000/multi:1", 25, unit="ms"),
            entry("BM_RebuildReadList/vars:100000/multi:1", 100, unit="ms"),
            entry("BM_Heap_PerStationKeys/50000/iterations:1", 5, unit="ms",
                  store_heap_bytes=5120000, bytes_per_key=102.4, keys=50000),
        ], wire={"variables": 600, "scans": 1, "driver": side, "one_per_variable": single,
                 "ratio_frames": 6.0, "ratio_bytes": 2.5, "ratio_time": 3.0,
                 "driver_distinct_frames": 98, "values_differ": 0},
           plain=[entry("BM_PollRound_SharedMirror", 11000)])
        self.assertEqual(rc, 0)
        self.assertIn("| 6.0× | 2.5× | 3.0× | 3.5× | 2.5× | 2.5× | 4.0× |", md)
        self.assertIn("98 of the driver's 100 frames", md)
        lines = md.splitlines()
        for start, want in [
                ("| Polling round, 64-register read, shared", "2.10 µs | **missed**"),
                ("| `GetRegisterData`, one word, shared", "150 ns | met"),
                ("| Polling round, 64-register read, shared mirror, against",
                 "5.2× (2.10 µs vs 11.00 µs) | met"),
                ("| `GetRegisterData`, one word, per-station",
                 "2.50× (250 ns vs 100 ns) | **missed**"),
                ("| `SetRegisterData`", "not measured"),
                ("| `ReCreatReadVarList`, 20,000 variables, single", "10.00 ms | met"),
                ("| `ReCreatReadVarList`, 100,000 vs 20,000, single", "5.50× (55.00 ms) | met"),
                ("| `ReCreatReadVarList`, 20,000 variables, several", "25.00 ms | **missed**"),
                ("| `ReCreatReadVarList`, 100,000 vs 20,000, several", "4.00×"),
                ("| Driver: per-station store", "5000 KiB (102 bytes a key)")]:
            with self.subTest(start):
                self.assertIn(want, next(l for l in lines if l.startswith(start)))

    def test_failed_benchmark_fails_the_report(self):
        bad = entry("BM_SetRegisterData_Queue1000/1000", 900, error_occurred=True,
                    error_message="write queue did not keep its length")
        rc, md = run_report([bad, entry("BM_CalCRC/256", 2800)])
        self.assertNotEqual(rc, 0)
        self.assertIn("failed: write queue did not keep its length", md)
        self.assertIn("| < 5 µs | not measured | not measured |",
                      next(l for l in md.splitlines() if l.startswith("| `SetRegisterData`")))


if __name__ == "__main__":
    unittest.main()
