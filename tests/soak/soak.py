"""soak.py [options]: the real service for half an hour under everything that may happen to it.

Ten children are pinged every second, and all the while killed, frozen and thawed; they answer late, by half, wrongly,
"retry" and "fatal"; the settings of the security library are broken and mended, the log is turned over. What the
service keeps must not grow, and every start in its log must be a process, and the other way round. The events follow
from the seed alone. Prints a table of figures; the exit code is 0 when all of them are within their limits.
"""

import argparse
import collections
import dataclasses
import pathlib
import random
import signal
import subprocess
import sys
import time

import figures
import peers
import tree as installation

SOURCES = pathlib.Path(__file__).resolve().parents[2]

WARM_UP = 0.2  # of the time, before what is kept is looked at
RECOVERY = 240  # seconds in which all must be well again when nothing happens any more
LONGEST_SILENCE = 150  # seconds; a round of pings in which every peer keeps the supervisor as long as it can

# How much the straight line through all samples may rise from one end to the other, however long the run. A ping that
# is under way has up to two descriptors, and the allocator keeps a page more now and then; of what is lost at every
# ping or restart there are some 25 and 10 in a minute.
GROWTH_LIMITS = {"descriptors": 1.5, "threads": 0.5, "memory": 48}  # memory in KiB


@dataclasses.dataclass(order=True)
class Event:
    """Something that happens at a moment (seconds from the beginning), and how long it lasts."""

    at: float
    kind: str
    name: str
    lasting: float
    choice: float  # picks one of several variants


def targets(kind, children):
    if kind == "kill":
        return children
    if kind == "freeze":
        return [name for name in children if name not in installation.PEERS]
    if kind == "silent" or kind in ("retry", "fatal"):
        return [name for name in children if name in installation.PINGED]
    if kind in peers.ANSWERS + peers.BREACHES:
        return [name for name in children if name in installation.PEERS]
    return ["-"]


KINDS = ("kill",) * 10 + ("freeze",) * 3 + ("settings",) * 2 + ("rotate",) * 2 + ("ask", "limit")
KINDS += peers.ANSWERS + peers.BREACHES


def plan(seed, seconds, gap, children, only):
    """All events of a run. Each kind comes once in the warm-up, then they come as they may."""
    dice = random.Random(seed)
    kinds = [kind for kind in KINDS if not only or kind in only]
    first = sorted(set(kinds))
    dice.shuffle(first)
    events, at = [], 0.0
    while at < seconds:
        at += dice.expovariate(1 / gap)
        kind = first.pop() if first else dice.choice(kinds)
        name = dice.choice(targets(kind, children))
        events.append(Event(at, kind, name, dice.uniform(3, 25), dice.random()))
    return [event for event in events if event.at < seconds]


class Soak:
    """One run, from the start of the service to its end."""

    def __init__(self, options):
        self.options = options
        self.seconds = options.minutes * 60
        wanted = options.children.split(",")
        children = [name for name in installation.CHILDREN if name in wanted]
        self.tree = installation.Tree(options.folder, options.programs, SOURCES, children)
        ends = {name: self._ender(name) for name in installation.PEERS}
        self.peers = {
            "p1": peers.Peer(self.tree.certificate(), ends["p1"]),
            "p2": peers.Peer(None, ends["p2"]),
        }
        self.events = collections.deque(plan(options.seed, self.seconds, options.gap, children, options.only))
        self.endings = []  # (when, what is to be done then)
        self.samples = []  # (seconds, sample)
        self.happened = collections.Counter()
        self.wrong_exits, self.zombies, self.suspects, self.silences = [], [], set(), []
        self.rotations = 0
        self.log_size, self.log_moved = 0, 0.0

    def _ender(self, name):
        return lambda: self.tree.signal(self.tree.current(name), signal.SIGTERM)

    # ---- the life of the service ----

    def run(self):
        for peer in self.peers.values():
            peer.start()
        self.tree.write_bootstrap({name: peer.port for name, peer in self.peers.items()})
        for name in installation.DISPATCHERS:
            self.tree.mark(name, "ready", True)
        self.expect_exit(0, "-start", "-testReadyInterval=1", "-testReadyTries=60")
        self.daemon = self.tree.daemon()
        self.begin = time.monotonic()
        processor = figures.processor_seconds(self.daemon)
        self.stir()
        self.processor = figures.processor_seconds(self.daemon) - processor
        self.mend_everything()
        self.unwell = self.wait_until_well()
        self.at_rest = figures.sample(self.daemon)
        self.lines = self.tree.whole_log()
        self.expect_exit(0, "-stop", "-testDeadInterval=1", "-testDeadTries=120")
        self.expect_exit(1, "-isrunning")

    def expect_exit(self, code, *arguments):
        got = self.tree.command(*arguments)
        if got != code:
            self.wrong_exits.append(f"{' '.join(arguments)}: {got}")

    def now(self):
        return time.monotonic() - self.begin

    def stir(self):
        """Lets everything happen, and looks at the service once a second."""
        look = 0.0
        while (now := self.now()) < self.seconds:
            while self.events and self.events[0].at <= now:
                self.let_happen(self.events.popleft())
            for ending in [each for each in self.endings if each[0] <= now]:
                self.endings.remove(ending)
                ending[1]()
            if now >= look:
                self.look(now)
                look = now + 1
            time.sleep(0.1)

    def look(self, now):
        self.samples.append((now / 60, figures.sample(self.daemon)))
        self.look_for_zombies()
        size = (self.tree.root / "logs/whole.log").stat().st_size
        if size != self.log_size:
            self.log_size, self.log_moved = size, now
        elif now - self.log_moved > LONGEST_SILENCE:
            self.silences.append(round(now))

    def look_for_zombies(self):
        """A process with threads is one for a moment while they end; only what is still one a second later counts."""
        found = set()
        for entry in pathlib.Path("/proc").glob("[0-9]*/stat"):
            try:
                text = entry.read_text()
            except OSError:
                continue
            state, parent = text.rpartition(")")[2].split()[:2]
            if state == "Z" and int(parent) == self.daemon:
                found.add(entry.parent.name)
        self.zombies += sorted(found & self.suspects)
        self.suspects = found

    # ---- events ----

    def let_happen(self, event):
        self.happened[event.kind] += 1
        if self.options.verbose:
            print(f"{self.now():8.1f}  {event.kind} {event.name}", flush=True)
        if event.kind in peers.ANSWERS + peers.BREACHES:
            self.give_manner(event)
        else:
            getattr(self, event.kind)(event)

    def later(self, event, action):
        self.endings.append((event.at + event.lasting, action))

    def kill(self, event):
        self.tree.signal(self.tree.current(event.name), signal.SIGKILL)

    def freeze(self, event):
        """Some are thawed again; the others are left to the supervisor, which only notices those it pings."""
        pid = self.tree.current(event.name)
        self.tree.signal(pid, signal.SIGSTOP)
        if event.choice < 0.7 or event.name in installation.SLEEPERS:
            self.later(event, lambda: self.tree.signal(pid, signal.SIGCONT))

    def give_manner(self, event):
        if event.name in installation.PEERS:
            peer = self.peers[event.name]
            peer.manner = event.kind
            self.later(event, lambda: setattr(peer, "manner", "ready"))
            return
        file, present = ("ready", False) if event.kind == "retry" else (event.kind, True)
        self.tree.mark(event.name, file, present)
        self.later(event, lambda: self.tree.mark(event.name, file, not present))

    def settings(self, event):
        broken = installation.BROKEN_SETTINGS
        self.tree.write("configuration/sek.cnf", broken[int(event.choice * len(broken))])
        self.later(event, lambda: self.tree.write("configuration/sek.cnf", installation.SETTINGS))

    def rotate(self, _event):
        """With the file of the package, but for the place of the log and for whose it is."""
        rules = (SOURCES / "packaging/logrotate").read_text()
        rules = rules.replace("/var/log/velbootstrapservice/velbootstrapservice.log",
                              str(self.tree.root / "logs/service.log"))
        rules = rules.replace("su velbootstrap adm", "").replace("rotate 8", "rotate 100000")
        self.tree.write("temp/logrotate", rules)
        subprocess.run(["logrotate", "--force", "--state", self.tree.root / "temp/logrotate.state",
                        self.tree.root / "temp/logrotate"], check=True, stdin=subprocess.DEVNULL)
        self.rotations += 1

    def ask(self, _event):
        self.expect_exit(0, "-isrunning")

    def limit(self, event):
        self.tree.write("bin/zor.failedPingLimit", f"{1 + int(event.choice * 3)}\n")

    # ---- the end ----

    def mend_everything(self):
        for peer in self.peers.values():
            peer.manner = "ready"
        for name in installation.DISPATCHERS:
            for kind, present in (("ready", True), ("fatal", False), ("silent", False)):
                self.tree.mark(name, kind, present)
        self.tree.write("configuration/sek.cnf", installation.SETTINGS)
        for pid in self.tree.processes():
            self.tree.signal(pid, signal.SIGCONT)

    def wait_until_well(self):
        """The names of the children that were not seen well in time."""
        before = len(self.tree.whole_log())
        deadline = time.monotonic() + RECOVERY
        names = [name for name in self.tree.children if name in installation.PINGED]
        while time.monotonic() < deadline:
            since = self.tree.whole_log()[before:]
            left = [name for name in names if f"process {name} pinged successfully." not in since]
            left += [name for name in ("s1", "s2") if name in self.tree.children and not self.lives(name)]
            if not left:
                return []
            time.sleep(0.5)
        return left

    def lives(self, name):
        return self.tree.current(name) in self.tree.processes()

    # ---- figures ----

    def table(self):
        table = figures.Table()
        minutes = self.seconds / 60
        self.tell_what_happened(table, minutes)
        for of, limit in GROWTH_LIMITS.items():
            self.expect_flat(table, of, limit)
        table.tell("processor time", f"{self.processor / minutes:.2f} s/min")
        self.expect_log(table)
        self.expect_starts(table)
        table.none("zombies", self.zombies)
        table.none("wrong exit codes", self.wrong_exits)
        table.none("children not well in the end", self.unwell)
        table.none(f"silences of more than {LONGEST_SILENCE} s", self.silences)
        table.none("processes left", self.tree.processes())
        table.none("PID files left", [file.name for file in (self.tree.root / "logs").glob("*.pid")])
        return table

    def expect_flat(self, table, of, limit):
        unit = " KiB" if of == "memory" else ""
        begin = self.seconds / 60 * WARM_UP
        points = [(at, sample[of]) for at, sample in self.samples if at >= begin]
        values = [value for _, value in points]
        length = points[-1][0] - points[0][0]
        rise = figures.slope(points)
        table.tell(f"{of}, least and most", f"{min(values)} to {max(values)}{unit}, at rest {self.at_rest[of]}{unit}")
        table.tell(f"{of}, slope", f"{rise:.3f}{unit} a minute")
        table.at_most(f"{of}, growth over {length:.1f} min", round(rise * length, 2), limit, unit)

    def tell_what_happened(self, table, minutes):
        table.tell("length, seed", f"{minutes:g} min, {self.options.seed}")
        table.tell("children", len(self.tree.children))
        table.tell("events", ", ".join(f"{count} {kind}" for kind, count in sorted(self.happened.items())))
        log = self.lines
        table.at_least("pings", log.count("still active, so we will ping it."), minutes * 8)
        table.tell("pings that failed", log.count("Will begin restart sequence."))
        table.tell("restarts for want of an answer", log.count("hit ping failure limit"))

    def expect_log(self, table):
        """What was turned over is the whole log but for lines that fell between the copy and the cut."""
        whole = self.tree.whole_log()
        table.none("FATAL lines", [text for level, _, _, text in installation.LINE.findall(whole) if level == "FATAL"])
        table.expect("last line", whole.rstrip().rpartition(" ")[2], "Done.", whole.rstrip().endswith(" Done."))
        kept = collections.Counter()
        for file in (self.tree.root / "logs").glob("service.log*"):
            text = subprocess.run(["gzip", "-dcf", file], check=True, capture_output=True).stdout
            kept.update(text.decode(errors="replace").splitlines())
        lines = collections.Counter(whole.splitlines())
        table.tell("times the log was turned over", self.rotations)
        table.none("lines only in the log turned over", list(kept - lines))
        table.at_most("lines lost in turning over", sum((lines - kept).values()), 20 * max(1, self.rotations))

    def expect_starts(self, table):
        log, real = self.tree.whole_log(), self.tree.started()
        told = installation.handles_in(log)
        table.at_least("starts of children", sum(len(real[name]) for name in self.tree.children),
                       len(self.tree.children))
        table.none("children whose starts and processes differ",
                   [name for name in self.tree.children if told[name] != real[name]])
        spawned = installation.spawned_in(log)
        processes = collections.Counter(pid for pids in real.values() for pid in pids)
        table.none("starts in the log without a process", list((spawned - processes).elements()))
        table.none("processes without a start in the log", list((processes - spawned).elements()))


def parse():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--minutes", type=float, default=30)
    parser.add_argument("--programs", required=True, help="the folder with the programs")
    parser.add_argument("--folder", required=True, help="the installation; what is there is replaced")
    parser.add_argument("--seed", type=int, default=20)
    parser.add_argument("--gap", type=float, default=3, help="seconds between two events, on average")
    parser.add_argument("--children", default=",".join(installation.CHILDREN), help="only these of the ten")
    parser.add_argument("--only", type=lambda kinds: kinds.split(","), help="only these kinds of events")
    parser.add_argument("--table", help="a file for the table")
    parser.add_argument("--verbose", action="store_true", help="tell of each event")
    return parser.parse_args()


def main():
    options = parse()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("broken off"))
    print(f"soak of {options.minutes:g} min, seed {options.seed}", flush=True)
    soak = Soak(options)
    try:
        soak.run()
        table = soak.table()
    finally:
        soak.tree.end_processes()
    text = table.markdown()
    print(text, end="")
    if options.table:
        pathlib.Path(options.table).write_text(text)
    print("passed" if table.passed else f"FAILED, see {soak.tree.root}/logs")
    return 0 if table.passed else 1


if __name__ == "__main__":
    sys.exit(main())
