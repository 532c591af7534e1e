#!/usr/bin/env python3
"""plain_calls_test.py files|mysql EVERY[+SEED] QVMAILCTL INJECT PLAIN_CALL [TEST ...] - hosts without transactions

Runs inside scripts/private-world. Each changing operation of the library is interrupted at each change that
it, or a tool that it runs, makes of a file. From each state that is left, "check --repair" and a repetition of
the operation must come to the state that it is to make, with nothing for check to find.

EVERY as in faults_test.py.
"""

import collections, itertools, json, os, shutil, subprocess, sys, time, unittest

import faults_test
from faults_test import BACKEND, COUNTS, ETC, EVERY, INJECT, SEED, differences, qvmailctl, state

PLAIN_CALL = sys.argv.pop(5)
CALLS = {  # and the command that finishes each
    "CreateMailDomain cab.test boss 7168": "domain add cab.test boss --quota 7168 --take-over",
    "DeleteMailDomain ab.test": "domain delete ab.test --yes",
    "CreateMailbox b.test dcba 7168": "mailbox add dcba@b.test --quota 7168 --take-over",
    "DeleteMailbox dba ab.test": "mailbox delete dba@ab.test --yes",
    "UpdateMailbox dba@ab.test changed UpdatePasswd": "mailbox passwd dba@ab.test",
    "VQuota dba@ab.test 7168 UpdateQuota": "quota set dba@ab.test 7168",
    "VQuota dba@ab.test 0 DeleteQuota": "quota delete dba@ab.test",
    "VAlias ainfo@b.test ba@ab.test AddAlias": "alias add ainfo@b.test ba@ab.test",
    "VAlias info@ab.test ba@ab.test UpdateAlias": "alias set info@ab.test ba@ab.test",
    "VAlias info@ab.test  DeleteAlias": "alias delete info@ab.test --yes",
    "VList ateam@b.test AddList a@b.test ba@b.test": "list add ateam@b.test a@b.test ba@b.test",
    "VList team@b.test UpdateList a@b.test y@else.test": "list set team@b.test a@b.test y@else.test",
    "VList team@b.test DeleteList": "list delete team@b.test --yes",
    "UpdateCatchAllAddress ab.test ba": "catchall set ab.test ba",
    "RemoveCatchAllAddress b.test": "catchall remove b.test --yes"}
if BACKEND == "files":
    CALLS["UpdateMailbox dba@ab.test admin UpdateUserType"] = "mailbox type dba@ab.test admin"
FOR_A_PERSON = {"domain-half-made", "domain-not-hosted", "tree-without-domain", "alias-not-hosted", "alias-astray",
                "mail-without-mailbox", "route-without-mailbox", "quota-without-mailbox", "map-missing"}  # finish it, or take it back
KINDS = ["kill", "--children kill", "--children killmain", "--children killall", "ENOSPC", "EIO", "--children ENOSPC",
         "--children EACCES", "--starts EAGAIN", "--starts ENOENT"]
if BACKEND == "mysql":
    KINDS += ["--sockets kill", "--sockets EIO"]


def call(words, prefix=()):
    return subprocess.run([*prefix, PLAIN_CALL, BACKEND, *words.split(" ")], text=True, capture_output=True)


def findings():
    """Without those of the servers, whose settings are not what this is about."""
    found = json.loads(qvmailctl("--json check").stdout)["result"]["findings"]
    return sorted({(each["kind"], each["place"], each["name"]) for each in found} - {*AT_FIRST})


def served():
    """Without what makes no difference: modes that check finds no fault in, the mark between members, tables of maps that
    nobody reads."""
    return {place: [line.replace(",", " ") for line in lines if not line.startswith("mode ")]
            for place, lines in state().items()
            if BACKEND == "files" or not place.endswith(".db")}


def let_a_minute_pass():
    """As the work file of a program that may still be at work is left alone."""
    for path in (*ETC.iterdir(), *ETC.parent.glob("VirtualHosts*")):
        if "temp" in path.name or "tmp" in path.name:
            os.utime(path, (time.time() - 120, time.time() - 120))


class PlainCalls(unittest.TestCase):
    def test_check_mends_what_is_left(self):
        here, faults, kinds = faults_test.world(faults_test.NO_QUOTA_FIELDS), [], collections.Counter()
        here.restore()
        AT_FIRST.extend(findings())
        for number, (words, command) in enumerate(CALLS.items()):
            here.restore()
            done = call(words)
            self.assertTrue(done.returncode == 0 and state() != here.old, words + done.stderr)
            qvmailctl("check --repair")
            qvmailctl(command)
            new, seen = served(), {str(here.old)}
            self.assertEqual([], findings())
            kinds_apart, points_apart = min(EVERY, len(KINDS)), max(1, EVERY // len(KINDS))
            for kind in KINDS[(SEED + number) % kinds_apart::kinds_apart]:
                for point in itertools.count(1 + (SEED + number) % points_apart, points_apart):
                    here.restore()
                    done = call(words, (INJECT, *kind.split(), str(point)))
                    self.assertNotEqual(125, done.returncode, done.stderr)
                    if "inject: " not in done.stderr:
                        break
                    COUNTS["interruptions of plain calls"] += 1
                    left = state()
                    if str(left) in seen:
                        continue
                    seen.add(str(left))
                    COUNTS["states left"] += 1
                    if wrong := self.not_mended(command, new, kinds):
                        faults.append(f"\n  {words}, {kind} {point}: {done.stderr.strip()}\n    left:{differences(here.old, left)}{wrong}")
        print("what check found in them:", dict(kinds), file=sys.stderr)
        if faults:
            self.fail(f"{len(faults)} of {COUNTS['states left']} states are not mended:" + "".join(faults[:40]))

    def not_mended(self, command, new, kinds):
        let_a_minute_pass()
        kinds.update({each[0] for each in findings()} or {"nothing"})
        repaired = qvmailctl("check --repair")
        kept = [each for each in findings() if each[0] not in FOR_A_PERSON]
        wrong = f"\n    check --repair answers {repaired.returncode} {repaired.stderr} and leaves {kept}" if kept else ""
        for kind, place, _ in findings():
            if kind == "map-missing":  # of several work files: the person takes the copy that the finding names
                shutil.copy(place + ".qvbackup", place)
        again = qvmailctl(command)
        if again.returncode == faults_test.EXISTS and "--take-over" in command and served() != new:
            what, _, name, *_ = command.split()  # completed, without what only its caller knows
            qvmailctl(f"{what} delete {name} --yes")
            again = qvmailctl(command)
        end, then = findings(), served()
        if again.returncode not in (0, *faults_test.DONE_ALREADY) or end or then != new:
            wrong += f"\n    {command}: {again.returncode} {again.stderr}, check finds {end}{differences(new, then)}"
        return wrong


AT_FIRST = []
setUpModule, tearDownModule = faults_test.setUpModule, faults_test.tearDownModule

if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]], verbosity=2)
