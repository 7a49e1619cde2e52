# SPDX-License-Identifier: MIT
"""The box's hardware as QEMU arguments."""

import dataclasses
import os
import pathlib

MIB = 1024 * 1024
LOG_BYTES = 512 * MIB  # of a log of writes, sparse
DEFAULT_CPU = "qemu32,+rdrand"
# a processor without SSE2; rdrand all the same, or the tools wait seconds for entropy
OLD_CPU = "pentium2,+rdrand"

NETWORK_NONE, NETWORK_ISOLATED, NETWORK_LOOPBACK = "none", "isolated", "loopback"


@dataclasses.dataclass
class Disk:
    """A disk of the box. Without a path it is blank and ends with the box."""
    bus: str = "ata"  # or "scsi"
    path: "str | os.PathLike | None" = None
    size: int = 1024 * MIB  # of a blank disk, in bytes; a multiple of 512
    model: str = "KESTROVA VIRTUAL RECORDER"  # 40 characters at most; on SCSI 16
    serial: str = "KV-0001"  # 20 characters at most; ATA alone tells it
    vendor: str = "KESTROVA"  # SCSI alone, 8 characters at most
    snapshot: bool = False  # writes are lost with the box, the file stays as it is
    write_operations: int = 0  # a second; 0 for no limit
    write_log: "str | os.PathLike | None" = None  # every write and flush, in a file of LOG_BYTES
    name: str = ""  # QEMU's, set when the box starts

    def create(self, folder):
        """Makes the image of a disk that has no file."""
        if self.path is None:
            self.path = pathlib.Path(folder) / f"{self.name}.img"
            with open(self.path, "wb") as file:
                file.truncate(self.size)

    def _logged(self):
        """The disk behind a driver that logs its writes. It has a cache that it can lose."""
        with open(self.write_log, "wb") as file:
            file.truncate(LOG_BYTES)
        return ["-blockdev", f"driver=file,node-name={self.name}-file,"
                             f"filename={_escaped(self.path)}",
                "-blockdev", f"driver=raw,node-name={self.name}-raw,file={self.name}-file",
                "-blockdev", f"driver=file,node-name={self.name}-log,"
                             f"filename={_escaped(self.write_log)}",
                "-blockdev", f"driver=blklogwrites,node-name={self.name},file={self.name}-raw,"
                             f"log={self.name}-log,log-sector-size=512,"
                             "log-super-update-interval=1"]

    def _drive(self):
        drive = (f"if=none,id={self.name},file={_escaped(self.path)},format=raw,"
                 f"snapshot={'on' if self.snapshot else 'off'}")
        if self.write_operations:
            drive += f",throttling.iops-write={self.write_operations}"
        return ["-drive", drive]

    def arguments(self, unit):
        """The disk as number unit of its bus."""
        if self.bus == "ata":
            device = (f"ide-hd,bus=ide.{unit // 2},unit={unit % 2},model={_escaped(self.model)},"
                      f"serial={_escaped(self.serial)},ver=1.0,discard_granularity=0")
        elif self.bus == "scsi":
            device = (f"scsi-hd,bus=scsi0.0,scsi-id={unit},lun=0,"
                      f"vendor={_escaped(self.vendor)},product={_escaped(self.model[:16])}")
        else:
            raise ValueError(f"a disk's bus is ata or scsi, not {self.bus}")
        device += f",drive={self.name},id=dev-{self.name}"
        if self.write_log is None:
            return [*self._drive(), "-device", device]
        return [*self._logged(), "-device", f"{device},write-cache=on"]


def _escaped(text):
    """Text inside a QEMU option, where a comma ends the value."""
    return str(text).replace(",", ",,")


def machine_arguments(image, initrd, cpu, memory, kernel_arguments):
    """Processor, memory and what is booted. KVM is not used: it may hang."""
    return ["qemu-system-i386", "-accel", "tcg", "-machine", "pc,usb=off,vmport=off,hpet=off",
            "-cpu", cpu, "-m", str(memory), "-nodefaults", "-no-user-config", "-no-reboot",
            "-display", "none", "-vga", "none", "-kernel", str(image.kernel),
            "-initrd", str(initrd), "-append", kernel_arguments]


def disk_arguments(disks):
    """All disks, and the SCSI controller at 0000:01:0e.0, which is there without disks too."""
    arguments = ["-device", "pci-bridge,id=br1,chassis_nr=1,shpc=off,addr=0x1e",
                 "-device", "lsi53c895a,id=scsi0,bus=br1,addr=0x0e"]
    units = {"ata": 0, "scsi": 0}
    for disk in disks:
        arguments += disk.arguments(units.setdefault(disk.bus, 0))
        units[disk.bus] += 1
    return arguments


def share_arguments(folder):
    """A host folder that the box mounts."""
    return ["-fsdev", f"local,id=share,path={_escaped(folder)},security_model=none,"
            "multidevs=remap", "-device", "virtio-9p-pci,fsdev=share,mount_tag=share"]


def network_arguments(network):
    """A network card. The box is 10.0.2.15; 10.0.2.2 is the host's loopback, if allowed."""
    if network == NETWORK_NONE:
        return []
    restrict = {NETWORK_ISOLATED: "on", NETWORK_LOOPBACK: "off"}[network]
    return ["-netdev", f"user,id=n0,ipv6=off,restrict={restrict}", "-device", "e1000,netdev=n0"]
