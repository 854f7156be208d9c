"""What docs/performance.md claims of the benchmarks that have a baseline, and the targets."""
import collections
import statistics

import rows

# A sentence begins with `subject`. The claim is about the rows of `group` that `covers` accepts.
# `target` is for their ratio to the baseline.
Claim = collections.namedtuple("Claim", "subject group covers target")


def sampling_pass(devices, subject):
    return Claim(f"A [sampling pass](#sampling-pass) over {subject}", "samplingPass",
                 lambda arguments: arguments["devices"] == devices, 1.3)


CLAIMS = (
    Claim("The pipeline [from sample to serializer](#from-sample-to-serializer)", "pipeline",
          lambda arguments: True, 1.8),
    sampling_pass("1", "one device"),
    sampling_pass("8", "8 devices"),
    sampling_pass("64", "64 devices"),
    Claim("The [delivery](#delivery) of events of 32 bytes", "progress",
          lambda arguments: arguments["bytes"] == "32", 2.0),
    Claim("The [delivery](#delivery) of events of 128 bytes or more", "progress",
          lambda arguments: arguments["bytes"] != "32", 1.3),
    Claim("A [swap](#swap) of the buffers", "swap", lambda arguments: True, None),
    Claim("The derivation of [figures](#derived-figures)", "figures", lambda arguments: True, None),
    Claim("A [disabled message](#disabled-message)", "disabledMessage",
          lambda arguments: True, None),
)


def above_target(row):
    for claim in CLAIMS:
        if claim.group == row.group and claim.covers(row.arguments):
            return claim.target is not None and row["ratio"] > claim.target
    return False


def sentence(claim, all_rows):
    chosen = [row for row in rows.of_group(all_rows, claim.group) if claim.covers(row.arguments)]
    if not chosen:
        raise ValueError(f"there is no row for the claim: {claim.subject}")
    ratios = [row["ratio"] for row in chosen]
    text = f"{claim.subject} takes {statistics.median(ratios):.2f} times its baseline"
    if len(ratios) > 1:
        text += f" ({min(ratios):.2f} to {max(ratios):.2f})"
    if claim.target is None:
        return text + "."
    above = sum(map(above_target, chosen))
    return f"{text}. Above the target of {claim.target}: {above} of {len(chosen)} cases."
