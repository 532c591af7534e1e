#!/usr/bin/python3
"""move.py QVMAILCTL - export and import, from files into the database and back, inside scripts/private-world"""
import json, os, pty, re, subprocess, sys, unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from answers import TestCase, maps
from private_world import (ETC, EXISTS, FILES, LIST, MYSQL, NOT_THERE, QVMAILCTL, REFUSED, SPOOL, TOP, empty_accounts,
                           output, qvmailctl, sql, without_postfix)

DOCUMENT = Path("/run/document.json")
HASH = "$1$abcdefgh$0123456789012345678901"

# Names that hold each other, a disabled mailbox, an administrator, limits and none, each kind of forward.
WORLD = """domain add b.test boss --quota 1G
domain add ab.test boss
domain add b.test.au boss
mailbox add bob@b.test --quota 2K
mailbox add jim.bob@b.test
mailbox add bob@ab.test --quota 3K
mailbox disable bob@b.test
mailbox type jim.bob@b.test admin
alias add bob@b.test Far.Away@e.test
alias add info@b.test jim.bob@b.test
list add x@ab.test bob@b.test Ann@e.test
list add jim.info@b.test a@e.test b@e.test c@e.test
catchall set b.test jim.bob
catchall set ab.test bob""".splitlines()


def lines_of_maps():
    """In any order and without users' types: an administrator has another group, and a flag of 1."""
    lines = {file: sorted(text.decode().splitlines()) for file, text in maps().items()}
    lines[ETC / "vpasswd"] = [re.sub(":(4008|4101):", ":", line, count=1) for line in lines[ETC / "vpasswd"]]
    lines[ETC / "vshadow"] = [line[:-1] for line in lines[ETC / "vshadow"]]
    return lines


def tables():
    return sql("select name, 1, 1 from virtual_domains union all select email, password, quota from virtual_users "
               "union all select source, destination, 1 from virtual_aliases order by 1, 2")


def document(*mailboxes, **more):
    return {"format": 1, "domains": [{"domain": "b.test", "mailboxes": mailboxes, **more}]}


class Moves(TestCase):
    def setUp(self):
        output("rm", "-rf", SPOOL)
        empty_accounts(FILES)

    def put(self, content, options="--take-over", **how):
        """Imports a document; gives the lines that it answers, sorted."""
        DOCUMENT.write_text(content if isinstance(content, str) else json.dumps(content))
        return sorted(self.ctl(f"import {DOCUMENT} {options}", **how).splitlines())

    def exported(self, says=()):
        plain = json.loads(self.ctl("export", says=says))
        self.assertEqual(plain, self.result("export"))
        return plain

    def world(self):
        self.ctl(*WORLD)
        return self.exported()

    def test_from_files_to_the_database_and_back(self):
        before = self.world()
        text, kept, kept_lines = self.ctl("export"), maps(), lines_of_maps()
        self.assertEqual([], self.put(before, options=""))
        empty_accounts(FILES)
        self.put(before)
        self.assertEqual(text, self.ctl("export"))

        empty_accounts(MYSQL)
        self.put(before, options="", status=EXISTS, says=["--take-over"])
        self.put(before, says=["no user type", "of 4 mailboxes"])
        inside = self.exported()
        self.assertEqual([], self.put(inside, options=""))
        self.assertEqual([], self.put(before, options=""))
        self.assertIn("bob@b.test\t!$1$", tables())
        for part in before["domains"]:
            for mailbox in part["mailboxes"]:
                mailbox["type"] = None
        self.assertEqual(before, inside)

        empty_accounts(FILES)
        self.put(inside)
        self.assertEqual(kept_lines, lines_of_maps())
        self.assertNotEqual(kept, maps())

    def test_what_differs_is_set_and_the_rest_left_alone(self):
        changes = document(
            {"address": "boss@b.test", "quota": None, "type": "user", "password": "verysecret"},
            {"address": "BOB@b.test", "hash": HASH, "quota": 5, "enabled": True, "forwards_to": []},
            {"address": "new@b.test", "password": "verysecret", "quota": 6, "type": "admin", "enabled": False,
             "forwards_to": ["new@b.test", "x@E.test"]},
            catch_all=None, aliases=[{"address": "info@b.test", "targets": ["y@e.test"]}],
            lists=[{"address": "team@b.test", "members": ["a@e.test", "b@e.test", "A@e.test"]}])
        changes["domains"].append({"domain": "c.test"})
        answer = ["added alias new@b.test", "added domain c.test", "added list team@b.test",
                  "added mailbox new@b.test", "added quota new@b.test 6", "changed alias info@b.test y@e.test",
                  "changed mailbox bob@b.test", "changed quota bob@b.test 5", "removed alias bob@b.test",
                  "removed catch-all b.test", "removed quota boss@b.test"]
        before = self.world()
        for settings in FILES, MYSQL:
            empty_accounts(settings)
            self.put(before)
            told = sorted(answer + ["changed mailbox boss@b.test"] * (settings == FILES))
            state = maps(), tables()
            foreseen = self.put(changes, options="--take-over --dry-run")
            self.assertEqual(["dry run: " + line for line in told], foreseen)
            self.assertEqual(state, (maps(), tables()))
            self.assertEqual(told, self.put(changes))
            self.assertEqual([], self.put(changes, options=""))
            after = {m["address"]: m for part in self.exported()["domains"] for m in part["mailboxes"]}
            bob, new = after["bob@b.test"], after["new@b.test"]
            self.assertEqual((HASH, True, []), (bob["hash"], bob["enabled"], bob["forwards_to"]))
            self.assertEqual((6, False, ["new@b.test", "x@e.test"]), (new["quota"], new["enabled"], new["forwards_to"]))
            hashed = output("openssl", "passwd", "-1", "-salt", new["hash"][3:11], "verysecret")
            self.assertEqual(hashed.strip(), new["hash"])
            self.assertIn(after["jim.bob@b.test"]["hash"], json.dumps(before))

    def test_refused_documents(self):
        self.world()
        full = {"address": "u@b.test", "hash": HASH}
        rows = [(document(full | change), f"domains[0].mailboxes[0]{place}: ", why) for change, place, why in (
            ({"quotas": 5}, "", "quotas"), ({"quota": "5"}, ".quota", "bytes"), ({"quota": 0}, ".quota", "no limit"),
            ({"quota": 1.5}, ".quota", "whole"), ({"quota": 1 << 60}, ".quota", "1024T"),
            ({"type": "boss"}, ".type", "user"), ({"enabled": 1}, ".enabled", "true"),
            ({"password": "verysecret"}, "", "not both"), ({"hash": "!" + HASH}, ".hash", "enabled"),
            ({"hash": "a:b"}, ".hash", "colon"), ({"hash": "verysecret"}, ".hash", "password"),
            ({"hash": None}, "", "is new"), ({"hash": None, "password": "verysecret\n"}, ".password", "control"),
            ({"address": "u@c.test"}, ".address", "b.test"), ({"address": "u;v@b.test"}, ".address", "letters"),
            ({"forwards_to": ["x@e.test", "root"]}, ".forwards_to[1]", "USER@DOMAIN"),
            ({"forwards_to": ["U@b.test"]}, ".forwards_to", "itself"),
            ({"forwards_to": "x@e.test"}, ".forwards_to", "array"))]
        alias, two = {"address": "u@b.test", "targets": ["x@e.test"]}, ["a@e.test", "b@e.test"]
        rows += [(document(full, **more), f"domains[0].{place}: ", why) for more, place, why in (
            ({"mailboxes": [full, full]}, "mailboxes[1].address", "mailboxes[0]"),
            ({"domain": "b"}, "domain", "two parts"), ({"aliases": [alias]}, "aliases[0].address", "mailboxes[0]"),
            ({"aliases": [{"address": "l@b.test", "targets": two}]}, "aliases[0].targets", "lists"),
            ({"lists": [{"address": "l@b.test", "members": []}]}, "lists[0].members", "at least one"),
            ({"lists": [{"address": "l@b.test"}]}, "lists[0]", '"members" is missing'),
            ({"catch_all": "no@b.test"}, "catch_all", "no mailbox"),
            ({"catch_all": "u@c.test"}, "catch_all", "b.test"))]
        domains = [{"domain": "d.test"}, {"domain": "D.test"}]
        rows += [({"format": 2, "domains": []}, "format: ", "format 1"), ({"format": 1}, "the document: ", "domains"),
                 ({"format": 1, "domains": domains}, "domains[1].domain: ", "domains[0]"),
                 ('{"format":1,"domains":[{"lists":[],"lists":[]}]}', "domains[0].lists: ", "twice"),
                 ('{"format":1,"domains":[]}\0{"more', "NUL", "byte 26"), ("", "line 1", "end of input"),
                 ('{"format":1,\n"verysecret', "line 2, column 12", "missing closing quote")]
        state = maps()
        for content, place, why in rows:
            with self.subTest(content):
                DOCUMENT.write_text(content if isinstance(content, str) else json.dumps(content))
                said = qvmailctl(f"import {DOCUMENT} --take-over")
                self.assertEqual((REFUSED, ""), (said.returncode, said.stdout), said.stderr)
                self.assertIn(place, said.stderr)
                self.assertIn(why, said.stderr)
                self.assertNotIn("verysecret", said.stderr)
        for content, says in ((document(aliases=[alias | {"address": "bob@b.test"}]), "is a mailbox here"),
                              (document(full | {"address": "info@b.test"}), "alias delete")):
            self.assertEqual([], self.put(content, status=EXISTS, says=[says]))
        self.ctl("import /run/none", status=NOT_THERE, says=["No such file"])
        self.ctl("import /dev/zero", status=REFUSED, says=["a NUL at byte 1"])
        self.assertEqual(state, maps())

    def test_what_is_no_whole_is_named_and_left_out(self):
        before = self.world()
        for name, lines in (("vshadow", f"half@b.test:{HASH}:1::99999::::0\nodd@b.test:x:1::99999::::0\n"),
                            ("vpasswd", "odd@b.test:x:1:2::/h:/s\n"), ("vquota.txt", "gone@b.test\t5\n"),
                            ("valias.txt", "a@c.test x@e.test\nl@b.test root\n"),
                            ("vmaps.txt", "@c.test c.test/mail/inbox/u@c.test\n")):
            with open(ETC / name, "a") as file:
                file.write(lines)
        LIST.write_text(LIST.read_text().replace("b.test.au\n", "bad_name.test\n"))
        before["domains"] = [part for part in before["domains"] if part["domain"] != "b.test.au"]
        says = ("half@b.test", "mailbox odd@b.test is left out: this is no hash", "forwarder a@c.test",
                '"root", where l@b.test leads to', "forwarder l@b.test", "quota of gone@b.test",
                "catch-all of c.test", "boss@b.test.au", "bad_name.test")
        self.assertEqual(before, self.exported(says))

    def test_a_thousand_from_standard_input(self):
        many = [{"address": f"u{i}@b.test", "password": f"pw{i}", "quota": 1000 + i} for i in range(1000)]
        for settings in FILES, MYSQL:
            empty_accounts(settings)
            screen, terminal = pty.openpty()
            done = subprocess.run([QVMAILCTL, "import", "-", "--take-over"], input=json.dumps(document(*many)),
                                  text=True, stdout=subprocess.PIPE, stderr=terminal, check=True)
            self.assertEqual(2001, done.stdout.count("added "))
            self.assertTrue(re.search(r"\[#{40}\] 1000 of 1000\r *\r$", os.read(screen, 9999).decode()))
            there = self.exported()["domains"][0]["mailboxes"]
            self.assertEqual({m["address"]: m["quota"] for m in many}, {m["address"]: m["quota"] for m in there})
        home = SPOOL / "b.test/mail/home/u999@b.test"
        self.assertIn("drwxrwsrwx qvadmin", output("stat", "-c", "%A %U", home))


del sys.argv[1]
output(TOP / "scripts/start-mariadb")
without_postfix()
unittest.main()
