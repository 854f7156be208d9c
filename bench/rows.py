"""The rows of a run of the benchmarks: one per benchmark, with its figures by column."""
import csv
import io
import json

# What the benchmark library writes of each run, besides the counters of the benchmark.
LIBRARY_KEYS = {
    "name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
    "repetition_index", "threads", "iterations", "real_time", "cpu_time", "time_unit",
}
# Parts of a benchmark's name that tell how it is timed, not what it measures.
TIMING = ("manual_time", "real_time", "min_time:", "iterations:")
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


class Row:
    def __init__(self, benchmark, figures):
        self.benchmark = benchmark
        self.group, *arguments = benchmark.split("/")
        self.arguments = dict(argument.split(":") for argument in arguments)
        self.case = " ".join(arguments)
        self.figures = figures

    def __contains__(self, column):
        return column in self.figures

    def __getitem__(self, column):
        if column not in self.figures:
            raise ValueError(f"{self.benchmark} has no figure {column}")
        return self.figures[column]


def of_group(rows, group):
    chosen = [row for row in rows if row.group == group]
    if not chosen:
        raise ValueError(f"there is no row of the benchmark {group}")
    return chosen


def from_run(text):
    """The rows of a file that the benchmark library wrote, and the context of the run."""
    run = json.loads(text)
    rows = []
    for result in run["benchmarks"]:
        if result.get("error_occurred"):
            raise ValueError(f"{result['name']} failed: {result.get('error_message')}")
        words = result["name"].split("/")
        benchmark = "/".join(word for word in words if not word.startswith(TIMING))
        figures = {"time_ns": result["real_time"] * NANOSECONDS[result["time_unit"]]}
        figures.update((key, value) for key, value in result.items()
                       if key not in LIBRARY_KEYS and isinstance(value, (int, float)))
        rows.append(Row(benchmark, figures))
    names = [row.benchmark for row in rows]
    if len(set(names)) < len(names):
        raise ValueError("a benchmark was repeated")
    return rows, run["context"]


def from_csv(text):
    return [
        Row(line.pop("benchmark"), {key: float(value) for key, value in line.items() if value})
        for line in csv.DictReader(io.StringIO(text))
    ]


def to_csv(rows):
    """One line per benchmark. A cell is empty when the benchmark does not have the figure."""
    columns = list(dict.fromkeys(column for row in rows for column in row.figures))
    text = io.StringIO()
    lines = csv.writer(text, lineterminator="\n")
    lines.writerow(["benchmark"] + columns)
    for row in rows:
        figures = [f"{row[column]:.3f}" if column in row else "" for column in columns]
        lines.writerow([row.benchmark] + [figure.removesuffix(".000") for figure in figures])
    return text.getvalue()
