#!/usr/bin/env python3
"""unreached.py COUNTS REASONS: the lines that no test has reached, as a table, each with the reason.

COUNTS is what "gcovr --json" has written. Each line of REASONS that is neither empty nor a comment is

    FILE: TEXT: REASON

where TEXT is part of the line's own text, so that a reason stays with its line when others come before it. A line
without a reason makes the table's end say so, and the exit code 1; so does a reason whose line is reached by now, or gone.
"""
import json
import pathlib
import sys


def reasons_of(path):
    """Triples of file, text and reason."""
    found = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        parts = line.split(": ", 2)
        if len(parts) != 3:
            sys.exit(f"{path}:{number}: not FILE: TEXT: REASON")
        found.append(tuple(part.strip() for part in parts))
    return found


def unreached_in(counts):
    """Pairs of file and line number, in order."""
    lines = {}
    for entry in json.loads(counts.read_text(encoding="utf-8"))["files"]:
        for line in entry["lines"]:
            if not line.get("gcovr/noncode"):
                place = (entry["file"], line["line_number"])
                lines[place] = lines.get(place, 0) + line["count"]
    return sorted(place for place, count in lines.items() if count == 0)


def main():
    """Prints the table, then what is wrong with it."""
    reasons = reasons_of(pathlib.Path(sys.argv[2]))
    used = set()
    missing = 0
    print("| line | not reached | why |\n|---|---|---|")
    for name, number in unreached_in(pathlib.Path(sys.argv[1])):
        text = pathlib.Path(name).read_text(encoding="utf-8").splitlines()[number - 1].strip()
        fitting = [reason for reason in reasons if reason[0] == name and reason[1] in text]
        used.update(fitting)
        missing += not fitting
        why = fitting[0][2] if fitting else "**no reason given**"
        code = text.replace("|", "\\|").replace("`", "'")
        print(f"| {name}:{number} | `{code}` | {why} |")
    stale = [reason for reason in reasons if reason not in used]
    for name, text, _ in stale:
        print(f"{name}: a reason for \"{text}\", which is reached or gone", file=sys.stderr)
    if missing:
        print(f"{missing} lines without a reason", file=sys.stderr)
    return 1 if missing or stale else 0


sys.exit(main())
