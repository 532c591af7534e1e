#!/usr/bin/env python3
"""power_cuts_test.py files|mysql EVERY[+SEED] QVMAILCTL INJECT [TEST ...] - the power fails

Runs inside scripts/private-world, with /etc and the spool on images of ext4 with its defaults. A power cut
is a copy of both images, taken while nothing of them is written back. The next boot mounts the copies. How
much the disk had got by itself is tried in each way: what others sync, and a file system's own clock, take
along the names of all files, but not their content. The database is another machine's and keeps its power.

EVERY as in faults_test.py.
"""

import contextlib, itertools, os, subprocess, sys, unittest
from pathlib import Path

import faults_test
from faults_test import ABOUT_QUOTAS, BACKEND, COMMANDS, COUNTS, EVERY, INJECT, SEED, SPOOL, run

tearDownModule = faults_test.tearDownModule
DISKS = {Path("/run/etc.image"): Path("/etc"), Path("/run/spool.image"): SPOOL}
AFTER_CUT = Path("/run/after-cut")
SYNCED_BY_OTHERS = {"nothing": (), "/etc": ("/etc",), "the spool": (SPOOL,), "both": ("/etc", SPOOL)}


def mount(image, place):
    run("mount", "-o", "loop", image, place)


def sync(places):
    """As another program's fsync: commits the file system's journal, with no other file's content."""
    for place in places:
        os.utime(place)
        directory = os.open(place, os.O_RDONLY)
        os.fsync(directory)
        os.close(directory)


@contextlib.contextmanager
def on_disk():
    """What is there when the command begins has been there for long."""
    for place in DISKS.values():
        run("sync", "-f", place)
    yield


@contextlib.contextmanager
def after_a_cut(synced):
    sync(SYNCED_BY_OTHERS[synced])
    for image in DISKS:
        run("cp", "--sparse=always", image, AFTER_CUT / image.name)
    for image, place in DISKS.items():
        mount(AFTER_CUT / image.name, place)
    yield
    for place in DISKS.values():
        run("umount", "--lazy", place)


class PowerCuts(faults_test.Interruptions):
    def cut(self, words, quota_fields, synced, *prefix):
        self.points = self.points if prefix else 2 * (self.points // 2)
        what = f"{' '.join(map(str, prefix[1:])) or 'cut after its end'}, synced by others: {synced}"
        done = self.outcome(what, faults_test.world(quota_fields), words, prefix, on_disk(), later=after_a_cut(synced))
        COUNTS["images"] += len(DISKS)
        return done

    def worlds(self):
        yield from enumerate((words, faults_test.NO_QUOTA_FIELDS) for words in COMMANDS)
        if BACKEND == "files":
            yield from enumerate((words, faults_test.QUOTA_FIELDS) for words in ABOUT_QUOTAS)

    def test_at_its_end(self):
        for number, (words, quota_fields) in self.worlds():
            for synced in [*SYNCED_BY_OTHERS][(SEED + number) % min(EVERY, 4)::EVERY]:
                self.cut(words, quota_fields, synced)

    def test_before_each_change(self):
        for number, (words, quota_fields) in self.worlds():
            for trial in itertools.count((SEED + number) % EVERY, EVERY):
                synced = [*SYNCED_BY_OTHERS][trial % len(SYNCED_BY_OTHERS)]
                done = self.cut(words, quota_fields, synced, INJECT, "kill", str(1 + trial // len(SYNCED_BY_OTHERS)))
                if "inject: " not in done.stderr:
                    break

    def test_the_images_show_what_was_not_synced(self):
        for synced in ("nothing", "/etc", "the spool") if BACKEND == "files" else ("nothing", "/etc"):
            self.faults.clear()
            self.cut("mailbox add dcba@b.test --quota 7K", faults_test.NO_QUOTA_FIELDS, synced,
                     INJECT, "--syncs", "pretend", "0")
            self.assertTrue(self.faults, synced)
        self.faults.clear()


def setUpModule():
    AFTER_CUT.mkdir()
    for image, place in DISKS.items():
        used = int(run("du", "-sm", place).split()[0])
        run("truncate", "-s", f"{used * 2 + 16}M", image)
        run("mkfs.ext4", "-q", image)
        made = Path(str(image) + ".made")
        made.mkdir()
        mount(image, made)
        run("cp", "-aT", place, made)
        run("mount", "--move", made, place)
    faults_test.setUpModule()


def make_loop_devices():
    """A private world has no devices but those that all need."""
    devices = {f"/dev/loop{number}": (0o60600, os.makedev(7, number)) for number in range(64)}
    devices["/dev/loop-control"] = 0o20600, os.makedev(10, 237)
    for device, (mode, number) in devices.items():
        with contextlib.suppress(FileExistsError):
            os.mknod(device, mode, number)
    if subprocess.call(["losetup", "--find"], stdout=subprocess.DEVNULL) != 0:
        sys.exit("power_cuts_test.py: this machine has no loop devices; load the module, or use a virtual machine")


if __name__ == "__main__":
    make_loop_devices()
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]], verbosity=2)
