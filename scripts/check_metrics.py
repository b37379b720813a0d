#!/usr/bin/env python3
"""Checks metrics in the text form of Prometheus, and that dashboard and alerts name none that is not there.

    scripts/check_metrics.py FILE      FILE holds what /metrics answered

Prints each fault on a line of its own and ends with 1 if there is any.
"""
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAMERS = ["deploy/grafana-dashboard.json", "deploy/prometheus-rules.yaml", "deploy/chart/tessarin/templates/monitoring.yaml",
          "doc/monitoring.md"]

NAME = r"[a-zA-Z_:][a-zA-Z0-9_:]*"
LABEL = r'[a-zA-Z_][a-zA-Z0-9_]*="(?:[^"\\\n]|\\["\\n])*"'
SAMPLE = re.compile(rf"({NAME})(?:\{{({LABEL}(?:,{LABEL})*)?\}})? (\S+)(?: -?\d+)?")
NUMBER = re.compile(r"[+-]?(\d+(\.\d*)?|\.\d+)([eE][+-]?\d+)?|[+-]Inf|NaN", re.I)
UNITS = ("_seconds", "_bytes", "_total", "_ratio", "_info", "_ok", "_second")
# Counts of things have no unit.
COUNTS = {"tessarin_jobs_queued", "tessarin_jobs_running", "tessarin_rpc_queued_requests", "tessarin_binds",
          "tessarin_http_connections", "process_open_fds", "process_max_fds", "process_threads"}
# There only where the agent was started with TLS or with the review of tokens.
OPTIONAL = {"tessarin_tls_certificate_not_after_seconds", "tessarin_token_reviews_total"}


def base_of(name, types):
    """The family that a sample belongs to."""
    for suffix in ("_bucket", "_sum", "_count"):
        base = name[: -len(suffix)]
        if name.endswith(suffix) and types.get(base) in ("histogram", "summary"):
            return base
    return name


def check_histogram(name, samples, fault):
    """The buckets of a series rise, and the last one holds all."""
    series = {}
    for sample, labels, value in samples:
        if sample == name + "_bucket":
            bound = re.search(r'le="([^"]*)"', labels)
            if not bound:
                fault(f"{name}: a bucket without a bound")
                continue
            rest = ",".join(part for part in labels.split(",") if not part.startswith("le="))
            series.setdefault(rest, []).append((float(bound.group(1)), value))
    counts = {labels: value for sample, labels, value in samples if sample == name + "_count"}
    for labels, buckets in series.items():
        bounds = [bound for bound, _ in buckets]
        values = [value for _, value in buckets]
        if bounds != sorted(set(bounds)) or bounds[-1] != float("inf"):
            fault(f"{name}: the bounds of {{{labels}}} do not rise up to +Inf")
        if values != sorted(values):
            fault(f"{name}: the buckets of {{{labels}}} do not rise")
        if counts.get(labels) != values[-1]:
            fault(f"{name}: the last bucket of {{{labels}}} is not its count")


def parse(text, fault):
    """Gives the names of all families with their samples."""
    types, helps, samples, closed, current = {}, {}, {}, set(), None
    if not text.endswith("\n"):
        fault("the last line has no end")
    for number, line in enumerate(text.splitlines(), 1):
        header = re.fullmatch(rf"# (HELP|TYPE) ({NAME}) (.*)", line)
        if header:
            kind, name, rest = header.groups()
            known = helps if kind == "HELP" else types
            if name in known:
                fault(f"line {number}: a second {kind} of {name}")
            if kind == "TYPE" and rest not in ("counter", "gauge", "histogram", "summary", "untyped"):
                fault(f"line {number}: no type: {rest}")
            if name in samples:
                fault(f"line {number}: {kind} of {name} behind its samples")
            known[name] = rest
            continue
        found = SAMPLE.fullmatch(line)
        if not found or not NUMBER.fullmatch(found.group(3)):
            fault(f"line {number}: no sample: {line}")
            continue
        name, labels, value = found.group(1), found.group(2) or "", float(found.group(3))
        base = base_of(name, types)
        if base != current and base in closed:
            fault(f"line {number}: the samples of {base} do not stand together")
        closed.add(base)
        current = base
        if base not in types or base not in helps:
            fault(f"line {number}: {base} has no TYPE or no HELP")
        if any(labels == other and name == other_name for other_name, other, _ in samples.get(base, [])):
            fault(f"line {number}: {name}{{{labels}}} stands there twice")
        samples.setdefault(base, []).append((name, labels, value))
    for name, kind in types.items():
        if kind == "histogram":
            check_histogram(name, samples.get(name, []), fault)
    return types, samples


def check_names(types, samples, fault):
    for name, kind in types.items():
        if not name.startswith(("tessarin_", "process_")):
            fault(f"{name}: neither tessarin_ nor process_")
        if (kind == "counter") != name.endswith("_total"):
            fault(f"{name}: counters, and they alone, end in _total")
        if not name.endswith(UNITS) and name not in COUNTS:
            fault(f"{name}: no unit at its end")
        if len(samples.get(name, [])) > 500:
            fault(f"{name}: {len(samples[name])} samples; are the values of a label without bound?")
        if name not in samples:
            fault(f"{name}: no sample")


def check_users(types, fault):
    for file in NAMERS:
        text = (ROOT / file).read_text()
        if file.endswith(".json"):
            json.loads(text)
        names = set(re.findall(r"\b(?:tessarin|process)_[a-z_]+[a-z]\b", text))
        for name in sorted(names):
            if base_of(name, types) not in types and name not in OPTIONAL:
                fault(f"{file}: names {name}, which the agent does not have")
        if file.endswith(".md"):
            for name in sorted(set(types) - names):
                fault(f"{file}: does not tell of {name}")


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    faults = []
    types, samples = parse(pathlib.Path(sys.argv[1]).read_text(), faults.append)
    check_names(types, samples, faults.append)
    check_users(types, faults.append)
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
