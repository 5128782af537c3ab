"""What a soak measures: samples of a process, straight lines through them, and the table of figures."""

import os
import pathlib


def sample(pid):
    """Descriptors, threads and private memory (KiB) of a process as it is now."""
    folder = pathlib.Path("/proc") / str(pid)
    status = dict(line.split(":", 1) for line in (folder / "status").read_text().splitlines() if ":" in line)
    return {
        "descriptors": len(os.listdir(folder / "fd")),
        "threads": int(status["Threads"]),
        "memory": int(status["RssAnon"].split()[0]),
    }


def processor_seconds(pid):
    fields = (pathlib.Path("/proc") / str(pid) / "stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def slope(points):
    """The rise of the straight line that fits the points (time, value) best, in values per unit of time."""
    count = len(points)
    mean_time = sum(time for time, _ in points) / count
    mean_value = sum(value for _, value in points) / count
    spread = sum((time - mean_time) ** 2 for time, _ in points)
    return sum((time - mean_time) * (value - mean_value) for time, value in points) / spread


class Table:
    """Figures with their limits; a figure without a limit is for reading only."""

    def __init__(self):
        self._rows = []
        self.passed = True

    def tell(self, name, value):
        self._rows.append((name, value, "", ""))

    def expect(self, name, value, limit, holds):
        self._rows.append((name, value, limit, "pass" if holds else "FAIL"))
        self.passed = self.passed and holds

    def at_most(self, name, value, limit, unit=""):
        self.expect(name, f"{value:g}{unit}", f"at most {limit:g}{unit}", value <= limit)

    def at_least(self, name, value, limit):
        self.expect(name, f"{value:g}", f"at least {limit:g}", value >= limit)

    def none(self, name, found):
        """Nothing of the kind must have been found; the first few that were are shown."""
        shown = ", ".join(str(each) for each in found[:5])
        self.expect(name, f"{len(found)} ({shown})" if found else "0", "none", not found)

    def markdown(self):
        rows = [("figure", "value", "limit", "verdict"), ("---",) * 4, *self._rows]
        return "".join("| " + " | ".join(str(cell).replace("|", "/") for cell in row) + " |\n" for row in rows)
