# SPDX-License-Identifier: MIT
"""The commands of service staff, with stubs for the daemons, in their own root."""

import json

import pytest

from bootpartition import image, record


def answer(run, status=0):
    assert run.returncode == status, run
    return json.loads(run.stdout)


def store(maintain, *records):
    maintain.partition.put("boot_env", image(*records))


def log(maintain):
    path = maintain.partition.state / "log"
    return path.read_text().splitlines() if path.exists() else []


@pytest.mark.parametrize("nodes,count", [
    ("", 0), ("ttyS0 ttyS1", 2), ("ttyS5", 1), ("tty/0 ttyAS1 ttyS10 tts/1", 2)])
def test_serial_count(maintain, nodes, count):
    assert maintain("serial", "count", nodes=nodes).stdout == f"{count}\n"
    assert answer(maintain("--json", "serial", "count", nodes=nodes)) == {
        "command": "serial count", "ports": count}


def test_serial_login(maintain):
    run = maintain("--json", "serial", "login", "3", nodes="tts/3", awaited="getty")
    assert answer(run) == {"command": "serial login", "port": 3}
    record_of_run = (maintain.partition.state / "getty").read_text()
    assert record_of_run == "/sbin/getty -L /dev/tts/3 115200 vt100\n"


def test_serial_login_without_port_or_getty(maintain):
    run = maintain("serial", "login", "0", nodes="tty/0")
    assert run.returncode == 3 and "no serial port 0" in run.stderr
    (maintain.partition.state / "tools" / "getty").unlink()
    run = maintain("serial", "login", "0", nodes="ttyS0")
    assert run.returncode == 1 and "'/sbin/getty': No such file" in run.stderr


@pytest.mark.parametrize("text,how", [
    ("exit 3", "with exit status 3"), ("exit 0", "with exit status 0"),
    ("kill -9 $$", "by signal 9")])
def test_serial_login_that_ends_at_once(maintain, text, how):
    (maintain.partition.state / "tools" / "getty").write_text(f"#!/bin/sh\n{text}\n")
    run = maintain("serial", "login", "0", nodes="ttyS0")
    assert run.returncode == 1
    assert run.stderr == f"kestrova: serial login: the login prompt has ended at once, {how}\n"


def test_serial_login_that_cannot_be_executed(maintain):
    (maintain.partition.state / "tools" / "getty").write_text("#!/absent\n")
    run = maintain("serial", "login", "0", nodes="ttyS0")
    assert run.returncode == 1 and "the login prompt has ended at once" in run.stderr


def test_serial_login_outlives_the_command(maintain):
    """The first process has then adopted it."""
    run = maintain("shell", "-e", "serial login 0; serial login 1; run 'pgrep -c -x tail'",
                   nodes="ttyS0 ttyS1")
    assert (run.returncode, run.stdout, run.stderr) == (0, "2\n", "")


def test_syslog_set_show_clear(maintain):
    store(maintain, record(b"a", b"1"))
    assert answer(maintain("--json", "syslog", "set", "192.168.200.1")) == {
        "command": "syslog set", "address": "192.168.200.1"}
    assert maintain.partition.variables() == {b"a": b"1", b"syslog": b"192.168.200.1"}
    assert maintain("syslog", "show").stdout == "192.168.200.1\n"
    assert answer(maintain("--json", "syslog", "show"))["address"] == "192.168.200.1"
    assert maintain("syslog", "set", "192.168.200.1").returncode == 0
    for _ in range(2):
        assert answer(maintain("--json", "syslog", "clear"))["address"] is None
        assert maintain.partition.variables() == {b"a": b"1"}
    run = maintain("syslog", "show")
    assert run.returncode == 3 and "no address is stored" in run.stderr
    assert log(maintain) == []


@pytest.mark.parametrize("address", ["10.0.0", "10.0.0.0.1", "10.0.0.256", "010.0.0.1", "10.0.0.1 ",
                                     "0x0a.0.0.1", "host", "", "10.0.0.-1", "0.0.0.0", "::1"])
def test_bad_address_is_refused(maintain, address):
    store(maintain, record(b"syslog", b"10.0.0.7"))
    before = maintain.partition.get("boot_env")
    run = maintain("syslog", "set", address)
    assert (run.returncode, run.stdout) == (2, "") and "four decimal octets" in run.stderr
    assert maintain.partition.get("boot_env") == before


def test_address_that_cannot_be_stored(maintain):
    store(maintain, record(b"a", b"v" * (65524 - 4)))
    run = maintain("syslog", "set", "10.0.0.1")
    assert run.returncode == 1 and "could not be stored" in run.stderr


def test_variable_that_is_no_address(maintain):
    store(maintain, record(b"syslog", b"somewhere"))
    for what in ["show", "clear", "apply"]:
        run = maintain("syslog", what)
        assert run.returncode == 1 and "holds no address" in run.stderr
    assert log(maintain) == []


def test_unreadable_environment(maintain):
    maintain.partition.put("boot_env", image(record(b"syslog", b"10.0.0.7"), crc=0))
    for what in ["show", "clear", "apply"]:
        run = maintain("syslog", what)
        assert run.returncode == 1 and "bad checksum" in run.stderr
    assert log(maintain) == []


def test_apply(maintain):
    store(maintain, record(b"syslog", b"10.0.0.7"))
    assert answer(maintain("--json", "syslog", "apply"))["address"] == "10.0.0.7"
    store(maintain)
    assert answer(maintain("--json", "syslog", "apply"))["address"] is None
    assert log(maintain) == ["killall syslogd", "/sbin/syslogd -C -R 10.0.0.7",
                             "killall syslogd", "/sbin/syslogd -C"]


def test_apply_when_the_daemon_does_not_start(maintain):
    """Like current syslogd versions, which do not support -C."""
    store(maintain, record(b"syslog", b"10.0.0.7"))
    (maintain.partition.state / "tools" / "syslogd").write_text("#!/bin/sh\nexit 1\n")
    run = maintain("syslog", "apply")
    assert run.returncode == 1 and run.stderr == (
        "kestrova: syslog apply: the log daemon did not start: '/sbin/syslogd -C -R 10.0.0.7' tells"
        " why; none runs now\n")
    assert answer(maintain("--json", "syslog", "apply"), 1)["error"]


def test_apply_when_the_daemon_dies_at_once(maintain):
    (maintain.partition.state / "tools" / "syslogd").write_text("#!/bin/sh\n(sleep .05) &\n")
    store(maintain)
    run = maintain("syslog", "apply")
    assert run.returncode == 1 and "the log daemon did not start" in run.stderr


def test_apply_when_the_old_daemon_stays(maintain):
    store(maintain)
    script = "syslog apply; run 'echo \"#!/bin/sh\" >/usr/sbin/syslogd'; " \
             "run 'echo : >/usr/sbin/killall'; syslog apply"
    run = maintain("shell", "-e", script)
    assert run.returncode == 1 and "tells why; the one before still runs" in run.stderr


def test_the_daemon_can_be_ended(maintain):
    """It has not inherited the command's blocked signals."""
    store(maintain)
    run = maintain("shell", "-e", "syslog apply; run 'grep SigBlk /proc/$(pgrep -x syslogd)/status'")
    assert run.returncode == 0 and run.stdout.split() == ["SigBlk:", "0" * 16]


def test_apply_without_daemon(maintain):
    store(maintain, record(b"syslog", b"10.0.0.7"))
    (maintain.partition.state / "tools" / "syslogd").unlink()
    run = maintain("syslog", "apply")
    assert run.returncode == 1 and "'/sbin/syslogd': No such file" in run.stderr
    assert log(maintain) == []


def test_production(maintain):
    (maintain.partition.state / "noptest").write_text("")
    assert answer(maintain("--json", "production")) == {"command": "production"}
    assert (maintain.partition.state / "settings").read_text() == ""
    (maintain.partition.state / "noptest").unlink()
    run = maintain("production")
    assert run.returncode == 3 and "'/settings/noptest': No such file" in run.stderr


@pytest.mark.parametrize("words,message", [
    (["serial"], "a command is missing"), (["serial", "login"], "PORT is missing"),
    (["serial", "login", "10"], "0 to 9"), (["serial", "login", "-1"], "unknown option"),
    (["serial", "login", "x"], "0 to 9"), (["serial", "login", "1", "2"], "unexpected"),
    (["serial", "count", "1"], "unexpected"), (["syslog", "set"], "ADDRESS is missing"),
    (["syslog", "set", "10.0.0.1", "2"], "unexpected"), (["syslog", "apply", "1"], "unexpected"),
    (["production", "now"], "unexpected")])
def test_misuse(kestrova, words, message):
    run = kestrova(*words)
    assert (run.returncode, run.stdout) == (2, "") and message in run.stderr
