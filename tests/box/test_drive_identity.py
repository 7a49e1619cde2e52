# SPDX-License-Identifier: MIT
"""Identity and size of a disk, on real ATA and SCSI disks."""

import pytest

from box.hardware import MIB, Disk
from box.software import software_disk
from driveprobe import box, probe, probe_box, system  # noqa: F401

GIB = 1024 * MIB
MODEL = "KESTROVA RECORDER WITH FORTY CHARACTERS!"
# Not round, beyond 32 bits of bytes, and beyond 32 bits of sectors.
SIZES = {"sda": 2 * GIB, "sdb": 1000001 * 512, "sdc": 5 * GIB + 512, "sdd": 2560 * GIB}


@pytest.fixture(scope="module")
def drive_box(box_image):
    disks = [Disk(model=MODEL, serial="SERIAL-OF-TWENTY-CHR"),
             Disk(model="SHORT", serial="42"),
             Disk(model="THIRD"),
             Disk(model="FOURTH")]
    for disk, size in zip(disks, SIZES.values()):
        disk.size = size
    with probe_box([*disks, software_disk()]) as running:
        yield running


@pytest.mark.parametrize("name", SIZES)
def test_capacity_is_exact(probe, name):
    assert probe.call("capacity", f"/dev/{name}") == [str(SIZES[name])]


def test_capacity_is_that_of_the_kernel(box, probe):
    for name in ("sde", "sde1", "sde2"):
        assert probe.call("capacity", f"/dev/{name}") == [
            box.check(f"blockdev --getsize64 /dev/{name}")]


def test_capacity_of_a_missing_disk_is_0(probe):
    mark = probe.mark()
    assert probe.call("capacity", "/dev/sdz") == ["0"]
    assert probe.errors(mark[1]) == "Error opening: No such file or directory\n"


def test_ata_model_and_serial_number(probe):
    assert probe.call("drive-model", "/dev/sda") == ["0", MODEL, "SERIAL-OF-TWENTY-CHR"]


def test_padding_of_ata_texts_is_kept(probe):
    assert probe.call("drive-model", "/dev/sdb") == ["0", "SHORT".ljust(40), "42".ljust(20)]


def test_scsi_model_without_serial_number(probe):
    assert probe.call("drive-model", "/dev/sde") == ["0", "SOFTWARE".ljust(16), ""]


def test_a_device_that_is_no_drive_has_no_model(probe):
    assert probe.call("drive-model", "/dev/null")[0] == "-1"


def test_ata_drive(probe):
    assert probe.call("use", "/dev/sda") == [
        "true", "/dev/sda", MODEL, "SERIAL-OF-TWENTY-CHR", str(SIZES["sda"])]
    assert probe.call("partitions") == ["0"]


def test_scsi_drive_has_no_serial_number(box, probe):
    size = box.check("blockdev --getsize64 /dev/sde")
    assert probe.call("use", "/dev/sde") == [
        "true", "/dev/sde", "SOFTWARE".ljust(16), "N/A", size]


@pytest.mark.parametrize("name", ["sda", "/dev", "/dev/sdz", "/dev/null", "/tmp/disk"])
def test_what_is_no_drive_is_refused(box, probe, name):
    box.check("truncate -s 1M /tmp/disk")
    assert probe.call("use", name)[:2] == ["false", ""]


def test_the_drive_is_logged_as_found(system):
    mark = system.mark()
    assert system.call("init") is True
    assert system.log(mark[0]) == (
        "HarddriveInit: /dev/sda\n"
        f"   Model: {MODEL}\n"
        "   Capacity: 2 GB\n"
        "   Partitions: 0\n")
    assert system.call("model") == [MODEL]
    assert system.status() == ("not-formatted", 100)


def test_minimal_start_has_no_drive_manager(probe):
    probe.call("up", "minimal")
    assert probe.call("has-manager") is False
    probe.call("down")


def test_software_disk_goes_by_its_place_on_the_bus(probe):
    """The names in the partition usage table exist and match the table."""
    probe.call("up", "minimal")
    software, filesystem, data = probe.call("software-partition")
    probe.call("down")
    assert software == "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0-part1"
    assert probe.call("recognise", software) == [software, "0", "131", filesystem, "software"]
    assert filesystem == "ext3"
    assert probe.call("recognise", data) == [data, "0", "131", "xfs", "data"]


def test_partitions_of_a_disk_named_by_its_place(box, probe):
    node = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0"
    assert probe.call("use", node)[0] == "true"
    assert probe.call("partitions") == ["2"]
    for number, described in enumerate([["ext3", "software"], ["xfs", "data"]], 1):
        size = box.check(f"blockdev --getsize64 {node}-part{number}")
        assert probe.call("describe", number - 1) == [
            f"{node}-part{number}", size, "131", *described]
