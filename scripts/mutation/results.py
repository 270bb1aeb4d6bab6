"""Sums up what scripts/mutate has found."""

import collections
import json


def read_equivalents(path):
    """{(file, code of the line, change)}. A row is "FILE: CODE", then the changes, indented; the lines
    that begin with # say above it why they change nothing."""
    rows, head = set(), None
    for line in path.read_text().splitlines() if path.exists() else []:
        if not line.strip() or line.startswith("#"):
            continue
        if line.startswith("    "):
            rows.add((*head, line.strip()))
        else:
            head = tuple(line.split(": ", 1))
    return rows


def read_results(folder):
    known = {}
    if (folder / "results").exists():
        for line in open(folder / "results", encoding="utf-8"):
            each = json.loads(line)
            known[each["file"], each["key"]] = each
    return known


def folder_of(file):
    return file.split("/")[0]


def show_survivors(mutants):
    for each in sorted(mutants, key=lambda each: (each["file"], each["line"], each["column"])):
        print(f"{each['file']}:{each['line']}:{each['column']}: {each['result']}: {each['change']}")
        print(f"    {each['code']}")


def show_table(title, rows):
    """rows: {name: Counter}"""
    columns = ["mutants", "killed", "survived", "so far", "no difference", "not reached", "equivalent", "not run"]
    print(f"\n{title:18}" + "".join(f"{name:>15}" for name in columns) + f"{'score':>9}")
    for name, row in rows.items():
        judged = row["mutants"] - row["equivalent"] - row["not run"]
        score = f"{100 * row['killed'] / judged:8.1f}%" if judged else f"{'-':>9}"
        print(f"{name:18}" + "".join(f"{row[column]:15}" for column in columns) + score)


def count(mutants, key):
    rows = collections.defaultdict(collections.Counter)
    for each in mutants:
        for row in (rows[key(each)], rows["all"]):
            row["mutants"] += 1
            row[each["result"]] += 1
    total = rows.pop("all", collections.Counter())
    return {**dict(sorted(rows.items())), "all": total}


def mark(mutants, known, same):
    """Gives each its result; returns the rows of equivalents that there are not, and those of which
    all have been killed."""
    unused, killed, alive = set(same), set(), set()
    for each in mutants:
        found = known.get((each["file"], each["key"]))
        each["result"] = found["result"].removeprefix("survived ") if found else "not run"
        row = (each["file"], each["code"], each["change"])
        if row in same:
            unused.discard(row)
            if each["result"] == "killed":
                killed.add(row)
            else:
                alive.add(row)
                each["result"] = "equivalent"
    return unused, killed - alive


def show(folder, mutants, left_out, equivalents, chosen):
    """Returns the script's exit status."""
    unused, killed = mark(mutants, read_results(folder), read_equivalents(equivalents))
    show_survivors(each for each in mutants
                   if each["result"] in ("survived", "so far", "no difference", "not reached"))
    show_table("folder", count(mutants, lambda each: folder_of(each["file"])))
    show_table("kind", count(mutants, lambda each: each["kind"]))
    constants = sum(len(place["mutants"]) for place in left_out if place["is_constant"])
    others = sum(len(place["mutants"]) for place in left_out) - constants
    print(f"\nleft out in all folders: {constants} mutants of constants at compile time, "
          f"{others} that do not compile")
    if not chosen.sample:
        killed |= {row for row in unused if any(row[0].startswith(name) for name in chosen.folders)}
    for row in sorted(killed):
        print("scripts/mutation/equivalents: no such mutant, or tests kill it: " + ": ".join(row))
    return 1 if killed else 0
