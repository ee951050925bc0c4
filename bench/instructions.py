"""Measures every pair of tessiva_instructions in instructions with callgrind,
one case at a time, prints the table with ratios and targets, and exits 1
when a target is missed (2 when a case cannot be measured).

    python3 bench/instructions.py BINARY

Per operation: the instructions of a run of N operations minus those of an
empty run of the same case (set-up and the warm-up call are outside the
measured loop in both), divided by N. Allocations per operation are counted by
the binary's replaced operator new over the same loop; ours may not allocate
more than the baseline."""

import os
import re
import subprocess
import sys
import tempfile

TRANSLATION_TARGET = 1.0
KINDS = ("constant", "caller's string", "caller's constant")
# (pair, operations, target)
PAIRS = [(f"{translation}, {kind}", 2000, TRANSLATION_TARGET)
         for translation in ("policyFromVRPolicy", "eventFromVREvent", "resultFromVRResult",
                             "optionFromVRHint_error")
         for kind in KINDS]
PAIRS += [
    ("evaluatePolicy_hints_error", 200, 1.3),
    ("optionsFromVRHints", 500, 1.15),
    ("delegate proxy event", 500, 1.10),
    # Only in builds with D-Bus support.
    ("bus codec, event and answer", 500, 1.10),
]

TOTALS = re.compile(r"^totals:\s+(\d+)", re.MULTILINE)


def run(binary, case, operations):
    """(instructions, allocations) of one run of the case."""
    with tempfile.TemporaryDirectory() as directory:
        out = os.path.join(directory, "callgrind.out")
        process = subprocess.run(
            ["valgrind", "--tool=callgrind", "--collect-atstart=no",
             f"--callgrind-out-file={out}", binary, case, str(operations)],
            capture_output=True, text=True)
        if process.returncode != 0:
            raise RuntimeError(f"{case}: exit {process.returncode}\n{process.stderr}")
        with open(out) as file:
            instructions = int(TOTALS.search(file.read()).group(1))
    allocations = int(process.stdout.split()[-1])
    return instructions, allocations


def per_operation(binary, case, operations):
    full, allocations = run(binary, case, operations)
    empty, _ = run(binary, case, 0)
    return (full - empty) / operations, allocations / operations


def main():
    binary = sys.argv[1]
    env_logging = os.environ.pop("TESSIVA_LOGGING", None)
    if env_logging is not None:
        print("note: TESSIVA_LOGGING ignored; the figures are with logging off")
    rows = [("operation", "ours", "baseline", "ratio", "target", "allocs/op", "result")]
    missed = []
    listed = set(subprocess.run([binary, "--list"], check=True, capture_output=True,
                                text=True).stdout.splitlines())
    pairs = [row for row in PAIRS if row[0] + "/ours" in listed]
    try:
        for pair, operations, target in pairs:
            ours, ours_allocs = per_operation(binary, pair + "/ours", operations)
            base, base_allocs = per_operation(binary, pair + "/baseline", operations)
            ratio = ours / base
            met = ratio <= target and ours_allocs <= base_allocs
            if not met:
                missed.append(pair)
            rows.append((pair, f"{ours:,.0f}", f"{base:,.0f}", f"{ratio:.2f}",
                         f"<= {target:.2f}", f"{ours_allocs:g} / {base_allocs:g}",
                         "met" if met else "MISSED"))
    except (RuntimeError, AttributeError, ValueError, IndexError) as problem:
        print(f"instructions: cannot measure: {problem}", file=sys.stderr)
        return 2
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for index, row in enumerate(rows):
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")
        if index == 0:
            print("| " + " | ".join("-" * width for width in widths) + " |")
    print()
    print("Instructions per operation (callgrind, N operations minus an empty run, the "
          "warm-up call excluded); allocs/op: ours / baseline.")
    if missed:
        print(f"MISSED: {len(missed)} of {len(pairs)} targets: " + "; ".join(missed))
        return 1
    print(f"All {len(pairs)} targets met.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
