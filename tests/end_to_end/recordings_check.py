"""Replays recordings through the plug-in and compares the series: recordings_check.py TEV_HOST

Checks the trace of a recording against its CSV, too.
"""
import collections
import csv
import io
import json
import pathlib
import subprocess
import sys
import tempfile

INTERVAL = 20_000  # microseconds
FAULTS = {"base": "default", "status_names": {"42": "LINK_ON_FIRE"}, "faults": [
    {"function": "vuna_telemetry_mp_get_counters", "device": "rdma1", "call": n, "status": 42}
    for n in (30, 31, 32)]}


def run(host, *words):
    return subprocess.run([host, *words], check=True, capture_output=True, text=True, timeout=60)


def record(host, scenario, path, seconds, *options):
    run(host, "run", f"--simulate={scenario}", "--format", "none", "--capture", path,
        "--duration", str(seconds), "--update", "200", *options)


def rows(host, path):
    text = run(host, "decode", path, "--format", "csv", "--rates").stdout
    return [row for row in csv.DictReader(io.StringIO(text)) if row["device_name"]]


def series(host, path):
    """By type, device and plane: the times since the first sample, and the values."""
    found, first = collections.defaultdict(list), None
    for row in rows(host, path):
        first = first or int(row["timestamp"])
        key = row.pop("type"), row.pop("device_name"), row.pop("plane")
        values = {name: int(row[name]) for name in row
                  if f"{name}_per_second" in row and row[name]}
        found[key].append((int(row["timestamp"]) - first, values))
    return found


def failures(host, path):
    text = run(host, "decode", path, "--format", "jsonl").stdout
    lines = [json.loads(line) for line in text.splitlines()]
    return {(line["device"], line["reason"]) for line in lines if line["type"] == "missing_samples"
            and line["cause"] == "refused" and line["reason"] != "RECORDING_ENDED"}


def compare(recorded, replayed, adds_up):
    """Every sample of the replay is the recorded one of its time, but samples may be missing.

    Increases are added up, because an increase is that since the last sample.
    """
    assert recorded.keys() == replayed.keys(), "series"
    for key, samples in recorded.items():
        if adds_up:
            samples, other = totals(samples), totals(replayed[key])
        else:
            other = replayed[key]
        assert samples[0][1].keys() == other[0][1].keys(), "fields"
        at = matched = 0
        for usec, values in other:
            while at < len(samples) and samples[at][1] != values:
                at += 1
            assert at < len(samples), f"{key}: {values} at {usec} us was not recorded, or earlier"
            matched += abs(samples[at][0] - usec) < 2 * INTERVAL
        assert matched > 0.8 * len(samples), f"{key}: {matched} of {len(samples)} samples"


def totals(samples):
    sums, result = collections.Counter(), []
    for usec, values in samples:
        sums.update(values)
        result.append((usec, dict(sums)))
    return result


def check_trace(host, path):
    events = json.loads(run(host, "decode", path, "--format", "trace").stdout)
    tracks = {(event["name"], event["ts"]): event["args"] for event in reversed(events)
              if event["ph"] == "C"}
    rates = 0
    for row in rows(host, path):
        place = f"plane {row['plane']}" if row["plane"] else "device"
        values = tracks.get((f"{row['device_name']} {place}", int(row["timestamp"])), {})
        for name, rate in row.items():
            if name.endswith("_per_second"):
                assert values.get(name) == (float(rate) if rate else None), (row, name)
                rates += bool(rate)
            elif row.get(f"{name}_mark") == "gauge":
                assert values[name] == float(row[name]), (row, name)
    assert rates > 1000
    assert any(event["ph"] == "X" and event["args"].get("reason") == "LINK_ON_FIRE"
               for event in events)


def main(host):
    with tempfile.TemporaryDirectory() as folder:
        def path(name):
            return str(pathlib.Path(folder) / name)
        pathlib.Path(path("faults.json")).write_text(json.dumps(FAULTS), "utf-8")
        interval = ["--option", f"multipath-sample-interval-usec={INTERVAL}"]
        record(host, path("faults.json"), path("a.tevcap"), 2, *interval)
        record(host, path("a.tevcap"), path("b.tevcap"), 2.5)
        compare(series(host, path("a.tevcap")), series(host, path("b.tevcap")), False)
        assert ("rdma1", "LINK_ON_FIRE") in failures(host, path("a.tevcap"))
        assert ("rdma1", "LINK_ON_FIRE") in failures(host, path("b.tevcap"))
        assert run(host, "schema", f"--simulate={path('a.tevcap')}").stdout == \
            run(host, "schema", "--simulate").stdout, "schema"
        check_trace(host, path("a.tevcap"))

        clears = ["--option", "multipath-clear-sampled-counters=true"]
        record(host, "default", path("c.tevcap"), 1, *interval, *clears)
        record(host, path("c.tevcap"), path("d.tevcap"), 1.5)
        compare(series(host, path("c.tevcap")), series(host, path("d.tevcap")), True)


if __name__ == "__main__":
    main(sys.argv[1])
