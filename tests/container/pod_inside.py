"""pod_inside.py PLAN: the first process of a pod; makes the container's file system and becomes its program.

Runs as root in namespaces of its own. The plan is a JSON file that pod.py has written:

    scratch      an empty folder to mount on
    package      the Debian package that the image is made with
    prepare      command lines that the image's recipe runs, for /bin/sh
    volumes      name -> the folder that holds what the volume holds
    mounts       [{"volume", "path", "subPath" or null, "readOnly"}]
    readOnlyRoot whether the container may change its file system
    address      what the container is reached at
    command, environment, workingDir

The image is this machine's own file system, seen through a layer that keeps every change in memory, with the package
installed. Nothing of it is left when the last process of the namespaces has ended.
"""

import json
import os
import pathlib
import shlex
import subprocess
import sys

DEVICES = ("null", "zero", "full", "random", "urandom", "tty")


def run(*command):
    subprocess.run(command, check=True, stdout=sys.stderr, stdin=subprocess.DEVNULL)


def make_root(scratch):
    """The machine's file system with a layer of its own; the place where it is."""
    run("mount", "-t", "tmpfs", "-o", "mode=755", "pod", str(scratch))
    root, changes, work = (scratch / name for name in ("root", "changes", "work"))
    for folder in (root, changes, work):
        folder.mkdir()
    run("mount", "-t", "overlay", "-o", f"lowerdir=/,upperdir={changes},workdir={work}", "image", str(root))
    return root


def in_root(root, *command):
    run("chroot", str(root), "env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", *command)


def make_image(root, package, prepare):
    """The steps of the recipe, in their order; the one that fetches packages installs the one that was built here."""
    for place in ("run", "tmp"):
        run("mount", "-t", "tmpfs", "-o", "mode=1777", place, str(root / place))
    run("mount", "-t", "proc", "proc", str(root / "proc"))
    (root / "tmp/package.deb").write_bytes(pathlib.Path(package).read_bytes())
    for step in prepare:
        if "apt-get" in step:
            step = "dpkg --install /tmp/package.deb"
        in_root(root, "/bin/sh", "-c", step)
    for place in ("proc", "run", "tmp"):
        run("umount", str(root / place))


def make_kernel_folders(root):
    run("mount", "-t", "proc", "-o", "nosuid,nodev,noexec", "proc", str(root / "proc"))
    run("mount", "-t", "tmpfs", "-o", "mode=755", "dev", str(root / "dev"))
    for device in DEVICES:
        (root / "dev" / device).touch()
        run("mount", "--bind", f"/dev/{device}", str(root / "dev" / device))
    (root / "dev/fd").symlink_to("/proc/self/fd")


def mount_volume(root, volumes, mount):
    source = pathlib.Path(volumes[mount["volume"]])
    target = root / mount["path"].lstrip("/")
    if mount["subPath"]:
        source = source / mount["subPath"]
        target.touch()
    run("mount", "--bind", str(source), str(target))
    if mount["readOnly"]:
        run("mount", "-o", "remount,bind,ro", str(target))


def become(plan, root):
    os.chroot(root)
    os.chdir(plan["workingDir"])
    os.umask(0o022)
    command = plan["command"]
    os.execvpe(command[0], command, plan["environment"])


def main():
    plan = json.loads(pathlib.Path(sys.argv[1]).read_text())
    root = make_root(pathlib.Path(plan["scratch"]))
    make_image(root, plan["package"], plan["prepare"])
    make_kernel_folders(root)
    for mount in sorted(plan["mounts"], key=lambda each: each["path"]):
        mount_volume(root, plan["volumes"], mount)
    if plan["readOnlyRoot"]:
        # The mount alone, which all see: a layered file system itself takes no changes from the mount of Debian 13.
        run("mount", "-o", "remount,bind,ro", str(root))
    run("ip", "link", "set", "lo", "up")
    run("ip", "address", "add", plan["address"] + "/32", "dev", "lo")
    become(plan, root)


if __name__ == "__main__":
    main()
