#!/usr/bin/env python3
"""races_test.py files|mysql COMMANDS QVMAILCTL PANEL - many administrators and a panel at once, and servers that look

Runs inside scripts/private-world, with the servers as config/ has them. All commands are started at the same moment:
half of them about a mailbox or a forwarder of their own, half about few with colliding names, which come and go.
Meanwhile those that nobody touches must be found at every single look, and in the end there is what the commands said.
"""

import collections, contextlib, ctypes, json, os, random, struct, subprocess, sys, threading, time, unittest

from private_world import ETC, EXISTS, NOT_THERE, SPOOL, TOP, output, qvmailctl, start

BACKEND, COMMANDS, PANEL = sys.argv[1], int(sys.argv[2]), sys.argv[4]
DOMAINS = "b.test", "ab.test"
FEW = "a@b.test", "ba@b.test", "cba@b.test", "a@ab.test", "ba@ab.test", "cba@ab.test"
SERVED = ("VirtualHosts", "vpasswd", "vshadow", "vmaps.txt", "valias.txt", "vquota.txt",
          "vmaps.txt.db", "valias.txt.db", "vquota.txt.db")


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
    if BACKEND == "files":
        mailboxes, aliases = ETC / "vmaps.txt", ETC / "valias.txt"
    else:
        mailboxes, aliases = (f"mysql:/etc/postfix/sql-{what}.cf" for what in ("mailboxes", "aliases"))

    def finds(*command):
        return lambda: subprocess.run(command, capture_output=True, stdin=subprocess.DEVNULL).returncode == 0

    return {"postmap -q, mailbox": finds("postmap", "-q", mailbox, mailboxes),
            "postmap -q, forwarder": finds("postmap", "-q", forwarder, aliases),
            "doveadm user": finds("doveadm", "user", mailbox),
            "doveadm auth test": finds("doveadm", "auth", "test", mailbox, "secret")}


def random_change(chance, number):
    """Words of a command, the address it is about, and whether no other command is about it."""
    is_own = number % 2 == 0
    thing, action = chance.choice(("mailbox", "alias")), "add" if is_own else chance.choice(("add", "delete"))
    address = f"own{number}@b.test" if is_own else chance.choice(FEW)
    address = address if thing == "mailbox" else "to" + address
    more = "--yes" if action == "delete" else "--quota 5M" if thing == "mailbox" else "keep@b.test"
    return f"{thing} {action} {address} {more}", (thing, address), is_own


class Races(unittest.TestCase):
    def done(self, words):
        done = qvmailctl(words)
        self.assertEqual(0, done.returncode, words + done.stderr)
        return done.stdout

    def look(self, name, finds):
        while not self.all_have_ended:
            found = finds()
            with self.counting:
                self.made[name] += 1
                self.missed[name] += not found

    def test_nobody_is_missed_and_nothing_is_lost(self):
        for domain in DOMAINS:
            self.done(f"domain add {domain} keep --quota 1M")
            self.done(f"alias add info@{domain} keep@{domain}")
        all_looks, begin = [item for domain in DOMAINS for item in looks(domain).items()], time.monotonic()
        for _, finds in all_looks:
            while not finds():  # Dovecot looks at a changed file once a second
                self.assertLess(time.monotonic() - begin, 20)

        self.made, self.missed = collections.Counter(), collections.Counter()
        self.counting, self.all_have_ended = threading.Lock(), False
        disappearances, begin, chance = Disappearances("/etc", ETC), time.monotonic(), random.Random(7)
        readers = [threading.Thread(target=self.look, args=item) for item in all_looks]
        for reader in readers:
            reader.start()
        panel = subprocess.Popen([PANEL, "30"], stderr=subprocess.PIPE, text=True)
        changes = [random_change(chance, number) for number in range(COMMANDS)]
        running = [start(words + " --wait 600", stdin=open("/run/password"), stdout=subprocess.DEVNULL)
                   for words, _, _ in changes]

        statuses, present = collections.Counter(), collections.Counter()  # additions less deletions that were done
        for (words, place, is_own), process in zip(changes, running):
            said = process.communicate()[1]
            statuses[process.returncode] += 1
            self.assertIn(process.returncode, (0,) if is_own else (0, NOT_THERE, EXISTS), words + said)
            if process.returncode == 0:
                present[place] += 1 if " add " in words else -1
        by_panel = panel.communicate()[1].split()
        self.all_have_ended = True
        for reader in readers:
            reader.join()
        self.assertEqual((0, 20), (panel.returncode, len(by_panel)), by_panel)
        print(f"{COMMANDS} commands on {BACKEND} in {time.monotonic() - begin:.0f} s, statuses {dict(statuses)}; "
              f"look-ups {dict(self.made)}, missed {dict(self.missed)}", file=sys.stderr)
        print("reliability:", json.dumps({"commands at once": COMMANDS, "look-ups": sum(self.made.values())}))

        present.update([("mailbox", address) for address in (*by_panel, *(f"keep@{domain}" for domain in DOMAINS))] +
                       [("alias", "to" + address) for address in by_panel] +
                       [("alias", f"info@{domain}") for domain in DOMAINS])
        self.assertLessEqual({*present.values()}, {0, 1})
        for thing in "mailbox", "alias":
            expected = sorted(address for (kind, address), count in present.items() if kind == thing and count)
            self.assertEqual(expected, self.done(f"{thing} list").splitlines())
            if thing == "mailbox":
                self.assertEqual(expected, sorted(home.name for home in SPOOL.glob("*/mail/home/*@*")))
        self.assertGreater(statuses[0], COMMANDS / 2)
        self.done("check")  # each map and table against the others
        gone = {name for name in disappearances.names() if name in SERVED}
        self.assertEqual((0, set()), (sum(self.missed.values()), gone), f"missed: {dict(self.missed)}")


if __name__ == "__main__":
    with open("/run/password", "w") as file:
        file.write("secret\n")
    if BACKEND == "mysql":
        output(TOP / "scripts/start-mariadb", "empty")
    output(TOP / "scripts/start-mail-servers", BACKEND, sys.argv[3])
    unittest.main(argv=sys.argv[:1], verbosity=2, warnings="ignore")
