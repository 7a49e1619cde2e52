# SPDX-License-Identifier: MIT
"""Fetches Debian's i386 packages of the box with an apt state of its own.

The host's package state is neither read nor written: no foreign architecture is
added. Only the host's list of package sources is used.
"""

import hashlib
import os
import pathlib
import re
import shutil
import subprocess

from box.errors import BoxError

HERE = pathlib.Path(__file__).resolve().parent
LIST = HERE / "packages.txt"


class PackageError(BoxError):
    """A package could not be had or unpacked."""


def wanted():
    """Names in packages.txt, in order."""
    lines = (line.split("#")[0].strip() for line in LIST.read_text().splitlines())
    return [line for line in lines if line]


def _apt_environment(state):
    """An environment in which apt keeps everything that it writes below state."""
    for name in ("lists/partial", "cache/archives/partial"):
        (state / name).mkdir(parents=True, exist_ok=True)
    (state / "status").touch()
    config = state / "apt.conf"
    config.write_text(
        f'Dir::Etc::main "{state}/none";\n'
        f'Dir::Etc::parts "{state}/none.d";\n'
        'APT::Architecture "i386";\n'
        'APT::Architectures { "i386"; };\n'
        f'Dir::State "{state}";\n'
        f'Dir::State::status "{state}/status";\n'
        f'Dir::Cache "{state}/cache";\n'
        f'Dir::Log "{state}";\n'
        'APT::Sandbox::User "";\n'
        + _host_download_settings() +
        'Acquire::Retries "3";\n')
    return dict(os.environ, APT_CONFIG=str(config), LC_ALL="C.UTF-8")


def _host_download_settings():
    """The host's proxy and download settings, without its hooks.

    Hooks of the host's configuration may clean its caches or notify its services.
    """
    dump = subprocess.run(["apt-config", "dump", "--no-empty"], capture_output=True,
                          text=True, check=True).stdout
    return "".join(line + "\n" for line in dump.splitlines()
                   if line.startswith("Acquire::") and "IndexTargets" not in line)


def _kernel_name(environment, meta):
    """The versioned kernel package that a meta package stands for."""
    text = subprocess.run(["apt-cache", "depends", meta], env=environment,
                          capture_output=True, text=True, check=False).stdout
    match = re.search(r"Depends: (linux-image-\d\S*)", text)
    if not match:
        raise PackageError(f"no i386 kernel package found through {meta}: "
                           "do the host's apt sources hold Debian 12 for i386?")
    return match.group(1)


def _download(names, state, into):
    environment = _apt_environment(state)
    # One broken index (a mirror being synchronised) fails the update as a whole,
    # yet leaves the other indexes usable: whether that suffices shows below.
    update = subprocess.run(["apt-get", "-q", "update"], env=environment,
                            capture_output=True, text=True, check=False)
    names = [_kernel_name(environment, n) if n.startswith("linux-image-") else n
             for n in names]
    got = subprocess.run(["apt-get", "-q", "download", *names], env=environment, cwd=into,
                         capture_output=True, text=True, check=False)
    if got.returncode:
        raise PackageError("downloading the box's packages failed:\n"
                           + got.stderr + "\napt-get update said:\n" + update.stderr)


def fetch(folder):
    """Returns the unpacked root of all packages below folder, fetching it if needed.

    Once complete nothing is asked of the network again until packages.txt changes.
    """
    folder = pathlib.Path(folder)
    root, stamp = folder / "root", folder / "packages.stamp"
    key = hashlib.sha256("\n".join(wanted()).encode()).hexdigest()
    if stamp.is_file() and stamp.read_text() == key:
        return root

    debs = folder / "debs"
    for old in (root, debs):
        shutil.rmtree(old, ignore_errors=True)
        old.mkdir(parents=True)
    print("Fetching Debian's i386 packages for the virtual box", flush=True)
    _download(wanted(), folder / "apt", debs)
    for deb in sorted(debs.glob("*.deb")):
        subprocess.run(["dpkg-deb", "-x", deb, root], check=True)
    stamp.write_text(key)
    return root
