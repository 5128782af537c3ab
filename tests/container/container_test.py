"""container_test.py SOURCES PACKAGES CLASS: the service in a container, as the manifest and the image's recipe say.

SOURCES is the source tree, PACKAGES the folder with the Debian package of this build, CLASS one of the classes below.
"""

import copy
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

import pod
from pod import Pod, load_manifests, wait_for

SOURCES = pathlib.Path(sys.argv[1])
PACKAGES = pathlib.Path(sys.argv[2])
RECIPE = SOURCES / "packaging/container/Containerfile"
MANIFEST = SOURCES / "packaging/kubernetes/velbootstrapservice.yaml"
SAMPLE = SOURCES / "sample/tomcat"
PID_FILE = "velbootstrap_service.pid"
SERVICE = "/var/lib/velbootstrapservice/bin/velbootstrapservice"

# Seconds that one failed ping can take, and what the service may need besides: docs/containers.md has the sum.
PING_PAUSE, CONNECTION, HANDSHAKE, READINESS_CHECK = 2, 10, 12, 6


def certificates():
    with tempfile.TemporaryDirectory(prefix="vbs_certificates_") as folder:
        subprocess.run([SOURCES / "programs/make-certificates", folder], check=True)
        return {file.name: file.read_bytes() for file in pathlib.Path(folder).iterdir()}


def package():
    (found,) = PACKAGES.glob("velbootstrapservice_*.deb")
    return found


def as_the_api_reads(manifest):
    """The object as kubectl has understood it, by the types of the API and without a cluster: what these do not know
    is gone, and a value of another type fails."""
    command = {"Deployment": ["env", "A=b"], "Service": ["selector", "app=velbootstrapservice"]}[manifest["kind"]]
    with tempfile.NamedTemporaryFile(mode="w", suffix=".json") as file:
        json.dump(manifest, file)
        file.flush()
        options = ["--local", "--output", "json", "--filename", file.name]
        done = subprocess.run(
            ["kubectl", "set", command[0], *options, *command[1:]],
            env={**os.environ, "KUBECONFIG": "/dev/null"}, capture_output=True, check=True)
    return json.loads(done.stdout)


def unknown(wanted, known, place=""):
    """Where the object that is known lacks something of the wanted one."""
    if isinstance(wanted, dict):
        missing = [place + key for key in wanted if key not in known]
        return missing + [
            each for key in wanted if key in known for each in unknown(wanted[key], known[key], f"{place}{key}.")]
    if isinstance(wanted, list):
        if len(wanted) != len(known):
            return [place]
        return [each for at, item in enumerate(wanted) for each in unknown(item, known[at], f"{place}{at}.")]
    return [] if wanted == known else [place]


class ManifestTest(unittest.TestCase):
    """What must agree with each other, without running anything."""

    def setUp(self):
        self.manifests = load_manifests(MANIFEST)
        self.deployment = self.manifests["Deployment"]["spec"]
        self.spec = self.deployment["template"]["spec"]
        (self.container,) = self.spec["containers"]
        self.bootstrap = ElementTree.parse(SAMPLE / "bin/bootstrap_linuxi38632.xml")
        self.startup = ElementTree.parse(SAMPLE / "configuration/startup.xml")

    def parameter(self, name):
        for element in self.startup.iter("{urn:velmora:startup}parameter"):
            if element.get("name") == name:
                return int(element[0].text)
        return self.fail(f"no {name}")

    def test_names_agree(self):
        labels = self.deployment["template"]["metadata"]["labels"]
        self.assertEqual(self.deployment["selector"]["matchLabels"], labels)
        self.assertEqual(self.manifests["Service"]["spec"]["selector"], labels)
        ports = {port["name"]: port["containerPort"] for port in self.container["ports"]}
        (service_port,) = self.manifests["Service"]["spec"]["ports"]
        self.assertIn(service_port["targetPort"], ports)
        uri = self.startup.find("internalDispatcher").text
        self.assertIn(f":{ports['https']}/", uri)
        mounted = {mount["name"] for mount in self.container["volumeMounts"]}
        self.assertEqual(mounted, {volume["name"] for volume in self.spec["volumes"]})

    def test_every_file_of_the_volumes_is_mounted(self):
        mounts = {(mount["name"], mount.get("subPath")) for mount in self.container["volumeMounts"]}
        for file in self.manifests["ConfigMap"]["data"]:
            self.assertIn(("settings", file), mounts)
        for file in certificates():
            self.assertIn(("certificates", file), mounts)

    def test_the_time_to_stop_covers_the_documents(self):
        ping = self.bootstrap.find(".//ping/socketSend")
        one_ping = PING_PAUSE + CONNECTION + HANDSHAKE + int(ping.get("sockIOTimeoutSec"))
        stop = PING_PAUSE + CONNECTION
        manager = self.bootstrap.find(".//processManager")
        step = int(manager.get("checkForShutdownIntervalms")) / 1000
        children = self.parameter("dispatcherStopWaitTime") + step
        # Twice: the ping may be the one that begins a restart, which asks the child to stop, too.
        longest = one_ping + stop + stop + children + READINESS_CHECK
        self.assertGreaterEqual(self.spec["terminationGracePeriodSeconds"], longest)
        self.assertLess(self.spec["terminationGracePeriodSeconds"], longest + 30, "nobody waits for nothing")

    def test_every_probe_is_a_command_that_begins_when_the_children_were_started(self):
        ask = ["/var/lib/velbootstrapservice/bin/velbootstrapservice", "-isrunning"]
        for kind in ("startupProbe", "livenessProbe"):
            self.assertEqual(self.container[kind]["exec"]["command"], ask)
        startup = self.container["startupProbe"]
        syncs = sum(int(element.get("sync", 0)) for element in self.bootstrap.iterfind(".//start/spawn"))
        self.assertGreater(startup["periodSeconds"] * startup["failureThreshold"], 10 * syncs)
        self.assertNotIn("initialDelaySeconds", self.container["livenessProbe"])
        ready = self.container["readinessProbe"]["exec"]["command"][-1]
        ping = self.bootstrap.find(".//ping/socketSend")
        page = ping.get("commandString").split()[1]
        self.assertIn(f"GET {page} ", ready)
        self.assertIn(f"'^{ping.get('responseOK')}'", ready)
        self.assertIn(f"localhost:{self.container['ports'][0]['containerPort']} ", ready)

    def test_nothing_has_a_right_that_it_does_not_need(self):
        self.assertTrue(self.spec["securityContext"]["runAsNonRoot"])
        self.assertTrue(self.container["securityContext"]["readOnlyRootFilesystem"])
        self.assertFalse(self.container["securityContext"]["allowPrivilegeEscalation"])
        self.assertEqual(self.container["securityContext"]["capabilities"], {"drop": ["ALL"]})
        self.assertFalse(self.spec["automountServiceAccountToken"])

    def test_the_api_knows_every_field(self):
        for kind in ("Deployment", "Service"):
            self.assertEqual(unknown(self.manifests[kind], as_the_api_reads(self.manifests[kind])), [])
        self.assertEqual(set(self.manifests["ConfigMap"]), {"apiVersion", "kind", "metadata", "data"})
        for text in self.manifests["ConfigMap"]["data"].values():
            self.assertIsInstance(text, str)

    def test_a_field_that_the_api_does_not_know_would_be_found(self):
        container = self.container["securityContext"]
        container["readOnlyRootFileSystem"] = container.pop("readOnlyRootFilesystem")
        known = as_the_api_reads(self.manifests["Deployment"])
        place = "spec.template.spec.containers.0.securityContext.readOnlyRootFileSystem"
        self.assertEqual(unknown(self.manifests["Deployment"], known), [place])
        self.container["livenessProbe"]["periodSeconds"] = "thirty"
        with self.assertRaisesRegex(subprocess.CalledProcessError, "set"):
            as_the_api_reads(self.manifests["Deployment"])

    def test_memory_and_heap_agree(self):
        (setting,) = [word for word in self.container["args"] if "dispatcherMaxMemory" in word]
        heap = int(setting.split("=")[1])
        resources = self.container["resources"]
        self.assertEqual(resources["limits"]["memory"], f"{heap + 256}Mi")
        self.assertEqual(resources["requests"]["memory"], resources["limits"]["memory"])

    def test_the_pid_file_is_on_a_volume_of_the_pod(self):
        logs = "/var/log/velbootstrapservice"
        (mount,) = [each for each in self.container["volumeMounts"] if each["mountPath"] == logs]
        (volume,) = [each for each in self.spec["volumes"] if each["name"] == mount["name"]]
        self.assertIn("emptyDir", volume)

    def test_the_logging_document_is_valid(self):
        document = self.manifests["ConfigMap"]["data"]["zorlogconfig.xml"]
        check = ["xmllint", "--noout", "--schema", SOURCES / "schemas/zorlogconfig.xsd", "-"]
        self.assertEqual(subprocess.run(check, input=document.encode(), check=False).returncode, 0)

    def test_recipe_and_manifest_have_the_same_user(self):
        security = self.spec["securityContext"]
        self.assertIn(f"\nUSER {security['runAsUser']}:{security['runAsGroup']}\n", RECIPE.read_text())


class PodTest(unittest.TestCase):
    """The manifest to the letter."""

    def setUp(self):
        secrets = {"velbootstrapservice-certificates": certificates()}
        self.pod = Pod(load_manifests(MANIFEST), RECIPE, package(), secrets)
        self.addCleanup(self.pod.close)
        self.addCleanup(lambda: print(self.pod.said()))

    def jvm(self):
        """Its id and command line; nothing as long as there is none."""
        found = [(pid, command) for pid, (_, _, command) in self.pod.processes().items() if "/bin/java " in command]
        return found[0] if found else None

    def check_process_one(self):
        parent, _, command = self.pod.processes()[1]
        self.assertEqual((parent, command.split()[0]), (0, SERVICE))
        status = pathlib.Path(f"/proc/{self.pod.first}/status").read_text()
        for line in ("Uid:\t10001\t10001", "NoNewPrivs:\t1", "CapEff:\t0000000000000000", "CapBnd:\t0000000000000000"):
            self.assertIn(line, status)
        self.assertNotEqual(self.pod.execute("touch", "/etc/velbootstrapservice/new").returncode, 0)

    def check_jvm(self):
        _, command = self.jvm()
        for word in ("-Xmx512m", "-Xms128m", "-XX:+ExitOnOutOfMemoryError"):
            self.assertIn(f" {word} ", command)

    def check_orphan(self):
        """What has lost its parent becomes the service's, and leaves nothing when it ends."""
        orphan = int(self.pod.execute("sh", "-c", "sleep 600 >/dev/null 2>&1 & echo $!").stdout)
        self.assertEqual(self.pod.processes()[orphan][0], 1)
        self.pod.execute("kill", "-KILL", str(orphan))
        wait_for("the orphan's end", lambda: orphan not in self.pod.processes())

    def test_life(self):
        self.check_process_one()
        wait_for("started", lambda: self.pod.probe("startupProbe"))
        wait_for("alive", lambda: self.pod.probe("livenessProbe"))
        wait_for("ready", lambda: self.pod.probe("readinessProbe"), 120)
        self.check_jvm()
        self.check_orphan()
        first, _ = self.jvm()
        self.assertEqual(self.pod.execute("kill", "-KILL", str(first)).returncode, 0)
        second = wait_for("another JVM", lambda: [jvm for jvm in [self.jvm()] if jvm and jvm[0] != first])
        self.assertTrue(second)
        wait_for("ready again", lambda: self.pod.probe("readinessProbe"), 120)
        self.assertTrue(self.pod.probe("livenessProbe"))
        self.assertEqual(self.pod.stop(), 0)
        self.assertEqual(list(pathlib.Path(self.pod.volumes["logs"]).glob("*.pid")), [])
        said = self.pod.said()
        for words in ('process "tomcat" is not active', "dispatcher closed in order", "ZORBootstrapService Done."):
            self.assertIn(words, said)


class ServiceTest(unittest.TestCase):
    """The same container with a child that needs no time, and other first processes."""

    BOOTSTRAP = """<bootstrap>
      <processManager pollIntervalsec="1" checkForShutdownIntervalms="100"/>
      <process name="sleeper">
        <start><spawn>
          <path>/usr/bin/env</path><param>--default-signal=TERM,INT,QUIT,HUP,PIPE,CHLD,XFSZ</param>
          <param>/usr/bin/sleep</param><param>600</param>
        </spawn></start>
        <stop type="signal"><signal signal="15"/></stop>
      </process>
      <daemonSpawn><path>${bin_path}/velbootstrapservice</path><param>runAsDaemon</param></daemonSpawn>
    </bootstrap>"""

    def manifests(self, command=None):
        manifests = copy.deepcopy(load_manifests(MANIFEST))
        (container,) = manifests["Deployment"]["spec"]["template"]["spec"]["containers"]
        manifests["ConfigMap"]["data"]["bootstrap.xml"] = self.BOOTSTRAP
        path = "/etc/velbootstrapservice/bootstrap_linuxi38632.xml"
        container["volumeMounts"].append({"name": "settings", "mountPath": path, "subPath": "bootstrap.xml"})
        if command:
            container.update(command=command, args=[])
        return manifests

    def run_pod(self, command=None, volumes=None):
        secrets = {"velbootstrapservice-certificates": certificates()}
        made = Pod(self.manifests(command), RECIPE, package(), secrets, volumes)
        self.addCleanup(lambda: made.close(keep_volumes=volumes is not None))
        self.addCleanup(lambda: print(made.said()))
        return made

    def pid_file(self, made):
        return pathlib.Path(made.volumes["logs"]) / PID_FILE

    def noted_pid(self, made):
        file = self.pid_file(made)
        return int(file.read_text()) if file.exists() and file.read_text() else 0

    def running_in(self, made):
        """The service beside another first process; its id inside."""
        before = self.noted_pid(made)
        service = subprocess.Popen(made.enter([SERVICE, "-d"]), env=made.environment, stdout=subprocess.DEVNULL)
        pid = wait_for("its own PID file", lambda: self.noted_pid(made) != before and self.noted_pid(made))
        return service, pid

    def sleepers(self, made):
        return [pid for pid, (_, _, command) in made.processes().items() if command == "/usr/bin/sleep 600"]

    def test_the_question_is_answered_beside_another_first_process(self):
        made = self.run_pod(["/usr/bin/sleep", "infinity"])
        self.assertFalse(made.probe("livenessProbe"))
        service, pid = self.running_in(made)
        self.assertTrue(made.probe("livenessProbe"))
        wait_for("its child", lambda: len(self.sleepers(made)) == 1)
        made.execute("kill", "-TERM", str(pid))
        self.assertEqual(service.wait(60), 0)
        self.assertFalse(made.probe("livenessProbe"))
        self.assertEqual(self.sleepers(made), [])

    def test_a_pid_file_of_an_earlier_container_is_believed(self):
        made = self.run_pod(["/usr/bin/sleep", "infinity"])
        self.pid_file(made).write_text("1\n")
        self.pid_file(made).chmod(0o666)
        self.assertTrue(made.probe("livenessProbe"), "some process has the number")
        self.assertEqual(made.execute(SERVICE, "-start").returncode, 0)
        self.assertEqual(self.sleepers(made), [], "taken for running already")
        service, pid = self.running_in(made)
        wait_for("its child, since -d does not ask", lambda: len(self.sleepers(made)) == 1)
        made.execute("kill", "-TERM", str(pid))
        self.assertEqual(service.wait(60), 0)
        self.assertFalse(made.probe("livenessProbe"), "the file is its own, and removed")

    def test_a_container_that_was_killed_is_followed_by_the_next_on_its_volumes(self):
        first = self.run_pod()
        wait_for("alive", lambda: first.probe("livenessProbe"))
        first.kill()
        self.assertEqual(self.pid_file(first).read_text(), "1\n")
        second = self.run_pod(volumes=first.volumes)
        wait_for("its child", lambda: self.sleepers(second))
        self.assertTrue(second.probe("livenessProbe"))
        self.assertEqual(second.stop(), 0)
        self.assertFalse(self.pid_file(second).exists())

    def test_a_faulty_document_ends_the_container_with_0(self):
        self.BOOTSTRAP = "<bootstrap><process/></bootstrap>"
        made = self.run_pod(["/bin/sh", "-c", SERVICE + " -d; echo ended with $?; exec sleep infinity"])
        wait_for("its end", lambda: "ended with 0" in made.said())
        self.assertRegex(made.said(), r"FATAL t\[\w+\] ZORBootstrapService Error processing bootstrap.xml file")
        self.assertFalse(made.probe("livenessProbe"))


def as_root():
    """Namespaces with mounts of their own need it."""
    if os.geteuid() == 0:
        return
    if subprocess.run(["sudo", "-n", "true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        sys.exit("Cannot test: run the tests as root, or with a sudo that asks for no password")
    # With Python's own options, which keep compiled files out of the sources.
    os.execvp("sudo", ["sudo", "-n", *sys.orig_argv])


if __name__ == "__main__":
    if sys.argv[3] != "ManifestTest":
        as_root()
    sys.exit(unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2))
