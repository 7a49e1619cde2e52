# SPDX-License-Identifier: MIT
"""The virtual box itself, on which the other tests in this directory rely."""

import hashlib
import os
import pathlib
import select
import signal
import socket
import subprocess
import sys
import tempfile
import textwrap

import pytest

from box import hardware, workspace
from box.errors import BoxError, BoxTimeout
from box.hardware import Disk
from box.software import DEVICE, software_disk

ROOT = pathlib.Path(__file__).resolve().parents[2]

INQUIRY = r"""
#include <fcntl.h>
#include <scsi/sg.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <linux/hdreg.h>
int main(int argc, char **argv) {
    unsigned char command[6] = {0x12, 0, 0, 0, 255, 0}, data[256] = {0}, sense[32], ata[512];
    sg_io_hdr_t request = {0};
    int fd = open(argv[argc - 1], O_RDWR);
    if (fd < 0) return 2;
    printf("%d\n", ioctl(fd, HDIO_GET_IDENTITY, ata));
    request.interface_id = 'S';
    request.dxfer_direction = SG_DXFER_FROM_DEV;
    request.cmd_len = sizeof command;
    request.cmdp = command;
    request.dxfer_len = 255;
    request.dxferp = data;
    request.mx_sb_len = sizeof sense;
    request.sbp = sense;
    request.timeout = 3000;
    if (ioctl(fd, SG_IO, &request) || request.status || request.host_status) return 1;
    printf("%.8s|%.16s|\n", data + 8, data + 16);
    return 0;
}
"""


def own_folders():
    """Returns the temporary directories of boxes that this process owns."""
    return set(pathlib.Path(tempfile.gettempdir()).glob(workspace.PREFIX + "*"))


def is_running(pid):
    """Returns whether the process exists and is not a zombie."""
    try:
        state = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0]
    except FileNotFoundError:
        return False
    return state != "Z"


@pytest.mark.parametrize("cpu", [hardware.DEFAULT_CPU, hardware.OLD_CPU])
def test_boots_on_either_processor(boot, cpu):
    box = boot(cpu=cpu)
    assert box.check("uname -m") in ("i586", "i686")
    flags = box.check("grep ^flags /proc/cpuinfo").split()
    assert ("sse2" in flags) == (cpu == hardware.DEFAULT_CPU)
    assert "rdrand" in flags


@pytest.mark.parametrize("status", [0, 1, 20, 255])
def test_exit_status_passes(box, status):
    assert box.run(f"exit {status}").status == status


def test_a_signal_shows_in_the_status(box):
    assert box.run("kill -TERM $$").status == 128 + signal.SIGTERM


def test_outputs_stay_apart_and_binary(box):
    result = box.run(r"printf 'a\0b'; printf '\377\n' >&2")
    assert (result.stdout, result.stderr) == (b"a\0b", b"\xff\n")


def test_big_outputs_arrive_whole(box):
    result = box.run("head -c 8388608 /dev/urandom | tee /tmp/big; sha256sum /tmp/big >&2")
    assert len(result.stdout) == 8388608
    assert hashlib.sha256(result.stdout).hexdigest() == result.stderr.split()[0].decode()


def test_input_reaches_the_command(box):
    data = bytes(range(256)) * 512
    assert box.run("cat", input=data).stdout == data
    assert box.run("cat").stdout == b""


def test_words_reach_the_command_unchanged(box):
    assert box.run(["printf", "%s|", "a b", "$HOME", "'", ""]).stdout == b"a b|$HOME|'||"


def test_commands_inherit_three_descriptors(box):
    # The fourth is the listing's own.
    assert box.check("ls /proc/self/fd").split() == ["0", "1", "2", "3"]


def test_commands_run_at_once(box):
    box.check("rm -f /tmp/fifo; mkfifo /tmp/fifo")
    reader = box.start("cat /tmp/fifo")
    assert not reader.done()
    assert box.run("echo through >/tmp/fifo").status == 0
    assert reader.wait().text == "through"


def test_a_background_process_does_not_hold_up_its_command(box):
    box.check("sleep 1000 & echo $! >/tmp/sleeper")
    box.check('kill -0 "$(cat /tmp/sleeper)" && kill "$(cat /tmp/sleeper)"')


def test_a_command_that_takes_too_long_is_killed_with_its_children(box):
    with pytest.raises(BoxTimeout, match="so far"):
        box.run("echo so far; sleep 4321 & sleep 4321", timeout=2)
    box.check("while ps | grep -q '[s]leep 4321'; do usleep 10000; done", timeout=10)


def test_check_reports_a_failure_with_its_outputs(box):
    with pytest.raises(BoxError, match="status 3(.|\n)*reason"):
        box.check("echo reason >&2; exit 3")


def test_put_and_get_keep_contents_and_mode(box, tmp_path):
    source, back = tmp_path / "source", tmp_path / "back"
    source.write_bytes(os.urandom(300000))
    source.chmod(0o750)
    box.put(source, "/opt/some folder/file")
    assert box.check("stat -c %a '/opt/some folder/file'") == "750"
    box.get("/opt/some folder/file", back)
    assert back.read_bytes() == source.read_bytes()


def test_files_are_added_before_the_start(boot, tmp_path):
    (tmp_path / "folder").mkdir()
    (tmp_path / "folder" / "text").write_text("added\n")
    box = boot(files={tmp_path / "folder": "/srv/more"})
    assert box.check("cat /srv/more/text") == "added"


def test_ata_identity(box):
    text = box.check("hdparm -I /dev/sda 2>/dev/null")
    assert "Model Number:       KESTROVA VIRTUAL RECORDER" in text
    assert "Serial Number:      KV-0001" in text
    assert box.check("cat /sys/block/sda/size") == str(1024 * 1024 * 2)


def test_each_kind_of_disk_answers_its_own_identity_request(box, compile_guest):
    box.put(compile_guest("inquiry", INQUIRY), "/tmp/inquiry")
    assert box.check("/tmp/inquiry /dev/sda").splitlines()[0] == "0"
    assert box.check("/tmp/inquiry /dev/sdb").splitlines() == [
        "-1", "KESTROVA|SOFTWARE        |"]


def test_software_disk_bears_its_true_names(box):
    assert box.check(f"realpath {DEVICE} {DEVICE}-part1 {DEVICE}-part2").splitlines() == [
        "/dev/sdb", "/dev/sdb1", "/dev/sdb2"]
    assert box.check(f"blkid -o value -s TYPE {DEVICE}-part1 {DEVICE}-part2").split() == [
        "ext3", "xfs"]
    assert box.run("ls /dev/disk/by-path | grep -v 0000:01:0e.0").status == 1


def test_names_follow_the_partition_table(boot):
    box = boot(disks=[Disk(), Disk(bus="scsi", size=64 * hardware.MIB)])
    # Links follow kernel events, shortly after the tool has returned.
    wait = "until [ \"$(cd /dev/disk/by-path; echo *part*)\" = '{}' ]; do usleep 10000; done"
    base = "pci-0000:01:0e.0-scsi-0:0:0:0-part"
    box.check("printf ',10\\n,10\\n,10\\n' | sfdisk -q -L -uM /dev/sdb")
    box.check(wait.format(f"{base}1 {base}2 {base}3"), timeout=20)
    box.check("printf ',10\\n' | sfdisk -q -L -uM /dev/sdb")
    box.check(wait.format(f"{base}1"), timeout=20)


def test_a_software_disk_elsewhere_gets_the_names(boot):
    """At start, and for an event in the form of udev and mdev."""
    box = boot(disks=[Disk()])
    box.check("printf ',10\\n' | sfdisk -q -L -uM /dev/sda")
    assert box.run(f"test -e {DEVICE}").status == 1
    box.check("mkdir -p /etc/default && echo SOFTWARE_DISK=sda >/etc/default/kestrova")
    box.check("/usr/lib/box/by-path")
    assert box.check(f"realpath {DEVICE} {DEVICE}-part1").splitlines() == ["/dev/sda", "/dev/sda1"]
    event = "DEVPATH=$(readlink -f /sys/block/sda/sda1) DEVNAME={} PARTN=1 /usr/lib/box/by-path"
    box.check("ACTION=remove " + event.format("/dev/sda1"))
    assert box.run(f"test -L {DEVICE}-part1").status == 1
    for node in ("/dev/sda1", "sda1"):
        box.check("ACTION=add " + event.format(node))
        assert box.check(f"realpath {DEVICE}-part1") == "/dev/sda1"


def test_software_disk_is_as_new_in_every_box(box):
    image = software_disk().path
    before = hashlib.sha256(image.read_bytes()).digest()
    box.check(f"mount -t ext3 {DEVICE}-part1 /mnt && echo x >/mnt/x && umount /mnt")
    assert hashlib.sha256(image.read_bytes()).digest() == before


def test_scsi_disk_alone_is_the_first_disk(boot):
    box = boot(disks=[Disk(bus="scsi", size=64 * hardware.MIB, model="ALONE")])
    assert box.check("cat /sys/block/sda/device/model").strip() == "ALONE"
    assert box.run("hdparm -i /dev/sda").status != 0


def test_without_disks_there_are_none(boot):
    assert boot(disks=[]).run("ls -d /sys/block/sd*").status != 0


def test_scsi_disk_pulled_away(boot):
    disk = Disk(bus="scsi", size=64 * hardware.MIB)
    box = boot(disks=[disk])
    box.check("dd if=/dev/sda of=/dev/null count=1 iflag=direct")
    box.pull(disk)
    assert box.run("dd if=/dev/sda of=/dev/null count=1 iflag=direct").status != 0


def test_ata_disk_pulled_away(boot):
    disk = Disk(size=64 * hardware.MIB)
    box = boot(disks=[disk])
    box.check("dd if=/dev/sda of=/dev/null count=1 iflag=direct")
    box.pull(disk)
    assert box.run("dd if=/dev/sda of=/dev/null count=1 iflag=direct").status != 0
    box.check("echo 1 >/sys/block/sda/device/delete")
    assert box.run("test -e /dev/sda").status != 0


def test_what_reached_the_disk_survives_a_power_cut(boot, tmp_path):
    path = tmp_path / "disk.img"
    path.write_bytes(b"")
    os.truncate(path, 64 * hardware.MIB)
    first = boot(disks=[Disk(path=path)])
    first.check("echo kept | dd of=/dev/sda conv=fsync")
    first.kill()
    assert not is_running(first.pid)
    with pytest.raises(BoxError):
        first.run("true")
    assert boot(disks=[Disk(path=path)]).check("head -n 1 /dev/sda") == "kept"


def test_power_off_writes_everything(boot, tmp_path):
    path = tmp_path / "disk.img"
    path.write_bytes(b"")
    os.truncate(path, 64 * hardware.MIB)
    first = boot(disks=[Disk(path=path)])
    first.check("mkfs.ext3 -q /dev/sda && mount /dev/sda /mnt && echo kept >/mnt/file")
    assert first.power_off() == 0
    second = boot(disks=[Disk(path=path)])
    second.check("e2fsck -fn /dev/sda && mount -o ro /dev/sda /mnt")
    assert second.check("cat /mnt/file") == "kept"


def receive_until(port, text):
    """Returns everything received until the text appears."""
    port.settimeout(30)
    received = b""
    while text not in received:
        received += port.recv(100)
    return received


def test_serial_ports_carry_bytes_both_ways(boot):
    box = boot(serial_ports=2)
    # Bytes that arrive before the port is opened are lost, so the box sends first.
    job = box.start("exec 3<>/dev/ttyS2; stty raw -echo <&3; echo out >&3; head -n 1 <&3")
    assert receive_until(box.serial[1], b"\n") == b"out\n"
    box.serial[1].sendall(b"in\n")
    assert job.wait().text == "in"


def test_a_login_prompt_comes_on_a_serial_port(boot):
    box = boot(serial_ports=1)
    job = box.start("/sbin/getty -L /dev/ttyS1 115200 vt100")
    assert b"box login:" in receive_until(box.serial[0], b"login:")
    job.kill()


def test_network_reaches_the_host_only_when_asked(boot):
    """The host's loopback is reachable at 10.0.2.2, but only on request."""
    with socket.create_server(("127.0.0.1", 0)) as server:
        port = server.getsockname()[1]
        probe = f"echo hello | nc -w 5 10.0.2.2 {port}"
        assert boot(network=hardware.NETWORK_ISOLATED).run(probe).status != 0
        assert not select.select([server], [], [], 0)[0]
        job = boot(network=hardware.NETWORK_LOOPBACK).start(probe)
        server.settimeout(30)
        peer, _ = server.accept()
        with peer:
            peer.settimeout(30)
            assert peer.recv(100) == b"hello\n"
        job.wait()


def test_stop_and_resume(boot):
    box = boot()
    box.stop()
    job = box.start("echo resumed")
    assert job.poll(0.5) is None
    box.resume()
    assert job.wait().text == "resumed"


def test_a_start_that_fails_says_why_and_leaves_nothing(boot):
    before = own_folders()
    with pytest.raises(BoxError, match="nosuchcpu"):
        boot(cpu="nosuchcpu")
    assert own_folders() == before


HOLDER = textwrap.dedent("""
    import sys, time
    sys.path.insert(0, sys.argv[1])
    from box.machine import Box
    with Box(disks=[]) as box:
        # A box that hangs, because a running one powers off when its host has exited.
        box.stop()
        print(box.pid, box._workspace.path, flush=True)
        sys.stdin.read()
        raise RuntimeError("unwinds")
""")


def hold_box():
    """Starts a process that holds a box: (process, QEMU's pid, directory)."""
    # The test runner may run in the background and ignore signals that are sent here.
    process = subprocess.Popen(["env", "--default-signal", sys.executable, "-c", HOLDER, str(ROOT)],
                               text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL)
    pid, folder = process.stdout.readline().split()
    return process, int(pid), pathlib.Path(folder)


def wait_gone(pid):
    """Waits for the exit of a process that is not a child."""
    try:
        descriptor = os.pidfd_open(pid)
    except ProcessLookupError:
        return
    with os.fdopen(descriptor) as watched:
        gone = select.select([watched], [], [], 10)[0]
        if not gone:
            os.kill(pid, signal.SIGKILL)
        assert gone, f"QEMU ({pid}) was left running"


@pytest.mark.parametrize("end", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, "exception"])
def test_nothing_is_left_however_the_owner_ends(box_image, end):
    process, pid, folder = hold_box()
    with process:
        if end == "exception":
            process.stdin.close()
        else:
            process.send_signal(end)
        assert process.wait(30) != 0
    wait_gone(pid)
    assert not is_running(pid) and not folder.exists()


def test_an_owner_killed_outright_takes_its_box_along(box_image, monkeypatch):
    process, pid, folder = hold_box()
    with process:
        process.kill()
        process.wait(30)
    wait_gone(pid)
    # Only the directory remains, and the next box removes it.
    assert folder.exists()
    monkeypatch.setattr(workspace, "GRACE_SECONDS", 0)
    workspace.remove_abandoned()
    assert not folder.exists()
