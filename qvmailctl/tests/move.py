#!/usr/bin/python3
"""move.py QVMAILCTL - export and import, from files into the database and back, inside scripts/private-world"""
import json, os, pty, re, subprocess, sys, unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from answers import check_result
from private_world import TOP

QVMAILCTL = os.path.abspath(sys.argv.pop(1))
ETC, LIST, CONF = Path("/etc/vmail"), Path("/etc/VirtualHosts"), Path("/etc/Quorvel.conf")
FILES, MYSQL = ((TOP / f"config/Quorvel-{backend}.conf").read_text() for backend in ("files", "mysql"))
DOCUMENT = Path("/run/document.json")
REFUSED, NOT_THERE, EXISTS = 65, 67, 73
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


def output(*command):
    return subprocess.run(command, text=True, stdout=subprocess.PIPE, check=True).stdout


def maps(without_types=False):
    """The lines of all maps, in any order; an administrator has another group, and a flag of 1."""
    lines = {f.name: sorted(f.read_text().splitlines()) for f in (LIST, *ETC.glob("v*")) if f.suffix in ("", ".txt")}
    if without_types:
        lines["vpasswd"] = [re.sub(":(4008|4101):", ":", line, count=1) for line in lines["vpasswd"]]
        lines["vshadow"] = [line[:-1] for line in lines["vshadow"]]
    return lines


def tables():
    return output("mariadb", "qvmail", "-Ne", "select name, 1, 1 from virtual_domains union all select email, password, "
                  "quota from virtual_users union all select source, destination, 1 from virtual_aliases order by 1, 2")


def document(*mailboxes, **more):
    return {"format": 1, "domains": [{"domain": "b.test", "mailboxes": list(mailboxes), **more}]}


class Moves(unittest.TestCase):
    def setUp(self):
        # To reload no mail server takes a second: a stub does. The real postmap would wait while main.cf is new.
        output("sh", "-ec", "mkdir -p /run/stubs; : > /etc/postfix/main.cf; touch -d @1 /etc/postfix/main.cf; "
               "install /dev/null /run/stubs/postfix; rm -rf /var/spool/vmail")
        os.environ["PATH"] = "/run/stubs:/usr/bin:/bin:/usr/sbin"
        self.empty(FILES)

    def empty(self, settings):
        """No accounts on either backend; the spool stays."""
        output("sh", "-ec", f"rm -rf {LIST}* {ETC}; {TOP}/config/create-empty-maps")
        output("mariadb", "qvmail", "-e", "delete from virtual_domains; delete from virtual_users; delete from virtual_aliases")
        CONF.write_text(settings)

    def ctl(self, command, status=0, says=(), stdin="secret\n"):
        done = subprocess.run([QVMAILCTL, *command.split()], input=stdin, text=True, capture_output=True)
        self.assertEqual(status, done.returncode, f"{command}: {done.stdout}{done.stderr}")
        for text in says:
            self.assertIn(text, done.stderr)
        self.assertNotIn("verysecret", done.stdout + done.stderr)
        return done.stdout

    def put(self, content, options="--take-over", **how):
        """Imports a document; gives the lines that it answers, sorted."""
        text = content if isinstance(content, str) else json.dumps(content)
        DOCUMENT.write_text(text)
        return sorted(self.ctl(f"import {DOCUMENT} {options}", **how).splitlines())

    def exported(self, says=()):
        plain = json.loads(self.ctl("export", says=says))
        self.assertEqual({"ok": True, "result": plain}, json.loads(self.ctl("export --json")))
        check_result("export", plain)
        return plain

    def world(self):
        for command in WORLD:
            self.ctl(command)
        return self.exported()

    def test_from_files_to_the_database_and_back(self):
        before = self.world()
        text, kept, kept_maps = self.ctl("export"), maps(), maps(without_types=True)
        self.assertEqual([], self.put(before, options=""))
        self.empty(FILES)
        self.put(before)
        self.assertEqual(text, self.ctl("export"))

        self.empty(MYSQL)
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

        self.empty(FILES)
        self.put(inside)
        self.assertEqual(kept_maps, maps(without_types=True))
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
        answer = ["added alias new@b.test", "added domain c.test", "added list team@b.test", "added mailbox new@b.test",
                  "added quota new@b.test 6", "changed alias info@b.test y@e.test", "changed mailbox bob@b.test",
                  "changed quota bob@b.test 5", "removed alias bob@b.test", "removed catch-all b.test",
                  "removed quota boss@b.test"]
        before = self.world()
        for settings in FILES, MYSQL:
            self.empty(settings)
            self.put(before)
            told = sorted(answer + ["changed mailbox boss@b.test"] * (settings == FILES))
            state = maps(), tables()
            self.assertEqual(["dry run: " + line for line in told], self.put(changes, options="--take-over --dry-run"))
            self.assertEqual(state, (maps(), tables()))
            self.assertEqual(told, self.put(changes))
            self.assertEqual([], self.put(changes, options=""))
            after = {m["address"]: m for part in self.exported()["domains"] for m in part["mailboxes"]}
            self.assertEqual((HASH, True, []), tuple(after["bob@b.test"][k] for k in ("hash", "enabled", "forwards_to")))
            new = after["new@b.test"]
            self.assertEqual((6, False, ["new@b.test", "x@e.test"]), (new["quota"], new["enabled"], new["forwards_to"]))
            self.assertEqual(new["hash"], output("openssl", "passwd", "-1", "-salt", new["hash"][3:11], "verysecret").strip())
            unnamed = [m for part in before["domains"] for m in part["mailboxes"] if "jim" in m["address"]]
            self.assertEqual(unnamed[0]["hash"], after["jim.bob@b.test"]["hash"])

    def test_refused_documents(self):
        self.world()
        full = {"address": "u@b.test", "hash": HASH}
        rows = [(document(full | change), f"domains[0].mailboxes[0]{place}: ", why) for change, place, why in (
            ({"quotas": 5}, "", "quotas"), ({"quota": "5"}, ".quota", "bytes"), ({"quota": 0}, ".quota", "no limit"),
            ({"quota": 1.5}, ".quota", "whole"), ({"quota": 1 << 60}, ".quota", "1024T"), ({"type": "boss"}, ".type", "user"),
            ({"enabled": 1}, ".enabled", "true"), ({"password": "verysecret"}, "", "not both"),
            ({"hash": "!" + HASH}, ".hash", "enabled"), ({"hash": "a:b"}, ".hash", "colon"),
            ({"hash": "verysecret"}, ".hash", "password"), ({"hash": None}, "", "is new"),
            ({"hash": None, "password": "verysecret\n"}, ".password", "control"),
            ({"address": "u@c.test"}, ".address", "b.test"), ({"address": "u;v@b.test"}, ".address", "letters"),
            ({"forwards_to": ["x@e.test", "root"]}, ".forwards_to[1]", "USER@DOMAIN"),
            ({"forwards_to": ["U@b.test"]}, ".forwards_to", "itself"), ({"forwards_to": "x@e.test"}, ".forwards_to", "array"))]
        alias = {"address": "u@b.test", "targets": ["x@e.test"]}
        rows += [(document(full, **more), f"domains[0].{place}: ", why) for more, place, why in (
            ({"aliases": [alias]}, "aliases[0].address", "mailboxes[0]"), ({"domain": "b"}, "domain", "two parts"),
            ({"lists": [{"address": "l@b.test", "members": []}]}, "lists[0].members", "at least one"),
            ({"lists": [{"address": "l@b.test"}]}, "lists[0]", '"members" is missing'),
            ({"aliases": [{"address": "l@b.test", "targets": ["a@e.test", "b@e.test"]}]}, "aliases[0].targets", "lists"),
            ({"catch_all": "no@b.test"}, "catch_all", "no mailbox"), ({"catch_all": "u@c.test"}, "catch_all", "b.test"))]
        rows += [(document(full, full), "domains[0].mailboxes[1].address: ", "mailboxes[0]"),
                 ({"format": 2, "domains": []}, "format: ", "format 1"), ({"format": 1}, "the document: ", "domains"),
                 ({"format": 1, "domains": [{"domain": "d.test"}, {"domain": "D.test"}]}, "domains[1].domain: ", "domains[0]"),
                 ('{"format":1,"domains":[{"lists":[],"lists":[]}]}', "domains[0].lists: ", "twice"),
                 ('{"format":1,"domains":[]}\0{"more', "NUL", "byte 26"),
                 ('{"format":1,\n"verysecret', "line 2, column 12", "missing closing quote"), ("", "line 1", "end of input")]
        state = maps()
        for content, place, why in rows:
            with self.subTest(content):
                self.assertEqual([], self.put(content, status=REFUSED, says=[place, why]))
        for content, says in ((document(aliases=[alias | {"address": "bob@b.test"}]), "is a mailbox here"),
                              (document(full | {"address": "info@b.test"}), "alias delete")):
            self.assertEqual([], self.put(content, status=EXISTS, says=[says]))
        self.ctl("import /run/none", status=NOT_THERE, says=["No such file"])
        self.ctl("import /dev/zero", status=REFUSED, says=["a NUL at byte 1"])
        self.assertEqual(state, maps())

    def test_what_is_no_whole_is_named_and_left_out(self):
        before = self.world()
        for name, lines in (("vshadow", f"half@b.test:{HASH}:1::99999::::0\n"), ("valias.txt", "a@c.test x@e.test\nl@b.test root\n"),
                            ("vpasswd", "odd@b.test:x:1:2::/h:/s\n"), ("vshadow", "odd@b.test:x:1::99999::::0\n"),
                            ("vquota.txt", "gone@b.test\t5\n"), ("vmaps.txt", "@c.test c.test/mail/inbox/u@c.test\n")):
            with open(ETC / name, "a") as file:
                file.write(lines)
        LIST.write_text(LIST.read_text().replace("b.test.au\n", "bad_name.test\n"))
        del before["domains"][[part["domain"] for part in before["domains"]].index("b.test.au")]
        says = ("half@b.test", "mailbox odd@b.test is left out: this is no hash", "forwarder a@c.test",
                '"root", where l@b.test leads to', "forwarder l@b.test", "quota of gone@b.test", "catch-all of c.test",
                "boss@b.test.au", "bad_name.test")
        self.assertEqual(before, self.exported(says))

    def test_a_thousand_from_standard_input(self):
        many = [{"address": f"u{i}@b.test", "password": f"pw{i}", "quota": 1000 + i} for i in range(1000)]
        for settings in FILES, MYSQL:
            self.empty(settings)
            screen, terminal = pty.openpty()
            done = subprocess.run([QVMAILCTL, "import", "-", "--take-over"], input=json.dumps(document(*many)), text=True,
                                  stdout=subprocess.PIPE, stderr=terminal, check=True)
            self.assertEqual(2001, done.stdout.count("added "))
            self.assertTrue(re.search(r"\[#{40}\] 1000 of 1000\r *\r$", os.read(screen, 9999).decode()))
            self.assertEqual({m["address"]: m["quota"] for m in many},
                             {m["address"]: m["quota"] for m in self.exported()["domains"][0]["mailboxes"]})
        self.assertIn("drwxrwsrwx qvadmin", output("stat", "-c", "%A %U", "/var/spool/vmail/b.test/mail/home/u999@b.test"))


output(TOP / "scripts/start-mariadb")
unittest.main()
