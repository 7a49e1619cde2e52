# SPDX-License-Identifier: MIT
"""Questions, progress bars and Ctrl-C, on a pseudo-terminal."""

FORMATS = 2  # tool runs of a format


def formats(drive):
    return [call for call in drive.calls() if call.startswith("mkfs")]


def test_question_names_the_drive_and_no_is_no(fake_drive):
    for answer in ["\n", "no\n", "yess\n", "\x04", "\x03"]:
        terminal = fake_drive.formatted().terminal("drive", "partition", "100", "rest")
        terminal.expect(r"ALL DATA on /dev/sda \(model FAKE\\x1bDRIVE, 1024 MiB\) will be lost:\n"
                        r"  /dev/sda1   256 MiB    xfs      DVRStorage\n"
                        r"  /dev/sda2   512 MiB    xfs      DVRData\n"
                        r"Partition it as 100 MiB, the rest\? \[y/N\] ")
        terminal.type(answer)
        terminal.expect("not confirmed, nothing was changed")
        assert terminal.end() == 1
    assert fake_drive.calls() == []


def test_yes_is_yes(fake_drive):
    for answer in ["y", "YES"]:
        terminal = fake_drive.terminal("drive", "partition", "rest")
        terminal.expect(r"\[y/N\] ")
        terminal.type(answer + "\n")
        terminal.expect("Status:    not-formatted")
        assert terminal.end() == 0
    assert len(fake_drive.calls()) == 2


def test_format_names_its_partitions(fake_drive):
    terminal = fake_drive.formatted().terminal("drive", "format")
    terminal.expect(r"ALL DATA on these partitions of /dev/sda \(model .*1024 MiB\) will be lost:\n"
                    r"  /dev/sda1   256 MiB    xfs      DVRStorage\n"
                    r"  /dev/sda2   512 MiB    xfs      DVRData\nFormat\? ")
    terminal.type("n\n")
    assert terminal.end() == 1
    assert fake_drive.calls() == []


def test_progress_bar(fake_drive):
    fake_drive.table([256, 512])
    release = fake_drive.hold("mkfs.xfs")
    terminal = fake_drive.terminal("drive", "format", "--yes")
    terminal.expect(r"\rformat \[#{24}-{16}\]  60 % formatting, 0:00:\d\d\x1b\[K")
    release()
    terminal.expect(r"\rformat \[#{40}\] 100 % ready, 0:00:\d\d\x1b\[K\nThe drive is formatted\.\n")
    assert terminal.end() == 0


def test_no_bar_where_a_line_cannot_be_rewritten(fake_drive):
    terminal = fake_drive.formatted().terminal("drive", "format", "--yes", TERM="dumb")
    terminal.expect(r"format: ready 100 %\n")
    assert terminal.end() == 0 and "\x1b" not in terminal.text


def test_ctrl_c_does_not_stop_a_format(fake_drive):
    release = fake_drive.formatted().hold("mkfs.xfs")
    terminal = fake_drive.terminal("drive", "format", "--yes")
    terminal.expect(r"90 % formatting")
    terminal.type("\x03")
    terminal.expect(r"\nkestrova: the format can't be stopped, waiting for its end\n")
    for _ in range(3):
        terminal.type("\x03")
        terminal.expect(r"the format can't be stopped")
    release()
    terminal.expect("The drive is formatted")
    assert terminal.end() == 0
    assert len(formats(fake_drive)) == FORMATS


def test_ctrl_c_ends_a_script_after_its_format(fake_drive):
    release = fake_drive.formatted().hold("mkfs.xfs")
    terminal = fake_drive.terminal("shell", "-e", "drive format --yes; drive start")
    terminal.expect(r"90 % formatting")
    terminal.type("\x03")
    terminal.expect("can't be stopped")
    release()
    terminal.expect("The drive is formatted.*the commands that follow are not run")
    assert terminal.end() == 1
    assert not any(call.startswith("mount") for call in fake_drive.calls())


def test_ctrl_c_in_the_shell_leaves_a_format_alone(fake_drive):
    release = fake_drive.formatted().hold("mkfs.xfs")
    shell = fake_drive.terminal("shell")
    shell.expect("kestrova> ")
    shell.type("drive format --yes\n")
    shell.expect("90 % formatting")
    shell.type("\x03")
    shell.expect(r"\n.*the format goes on; 'drive watch' follows it\nkestrova> ")
    shell.type("\x03drive status\n")
    shell.expect("Status:    formatting, 90 %")
    shell.type("drive start\n")
    shell.expect("busy: the format goes on")
    release()
    shell.type("drive watch\n")
    shell.expect("The drive is formatted")
    shell.type("drive start\n")
    shell.expect("The drive is started")
    shell.type("drive stop; exit\n")
    shell.expect("The drive is stopped")
    assert shell.end() == 0
    assert len(formats(fake_drive)) == FORMATS


def test_a_format_that_ended_unwatched_is_reported(fake_drive):
    fake_drive.formatted().fail("mkfs.xfs")
    shell = fake_drive.terminal("shell")
    shell.expect("kestrova> ")
    shell.type("drive format --yes --no-wait\n")
    while not shell.expect(r"(Status: +|runs;)([^\n]*)\n").group(2).startswith("error"):
        shell.type("drive status\n")
    shell.type("drive spin-up\n")
    shell.expect("(has ended: the storage partition could not be formatted|busy)")
    shell.type("exit\n")
    shell.end()
    assert "could not be formatted" in shell.text


def test_the_shell_at_a_terminal_goes_on_after_a_failure(fake_drive):
    shell = fake_drive.terminal("shell")
    shell.expect("kestrova> ")
    shell.type("bogus\n")
    shell.expect("unknown command 'bogus'; 'help' lists the commands\nkestrova> ")
    shell.type("drive stop\n")
    shell.expect("not started.*kestrova> ")
    shell.type("half a line\x03")
    shell.expect("kestrova> ")
    shell.type("table\n")
    shell.expect("device 0: .*kestrova> ")
    shell.type("\x04")
    assert shell.end() == 0
    assert "half" not in shell.text.split("\n")[-1]


def test_check_shows_its_progress(fake_drive):
    fake_drive.table([256])
    release = fake_drive.hold("fsck.ext3")
    terminal = fake_drive.terminal("drive", "check", "0")
    terminal.expect(r"check \[#{20}-{20}\]  50 % checking")
    terminal.type("\x03")
    terminal.expect("the check can't be stopped")
    release()
    terminal.expect("/dev/sda1 has no errors")
    assert terminal.end() == 0
