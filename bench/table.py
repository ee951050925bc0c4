"""Prints the pairs of the benchmark suite, ours against the baseline, from
the medians in Google Benchmark's JSON output."""

import json
import os
import sys

# (pair, ours, baseline, measure, target, allocation-free)
# Measures: "cpu" compares the calling thread's CPU time, which preemption by
# other processes does not inflate; "real" compares wall-clock time, for work
# that waits on another thread; "throughput" divides the items per second of
# the first benchmark by those of the second and must reach the target.
PAIRS = [
    ("evaluatePolicy_hints_error, reply from a thread",
     "EvaluatePolicy/ours/process_time/real_time", "EvaluatePolicy/baseline/process_time/real_time",
     "real", 1.10, False),
    ("optionsFromVRHints, six hints",
     "OptionsFromVRHints/ours", "OptionsFromVRHints/baseline", "cpu", 1.5, False),
    ("policyFromVRPolicy, constant", "PolicyConstant/ours", "PolicyConstant/baseline", "cpu",
     1.2, True),
    ("policyFromVRPolicy, own string", "PolicyName/ours", "PolicyName/baseline", "cpu", 1.2, True),
    ("optionFromVRHint_error, constant", "HintConstant/ours", "HintConstant/baseline", "cpu",
     1.2, True),
    ("optionFromVRHint_error, own string", "HintName/ours", "HintName/baseline", "cpu", 1.2,
     True),
    ("eventFromVREvent, constant", "EventConstant/ours", "EventConstant/baseline", "cpu", 1.2,
     True),
    ("eventFromVREvent, own string", "EventName/ours", "EventName/baseline", "cpu", 1.2, True),
    ("resultFromVRResult, constant", "ResultConstant/ours", "ResultConstant/baseline", "cpu",
     1.2, True),
    ("resultFromVRResult, own string", "ResultName/ours", "ResultName/baseline", "cpu", 1.2,
     True),
    ("DelegateProxy event, 3 params + reply",
     "DelegateEvent/ours", "DelegateEvent/baseline", "cpu", 1.5, False),
    ("six-entry dictionary vs JSON object",
     "SixEntryDictionary/ours", "SixEntryDictionary/baseline", "cpu", 1.0, False),
    ("4,096 number keys aimed at one slot vs consecutive",
     "AimedNumberKeys/ours", "AimedNumberKeys/baseline", "cpu", 1.5, False),
    ("hints on 2 threads vs 1 (throughput)",
     "OptionsFromVRHints/threads/real_time/threads:2",
     "OptionsFromVRHints/threads/real_time/threads:1", "throughput", 1.8, False),
    ("evaluations on 2 threads vs 1, one shared reference",
     "EvaluatePolicy/threads/shared/real_time/threads:2",
     "EvaluatePolicy/threads/shared/real_time/threads:1", "throughput", 1.6, False),
    ("evaluations on 2 threads vs 1, one reference each",
     "EvaluatePolicy/threads/own/real_time/threads:2",
     "EvaluatePolicy/threads/own/real_time/threads:1", "throughput", 1.8, False),
]
# Benchmarks without a baseline that must not allocate.
SINGLES = [("constant retain + release", "ConstantRetainRelease", "cpu")]


def medians(path):
    with open(path) as file:
        data = json.load(file)
    found = {}
    for run in data["benchmarks"]:
        if run.get("run_type") == "aggregate" and run.get("aggregate_name") == "median":
            found[run["run_name"]] = run
        elif run.get("run_type") == "iteration" and run["run_name"] not in found:
            found[run["run_name"]] = run  # a run without repetitions
    return data["context"], found


def nanoseconds(run, measure):
    value = run["cpu_time" if measure == "cpu" else "real_time"]
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run.get("time_unit", "ns")]
    return value * scale


def duration(ns):
    if ns >= 1e6:
        return f"{ns / 1e6:.2f} ms"
    if ns >= 1e3:
        return f"{ns / 1e3:.2f} us"
    return f"{ns:.1f} ns"


def allocations(run):
    value = run.get("allocs/op")
    return "?" if value is None else f"{value:.3g}"


def main():
    context, runs = medians(sys.argv[1])
    compiler = sys.argv[2] if len(sys.argv) > 2 else "?"
    rows = [("pair", "ours", "baseline", "ratio", "target", "allocs/op", "result")]
    missing = []
    for name, ours_name, base_name, measure, target, allocation_free in PAIRS:
        ours, base = runs.get(ours_name), runs.get(base_name)
        if ours is None or base is None:
            missing.append(name)
            continue
        failed = [run["error_message"] for run in (ours, base) if run.get("error_occurred")]
        if failed:
            rows.append((name, "-", "-", "-", "-", "-", "ERROR: " + "; ".join(failed)))
            continue
        if measure == "throughput":
            ours_rate, base_rate = ours["items_per_second"], base["items_per_second"]
            ratio = ours_rate / base_rate
            met = ratio >= target
            shown = (f"{ours_rate / 1e3:.0f} k/s", f"{base_rate / 1e3:.0f} k/s",
                     f"{ratio:.2f}x", f">= {target:.2f}x")
        else:
            ours_ns, base_ns = nanoseconds(ours, measure), nanoseconds(base, measure)
            ratio = ours_ns / base_ns
            met = ratio <= target
            shown = (f"{duration(ours_ns)} {measure}", f"{duration(base_ns)} {measure}",
                     f"{ratio:.2f}", f"<= {target:.2f}")
        allocs = f"{allocations(ours)} / {allocations(base)}"
        if allocation_free and ours.get("allocs/op", 1) != 0:
            met = False
        rows.append((name, *shown, allocs, "met" if met else "MISSED"))
    for name, bench_name, measure in SINGLES:
        run = runs.get(bench_name)
        if run is None:
            missing.append(name)
            continue
        met = run.get("allocs/op", 1) == 0
        rows.append((name, f"{duration(nanoseconds(run, measure))} {measure}", "-", "-",
                     "0 allocs", allocations(run), "met" if met else "MISSED"))

    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    line = "| " + " | ".join("-" * width for width in widths) + " |"
    for index, row in enumerate(rows):
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")
        if index == 0:
            print(line)
    print()
    cpu = "?"
    try:
        with open("/proc/cpuinfo") as file:
            cpu = next(l.split(":", 1)[1].strip() for l in file if l.startswith("model name"))
    except (OSError, StopIteration):
        pass
    load = context.get("load_avg", [])
    print(f"Machine: {os.cpu_count()} CPUs, {cpu}; {compiler}")
    print(f"Medians of {runs_repetitions(runs)} repetitions; load average at start "
          f"{', '.join(f'{value:.2f}' for value in load) or '?'}")
    allocs_note = "allocs/op: heap allocations per operation, ours / baseline"
    print(allocs_note + " (the evaluation counts the service's thread too)")
    ours, base = (runs.get(f"EvaluatePolicy/{side}/process_time/real_time")
                  for side in ("ours", "baseline"))
    if ours and base and not ours.get("error_occurred") and not base.get("error_occurred"):
        ours_ns, base_ns = nanoseconds(ours, "cpu"), nanoseconds(base, "cpu")
        print(f"Evaluation CPU time of both threads per call: ours {duration(ours_ns)}, "
              f"baseline {duration(base_ns)} ({ours_ns / base_ns:.2f})")
    one, two = (runs.get(f"OptionsFromVRHints/threads/real_time/threads:{count}")
                for count in (1, 2))
    if one and two and not one.get("error_occurred") and not two.get("error_occurred"):
        one_ns, two_ns = nanoseconds(one, "cpu"), nanoseconds(two, "cpu")
        # Equal CPU time per call on one and two threads means the threads do
        # not slow each other down; a throughput short of 2x is then the
        # machine's other load, not the library.
        print(f"Hints translation CPU time per call: 1 thread {duration(one_ns)}, "
              f"2 threads {duration(two_ns)} ({two_ns / one_ns:.2f})")
    for name in missing:
        print(f"not run: {name}")


def runs_repetitions(runs):
    return max((run.get("repetitions", 1) for run in runs.values()), default=1)


if __name__ == "__main__":
    main()
