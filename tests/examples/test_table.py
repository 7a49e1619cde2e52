# SPDX-License-Identifier: MIT
"""The example that prints the partition usage table."""

NODE = "/dev/disk/by-path/pci-0000:01:0e.0-scsi-0:0:0:0"


def test_prints_the_table_and_its_dump(example):
    run = example("table")
    assert (run.returncode, run.stderr) == (0, "")
    software, data, dump = run.stdout.split("\n", 2)
    assert software == f"{NODE}-part1\t/boot-sw"
    assert data.startswith(f"{NODE}-part") and data.endswith("\tsettings\tbulk\ttemp")
    assert dump.startswith("{mBlockdevice=[1] {{mBlockdevId=0, ") and dump.count("\n") == 1
    assert dump.count(f"mpPartDevname={NODE}-part") == 2
