#!/usr/bin/env python3
"""load_test.py files|mysql COMMANDS QVMAILCTL PANEL - very many commands at once, and a panel beside them

Runs inside scripts/private-world. All commands are started at the same moment: half of them about a mailbox or a
forwarder of their own, half about few, which come and go. In the end there is what they have said, and nothing else.
"""

import collections
import json
import random
import subprocess
import sys
import time
import unittest
from pathlib import Path

from private_world import TOP

BACKEND, COMMANDS, QVMAILCTL, PANEL = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4]
NOT_THERE, EXISTS = 67, 73  # exit statuses
FEW = "a@b.test", "ba@b.test", "a@ab.test", "ba@ab.test"
SEED = 7


def start(words):
    return subprocess.Popen([QVMAILCTL, *words.split(), "--wait", "600"], text=True, stdin=open("/run/password"),
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def lines_of(words):
    return subprocess.run([QVMAILCTL, *words.split()], text=True, stdout=subprocess.PIPE, check=True).stdout.splitlines()


class Load(unittest.TestCase):
    def test_all_at_once(self):
        for domain in "b.test", "ab.test":
            done = start(f"domain add {domain} keep")
            self.assertEqual(("", 0), (done.communicate()[1], done.returncode))
        chance, changes = random.Random(SEED), []
        for number in range(COMMANDS):
            own = number % 2 == 0
            thing, address = chance.choice(("mailbox", "alias")), f"own{number}@b.test" if own else chance.choice(FEW)
            action = "add" if own else chance.choice(("add", "delete"))
            name = address if thing == "mailbox" else "to" + address
            end = " --yes" if action == "delete" else " keep@b.test" if thing == "alias" else " --quota 5M"
            changes.append((thing, action, name, own, end))

        begin = time.monotonic()
        panel = subprocess.Popen([PANEL, "30"], stderr=subprocess.PIPE, text=True)
        running = [(change, start("{0} {1} {2}{4}".format(*change))) for change in changes]
        statuses, present = collections.Counter(), collections.Counter()
        for (thing, action, name, own, _), process in running:
            said = process.communicate()[1]
            statuses[process.returncode] += 1
            self.assertIn(process.returncode, (0,) if own else (0, NOT_THERE, EXISTS), f"{thing} {action} {name}: {said}")
            present[thing, name] += {"add": 1, "delete": -1}[action] * (process.returncode == 0)
        made = panel.communicate()[1].split()
        self.assertEqual((0, 20), (panel.returncode, len(made)), made)
        print(f"{COMMANDS} commands on {BACKEND} in {time.monotonic() - begin:.0f} s, statuses {dict(statuses)}", file=sys.stderr)

        mailboxes = sorted([name for (thing, name), count in present.items() if thing == "mailbox" and count] +
                           ["keep@b.test", "keep@ab.test"] + made)
        forwarders = sorted([name for (thing, name), count in present.items() if thing == "alias" and count] +
                            ["to" + address for address in made])
        self.assertEqual({0, 1}, {*present.values()} | {0, 1})
        self.assertEqual(mailboxes, lines_of("mailbox list"))
        self.assertEqual(forwarders, lines_of("alias list"))
        homes = sorted(home.name for home in Path("/var/spool/vmail").glob("*/mail/home/*@*"))
        self.assertEqual(mailboxes, homes)
        checked = subprocess.run([QVMAILCTL, "check", "--json"], text=True, stdout=subprocess.PIPE)
        areas = {finding["place"] for finding in json.loads(checked.stdout)["result"]["findings"]
                 if finding["kind"] != "map-rights"}  # Dovecot is not set up here
        self.assertFalse([place for place in areas if "vmail/v" in place or "virtual_" in place or "spool" in place], checked.stdout)
        print('reliability: {"commands at once": %d}' % COMMANDS)


if __name__ == "__main__":
    Path("/run/password").write_text("secret\n")
    if BACKEND == "mysql":
        subprocess.check_call([TOP / "scripts/start-mariadb"])
    Path("/etc/Quorvel.conf").write_text((TOP / f"config/Quorvel-{BACKEND}.conf").read_text())
    Path("/etc/Quorvel.conf").chmod(0o600)
    Path("/etc/postfix").mkdir(exist_ok=True)
    Path("/etc/postfix/main.cf").write_text("")
    subprocess.check_call(["touch", "-d", "@1", "/etc/postfix/main.cf"])
    subprocess.check_call(["mount", "--bind", "/bin/true", "/usr/sbin/postfix"])
    subprocess.check_call([TOP / "config/create-empty-maps"])
    unittest.main(argv=sys.argv[:1], verbosity=2, warnings="ignore")
