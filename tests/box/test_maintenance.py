# SPDX-License-Identifier: MIT
"""Maintenance with the box's real daemons: login prompt, log daemon, marker."""

import shutil
import time

import pytest

from box import hardware, software
from box.hardware import Disk
from box.machine import Box, product_files
from box.traffic import SECONDS, Capture, Terminal
from driveprobe import BUILD

ADDRESS = "10.0.2.2"
PORT = 514
TAIL = b"# "


class Maintained:
    """A box whose software disk and recorded network traffic outlive it."""

    def __init__(self, folder):
        self._disk, self.capture = folder / "software.img", Capture(folder / "traffic")
        shutil.copyfile(software.software_disk().path, self._disk)

    def boot(self):
        return Box(disks=[Disk(), Disk(bus="scsi", path=self._disk, model="SOFTWARE")],
                   files=product_files(BUILD), serial_ports=1,
                   network=hardware.NETWORK_ISOLATED, machine=self.capture.machine)


@pytest.fixture(scope="module")
def maintained(box_image, tmp_path_factory):
    if not (BUILD / "kestrova").exists():
        pytest.skip(f"{BUILD / 'kestrova'} is not built")
    return Maintained(tmp_path_factory.mktemp("maintenance"))


@pytest.fixture(scope="module")
def box(maintained):
    with maintained.boot() as running:
        running.check("mkdir -p /boot-sw")
        yield running


def kestrova(box, words):
    return box.check("kestrova " + words)


def test_serial_ports_are_counted(box):
    nodes = int(box.check("ls -d /dev/ttyS[0-9] /dev/tty/[0-9] /dev/ttyAS[0-9] 2>/dev/null |"
                          " wc -l"))
    assert nodes >= 2 and kestrova(box, "serial count") == str(nodes)
    box.check("touch /dev/ttyAS9 && mkdir /dev/tts && touch /dev/tts/8")
    assert kestrova(box, "serial count") == str(nodes + 1)
    box.check("rm -r /dev/ttyAS9 /dev/tts")
    assert kestrova(box, "serial count") == str(nodes)


def test_login_on_the_second_serial_port(box):
    terminal = Terminal(box.serial[0])
    kestrova(box, "serial login 1")
    terminal.expect(b"box login:")
    assert box.check("ps -o ppid,comm | grep '[g]etty'").split()[0] == "1"
    terminal.type(b"root\n")
    terminal.expect(TAIL)
    terminal.type(b"echo $((6 * 7)) on $(tty)\n")
    terminal.expect(b"42 on /dev/ttyS1")
    # The caller of the library blocks Ctrl-C; the user's shell must not.
    terminal.expect(TAIL)
    terminal.type(b"sleep 100000; echo status $?\n")
    box.check("until pidof sleep >/dev/null; do usleep 10000; done")
    terminal.type(b"\x03")
    terminal.expect(TAIL)
    # The shell has its terminal open under both names, and no other file.
    terminal.type(b"ls -l /proc/$$/fd | grep -vE 'total|/dev/tty(S1)?$'; echo no others\n")
    terminal.expect(b"others\r\nno others")
    terminal.type(b"exit\n")


def test_marker_of_the_production_test(box):
    assert box.run("kestrova production").status == 3
    box.check("touch /settings/noptest")
    kestrova(box, "production")
    assert box.run("test -e /settings/noptest").status == 1


def arrives(box, maintained, words):
    """Logs a line. Returns whether it appears on the network, to the address and port."""
    deadline = time.monotonic() + SECONDS
    while time.monotonic() < deadline:
        box.check(["logger", "-t", "maintenance", words])
        if any(datagram[:2] == (ADDRESS, PORT) and words.encode() in datagram[2]
               for datagram in maintained.capture.datagrams()):
            return True
    return False


def command_line(box):
    return box.check("tr '\\0' ' ' </proc/$(pidof syslogd)/cmdline").strip()


def test_remote_log(box, maintained):
    box.check("syslogd -C")
    before = box.check("pidof syslogd")
    kestrova(box, f"syslog set {ADDRESS}")
    assert box.check("pidof syslogd") == before
    kestrova(box, "syslog apply")
    assert box.check("pidof syslogd") != before
    assert command_line(box) == f"/sbin/syslogd -C -R {ADDRESS}"
    assert arrives(box, maintained, "a line for far away")


def test_address_outlives_a_reboot(box, maintained):
    kestrova(box, f"syslog set {ADDRESS}")
    assert box.power_off() == 0
    with maintained.boot() as again:
        again.check("mkdir -p /boot-sw")
        assert kestrova(again, "syslog show") == ADDRESS
        kestrova(again, "syslog clear")
        assert again.run("kestrova syslog show").status == 3
        kestrova(again, "syslog apply")
        assert command_line(again) == "/sbin/syslogd -C"
