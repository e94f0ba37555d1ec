#!/usr/bin/python3
"""Compares two outputs of metrofit_result_dump (reference first, candidate second).

Reports cases whose return value, m_valid or m_iterations differ, cases present in only one
output, and for every numeric field the largest relative difference
|a - b| / max(|a|, |b|, tiny) with the case where it occurs. Fields that are NaN in both count
as equal; equal infinities count as equal. A summary line gives the number of cases with any
field over the threshold (default 1e-12).

Exit status: 0 when the outputs agree within the threshold, 1 otherwise, 2 on bad input.

usage: compare_results.py REFERENCE.txt CANDIDATE.txt [--threshold 1e-12] [--tiny 1e-300] [--list N]
"""
import argparse
import math
import sys

EXACT = ("ret", "valid", "iter", "ndev")


def parse(path):
    cases = {}
    order = []
    with open(path) as f:
        for lineno, line in enumerate(f, 1):
            tok = line.split()
            if not tok:
                continue
            if len(tok) < 3:
                sys.exit(f"{path}:{lineno}: malformed line")
            key = tok[0] + " " + tok[1]
            fields = {}
            for t in tok[2:]:
                name, _, value = t.partition("=")
                parts = value.split(",")
                if len(parts) == 1:
                    fields[name] = float(parts[0])
                else:
                    for axis, v in zip("xyz", parts):
                        fields[name + "." + axis] = float(v)
            if key in cases:
                sys.exit(f"{path}:{lineno}: duplicate case {key}")
            cases[key] = fields
            order.append(key)
    return cases, order


def rel_diff(a, b, tiny):
    if math.isnan(a) and math.isnan(b):
        return 0.0
    if math.isnan(a) or math.isnan(b):
        return math.inf
    if a == b:  # includes equal infinities and +0 / -0
        return 0.0
    if math.isinf(a) or math.isinf(b):
        return math.inf
    return abs(a - b) / max(abs(a), abs(b), tiny)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("reference")
    ap.add_argument("candidate")
    ap.add_argument("--threshold", type=float, default=1e-12)
    ap.add_argument("--tiny", type=float, default=1e-300,
                    help="floor of the denominator of the relative difference")
    ap.add_argument("--list", type=int, default=20,
                    help="how many differing cases to list by name")
    args = ap.parse_args()

    ref, order = parse(args.reference)
    cand, _ = parse(args.candidate)

    only_ref = [k for k in order if k not in cand]
    only_cand = [k for k in cand if k not in ref]
    common = [k for k in order if k in cand]

    exact_diff = []  # (case, field, a, b)
    worst = {}  # field -> (rel, case, a, b)
    over = {}  # case -> largest rel diff over the threshold
    for key in common:
        a_fields, b_fields = ref[key], cand[key]
        for name in sorted(set(a_fields) | set(b_fields)):
            a = a_fields.get(name, math.nan)
            b = b_fields.get(name, math.nan)
            if name in EXACT:
                if a != b:
                    exact_diff.append((key, name, a, b))
                    over[key] = math.inf
                continue
            r = rel_diff(a, b, args.tiny)
            if name not in worst or r > worst[name][0]:
                worst[name] = (r, key, a, b)
            if r > args.threshold:
                over[key] = max(over.get(key, 0.0), r)

    print(f"cases: {len(ref)} reference, {len(cand)} candidate, {len(common)} in both")
    for k in only_ref:
        print(f"  only in reference: {k}")
    for k in only_cand:
        print(f"  only in candidate: {k}")

    print(f"ret/valid/iter/ndev differences: {len(exact_diff)}")
    for key, name, a, b in exact_diff[: args.list]:
        print(f"  {key}: {name} {a:g} -> {b:g}")
    if len(exact_diff) > args.list:
        print(f"  ... {len(exact_diff) - args.list} more")

    print("largest relative difference per field:")
    for name in sorted(worst):
        r, key, a, b = worst[name]
        where = f"  ({key}: {a!r} vs {b!r})" if r > 0.0 else ""
        print(f"  {name:<14} {r:.3e}{where}")

    listed = sorted(over.items(), key=lambda kv: -kv[1])
    for key, r in listed[: args.list]:
        print(f"  over {args.threshold:g}: {key} ({r:.3e})")
    if len(listed) > args.list:
        print(f"  ... {len(listed) - args.list} more")
    missing = len(only_ref) + len(only_cand)
    print(f"SUMMARY: {len(over)} of {len(common)} cases over {args.threshold:g} "
          f"(of them {len({k for k, *_ in exact_diff})} with ret/valid/iter/ndev changes), "
          f"{missing} cases missing on one side")
    return 0 if not over and not missing else 1


if __name__ == "__main__":
    sys.exit(main())
