# SPDX-License-Identifier: MIT
"""Scenes with several processes that use the boot variables. Run as a program in the root of a
BootPartition, because only there they share a partition and lock files:

    lockscenes.py SCENE KESTROVA
"""

import ctypes
import fcntl
import json
import os
import pathlib
import signal
import subprocess
import sys
import threading
import time

KESTROVA = ""
FIFO = "/state/fifo"
LOCK = pathlib.Path("/run/lock/kestrova/vars.lock")
BUSY = 7


def run(*arguments):
    return subprocess.run([KESTROVA, *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                          text=True, timeout=60, check=False)


def start(*arguments, **options):
    return subprocess.Popen([KESTROVA, *arguments], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options)


def expect(result, status, text=""):
    assert result.returncode == status and text in result.stderr, result


def done(*arguments):
    result = run(*arguments)
    assert (result.returncode, result.stderr) == (0, ""), result
    return result.stdout


class Holder:
    """A command that holds the lock, because the file that it stores does not end."""

    def __init__(self, *arguments):
        os.mkfifo(FIFO)
        self.process = start(*(arguments or ["vars", "set-binary", "k", FIFO]))
        # Blocks until the command has opened the other end, which it does while it holds the lock.
        self._end = open(FIFO, "wb")

    def __enter__(self):
        return self.process

    def __exit__(self, *_):
        self._end.close()
        self.process.communicate(timeout=60)
        os.unlink(FIFO)


def busy_names_the_holder():
    with Holder() as holder:
        text = f"the boot variables are in use by process {holder.pid} (kestrova vars set-binary)"
        for words in [["vars", "set", "a", "1"], ["vars", "clear", "a"], ["vars", "list"],
                      ["vars", "get", "a"], ["vars", "get-binary", "a"], ["syslog", "show"],
                      ["syslog", "set", "10.0.0.1"], ["syslog", "clear"], ["syslog", "apply"]]:
            expect(run(*words), BUSY, f"kestrova: {' '.join(words[:2])}: {text}\n")
        document = json.loads(run("--json", "vars", "set", "a", "1").stdout)
        print(json.dumps(document))
        assert document["error"] == text
        assert document["holder"]["pid"] == holder.pid
        assert abs(document["holder"]["since"] - time.time()) < 60
        assert holder.poll() is None
    expect(run("vars", "list"), 3)


def a_shell_holds_the_lock_for_each_command():
    with Holder("shell", "-e", f"table; vars set-binary k {FIFO}"):
        expect(run("vars", "list"), BUSY, "(kestrova shell)")
    shell = subprocess.Popen([KESTROVA, "--minimal", "shell"], stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    shell.stdin.write("vars set a 1\ntable\n")
    shell.stdin.flush()
    assert "device" in shell.stdout.readline()  # the shell has executed its 'vars set'
    done("vars", "set", "b", "2")
    output, errors = shell.communicate(timeout=60)
    assert (shell.returncode, errors) == (0, "")
    assert done("vars", "list") == "a=1\nb=2\n", output


def waiting_ends_after_its_time():
    with Holder():
        for words in [["vars", "set", "--wait", "1", "a", "1"],
                      ["shell", "--wait", "1", "-e", "vars set a 1"],
                      ["shell", "--wait", "3600", "-e", "vars set --wait 1 a 1"]]:
            begin = time.monotonic()
            expect(run(*words), BUSY, "are in use by process")
            assert time.monotonic() - begin >= 1


def in_clock_sleep(process):
    """Returns whether a process waits in poll()."""
    text = pathlib.Path(f"/proc/{process.pid}/wchan").read_text(encoding="ascii")
    return "poll" in text


def await_wait(process):
    end = time.monotonic() + 60
    while not in_clock_sleep(process):
        assert process.poll() is None and time.monotonic() < end


def waiting_ends_when_the_lock_is_free():
    with Holder():
        waiters = [start("vars", "set", "--wait", "60", f"a{i}", "1") for i in range(3)]
        for waiter in waiters:
            await_wait(waiter)
    for waiter in waiters:
        assert waiter.communicate(timeout=60) == ("", "") and waiter.returncode == 0
    assert done("vars", "list") == "a0=1\na1=1\na2=1\n"


def signals_end_a_wait():
    for number in [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]:
        with Holder():
            waiter = start("vars", "set", "--wait", "3600", "a", "1")
            await_wait(waiter)
            waiter.send_signal(number)
            _, errors = waiter.communicate(timeout=60)
            assert waiter.returncode == 6 and "cancelled" in errors, (number, errors)
    expect(run("vars", "list"), 3)


def concurrent_settings_are_all_kept():
    rounds = int(os.environ.get("ROUNDS", "8"))
    lost = []

    def writer(name):
        for i in range(rounds):
            result = run("vars", "set", "--wait", "60", f"{name}{i}", str(i))
            if result.returncode != 0 or result.stderr:
                lost.append(result)

    threads = [threading.Thread(target=writer, args=(name,)) for name in "abc"]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert lost == []
    expected = {f"{name}{i}={i}" for name in "abc" for i in range(rounds)}
    assert set(done("vars", "list").splitlines()) == expected


def two_settings_at_once_are_stored_or_refused():
    """Twenty times: exit status 0 means stored, and 7 means not stored; there is no other status."""
    kept = set()
    for i in range(20):
        both = {name: start("vars", "set", name, "1") for name in [f"a{i}", f"b{i}"]}
        for name, process in both.items():
            process.communicate(timeout=60)
            assert process.returncode in (0, BUSY), (name, process.returncode)
            if process.returncode == 0:
                kept.add(f"{name}=1")
    assert len(kept) >= 20
    assert set(done("vars", "list").splitlines()) == kept


def readers_do_not_disturb_each_other():
    done("vars", "set", "a", "1")
    for _ in range(10):
        readers = [start("vars", "get", "a") for _ in range(4)]
        for reader in readers:
            assert reader.communicate(timeout=60) == ("1\n", "") and reader.returncode == 0
    assert "/boot-sw" not in pathlib.Path("/proc/mounts").read_text(encoding="utf-8")


def a_shared_lock_admits_readers_only():
    done("vars", "set", "a", "1")
    with open(LOCK, "rb") as file:
        fcntl.flock(file, fcntl.LOCK_SH)  # like a script with flock(1)
        assert done("vars", "get", "a") == "1\n"
        expect(run("vars", "set", "a", "2"), BUSY, "are in use by another process")
        document = json.loads(run("--json", "vars", "set", "a", "2").stdout)
        print(json.dumps(document))
        assert document["holder"] is None
    done("vars", "set", "a", "2")


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True, timeout=60)


def no_lock_file_means_no_change():
    done("vars", "set", "a", "1")
    mount("-t", "tmpfs", "-o", "ro,mode=755", "lock", "/run/lock")
    for words in [["vars", "set", "a", "2"], ["vars", "list"], ["syslog", "clear"]]:
        expect(run(*words), 1, f"kestrova: {' '.join(words[:2])}: the boot variables can't be locked: "
                               "/run/lock/kestrova: Read-only file system\n")
    subprocess.run(["umount", "/run/lock"], check=True, timeout=60)
    LOCK.unlink()
    os.mkfifo(LOCK)
    expect(run("vars", "set", "a", "2"), 1, "vars.lock: is not a regular file")
    LOCK.unlink()
    assert done("vars", "get", "a") == "1\n"


def the_partition_is_absent():
    os.unlink(os.environ["NODE"])
    for words in [["vars", "set", "a", "1"], ["vars", "clear", "a"], ["vars", "list"],
                  ["vars", "get", "a"], ["syslog", "set", "10.0.0.1"], ["syslog", "show"]]:
        result = run(*words)
        assert result.returncode == 1 and result.stdout == "", result
        assert result.stderr.count("\n") == 1 and os.environ["NODE"] in result.stderr, result


def killed_at(stop, value):
    """Sets a variable, and kills the command at a system call. Returns False if it has exited before."""
    traceme, syscall, libc = 0, 24, ctypes.CDLL(None, use_errno=True)
    child = os.fork()
    if child == 0:
        libc.ptrace(traceme, 0, None, None)
        os.execv(KESTROVA, [KESTROVA, "vars", "set", "a", value])
    for i in range(stop + 1):
        _, status = os.waitpid(child, 0)
        if not os.WIFSTOPPED(status):
            return False
        if i == stop:
            os.kill(child, signal.SIGKILL)
            os.waitpid(child, 0)
            return True
        libc.ptrace(syscall, child, None, None)
    return False


def a_killed_holder_is_no_obstacle():
    last, step = "0", int(os.environ.get("STEP", "17"))
    done("vars", "set", "a", last)
    stop = 0
    while killed_at(stop, f"killed{stop}"):
        found = done("vars", "get", "a")
        assert found in (f"{last}\n", f"killed{stop}\n"), (stop, found)
        last = f"next{stop}"
        done("vars", "set", "a", last)
        stop += step
    assert stop > 100 and done("vars", "get", "a") == f"killed{stop}\n", stop
    print(stop)


if __name__ == "__main__":
    KESTROVA = sys.argv[2]
    globals()[sys.argv[1]]()
