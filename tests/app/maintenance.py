# SPDX-License-Identifier: MIT
"""Stubs for the daemons of service staff, in the root of a BootPartition."""

TOOLS = {
    "getty": "echo \"$0 $*\" >/state/getty.new; mv /state/getty.new /state/getty\n"
             "exec tail -f /dev/null",
    "killall": "echo \"killall $*\" >>/state/log; pkill -x $1; :",
    # The daemon is this script as well, under its own name. It runs forever.
    "syslogd": "echo \"$0 $*\" >>/state/log\n"
               "mkfifo /state/log.pipe 2>&- || :\n"
               "{ read -r nothing <>/state/log.pipe; } <&- >&- 2>&- &"}

# $1 nodes below /dev, $2 a file of the state to wait for; then the command line.
PREPARE = r"""
set -eu
PATH=/usr/sbin:/usr/bin
mount -t tmpfs tools /usr/sbin
cp /state/tools/* /usr/sbin/
mkdir /settings /dev/tty /dev/tts
for node in $1; do >"/dev/$node"; done
if [ -e /state/noptest ]; then cp /state/noptest /settings/; fi
awaited=$2
shift 2
status=0
"$@" || status=$?
if [ "$status" = 0 ] && [ -n "$awaited" ]; then until [ -e "/state/$awaited" ]; do :; done; fi
ls /settings >/state/settings
exit "$status"
"""


class Maintenance:
    """Runs the command with the stubs; `partition` is a BootPartition."""

    def __init__(self, partition):
        self.partition = partition
        folder = partition.state / "tools"
        folder.mkdir()
        for name, text in TOOLS.items():
            (folder / name).write_text(f"#!/bin/sh\n{text}\n")
            (folder / name).chmod(0o755)

    def __call__(self, *arguments, nodes="", awaited=""):
        before = ["/usr/bin/sh", "-c", PREPARE, "sh", nodes, awaited]
        return self.partition.run(*arguments, before=before)
