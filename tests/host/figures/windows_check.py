"""Compares the windows of a run with figures that this script computes from the samples of the same
run: windows_check.py TEV_HOST

A capture has both. Steps near a late sample are left out of the highest rate, because tev-host does
not trust them there.
"""
import collections
import json
import math
import pathlib
import subprocess
import sys
import tempfile

INTERVAL, WINDOW = 2000, 500_000  # microseconds
RANGE = 2**32


def run(*words):
    result = subprocess.run(words, check=True, capture_output=True, text=True, timeout=60)
    return [json.loads(line) for line in result.stdout.splitlines()]


def series_of(record):
    return record["device_name"], str(record.get("plane", ""))


def quantile(values, share):  # nearest rank
    return sorted(values)[math.ceil(share * len(values)) - 1]


def is_close(found, expected, tolerance=1e-6):
    return abs(found - expected) <= tolerance * max(1, abs(expected))


class Series:
    """The samples of one series, in their order."""

    def __init__(self):
        self.times, self.values = [], collections.defaultdict(list)

    def add(self, record):
        self.times.append(record["timestamp"])
        for name, value in record.items():
            self.values[name].append(value)

    def is_late(self, i):
        return i < len(self.times) and i > 0 and \
            self.times[i] - self.times[i - 1] >= 1.5 * INTERVAL

    def check(self, window, name, figures):
        inside = [i for i, time in enumerate(self.times)
                  if window["begin"] <= time < window["end"]]
        assert len(inside) == window["samples"], "number of samples"
        values = self.values[name]
        if figures["kind"] != "counter":
            chosen = [values[i] for i in inside]
            assert (figures["min"], figures["max"]) == (min(chosen), max(chosen)), "range"
            assert is_close(figures["mean"], sum(chosen) / len(chosen)), "mean"
            for key, share in (("p50", 0.5), ("p99", 0.99)):
                assert is_close(figures[key], quantile(chosen, share), 1 / 64), key
            return
        if figures["lower_bound"]:
            return
        steps = {i: (values[i] - values[i - 1]) % RANGE for i in inside if i > 0}
        usec = {i: self.times[i] - self.times[i - 1] for i in steps}
        assert figures["sum"] == sum(steps.values()), "sum"
        assert is_close(figures["rate_mean"], sum(steps.values()) * 1e6 / sum(usec.values())), "mean"
        rates = {self.times[i]: step * 1e6 / usec[i] for i, step in steps.items()}
        assert is_close(figures["rate_max"], rates[figures["rate_max_at"]]), "rate of the time"
        trusted = [step * 1e6 / usec[i] for i, step in steps.items()
                   if not any(self.is_late(near) for near in (i - 1, i, i + 1))]
        assert figures["rate_max"] >= max(trusted) * (1 - 1e-6), "highest rate"


def main(host):
    with tempfile.TemporaryDirectory() as folder:
        capture = str(pathlib.Path(folder) / "run.tevcap")
        run(host, "run", "--simulate", "--duration", "2.5", "--format", "none", "--capture", capture,
            "--option", f"multipath-sample-interval-usec={INTERVAL}")
        samples = run(host, "decode", capture, "--format", "jsonl")
        windows = run(host, "decode", capture, "--format", "jsonl", "--window", str(WINDOW // 1000))
    series = collections.defaultdict(Series)
    for record in samples:
        if "device_name" in record:
            series[series_of(record)].add(record)
    compared = collections.Counter()
    for window in windows:
        if window["type"] != "window":
            continue
        for name, figures in window["fields"].items():
            try:
                series[window["device"], window["plane"] if "plane" in window else ""].check(
                    window, name, figures)
            except AssertionError as error:
                sys.exit(f"{error} of {name}: {window}")
            compared[figures["kind"]] += 1
    assert compared["counter"] > 100 and compared["gauge"] > 20, compared
    print(f"agree: {dict(compared)}")


main(sys.argv[1])
