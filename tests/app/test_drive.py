# SPDX-License-Identifier: MIT
"""The drive's commands on a fake drive, without a terminal."""

import json

FORMAT = ["mkfs.xfs -L DVRData -f -l lazy-count=0 /dev/sda2",
          "mkfs.xfs -L DVRStorage -f -l lazy-count=0 /dev/sda1"]


def document(run):
    """Returns the single JSON document that a command printed on one line."""
    assert run.stdout.endswith("\n") and run.stdout.count("\n") == 1, run
    return json.loads(run.stdout)


def test_info_as_text(fake_drive):
    run = fake_drive.formatted().run("drive", "info")
    assert run.returncode == 0, run
    assert "Device:    /dev/sda\nModel:     FAKE\\x1bDRIVE\nSerial:    SERIAL-1\n" in run.stdout
    assert "Capacity:  1024 MiB (1073741824 bytes)\nStatus:    ready\n" in run.stdout
    assert "  0  /dev/sda1   256 MiB    type 83  xfs      DVRStorage    not mounted\n" in run.stdout


def test_info_as_json(fake_drive):
    run = fake_drive.formatted().run("--json", "drive", "info")
    assert document(run) == {
        "command": "drive info", "device": "/dev/sda", "model": "FAKE\x1bDRIVE",
        "serial": "SERIAL-1", "capacity": 1 << 30, "status": "ready", "progress": 100,
        "totalMiB": 0, "freeMiB": 0, "blockSize": 0, "recordings": "/dvr/data",
        "problem": None, "holder": None,
        "storage": {"device": "/dev/sda1", "mountpoint": None, "size": 256 << 20, "free": None},
        "data": {"device": "/dev/sda2", "mountpoint": None, "size": 512 << 20, "free": None},
        "partitions": [
            {"index": 0, "path": "/dev/sda1", "capacity": 256 << 20, "type": 0x83,
             "filesystem": "xfs", "label": "DVRStorage", "filesystemSize": 0, "mountpoint": None},
            {"index": 1, "path": "/dev/sda2", "capacity": 512 << 20, "type": 0x83,
             "filesystem": "xfs", "label": "DVRData", "filesystemSize": 0, "mountpoint": None}]}


def test_blank_drive_becomes_a_started_one_in_one_process(fake_drive):
    run = fake_drive.run("shell", "-e", "drive partition --yes 100 rest; drive format --yes; "
                         "drive start; drive status; drive stop; drive info")
    assert run.returncode == 0, run
    assert "format: ready 100 %\nThe drive is formatted.\n" in run.stdout
    assert "start: started 100 %\nThe drive is started.\n" in run.stdout
    assert "Storage:   /dvr, " in run.stdout and "Data:      /dvr/data, " in run.stdout
    assert "Record to: /dvr/data\n" in run.stdout
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


def test_sizes_with_units_and_shares(fake_drive):
    for words, table in [(["300M", "rest"], "300\n724\n"), (["50%", "25%"], "512\n256\n"),
                         (["1G"], "1024\n")]:
        run = fake_drive.run("drive", "partition", "--yes", *words)
        assert run.returncode == 0, run
        assert (fake_drive.state / "table").read_text() == table


def test_bad_sizes_are_misuse(fake_drive):
    for word in ["0", "M", "1K", "1.5G", "0%", "101%", "-5", "3G3", "4000000000", "4096T", ""]:
        run = fake_drive.run("drive", "partition", "--yes", "--", word)
        assert run.returncode == 2 and f"bad size '{word}'" in run.stderr, run
    assert not fake_drive.calls()


def test_partition_that_does_not_fit_touches_nothing(fake_drive):
    run = fake_drive.run("drive", "partition", "--yes", "1000", "25")
    assert run.returncode == 1 and "has 1024 MiB" in run.stderr, run
    assert not fake_drive.calls()


def test_failed_partitioning(fake_drive):
    tool = fake_drive.state / "tools/sfdisk"
    tool.write_text(tool.read_text().replace("        write_table()", "        sys.exit(1)"))
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
    # Fails for the data partition, and blocks for the storage partition.
    tool = fake_drive.state / "tools/mkfs.xfs"
    tool.write_text(tool.read_text().replace(
        "sys.exit(run(MATCH))", "sys.exit(1 if 'DVRData' in LINE else run(MATCH))"))
    format_run = fake_drive.start("drive", "format", "--yes")
    lines = iter(format_run.stdout.readline, "")
    assert any(line.startswith("format: error") for line in lines)
    release()
    assert list(lines) == ["format: ready 100 %\n"]
    assert ("data partition could not be formatted: /dev/sda2 can't be formatted: mkfs.xfs: exit "
            "status 1; the storage partition is ready") in format_run.stderr.read()
    assert format_run.wait(60) == 1
    assert fake_drive.calls() == FORMAT


def test_status_tells_the_next_step(fake_drive):
    assert fake_drive.run("drive", "status").stdout == (
        "Status:    not-formatted; 'drive partition' comes next\n")
    fake_drive.table([256, 512])
    assert fake_drive.run("drive", "status").stdout == (
        "Status:    not-formatted; 'drive format' comes next\n")
    assert fake_drive.formatted().run("drive", "status").stdout == (
        "Status:    ready\nStorage:   256 MiB, not mounted\nData:      512 MiB, not mounted\n")


def test_start_needs_a_format(fake_drive):
    fake_drive.table([256, 512])
    run = fake_drive.run("drive", "start")
    assert run.returncode == 1 and "'drive format' comes first" in run.stderr


def test_failed_start(fake_drive):
    fake_drive.formatted().fail("mount", 32)
    run = fake_drive.run("--json", "shell", "-e", "drive start; drive status")
    result = document(run)  # the status command is not executed any more
    assert run.returncode == 1 and result["status"] == "error"
    assert result["error"] == (
        "the drive could not be started: /dev/sda1 can't be mounted: mount: exit status 32")


def test_a_started_drive_refuses_what_would_destroy_it(fake_drive):
    for words in ["drive format --yes", "drive partition --yes rest", "drive start"]:
        run = fake_drive.formatted().run("shell", "-e", f"drive start; {words}")
        assert run.returncode == 1 and "kestrova: " + " ".join(words.split()[:2]) in run.stderr
    assert not any(call.startswith(("mkfs", "sfdisk")) for call in fake_drive.calls())


def test_looking_beside_a_recording_changes_nothing(fake_drive):
    """Another process queries the drive while a started drive is written to."""
    recorder = fake_drive.formatted().start("shell")
    recorder.stdin.write("drive start\nrun 'echo begun >/dvr/data/film; ls /dvr/data'\n")
    recorder.stdin.flush()
    assert any(line == "film\n" for line in iter(recorder.stdout.readline, ""))
    before = fake_drive.calls()
    for words in ["info", "status", "watch"]:
        run = fake_drive.join(recorder, "--json", "drive", words)
        assert run.returncode == 0, run
        answer = document(run)
        assert answer["status"] == "started" and answer["recordings"] == "/dvr/data"
        assert answer["data"]["mountpoint"] == "/dvr/data" and answer["data"]["free"] > 0
        assert answer["storage"]["mountpoint"] == "/dvr" and answer["storage"]["size"] > 0
    assert fake_drive.calls() == before
    recorder.stdin.write("run 'cat /dvr/data/film'\ndrive stop\n")
    recorder.stdin.close()
    assert recorder.stdout.read() == "begun\nThe drive is stopped.\n"
    assert recorder.wait(60) == 0


def test_stop_needs_a_start(fake_drive):
    run = fake_drive.formatted().run("drive", "stop")
    assert run.returncode == 1 and "the drive is not started" in run.stderr
    assert not fake_drive.calls()


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
    shell.stdin.write("drive format --yes --no-wait\ndrive status\ndrive spin-up\n")
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


def test_check_of_xfs(fake_drive):
    fake_drive.formatted()
    run = fake_drive.run("--json", "drive", "check", "1")
    assert run.returncode == 0 and document(run)["path"] == "/dev/sda2", run
    assert fake_drive.run("drive", "check", "--repair", "0").stdout.endswith(
        "/dev/sda1 is checked, and what was wrong is repaired.\n")
    assert fake_drive.calls() == ["xfs_repair -n /dev/sda2", "xfs_repair /dev/sda1"]


def test_check_of_xfs_that_finds_errors(fake_drive):
    fake_drive.formatted()
    for status, words, reason in [(1, [], "has errors; 'drive check --repair' repairs them"),
                                  (2, ["--repair"], "changes in its log"),
                                  (4, [], "xfs_repair: exit status 4, \"Phase 1")]:
        fake_drive.fail("xfs_repair", status)
        run = fake_drive.run("drive", "check", "0", *words)
        assert run.returncode == 1 and reason in run.stderr, run


def test_check_refusals(fake_drive):
    fake_drive.formatted()
    for argument, reason in [("2", "the drive has 2"), ("/dev/sda9", "no partition '/dev/sda9'")]:
        run = fake_drive.run("drive", "check", argument)
        assert run.returncode == 1 and reason in run.stderr, run
    run = fake_drive.run("shell", "-e", "drive start; drive check 0")
    assert run.returncode == 1 and "is mounted on /dvr and can't be checked" in run.stderr
    assert not any(call.startswith(("fsck", "xfs_repair")) for call in fake_drive.calls())


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
    assert shell.stderr.read() == ""
    assert fake_drive.calls() == FORMAT
