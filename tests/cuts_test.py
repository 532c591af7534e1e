#!/usr/bin/env python3
"""cuts_test.py EVERY[+SEED] QVMAILCTL cut|silence - a database that is cut off or silent, within statements and between them

Runs inside scripts/private-world. Each command talks to the database through a proxy, which at the first packet, at
the second, and so on, in either direction, cuts the connection, stops or goes silent, before the packet or in the
middle of it (of every second packet, for silences). A query gives the right answer or none; a change is made, or not, as its status says, is known to the
next command, and succeeds when it is repeated. Nobody waits for longer than the settings allow.

EVERY is 1 for all; 9 for a ninth of them, 9+1 to 9+8 for the others.
"""

import collections
import contextlib
import itertools
import json
import select
import socket
import sys
import threading
import time
import unittest

EVERY, SEED = map(int, f"{sys.argv[1]}+0".split("+")[:2])
sys.argv[1:3] = ["mysql", "1", sys.argv[2], "no injections"]

import faults_test as faults

LIMIT = 1  # seconds, for a connection and for an answer
LONGEST = 8  # of a command: it may wait for a connection, an answer, and the same again to ask what became of a commit
UNREACHABLE, NOT_WRITTEN = 69, 74  # exit statuses
PROXY, SERVER = ("127.0.0.1", 3307), ("127.0.0.1", 3306)
CUTS = "cut", "cut within", "stop", "stop within"
SILENCES = "silence",  # within every second packet
COMMANDS = faults.COMMANDS
QUERIES = """domain list; domain show b.test; domain quota ab.test; mailbox list; mailbox count b.test; mailbox show cba@b.test;
    quota show cba@b.test; alias list; alias list a@b.test; alias show info@b.test; list list; list show team@b.test;
    catchall show b.test; search b.test; export; check; mailbox delete cba@b.test --yes --dry-run"""


class Proxy(threading.Thread):
    """Hands on packets, until the one that it was told."""

    def __init__(self):
        super().__init__(daemon=True)
        self.wake, self.woken = socket.socketpair()
        self.lock, self.listener, self.parts = threading.Lock(), None, {}
        self.begin(0, "")
        self.start()

    def begin(self, point, how):
        """Forgets all connections, and does that at the packet of that number."""
        with self.lock:
            for end in list(self.parts):
                self.close(end)
            if not self.listener:
                self.listener = socket.create_server(PROXY)
            self.point, self.how, self.passed, self.is_silent = point, how, 0, False
        self.wake.send(b".")

    def close(self, end):
        if end in self.parts:
            other = self.parts.pop(end)[0]
            self.parts.pop(other)
            end.close()
            other.close()

    def run(self):
        while True:
            with self.lock:
                ends = [] if self.is_silent else [*self.parts] + [self.listener] * bool(self.listener)
            ready = select.select([self.woken, *ends], [], [])[0]
            with self.lock:
                for end in ready:
                    if end is self.woken:
                        end.recv(100)
                    elif end is self.listener:
                        client, server = end.accept()[0], socket.create_connection(SERVER)
                        for part in client, server:
                            part.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                        self.parts.update({client: (server, bytearray()), server: (client, bytearray())})
                    elif end in self.parts and not self.is_silent:
                        self.hand_on(end)

    def hand_on(self, end):
        other, unsent = self.parts[end]
        try:
            unsent += end.recv(1 << 16) or b"\xff\xff\xff"  # the end, as a packet that never comes
            while len(unsent) >= 4 and len(unsent) >= (size := 4 + int.from_bytes(unsent[:3], "little")):
                self.passed += 1
                if self.passed == self.point:
                    is_within = "within" in self.how or (self.how in SILENCES and self.point % 2)
                    return self.interrupt(end, other, unsent[:size // 2] if is_within else b"")
                other.sendall(unsent[:size])
                del unsent[:size]
            if unsent == b"\xff\xff\xff":
                self.close(end)
        except OSError:
            self.close(end)

    def interrupt(self, end, other, part):
        other.sendall(part)
        self.is_silent = self.how in SILENCES
        if not self.is_silent:
            self.close(end)
        if "stop" in self.how:
            self.listener.close()
            self.listener = None

    @contextlib.contextmanager
    def interrupts(self, point, how):
        self.begin(point, how)
        begin = time.monotonic()
        yield
        self.seconds, self.was_reached = time.monotonic() - begin, self.passed >= point
        self.begin(0, "")


class Cuts(faults.Interruptions):
    def interrupted(self, all_words, kinds, attempt):
        """Each command at each packet in each way, or a part of these."""
        for number, words in enumerate(all_words):
            for trial in itertools.count((SEED + 31 * number) % EVERY, EVERY):
                point, how = 1 + trial // len(kinds), kinds[trial % len(kinds)]
                attempt(words, how, PROXY_AT_WORK.interrupts(point, how))
                if not PROXY_AT_WORK.was_reached:
                    break
                COUNTS[how] += 1
                if PROXY_AT_WORK.seconds > LONGEST:
                    self.faults.append(f"\n  {words}, {how} {point}: it takes {PROXY_AT_WORK.seconds:.1f} s")

    def changes(self, *kinds):
        self.interrupted(COMMANDS, kinds, lambda words, how, proxy: self.outcome(how, HERE, words, (), proxy))

    def queries(self, *kinds):
        def ask(words, how, proxy):
            with proxy:
                done = faults.qvmailctl(words)
            self.points += 1
            right = answers[words]
            is_right = (done.returncode, done.stdout) == (right.returncode, right.stdout)
            if not is_right and (done.returncode not in (UNREACHABLE, NOT_WRITTEN) or done.stdout):
                self.faults.append(f"\n  {words}, {how}: {done}\n    where it should be {right}")

        HERE.restore()
        queries = [words.strip() for words in QUERIES.split(";")]
        answers = {words: faults.qvmailctl(words) for words in queries}
        self.interrupted(queries, kinds, ask)

    def test_changes_are_cut_off(self):
        self.changes(*CUTS)

    def test_changes_meet_silence(self):
        self.changes(*SILENCES)

    def test_queries_are_cut_off(self):
        self.queries(*CUTS)

    def test_queries_meet_silence(self):
        self.queries(*SILENCES)


def setUpModule():
    global HERE, PROXY_AT_WORK
    faults.setUpModule()
    PROXY_AT_WORK = Proxy()
    HERE = faults.World(faults.NO_QUOTA_FIELDS)
    HERE.settings = HERE.settings.replace("3306", str(PROXY[1]))
    for default in '"10"', '"60"':
        HERE.settings = HERE.settings.replace(default, f'"{LIMIT}"')


def tearDownModule():
    faults.CLIENT.communicate("")
    print("reliability: " + json.dumps(COUNTS))


COUNTS = collections.Counter()

if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "-k", sys.argv[5]], verbosity=2)
