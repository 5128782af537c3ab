#!/usr/bin/env python3
"""unreached.py COUNTS REASONS: the lines that no test has reached, as a table, each with the reason.

COUNTS is what "gcovr --json" has written. Each line of REASONS that is neither empty nor a comment is

    FILE ~ TEXT ~ REASON

where TEXT is part of the line's own text, so that a reason stays with its line when others come before it; lines with
the same text share it. A REASON of one " is that of the line above; one that begins with "at times" is for a line that
depends on the moment, and may be reached. The exit code is 1 when a line has no reason, and when a reason's line is
gone, or always reached by now.
"""
import json
import pathlib
import sys


class Reason:
    """Why the lines of a file with a text in them are not reached."""

    def __init__(self, file, text, words):
        self.file, self.text, self.words = file, text, words
        self.used = False

    def fits(self, file, line):
        return self.file == file and self.text in line

    def complaint(self):
        """What is wrong with it once all lines have been looked at; empty when nothing is."""
        if self.used:
            return ""
        file = pathlib.Path(self.file)
        if not file.is_file() or self.text not in file.read_text(encoding="utf-8"):
            return f'{self.file}: "{self.text}" is gone, its reason is still there'
        if self.words.startswith("at times"):
            return ""
        return f'{self.file}: "{self.text}" is reached, in spite of its reason'


def reasons_of(path):
    """All reasons of the file."""
    found = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        parts = [part.strip() for part in line.split(" ~ ")]
        if len(parts) != 3 or not all(parts) or (parts[2] == '"' and not found):
            sys.exit(f"{path}:{number}: not FILE ~ TEXT ~ REASON")
        if parts[2] == '"':
            parts[2] = found[-1].words
        found.append(Reason(*parts))
    return found


def counts_of(path):
    """How often each line was run, by file and number."""
    counts = {}
    for entry in json.loads(path.read_text(encoding="utf-8"))["files"]:
        for line in entry["lines"]:
            if not line.get("gcovr/noncode"):
                place = (entry["file"], line["line_number"])
                counts[place] = counts.get(place, 0) + line["count"]
    return counts


def main():
    """Prints the table, and what is wrong with it."""
    counts = counts_of(pathlib.Path(sys.argv[1]))
    reasons = reasons_of(pathlib.Path(sys.argv[2]))
    unreached = sorted(place for place, count in counts.items() if count == 0)
    complaints = []
    print(f"{len(counts) - len(unreached):,} of {len(counts):,} lines are reached. The others:\n")
    print("| line | not reached | why |\n|---|---|---|")
    for name, number in unreached:
        line = pathlib.Path(name).read_text(encoding="utf-8").splitlines()[number - 1].strip()
        fitting = [reason for reason in reasons if reason.fits(name, line)]
        for reason in fitting:
            reason.used = True
        if not fitting:
            complaints.append(f"{name}:{number}: no reason for \"{line}\"")
        why = fitting[0].words if fitting else "**no reason given**"
        code = line.replace("|", "\\|").replace("`", "'")
        print(f"| {name}:{number} | `{code}` | {why} |")
    complaints += filter(None, (reason.complaint() for reason in reasons))
    print("\n".join(complaints), file=sys.stderr)
    return 1 if complaints else 0


sys.exit(main())
