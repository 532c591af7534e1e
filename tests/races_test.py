#!/usr/bin/env python3
"""races_test.py QVMAILCTL [OPTION ...] - many administrators at once, and servers that look all the time

Runs inside scripts/private-world, with Dovecot as config/ has it. The options go to each qvmailctl.
Mailboxes and forwarders with colliding names come and go, eight commands at a time; meanwhile those that
nobody touches must be found at every single look, and in the end there is what the commands said.
"""

import collections
import contextlib
import ctypes
import json
import os
import random
import struct
import subprocess
import sys
import threading
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from private_world import TOP

QVMAILCTL = sys.argv[1:]
COMMANDS, AT_ONCE, SECONDS = 200, 8, 35
NOT_THERE, EXISTS, BUSY = 67, 73, 75  # exit statuses
DOMAINS, USERS = ("b.test", "ab.test"), ("a", "ba", "cba")
ETC = Path("/etc/vmail")


def run(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, stdin=subprocess.DEVNULL)


def qvmailctl(words):
    return subprocess.run([*QVMAILCTL, *words.split()], input="secret\n", text=True, capture_output=True)


class Disappearances:
    """Of a file's name, be it for a microsecond: the kernel notes them."""
    DELETED_OR_MOVED_AWAY, NO_WAITING = 0x200 | 0x40, os.O_NONBLOCK

    def __init__(self, *directories):
        libc = ctypes.CDLL(None)
        self.descriptor = libc.inotify_init1(self.NO_WAITING)
        for directory in directories:
            assert libc.inotify_add_watch(self.descriptor, os.fsencode(directory), self.DELETED_OR_MOVED_AWAY) > 0

    def names(self):
        with contextlib.suppress(BlockingIOError):
            while True:
                events = os.read(self.descriptor, 1 << 16)
                while events:
                    length = struct.unpack("iIII", events[:16])[3]
                    yield events[16:16 + length].rstrip(b"\0").decode()
                    events = events[16 + length:]


def looks(domain):
    """Each kind of look-up, and whether it finds what nobody touches."""
    mailbox, forwarder = f"keep@{domain}", f"info@{domain}"
    return {
        "postmap -q, mailbox": lambda: mailbox in run("postmap", "-q", mailbox, ETC / "vmaps.txt").stdout,
        "postmap -q, forwarder": lambda: mailbox in run("postmap", "-q", forwarder, ETC / "valias.txt").stdout,
        "doveadm user": lambda: run("doveadm", "user", mailbox).returncode == 0,
        "doveadm auth test": lambda: run("doveadm", "auth", "test", mailbox, "secret").returncode == 0}


class Races(unittest.TestCase):
    def test_nobody_is_missed_and_nothing_is_lost(self):
        for domain in DOMAINS:
            for words in (f"domain add {domain} keep --quota 1M", f"alias add info@{domain} keep@{domain}"):
                done = qvmailctl(words)
                self.assertEqual(0, done.returncode, words + done.stderr)
        for look in (look for domain in DOMAINS for look in looks(domain).values()):
            while not look():  # Dovecot looks at a changed file once a second
                self.assertLess(time.monotonic() - STARTED, 20)

        made, missed, statuses, ended = (collections.Counter() for _ in range(4))
        present = collections.Counter()  # additions less deletions that were done
        disappearances = Disappearances("/etc", ETC)
        begin, counting = time.monotonic(), threading.Lock()

        def read(name, look):
            while not ended:
                found = look()
                with counting:
                    made[name] += 1
                    missed[name] += not found

        def write(words):
            if time.monotonic() - begin > SECONDS:
                return
            done = qvmailctl(words)
            thing, action, address = words.split()[:3]
            with counting:
                statuses[done.returncode] += 1
                if done.returncode == 0:
                    present[thing, address] += {"add": 1, "delete": -1}[action]
                elif done.returncode not in (NOT_THERE, EXISTS, BUSY):
                    complaints.append(f"{words}: {done.stderr}")

        complaints, chance = [], random.Random(1)
        addresses = [f"{user}@{domain}" for user in USERS for domain in DOMAINS]
        changes = []
        for _ in range(COMMANDS):
            thing, address = chance.choice(("mailbox", "alias")), chance.choice(addresses)
            name = address if thing == "mailbox" else "to" + address
            changes.append(f"{thing} {chance.choice(('add', 'delete'))} {name}")
        changes = [words + {"mailbox add": " --quota 5M", "alias add": " keep@b.test"}.get(" ".join(words.split()[:2]), " --yes")
                   for words in changes]
        readers = [threading.Thread(target=read, args=item) for domain in DOMAINS for item in looks(domain).items()]
        for reader in readers:
            reader.start()
        with ThreadPoolExecutor(AT_ONCE) as writers:
            list(writers.map(write, changes))
        ended["yes"] = 1
        for reader in readers:
            reader.join()
        print(f"{sum(statuses.values())} commands in {time.monotonic() - begin:.0f} s, statuses {dict(statuses)}; "
              f"look-ups {dict(made)}, missed {dict(missed)}", file=sys.stderr)
        print("reliability:", json.dumps({"commands": sum(statuses.values()), "look-ups": sum(made.values())}), file=sys.stderr)

        served = "VirtualHosts vpasswd vshadow vmaps.txt valias.txt vquota.txt vmaps.txt.db valias.txt.db vquota.txt.db".split()
        gone = collections.Counter(name for name in disappearances.names() if name in served)

        expected = {thing: sorted([address for (kind, address), count in present.items() if kind == thing and count] +
                                  [f"{'keep' if thing == 'mailbox' else 'info'}@{domain}" for domain in DOMAINS])
                    for thing in ("mailbox", "alias")}
        for file, thing in (("vmaps.txt", "mailbox"), ("valias.txt", "alias"), ("vquota.txt", "mailbox"),
                            ("vpasswd", "mailbox"), ("vshadow", "mailbox")):
            lines = [line for line in (ETC / file).read_text().splitlines() if line]
            self.assertEqual(expected[thing], sorted(line.replace(":", " ").split()[0] for line in lines), file)
            if file.endswith(".txt"):
                entries = run("postmap", "-s", ETC / file).stdout.splitlines()
                self.assertEqual(sorted(line.split() for line in lines), sorted(entry.split() for entry in entries), file)
        for domain in DOMAINS:
            homes = sorted(home.name for home in Path(f"/var/spool/vmail/{domain}/mail/home").glob("*@*"))
            self.assertEqual([address for address in expected["mailbox"] if address.endswith("@" + domain)], homes)
        self.assertEqual([], complaints)
        self.assertGreater(statuses[0], COMMANDS / 10)
        self.assertTrue("--wait" not in QVMAILCTL or statuses[BUSY] == 0, "some have not waited")
        self.assertEqual((0, {}), (sum(missed.values()), gone), f"missed: {dict(missed)}; files that were gone for a moment")


STARTED = time.monotonic()

if __name__ == "__main__":
    started = run(TOP / "scripts/start-mail-servers", "files", QVMAILCTL[0])
    assert started.returncode == 0, started.stdout
    unittest.main(argv=sys.argv[:1], verbosity=2)
