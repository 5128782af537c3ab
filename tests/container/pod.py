"""A pod on this machine, without an engine: what a manifest says, done with namespaces.

Pod(manifests, ...) runs the one container of the pod template: its command, arguments and environment, as its user,
with its volumes, in process, mount and network namespaces of its own. Probes and other commands enter these. Needs
root. What a pod started ends with close(), and with this process.

What is not done: limits, seccomp profiles, host names. What a manifest says and this file does not know is an error,
so that no test passes by overlooking it.
"""

import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import yaml

ADDRESS = "192.0.2.10"  # reserved for documentation: nobody else has it
INSIDE = pathlib.Path(__file__).with_name("pod_inside.py")
KNOWN_OF_POD = {
    "terminationGracePeriodSeconds",
    "automountServiceAccountToken",
    "enableServiceLinks",
    "securityContext",
    "containers",
    "volumes",
}
KNOWN_OF_CONTAINER = {
    "name",
    "image",
    "workingDir",
    "command",
    "args",
    "env",
    "ports",
    "resources",
    "livenessProbe",
    "readinessProbe",
    "startupProbe",
    "securityContext",
    "volumeMounts",
}


def wait_for(what, condition, seconds=60):
    """The condition's first true value."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {seconds} s: {what}")
        time.sleep(0.1)


def load_manifests(path):
    """The objects of a file, by kind."""
    return {each["kind"]: each for each in yaml.safe_load_all(pathlib.Path(path).read_text())}


def run_steps(recipe):
    """The command lines of a Containerfile's RUN instructions."""
    text = re.sub(r"^\s*#.*\n", "", pathlib.Path(recipe).read_text(), flags=re.MULTILINE)
    joined = text.replace("\\\n", " ")
    return re.findall(r"^RUN\s+(.*)$", joined, flags=re.MULTILINE)


def expanded(text, environment):
    """$(NAME) and $$, as in the command of a container."""

    def value(match):
        if match.group() == "$$":
            return "$"
        return environment.get(match.group(1), match.group())

    return re.sub(r"\$\$|\$\((\w+)\)", value, text)


class Pod:
    def __init__(self, manifests, recipe, package, secrets, volumes=None):
        """secrets: name -> {file: content}. volumes: of an earlier pod, as they are."""
        self.spec = manifests["Deployment"]["spec"]["template"]["spec"]
        (self.container,) = self.spec["containers"]
        unknown = set(self.spec) - KNOWN_OF_POD | set(self.container) - KNOWN_OF_CONTAINER
        if unknown:
            raise ValueError(f"not understood: {sorted(unknown)}")
        self.environment = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}
        for variable in self.container.get("env", []):
            self.environment[variable["name"]] = variable["value"]
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vbs_pod_"))
        (self.folder / "scratch").mkdir()
        self.output = self.folder / "output"
        self.first = 0
        self.volumes = volumes or self._make_volumes(manifests["ConfigMap"], secrets)
        self._start(recipe, package)
        try:
            self.first = wait_for("the container's first process", self._first_process)
        except BaseException:
            self.close()
            raise

    # --- making it ---

    def _make_volumes(self, config_map, secrets):
        volumes = {}
        for volume in self.spec["volumes"]:
            folder = pathlib.Path(tempfile.mkdtemp(prefix="vbs_volume_"))
            volumes[volume["name"]] = str(folder)
            mode = 0o644
            files = {}
            if "configMap" in volume:
                assert volume["configMap"]["name"] == config_map["metadata"]["name"]
                files = config_map["data"]
            elif "secret" in volume:
                files = secrets[volume["secret"]["secretName"]]
                mode = volume["secret"]["defaultMode"]
            else:
                assert "emptyDir" in volume, volume
            self._fill(folder, files, mode)
        return volumes

    def _fill(self, folder, files, mode):
        group = self.spec["securityContext"]["fsGroup"]
        for name, content in files.items():
            file = folder / name
            file.write_bytes(content.encode() if isinstance(content, str) else content)
            os.chown(file, 0, group)
            file.chmod(mode)
        os.chown(folder, 0, group)
        folder.chmod(0o2777)

    def _is_read_only(self, volume_name):
        (volume,) = [each for each in self.spec["volumes"] if each["name"] == volume_name]
        return "emptyDir" not in volume

    def _mounts(self):
        return [
            {
                "volume": mount["name"],
                "path": mount["mountPath"],
                "subPath": mount.get("subPath"),
                "readOnly": self._is_read_only(mount["name"]),
            }
            for mount in self.container["volumeMounts"]
        ]

    def as_user(self, command):
        """The command as a user who can do no more than the container may."""
        pod, own = self.spec["securityContext"], self.container["securityContext"]
        assert pod["runAsNonRoot"] and pod["runAsUser"] != 0
        assert own["capabilities"] == {"drop": ["ALL"]} and own["allowPrivilegeEscalation"] is False
        user, group, more = (str(pod[key]) for key in ("runAsUser", "runAsGroup", "fsGroup"))
        rights = ["--reuid", user, "--regid", group, "--groups", more, "--no-new-privs"]
        return ["setpriv", *rights, "--inh-caps=-all", "--bounding-set=-all", *command]

    def _start(self, recipe, package):
        command = self.container["command"] + self.container.get("args", [])
        plan = {
            "scratch": str(self.folder / "scratch"),
            "package": str(package),
            "prepare": run_steps(recipe),
            "volumes": self.volumes,
            "mounts": self._mounts(),
            "readOnlyRoot": self.container["securityContext"]["readOnlyRootFilesystem"],
            "address": ADDRESS,
            "command": self.as_user([expanded(word, self.environment) for word in command]),
            "environment": self.environment,
            "workingDir": self.container["workingDir"],
        }
        (self.folder / "plan").write_text(json.dumps(plan))
        namespaces = ["--mount", "--pid", "--net", "--ipc", "--uts", "--fork", "--kill-child"]
        inside = [sys.executable, str(INSIDE), str(self.folder / "plan")]
        with self.output.open("wb") as output:
            # It goes with this process, whatever ends that.
            self.process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "unshare", *namespaces, *inside],
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=subprocess.STDOUT,
            )

    def _first_process(self):
        """Its id outside; 0 until it is the container's program."""
        if self.process.poll() is not None:
            raise AssertionError("the pod has ended: " + self.said())
        try:
            children = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text().split()
            if not children:
                return 0
            program = pathlib.Path(os.readlink(f"/proc/{children[0]}/exe")).name
        except OSError:
            return 0  # it has ended meanwhile, and the next look tells why
        return 0 if re.match(r"python|setpriv|unshare", program) else int(children[0])

    # --- using it ---

    def said(self):
        """What the container wrote to its standard streams, and before that what was done to make it."""
        return self.output.read_text(errors="replace")

    def enter(self, command):
        """The words that run a command in the container."""
        spaces = ["--mount", "--pid", "--net", "--ipc", "--uts", "--root", "--wdns=" + self.container["workingDir"]]
        return ["nsenter", "--target", str(self.first), *spaces, *self.as_user(command)]

    def execute(self, *command, seconds=60):
        return subprocess.run(
            self.enter(command),
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            timeout=seconds,
            text=True,
            check=False,
        )

    def probe(self, kind):
        """Whether the probe of that name, a command, succeeds, once."""
        probe = self.container[kind]
        return self.execute(*probe["exec"]["command"], seconds=probe["timeoutSeconds"]).returncode == 0

    def processes(self):
        """Of the container, without the one that asks: id inside -> (parent's id, state, command)."""
        found = {}
        listing = self.execute("ps", "-e", "-o", "pid=,ppid=,stat=,args=").stdout
        for line in listing.splitlines():
            pid, parent, state, command = line.split(None, 3)
            if not command.startswith("ps -e"):
                found[int(pid)] = (int(parent), state, command)
        return found

    # --- ending it ---

    def stop(self):
        """As the engine does: SIGTERM to the first process, and the time it is given. Its exit code."""
        os.kill(self.first, signal.SIGTERM)
        return self.process.wait(self.spec["terminationGracePeriodSeconds"])

    def kill(self):
        """As the system does when there is no memory left. Waits until nothing of the container runs."""
        if self.process.poll() is None:
            os.kill(self.first or self.process.pid, signal.SIGKILL)
        self.process.wait(60)

    def close(self, keep_volumes=False):
        self.kill()
        shutil.rmtree(self.folder)
        if not keep_volumes:
            for folder in self.volumes.values():
                shutil.rmtree(folder)
