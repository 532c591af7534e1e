#!/usr/bin/env python3
"""cuts_test.py EVERY[+SEED] QVMAILCTL cut|silence - a database that is cut off or silent, at any packet

Runs inside scripts/private-world. Each command talks to the database through a proxy, which at the first packet, at
the second, and so on, in either direction, cuts the connection, stops or goes silent, before the packet or in the
middle of it (of every second packet, for silences). A query gives the right answer or none; a change is made, or
not, as its status says, is known to the next command, and succeeds when it is repeated. Nobody waits for longer than
the settings allow.

EVERY is 1 for all; 9 for a ninth of them, 9+1 to 9+8 for the others.
"""

import collections, contextlib, itertools, json, socket, sys, threading, time, unittest

EVERY, SEED = map(int, f"{sys.argv[1]}+0".split("+")[:2])
sys.argv[1:3] = ["mysql", "1", sys.argv[2], "no injections"]

import faults_test as faults

from private_world import NOT_WRITTEN, UNREACHABLE

LIMIT = 1  # seconds, for a connection and for an answer
LONGEST = 8  # of a command: it may wait for a connection, an answer, and the same again to ask what became of a commit
PROXY, SERVER = ("127.0.0.1", 3307), ("127.0.0.1", 3306)
KINDS = {"cut": ("cut", "cut within", "stop", "stop within"), "silence": ("silence",)}[sys.argv[5]]
QUERIES = ("domain list", "domain show b.test", "domain quota ab.test", "mailbox list", "mailbox count b.test",
           "mailbox show cba@b.test", "quota show cba@b.test", "alias list", "alias list a@b.test",
           "alias show info@b.test", "list list", "list show team@b.test", "catchall show b.test", "search b.test",
           "export", "check", "mailbox delete cba@b.test --yes --dry-run")


class Proxy:
    """Hands on packets, until the one that it was told; each direction of a connection has a thread."""

    def __init__(self):
        self.lock, self.listener, self.ends, self.point = threading.Lock(), None, [], 0
        self.begin(0, "")

    def begin(self, point, how):
        """Forgets all connections, and does that at the packet of that number."""
        with self.lock:
            self.hang_up()
            self.point, self.how, self.passed = point, how, 0
            if not self.listener:
                self.listener = socket.create_server(PROXY)
                threading.Thread(target=self.accept, args=[self.listener], daemon=True).start()

    def hang_up(self):
        while self.ends:
            with contextlib.suppress(OSError):  # shut already
                self.ends.pop().shutdown(socket.SHUT_RDWR)

    def accept(self, listener):
        with contextlib.suppress(OSError):  # it stops
            while True:
                ends = listener.accept()[0], socket.create_connection(SERVER)
                for end in ends:
                    end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                with self.lock:
                    self.ends += ends
                for here, there in (ends, ends[::-1]):
                    threading.Thread(target=self.hand_on, args=(here, there), daemon=True).start()

    def hand_on(self, here, there):
        with contextlib.suppress(OSError), here.makefile("rb") as packets:
            while head := packets.read(4):
                packet = head + packets.read(int.from_bytes(head[:3], "little"))
                with self.lock:
                    if here not in self.ends:  # of a former command
                        return
                    self.passed += 1
                    if self.passed == self.point:
                        return self.interrupt(there, packet)
                    if self.passed < self.point or self.how != "silence":
                        there.sendall(packet)
        there.close()
        here.close()

    def interrupt(self, there, packet):
        is_within = "within" in self.how or (self.how == "silence" and self.point % 2)
        there.sendall(packet[:len(packet) // 2 if is_within else 0])
        if self.how != "silence":
            self.hang_up()
        if "stop" in self.how:
            self.listener.shutdown(socket.SHUT_RDWR)
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

    def test_changes(self):
        self.interrupted(faults.COMMANDS, KINDS, lambda words, how, proxy: self.outcome(how, HERE, words, (), proxy))

    def test_queries(self):
        def ask(words, how, proxy):
            with proxy:
                done = faults.qvmailctl(words)
            self.points += 1
            right = answers[words]
            is_right = (done.returncode, done.stdout) == (right.returncode, right.stdout)
            if not is_right and (done.returncode not in (UNREACHABLE, NOT_WRITTEN) or done.stdout):
                self.faults.append(f"\n  {words}, {how}: {done}\n    where it should be {right}")

        HERE.restore()
        answers = {words: faults.qvmailctl(words) for words in QUERIES}
        self.interrupted(QUERIES, KINDS, ask)


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
    unittest.main(argv=sys.argv[:1], verbosity=2)
