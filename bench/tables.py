"""The parts of docs/performance.md that are made from the rows of the benchmarks."""
import textwrap

import claims
import rows

COLUMNS = {  # figure: heading, format
    "work_ns": ("ns", ".1f"),
    "baseline_ns": ("baseline, ns", ".1f"),
    "ratio": ("ratio", ".2f"),
    "MB_per_s": ("MB/s", ".0f"),
    "ns_per_value": ("ns per value", ".2f"),
    "ns_per_event": ("ns per event", ".2f"),
    "ns_per_call": ("ns per call", ".2f"),
    "memcpy_ns": ("plain copy, ns", ".1f"),
}
ARGUMENTS = {  # argument of a benchmark: heading, texts for some of its values
    "samples": ("samples", {}),
    "shuffled": ("shuffled", {"0": "no", "1": "yes"}),
    "bytes": ("bytes per event", {}),
    "room": ("events per serializer", {"0": "all"}),
    "share": ("used share, %", {}),
}


def table(headings, lines, texts=0):
    """A Markdown table. The first `texts` columns hold text, the others numbers."""
    rule = "|" + "---|" * texts + "---:|" * (len(headings) - texts)
    head = ["| " + " | ".join(headings) + " |", rule]
    return "\n".join(head + ["| " + " | ".join(line) + " |" for line in lines])


def readable(nanoseconds):
    for unit, size in (("ms", 1e6), ("µs", 1e3), ("ns", 1)):
        if nanoseconds >= size:
            break
    return f"{nanoseconds / size:.3g} {unit}"


def ratio(row):
    """The ratio to the baseline. It is bold when it is above its target."""
    return f"**{row['ratio']:.2f}**" if claims.above_target(row) else f"{row['ratio']:.2f}"


def with_baseline(all_rows, group):
    """The figures of a benchmark, a line for each of its cases."""
    chosen = rows.of_group(all_rows, group)
    arguments = list(chosen[0].arguments)
    columns = [column for column in COLUMNS if column in chosen[0]]
    lines = []
    for row in chosen:
        line = [ARGUMENTS[name][1].get(value, value) for name, value in row.arguments.items()]
        for column in columns:
            figure = format(row[column], COLUMNS[column][1])
            line.append(ratio(row) if column == "ratio" else figure)
        lines.append(line)
    headings = [ARGUMENTS[name][0] for name in arguments]
    return table(headings + [COLUMNS[column][0] for column in columns], lines)


def derived_figures(all_rows):
    lines = [
        [row.arguments["devices"], f"{row['ns_per_value']:.1f}",
         f"{row['ns_per_value'] / row['ratio']:.1f}", ratio(row)]
        for row in rows.of_group(all_rows, "figures")
    ]
    return table(["devices", "ns per value", "baseline, ns per value", "ratio"], lines)


def without_baseline(all_rows, groups):
    lines = [
        [(row.group + " " + row.case.replace(":", " ")).strip(), readable(row["time_ns"])]
        for group in groups
        for row in rows.of_group(all_rows, group)
    ]
    return table(["benchmark", "time"], lines, texts=1)


def sampling_passes(all_rows):
    """The rows of samplingPass by (devices, counters), and in these by (planes, interleaved)."""
    shapes = {}
    for row in rows.of_group(all_rows, "samplingPass"):
        devices, counters, planes, interleaved = row.arguments.values()
        shapes.setdefault((devices, counters), {})[planes, interleaved] = row
    return shapes


def sampling_ratios(all_rows):
    cases = {("0", "0"): "no planes", ("1", "0"): "1 plane", ("4", "0"): "4 planes",
             ("16", "0"): "16 planes", ("1", "1"): "1, interleaved", ("4", "1"): "4, interleaved",
             ("16", "1"): "16, interleaved"}
    lines = [
        list(shape) + [ratio(of_shape[case]) for case in cases]
        for shape, of_shape in sampling_passes(all_rows).items()
    ]
    return table(["devices", "counters"] + list(cases.values()), lines)


def growth(of_shape, interleaved):
    """The times per value with one plane and with 16, and how much the second is longer."""
    one, many = (of_shape[planes, interleaved]["ns_per_value"] for planes in ("1", "16"))
    return one, many, many / one


def plane_growth(all_rows):
    lines = [
        list(shape) + [f"{n:.2f}" for n in growth(of_shape, "0") + growth(of_shape, "1")]
        for shape, of_shape in sampling_passes(all_rows).items()
    ]
    return table(["devices", "counters", "runs: 1 plane", "16 planes", "growth",
                  "interleaved: 1 plane", "16 planes", "growth"], lines)


def claim_list(all_rows):
    time = {row.benchmark: readable(row["time_ns"]) for row in all_rows if "time_ns" in row}
    most = [max(growth(of_shape, order)[2] for of_shape in sampling_passes(all_rows).values())
            for order in ("0", "1")]
    per_value = {row.benchmark: row["ns_per_value"] for row in rows.of_group(all_rows, "figures")}
    sentences = [claims.sentence(claim, all_rows) for claim in claims.CLAIMS] + [
        "The time per value with [16 planes](#planes) is at most "
        f"{most[1]:.2f} times the time with one plane when counters are interleaved, and at most "
        f"{most[0]:.2f} times when they are in runs.",
        "With 16 devices, the derivation of [figures](#derived-figures) takes "
        f"{per_value['figures/devices:16']:.1f} ns per value.",
        "The [set-up](#set-up) of 64 devices with 256 counters each takes "
        f"{time['constructAndInitialize/devices:64']}.",
        "A look-up in a [set of 100 patterns](#common-library) takes "
        f"{time['counterSetMiss/patterns:100']} in a counter set and "
        f"{time['fieldSetMiss/patterns:100']} in a field set.",
    ]
    return "\n".join(
        textwrap.fill(sentence, 110, initial_indent="- ", subsequent_indent="  ",
                      break_long_words=False, break_on_hyphens=False)
        for sentence in sentences)


# Marker in the page: the text for it.
PARTS = {
    "claims": claim_list,
    "pipeline": lambda all_rows: with_baseline(all_rows, "pipeline"),
    "swap": lambda all_rows: with_baseline(all_rows, "swap"),
    "progress": lambda all_rows: with_baseline(all_rows, "progress"),
    "samplingPass": sampling_ratios,
    "planes": plane_growth,
    "figures": derived_figures,
    "disabledMessage": lambda all_rows: with_baseline(all_rows, "disabledMessage"),
    "set-up": lambda all_rows: without_baseline(
        all_rows, ("constructAndInitialize", "counterParsing", "schemaAddAndId")),
    "common": lambda all_rows: without_baseline(
        all_rows, ("dictGet", "lineToAFile", "tokenMatch", "counterSetMiss", "fieldSetMiss")),
}
