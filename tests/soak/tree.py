"""The installation that is soaked: ten children, their documents, what they have noted, and every process of it."""

import collections
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess

HERE = pathlib.Path(__file__).resolve().parent

DISPATCHERS = ("d1", "d2", "d3", "d4", "d5")  # over TLS, with all manners of the sample
PEERS = ("p1", "p2")  # pinged at a peer that breaks every rule, over TLS and plain
SLEEPERS = ("s1", "s2", "s3")  # not pinged; the last one ends by itself again and again
PINGED = DISPATCHERS + PEERS
CHILDREN = PINGED + SLEEPERS
STOPPER = "stopper"  # under this name the stop program of a child notes its processes

PLAIN_START = "/usr/bin/env", "--default-signal=TERM,INT,QUIT,HUP,PIPE,CHLD,XFSZ", "/bin/sleep"
LIFETIMES = {"s3": "7"}

SETTINGS = """[gateway]
VerifyCAFile = ../configuration/ca.pem
VerifyMode = Peer
MinProtocol = TLSv1.2
[dispatcher]
Certificate = ../configuration/dispatcher.pem
PrivateKey = ../configuration/dispatcher.key
"""
# What the allocator keeps for later grows for an hour, up to a few hundred KiB, as ever more sizes have once been asked
# for. Without that what is lost shows earlier.
ALLOCATOR = "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1"

# Settings that no process can start with; one that runs keeps the last good ones.
BROKEN_SETTINGS = (
    SETTINGS.replace("[gateway]", "[gateway"),
    SETTINGS.replace("[gateway]", "[entrance]").replace("[dispatcher]", "[exit]"),
    SETTINGS.replace("ca.pem", "nothing.pem").replace("dispatcher.pem", "nothing.pem"),
    SETTINGS.replace("VerifyMode = Peer", "VerifyMode = Perhaps").replace("dispatcher.key", "ca.pem"),
)

STARTUP = """<startupConfiguration xmlns:vrx="urn:velmora:startup"
    xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:xsd="http://www.w3.org/2001/XMLSchema"><ZOR>
<vrx:parameter name="dispatcherPingTimeout"><vrx:value xsi:type="xsd:unsignedShort">2</vrx:value></vrx:parameter>
<vrx:parameter name="dispatcherStopWaitTime"><vrx:value xsi:type="xsd:unsignedShort">5</vrx:value></vrx:parameter>
</ZOR><temp>../temp</temp><internalDispatcher>https://localhost:9300/dispatch</internalDispatcher>
</startupConfiguration>"""

# The second file of the daemon is never turned over, so that every line of it can be counted.
LOGGING = """<logConfiguration>
<run><logging level="DEBUG"><logFiles><file name="../logs/service.log" append="true"/>
<file name="../logs/whole.log" append="true"/></logFiles></logging></run>
<start><logging level="DEBUG"><logFiles><file name="../logs/commands.log" append="true"/></logFiles></logging></start>
<stop><logging level="DEBUG"><logFiles><file name="../logs/commands.log" append="true"/></logFiles></logging></stop>
<isrunning><logging level="ERROR"><logFiles><file name="../logs/commands.log" append="true"/></logFiles></logging>
</isrunning></logConfiguration>"""


def reserve_port():
    """A port that nobody else is given while the socket exists; a listener that asks for reuse may take it."""
    reserved = socket.socket()
    reserved.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    reserved.bind(("127.0.0.1", 0))
    return reserved


def element(tag, content, /, **attributes):
    words = "".join(f' {key}="{value}"' for key, value in attributes.items())
    return f"<{tag}{words}>{content}</{tag}>"


def spawn(path, *arguments):
    return element("spawn", element("path", path) + "".join(element("param", each) for each in arguments))


def socket_send(uri, command, **attributes):
    return element("socketSend", "", URI=uri, commandString=command, sockIOTimeoutSec=1, **attributes)


class Tree:
    """An installation in a folder of its own. `children` are those of CHILDREN that it has."""

    def __init__(self, root, programs, sources, children):
        self.root = pathlib.Path(root).resolve()
        self.children = children
        self.starts = self.root / "temp/starts"
        self._reserved = {name: reserve_port() for name in DISPATCHERS}
        self.end_processes()  # of a run that was broken off
        shutil.rmtree(self.root, ignore_errors=True)
        for folder in ("bin", "configuration", "logs", "temp"):
            (self.root / folder).mkdir(parents=True)
        for program in ("velbootstrapservice", "sampledispatcher", "libSEK_Crypto_Interface.so"):
            shutil.copy(pathlib.Path(programs) / program, self.root / "bin")
        for program in ("recorder", "ender"):
            shutil.copy(HERE / program, self.root / "bin")
        subprocess.run([sources / "programs/make-certificates", self.root / "configuration"], check=True)
        self.starts.touch()
        self.write("configuration/sek.cnf", SETTINGS)
        self.write("configuration/startup.xml", STARTUP)
        self.write("bin/zorlogconfig.xml", LOGGING)

    def certificate(self):
        return (self.root / "configuration/dispatcher.pem", self.root / "configuration/dispatcher.key")

    def write(self, name, content):
        """By renaming: nobody ever reads half of it."""
        aside = self.root / (name + ".new")
        aside.write_text(content)
        aside.rename(self.root / name)

    def mark(self, name, kind, present):
        """The files by which a dispatcher is told how to answer."""
        file = self.root / f"temp/{name}.{kind}"
        if present:
            file.touch()
        else:
            file.unlink(missing_ok=True)

    # ---- documents ----

    def write_bootstrap(self, peer_ports):
        uris = {name: f"tls://127.0.0.1:{port.getsockname()[1]}" for name, port in self._reserved.items()}
        uris |= {"p1": f"tls://127.0.0.1:{peer_ports['p1']}", "p2": f"tcp://127.0.0.1:{peer_ports['p2']}"}
        content = '<processManager pollIntervalsec="1" checkForShutdownIntervalms="100"/>'
        content += "".join(self._process(name, uris.get(name)) for name in self.children)
        arguments = element("path", "${bin_path}/velbootstrapservice") + element("param", "runAsDaemon")
        self.write("bin/bootstrap_linuxi38632.xml",
                   element("bootstrap", content + element("daemonSpawn", arguments, sync=1)))

    def _process(self, name, uri):
        return element("process", self._start(name, uri) + self._stop(name, uri) + self._ping(name, uri), name=name)

    def _recorded(self, name, *command):
        return spawn("${bin_path}/recorder", self.starts, name, *command)

    def _start(self, name, uri):
        if name not in DISPATCHERS:
            return element("start", self._recorded(name, *PLAIN_START, LIFETIMES.get(name, "100000")))
        files = "${install_path}/temp/" + name
        return element("start", self._recorded(
            name, "${bin_path}/sampledispatcher", f"--listen={uri}", "--fatal=BROKEN", "--wait-for-port=5",
            f"--warm-up-file={files}.ready", f"--fatal-file={files}.fatal", f"--silent-file={files}.silent"))

    def _stop(self, name, uri):
        if name in SLEEPERS:
            return element("stop", element("signal", "", signal=15), type="signal")
        if name == "p2":
            ender = self._recorded(STOPPER, "${bin_path}/ender", self.starts, name)
            return element("stop", ender, type="spawn")
        return element("stop", socket_send(uri, "SHUTDOWN"), type="socketSend")

    @staticmethod
    def _ping(name, uri):
        if name in SLEEPERS:
            return ""
        return element("ping", socket_send(uri, "PING", responseSize=64, responseOK="READY", responseFatal="BROKEN",
                                           responseRetry="STARTING"))

    # ---- programs ----

    def command(self, *arguments, limit=300):
        """Runs the service's command line; its exit code."""
        environment = {"PATH": "/usr/bin:/bin", "JAVA_HOME": "/opt/java", "GLIBC_TUNABLES": ALLOCATOR}
        return subprocess.run([self.root / "bin/velbootstrapservice", *arguments], cwd=self.root / "bin", check=False,
                              env=environment, timeout=limit, stdin=subprocess.DEVNULL).returncode

    def daemon(self):
        return int((self.root / "logs/velbootstrap_service.pid").read_text())

    def processes(self):
        """Everything that runs from this tree."""
        found = []
        for entry in pathlib.Path("/proc").iterdir():
            try:
                if entry.name.isdigit() and os.readlink(entry / "cwd") == str(self.root / "bin"):
                    found.append(int(entry.name))
            except OSError:
                continue
        return found

    def end_processes(self):
        for _ in range(100):
            left = self.processes()
            for pid in left:
                self.signal(pid, signal.SIGKILL)
            if not left:
                return

    def signal(self, pid, number):
        """Signals a process of this tree; false when it is none any more."""
        try:
            descriptor = os.pidfd_open(pid)
        except OSError:
            return False
        try:
            if os.readlink(f"/proc/{pid}/cwd") != str(self.root / "bin"):
                return False
            signal.pidfd_send_signal(descriptor, number)
            return True
        except OSError:
            return False
        finally:
            os.close(descriptor)

    # ---- what was noted ----

    def started(self):
        """Name -> the ids of the processes that were really started under it, in order."""
        notes = collections.defaultdict(list)
        for line in self.starts.read_text().splitlines():
            name, pid = line.split()
            notes[name].append(int(pid))
        return notes

    def current(self, name):
        pids = self.started()[name]
        return pids[-1] if pids else None

    def whole_log(self):
        return (self.root / "logs/whole.log").read_text(errors="replace")


LINE = re.compile(r"^\w{3} \w{3} [ \d]\d [\d:]{8} \d{4}  ([A-Z]+) +t\[([0-9a-f]+)\] (\w+) (.*)$", re.MULTILINE)


def handles_in(log):
    """Name -> the ids that the log tells of having started under it, in order."""
    handles, starting = collections.defaultdict(list), {}
    for _, thread, logger, text in LINE.findall(log):
        if logger != "ZORChildProcess":
            continue
        if text.startswith("starting process "):
            starting[thread] = text.split('"')[1]
        elif text.startswith("process handle is "):
            handles[starting.pop(thread)].append(int(text.rpartition(" ")[2]))
    return handles


def spawned_in(log):
    """How often the log tells of each id that a process of it was started."""
    return collections.Counter(int(pid) for pid in re.findall(r"ZORSpawnAction Started process, pid = (\d+)", log))
