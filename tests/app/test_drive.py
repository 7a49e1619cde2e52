# SPDX-License-Identifier: MIT
"""The drive's commands on a stand-in drive, without a terminal."""

import json

FORMAT = ["mkfs.xfs -L DVRData -f -l lazy-count=0 /dev/sda2",
          "mkfs.xfs -L DVRStorage -f -l lazy-count=0 /dev/sda1"]


def document(run):
    """The one JSON document that a command printed on one line."""
    assert run.stdout.endswith("\n") and run.stdout.count("\n") == 1, run
    return json.loads(run.stdout)


def test_info_as_text(fake_drive):
    run = fake_drive.formatted().run("drive", "info")
    assert run.returncode == 0, run
    assert "Device:    /dev/sda\nModel:     FAKE\\x1bDRIVE\nSerial:    SERIAL-1\n" in run.stdout
    assert "Capacity:  1.0 GB (1073741824 bytes)\nStatus:    ready\n" in run.stdout
    assert "  0  /dev/sda1   268 MB     type 83  xfs      DVRStorage    not mounted\n" in run.stdout


def test_info_as_json(fake_drive):
    run = fake_drive.formatted().run("--json", "drive", "info")
    assert document(run) == {
        "command": "drive info", "device": "/dev/sda", "model": "FAKE\x1bDRIVE",
        "serial": "SERIAL-1", "capacity": 1 << 30, "status": "ready", "progress": 100,
        "totalMiB": 0, "freeMiB": 0, "blockSize": 0,
        "partitions": [
            {"index": 0, "path": "/dev/sda1", "capacity": 256 << 20, "type": 0x83,
             "filesystem": "xfs", "label": "DVRStorage", "mountpoint": None},
            {"index": 1, "path": "/dev/sda2", "capacity": 512 << 20, "type": 0x83,
             "filesystem": "xfs", "label": "DVRData", "mountpoint": None}]}


def test_blank_drive_becomes_a_started_one_in_one_process(fake_drive):
    run = fake_drive.run("shell", "-e", "drive partition --yes 100 rest; drive format --yes; "
                         "drive start; drive status; drive stop; drive info")
    assert run.returncode == 0, run
    assert "format: ready 100 %\nThe drive is formatted.\n" in run.stdout
    assert "start: started 100 %\nThe drive is started.\n" in run.stdout
    assert "MiB free of" in run.stdout
    assert "The drive is stopped.\n" in run.stdout
    assert "Status:    ready" in run.stdout.split("stopped")[1]
    assert fake_drive.calls() == [
        "sfdisk -q -L -uM /dev/sda", *FORMAT, "hdparm -S0 /dev/sda",
        "mount -t xfs /dev/sda1 /dvr -o prjquota", "mount -t xfs /dev/sda2 /dvr/data"]
    assert (fake_drive.state / "table").read_text() == "100\n924\n"


def test_json_stays_clean_of_tools_and_log(fake_drive):
    run = fake_drive.formatted().run("--json", "-v", "shell", "-e", "drive start; drive stop")
    start, stop = (json.loads(line) for line in run.stdout.splitlines())
    assert (start["command"], start["status"]) == ("drive start", "started")
    assert start["totalMiB"] > 0 and start["blockSize"] > 0
    assert start["changes"][-1] == {"status": "started", "progress": 100}
    assert (stop["command"], stop["status"]) == ("drive stop", "ready")
    assert "chatter of mount" in run.stderr and "Trying to mount" in run.stderr


def test_tools_do_not_get_the_shells_input(fake_drive):
    fake_drive.formatted()
    tool = fake_drive.state / "tools/hdparm"
    tool.write_text(tool.read_text().replace(
        "sys.exit(run(MATCH))", "sys.exit('input: ' + os.readlink('/proc/self/fd/0'))"))
    run = fake_drive.run("shell", input="drive spin-up\n")
    assert run.returncode == 0 and "input: /dev/null\n" in run.stderr, run


def test_partition_without_terminal_or_yes_touches_nothing(fake_drive):
    fake_drive.formatted()
    for words in [("drive", "partition", "rest"), ("drive", "format"),
                  ("shell", "-e", "drive status; drive format")]:
        run = fake_drive.run(*words)
        assert run.returncode == 2 and "--yes is needed" in run.stderr and not run.stdout, run
    assert not (fake_drive.state / "log").exists()


def test_partition_that_does_not_fit_touches_nothing(fake_drive):
    run = fake_drive.run("drive", "partition", "--yes", "1000", "25")
    assert run.returncode == 1 and "has 1024 MB" in run.stderr, run
    assert not fake_drive.calls()


def test_failed_partitioning(fake_drive):
    fake_drive.fail("sfdisk")
    run = fake_drive.run("--json", "drive", "partition", "--yes", "100")
    assert run.returncode == 1
    assert "could not be written" in document(run)["error"]


def test_format_needs_partitions(fake_drive):
    run = fake_drive.run("drive", "format", "--yes")
    assert run.returncode == 1 and "no partitions" in run.stderr and not fake_drive.calls()


def test_format_of_a_single_partition(fake_drive):
    fake_drive.table([512])
    run = fake_drive.run("drive", "format", "--yes")
    assert run.returncode == 0 and "without a data partition" in run.stdout, run
    assert fake_drive.calls() == ["mkfs.xfs -L DVRStorage -f -l lazy-count=0 /dev/sda1"]


def test_failed_format(fake_drive):
    fake_drive.formatted().fail("mkfs.xfs")
    run = fake_drive.run("--json", "drive", "format", "--yes")
    assert run.returncode == 1
    result = document(run)
    assert "could not be formatted" in result["error"] and result["status"] == "error"
    assert fake_drive.calls() == FORMAT


def test_failure_on_the_data_partition_does_not_end_the_format_early(fake_drive):
    fake_drive.table([256, 512])
    release = fake_drive.hold("mkfs.xfs")
    # Fails on the data partition, and waits on the storage partition.
    tool = fake_drive.state / "tools/mkfs.xfs"
    tool.write_text(tool.read_text().replace(
        "sys.exit(run(MATCH))", "sys.exit(1 if 'DVRData' in LINE else run(MATCH))"))
    format_run = fake_drive.start("drive", "format", "--yes")
    lines = iter(format_run.stdout.readline, "")
    assert any(line.startswith("format: error") for line in lines)
    release()
    assert list(lines) == ["format: ready 100 %\n"]
    assert "data partition could not be formatted; the storage partition is ready" in (
        format_run.stderr.read())
    assert format_run.wait(60) == 1
    assert fake_drive.calls() == FORMAT


def test_status_tells_the_next_step(fake_drive):
    assert fake_drive.run("drive", "status").stdout == (
        "Status:    not-formatted; 'drive partition' comes next\n")
    fake_drive.table([256, 512])
    assert fake_drive.run("drive", "status").stdout == (
        "Status:    not-formatted; 'drive format' comes next\n")
    assert fake_drive.formatted().run("drive", "status").stdout == "Status:    ready\n"


def test_start_needs_a_format(fake_drive):
    fake_drive.table([256, 512])
    run = fake_drive.run("drive", "start")
    assert run.returncode == 1 and "'drive format' comes first" in run.stderr


def test_failed_start(fake_drive):
    fake_drive.formatted().fail("mount", 32)
    run = fake_drive.run("--json", "shell", "-e", "drive start; drive status")
    result = document(run)  # the status is not asked for any more
    assert run.returncode == 1 and result["status"] == "error"
    assert "could not be mounted" in result["error"]


def test_a_started_drive_refuses_what_would_destroy_it(fake_drive):
    for words in ["drive format --yes", "drive partition --yes rest", "drive start"]:
        run = fake_drive.formatted().run("shell", "-e", f"drive start; {words}")
        assert run.returncode == 1 and "kestrova: " + " ".join(words.split()[:2]) in run.stderr
    assert not any(call.startswith(("mkfs", "sfdisk")) for call in fake_drive.calls())


def test_stop_needs_a_start(fake_drive):
    run = fake_drive.formatted().run("drive", "stop")
    assert run.returncode == 1 and "not started (status ready)" in run.stderr


def test_watch_follows_work_left_alone(fake_drive):
    release = fake_drive.formatted().hold("mkfs.xfs")
    shell = fake_drive.start("--json", "shell")
    shell.stdin.write("drive format --yes --no-wait\n")
    shell.stdin.flush()
    assert json.loads(shell.stdout.readline())["status"] == "formatting"
    release()
    shell.stdin.write("drive watch\ndrive start\ndrive stop\n")
    shell.stdin.close()
    lines = [json.loads(line) for line in shell.stdout]
    assert [line["command"] for line in lines] == ["drive watch", "drive start", "drive stop"]
    assert lines[0]["status"] == "ready"
    assert shell.wait(60) == 0


def test_busy_drive_is_left_alone(fake_drive):
    release = fake_drive.formatted().hold("mkfs.xfs")
    shell = fake_drive.start("shell")
    shell.stdin.write("drive format --yes --no-wait\ndrive status\ndrive info\n")
    shell.stdin.close()
    assert "'drive watch' follows it" in shell.stdout.readline()
    assert shell.stdout.readline() == "Status:    formatting, 90 %\n"
    assert "the drive is busy" in shell.stderr.readline()
    release()
    assert "The drive is formatted.\n" in shell.stdout.read()  # the end waits for it
    assert shell.wait(60) == 1


def test_watch_without_work(fake_drive):
    run = fake_drive.formatted().run("--json", "drive", "watch")
    assert run.returncode == 0
    assert document(run)["status"] == "ready" and document(run)["changes"] == []


def test_check(fake_drive):
    fake_drive.table([256, 512])
    for argument in ["1", "/dev/sda2"]:
        run = fake_drive.run("--json", "drive", "check", argument)
        assert run.returncode == 0, run
        assert document(run)["path"] == "/dev/sda2" and document(run)["index"] == 1
    fake_drive.fail("fsck.ext3", 1)
    run = fake_drive.run("drive", "check", "0")
    assert run.returncode == 1 and "a second check tells" in run.stderr


def test_check_refusals(fake_drive):
    fake_drive.formatted()
    for argument, reason in [("2", "the drive has 2"), ("/dev/sda9", "no partition '/dev/sda9'"),
                             ("0", "only ext2/ext3")]:
        run = fake_drive.run("drive", "check", argument)
        assert run.returncode == 1 and reason in run.stderr, run
    run = fake_drive.run("shell", "-e", "drive start; drive check 0")
    assert run.returncode == 1 and "is mounted" in run.stderr
    assert not any(call.startswith("fsck") for call in fake_drive.calls())


def test_spinning(fake_drive):
    run = fake_drive.formatted().run("shell", "-e", "drive spin-up; drive spin-down")
    assert run.returncode == 0 and run.stdout == "The drive is awake.\nThe drive is in standby.\n"
    assert fake_drive.calls() == [f"hdparm -{option} /dev/sda" for option in ["S0", "S24", "y"]]
    fake_drive.fail("hdparm")
    run = fake_drive.run("--json", "drive", "spin-down")
    assert run.returncode == 1 and "standby" in document(run)["error"]


def test_reader_that_goes_away_does_not_break_a_format(fake_drive):
    release = fake_drive.formatted().hold("mkfs.xfs")
    shell = fake_drive.start("drive", "format", "--yes")
    assert shell.stdout.readline() == "format: formatting 90 %\n"
    shell.stdout.close()
    release()
    assert shell.wait(60) == 1
    assert "Broken pipe" in shell.stderr.read()
    assert fake_drive.calls() == FORMAT
