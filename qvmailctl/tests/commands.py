#!/usr/bin/python3
"""commands.py QVMAILCTL - drives the command as an administrator does, inside scripts/private-world"""
import contextlib, fcntl, json, os, pty, re, socket, subprocess, sys, time, unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from answers import TestCase, checked, maps
from private_world import (BUSY, CONF, ETC, EXISTS, FILES, INTERRUPTED, LIST, MYSQL, NOT_FIT, NOT_ROOT, NOT_THERE,
                           NOT_WRITTEN, QVMAILCTL, REFUSED, SPOOL, TOP, UNREACHABLE, USAGE, empty_accounts, output,
                           qvmailctl, sql, start, without_postfix)

POSTMAP = Path("/run/stubs/postmap")
TRANSACTIONS = "select count(*) from information_schema.innodb_trx where trx_state like "


def stored_hash(address):
    return dict(line.split(":")[:2] for line in (ETC / "vshadow").read_text().split())[address]


def accepts(address, password):
    stored = stored_hash(address)
    return output("openssl", "passwd", "-1", "-salt", stored.split("$")[2], password).strip() == stored


def wait_for_transaction(state):
    while sql(f"{TRANSACTIONS} '{state}'") != "1\n":
        time.sleep(0.2)


@contextlib.contextmanager
def transactions_locked():
    directory = os.open(ETC / "transaction", os.O_RDONLY)
    fcntl.flock(directory, fcntl.LOCK_EX)
    yield
    os.close(directory)


def type_in(command, *replies):
    """Answers the questions of a command at a terminal. Gives its status and what it showed."""
    child, terminal = pty.fork()
    if child == 0:
        os.execv(QVMAILCTL, [QVMAILCTL, *command.split()])
    seen = b""
    with contextlib.suppress(OSError):  # the terminal is closed
        for question, reply in replies:
            while not seen.endswith(question):
                seen += os.read(terminal, 1)
            os.write(terminal, reply)
        while True:
            seen += os.read(terminal, 100)
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    os.close(terminal)
    return status, seen


class EmptyWorld(TestCase):
    settings = FILES

    def setUp(self):
        output("rm", "-rf", SPOOL, POSTMAP)
        Path("/etc/postfix/main.cf").write_text("")
        os.utime("/etc/postfix/main.cf", (1, 1))
        empty_accounts(self.settings)


class ADomainsLife:
    """What holds on either backend, of a domain with two mailboxes; one user is called like a command."""

    def setUp(self):
        super().setUp()
        self.ctl("domain add d.test list", "mailbox add bob@d.test --quota 2K")

    def test_mailboxes(self):
        self.refused(EXISTS, ["mailbox add bob@d.test", "domain add d.test bob"], "already")
        (SPOOL / "e.test").mkdir()  # hosts nothing
        not_hosted = ["mailbox add ann@e.test", "alias add a@e.test b@e.test", "catchall set e.test b"]
        self.refused(NOT_THERE, not_hosted, "domain add e.test")
        self.refused(NOT_THERE, ["mailbox passwd no@d.test", "mailbox delete no@d.test"], "no mailbox no@d.test")
        self.ctl("domain add f.test x")
        self.answers("mailbox list d.test", "list@d.test", "bob@d.test")
        self.answers("mailbox list", "list@d.test", "bob@d.test", "x@f.test")
        self.answers("mailbox count d.test", "2")
        self.answers("domain list", "d.test", "f.test")

    def test_former_mail_is_not_handed_to_a_new_user(self):
        (SPOOL / "d.test/mail/inbox/old@d.test").write_text("From an earlier user\n")
        self.refused(EXISTS, "mailbox add old@d.test", "--take-over")
        self.ctl("mailbox add old@d.test --take-over", "mailbox delete old@d.test", "mailbox add old@d.test")

    def test_quotas(self):
        self.refused(NOT_THERE, "quota set no@d.test 5", "there is no mailbox no@d.test")
        self.answers("domain quota d.test", "unlimited")
        self.answers("quota set list@d.test 1M", "added quota list@d.test 1048576")
        self.ctl("domain add other.test x")  # whose lack of a limit is no matter of d.test
        self.answers("domain quota d.test", "1026 KiB")
        self.answers("quota show list@d.test", "1048576")
        self.ctl("quota set list@d.test UNLIMITED")
        self.answers("quota show list@d.test", "unlimited")

    def test_forwarders(self):
        self.ctl("alias add bob@d.test Far.Away@e.test")
        self.refused(EXISTS, "alias add bob@d.test x@e.test", "alias set")
        self.refused(REFUSED, "alias add a@d.test a@d.test", "to itself")
        self.ctl("alias set bob@d.test x@e.test", "alias add away@d.test x@e.test")
        self.answers("alias list x@e.test", "bob@d.test", "away@d.test")
        self.answers("alias list d.test", "bob@d.test", "away@d.test")
        self.ctl("alias delete bob@d.test", "alias add info@d.test bob@d.test", "alias delete info@d.test")
        self.refused(NOT_THERE, "list delete info@d.test", "no list")  # nothing of the forwarder is left

    def test_what_the_mail_server_will_not_do_well(self):
        self.ctl("alias add a@d.test nobody@d.test", says=["warning: there is no nobody@d.test"])
        self.ctl("alias add b@d.test bob@d.test", "alias add bob@d.test c@d.test")
        self.ctl("alias add c@d.test b@d.test", says=["a loop"])
        many = " ".join(f"m{i}@e.test" for i in range(1001))
        self.ctl(f"list add many@d.test {many}", says=["1001 members"])
        Path("/etc/postfix/main.cf").write_text("mydestination = own.test\n")
        self.ctl("domain add own.test x", says=["a name of this server itself"])

    def test_lists(self):
        self.ctl("alias add bob@d.test x@e.test")
        self.refused(EXISTS, ["list delete bob@d.test", "list add bob@d.test a@d.test"], "is a mailbox")
        self.ctl("list add team@d.test bob@d.test Ann@E.test", says=["is written"])
        self.refused(EXISTS, ["mailbox add team@d.test", "alias delete team@d.test"], "list delete")
        self.ctl("list join team@d.test BOB@d.test joe@e.test", "list leave team@d.test bob@d.test")
        self.answers("list show team@d.test", "Ann@e.test", "joe@e.test")
        self.refused(NOT_THERE, ["list leave team@d.test bob@d.test", "list join no@d.test bob@d.test"], "no ")
        self.refused(REFUSED, "list leave team@d.test ann@e.test joe@e.test", "list delete")
        self.ctl("list set team@d.test a@e.test b@e.test c@e.test")
        self.answers("list show team@d.test", "a@e.test", "b@e.test", "c@e.test")
        self.answers("list list d.test", "team@d.test")

    def test_catch_all(self):
        self.refused(NOT_THERE, "catchall set d.test no", "there is no mailbox no@d.test")
        self.refused(NOT_THERE, "catchall show d.test", "has no catch-all")
        self.refused(REFUSED, "catchall set d.test x@e.test", "not x@e.test")
        self.ctl("catchall set d.test list", "catchall set d.test bob@d.test")
        self.answers("catchall show d.test", "bob@d.test")
        self.refused(REFUSED, "mailbox delete bob@d.test", "catchall remove")

    def test_a_disabled_mailbox(self):
        hash_before = self.hash_of("bob@d.test")
        self.answers("mailbox disable bob@d.test", "changed mailbox bob@d.test disabled")
        self.answers("mailbox disable bob@d.test")
        self.assertEqual("!" + hash_before, self.hash_of("bob@d.test"))
        self.assertFalse(self.result("mailbox show bob@d.test")["enabled"])
        self.ctl("mailbox enable bob@d.test")
        self.assertEqual(hash_before, self.hash_of("bob@d.test"))
        self.ctl("mailbox disable bob@d.test", "mailbox passwd bob@d.test")  # a new password does not enable it
        self.assertRegex(self.hash_of("bob@d.test"), r"^!\$1\$")
        self.assertNotIn(hash_before, self.hash_of("bob@d.test"))

    def test_search(self):
        self.ctl("domain add other.test x", "alias add info@other.test Bob@D.test", "catchall set d.test bob")
        bob = "mailbox bob@d.test", "alias info@other.test Bob@d.test", "catch-all d.test bob@d.test"
        self.answers("search BOB@", *bob)
        self.answers("alias list bob@d.test", "info@other.test")
        self.answers("search nowhere")
        alias = {"kind": "alias", "address": "info@other.test", "targets": ["Bob@d.test"]}
        self.assertEqual(alias, self.result("search other")[-1])

    def test_deletion_leaves_nothing(self):
        self.ctl("domain add other.test x", "list add team@d.test bob@d.test a@e.test")
        self.ctl("list add away@other.test bob@d.test", "catchall set d.test bob", "catchall remove d.test")
        self.ctl("mailbox delete bob@d.test", says=["away@other.test still forwards", "team@d.test still forwards"])
        self.ctl("catchall set d.test list")
        self.answers("mailbox list d.test", "list@d.test")
        self.ctl("domain delete d.test", "domain delete other.test")
        self.refused(NOT_THERE, ["mailbox count d.test", "domain delete other.test"], "not hosted")
        self.assertEqual(([], ""), ([*SPOOL.iterdir()], self.entries()))

    def test_what_scripts_read(self):
        added = {"added": {"mailboxes": ["ann@d.test"], "quotas": ["ann@d.test"]}, "removed": {}, "changed": {}}
        self.assertEqual(added | {"quota": 3 << 29}, self.result("mailbox add ann@d.test --quota 1.5G"))
        self.ctl("catchall set d.test ann", "list add team@d.test ann@d.test bob@d.test", "alias add a@d.test c@e.test")
        self.ctl("alias add ann@d.test b@d.test")
        ann = {"address": "ann@d.test", "quota": 3 << 29, "type": self.type, "enabled": True}
        more = {"domain": "d.test", "used": None, "forwards_to": ["b@d.test"], "catch_all_of": "d.test"}
        self.assertEqual(ann | more, self.result("mailbox show ann@d.test"))
        bob = ann | {"address": "bob@d.test", "quota": 2048}
        first = ann | {"address": "list@d.test", "quota": None, "type": self.type and "admin"}
        self.assertEqual([ann, bob, first], self.result("mailbox list d.test"))
        numbers = {"mailboxes": 3, "aliases": 2, "lists": 1, "quota": None}
        self.assertEqual(numbers | {"domain": "d.test", "catch_all": "ann@d.test"}, self.result("domain show d.test"))
        team = {"address": "team@d.test", "members": ["ann@d.test", "bob@d.test"]}
        self.assertEqual(team, self.result("list show team@d.test"))
        for query in ("domain list", "domain quota d.test", "mailbox count", "quota show bob@d.test", "list list",
                      "alias show a@d.test", "alias list c@e.test", "catchall show d.test"):
            self.assertTrue(self.result(query), query)
        self.assertEqual({"name": "not-there", "status": NOT_THERE, "message": "there is no mailbox no@d.test"},
                         self.result("mailbox show no@d.test", status=NOT_THERE))
        for command in "mailbox list --colour", "nonsense", "domain add":
            self.assertEqual("usage", self.result(command, status=USAGE)["name"], command)

    def test_commands_that_can_be_repeated(self):
        nothing = {"added": {}, "removed": {}, "changed": {}}
        self.ctl("alias add a@d.test bob@d.test", "list add team@d.test a@e.test b@e.test")
        for command in ("domain add d.test list", "mailbox add bob@d.test", "alias add a@d.test bob@d.test",
                        "list add team@d.test a@e.test b@e.test"):
            self.ctl(command, status=EXISTS)
            self.assertLessEqual(nothing.items(), self.result(command + " --if-missing").items(), command)
        for command in ("domain delete no.test", "mailbox delete no@d.test", "alias delete no@d.test",
                        "list delete no@d.test", "catchall remove d.test"):
            self.refused(NOT_THERE, command)
            self.assertEqual(nothing, self.result(command + " --if-there"), command)

    def test_dry_runs_change_nothing(self):
        self.ctl("alias add a@d.test bob@d.test")
        before = self.entries(), maps(), sorted(SPOOL.rglob("*"))
        for command, answer in (("domain add e.test x", "added domain e.test"),
                                ("mailbox delete bob@d.test", "removed mailbox bob@d.test"),
                                ("quota set bob@d.test 5T", "changed quota bob@d.test 5497558138880"),
                                ("alias set a@d.test x@e.test", "changed alias a@d.test x@e.test")):
            self.assertIn(f"dry run: {answer}\n", self.ctl(command + " --dry-run"))
            self.assertTrue(self.result(command + " --dry-run")["dry_run"])
            self.assertEqual(before, (self.entries(), maps(), sorted(SPOOL.rglob("*"))), command)
        self.refused(EXISTS, "mailbox add bob@d.test --dry-run")

    def test_planted_names_reach_no_terminal_and_no_statement(self):
        for name in ("e\x1b]0;x\a", "c\x9b2J", "d\x7f", "q'or--", "b\\", "$(exit)"):
            self.plant(name)
        queries = "domain list", "mailbox list", "alias list", "list list d.test", "search d", "export"
        changes = ("list join team@d.test x@e.org", "list leave team@d.test list@d.test", "mailbox passwd bob@d.test",
                   "check --repair", "check", "domain delete d.test --yes --dry-run", "domain delete d.test --yes")
        for command in [*queries, *changes]:
            for option in "", " --json", " --verbose":
                done = qvmailctl(command + option)
                self.assertNotRegex(done.stdout + done.stderr, r"[^\n -~]", command)  # in ASCII
                self.assertNotIn("domain add $(exit)", done.stdout)
                expected = REFUSED if self.quotes_matter and command.startswith("list join") else done.returncode
                self.assertEqual(expected, done.returncode, command)
        self.assertNotIn("d.test\n", "\n" + self.ctl("domain list"))


class OnFiles(ADomainsLife, EmptyWorld):
    type, quotes_matter = "user", False

    def plant(self, name):
        for file, line in (("vpasswd", "{0}@d.test:x:1:1::/home:/bin/false"), (LIST, "{0}.test"),
                           ("vshadow", "{0}@d.test:$1$a$b:1::99999::::0"),
                           ("valias.txt", "team@d.test {0}@d.test,list@d.test\nto{0}@d.test {0}@d.test")):
            with (ETC / file).open("a") as map:
                print(line.format(name), file=map)

    def entries(self):
        return output("postmap", "-s", ETC / "vmaps.txt")

    def hash_of(self, address):
        return stored_hash(address)


class OnTables(ADomainsLife, EmptyWorld):
    settings = MYSQL
    type, quotes_matter = None, True

    def plant(self, name):
        address, domain = (f"_utf8mb4 x'{(name + end).encode().hex()}'" for end in ("@d.test", ".test"))
        sql(f"insert into virtual_users values ({address}, '', -1); insert into virtual_domains values ({domain});"
            f"insert into virtual_aliases values ('team@d.test', {address}), ({address}, {address});"
            f"insert into virtual_aliases values ({address}, {address})")

    def entries(self):
        return sql("select name from virtual_domains union select email from virtual_users union "
                   "select source from virtual_aliases")

    def hash_of(self, address):
        return sql(f"select password from virtual_users where email = '{address}'").strip()

    def test_a_row_that_somebody_else_has_locked(self):
        other = subprocess.Popen(["mariadb", "qvmail"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True)
        rows = ", ".join(f"('{number}.test')" for number in range(20))  # of two transactions the longer one stays
        print(f"insert into virtual_domains values {rows}; begin; "
              "delete from virtual_domains where name like '%.test' and name <> 'd.test';"
              "select * from virtual_aliases where source = 'bob@d.test' for update;", file=other.stdin, flush=True)
        wait_for_transaction("%")
        CONF.write_text(MYSQL.replace('"60"', '"2"'))
        before = self.entries()
        locked = "Lock wait timeout", "nothing was changed"
        self.ctl("mailbox delete bob@d.test", status=NOT_WRITTEN, says=locked)
        self.assertEqual(before, self.entries())
        CONF.write_text(MYSQL)
        change = start("mailbox delete bob@d.test --yes", stdout=subprocess.DEVNULL)
        wait_for_transaction("LOCK WAIT")
        other.communicate("select * from virtual_users where email = 'bob@d.test' for update; rollback;")
        self.assertIn("tried again", change.communicate()[1])
        self.assertEqual(0, change.returncode)
        self.answers("mailbox list d.test", "list@d.test")

    def test_why_the_database_cannot_be_reached(self):
        silent = socket.create_server(("127.0.0.1", 3399))
        self.addCleanup(silent.close)
        for old, new, says in (('"secret"', '"wrong"', "password"), ('SqlUser "qvmail"', 'SqlUser "who"', "who"),
                               ('Database "qvmail"', 'Database "gone"', "gone"), ("3306", "3398", "3398"),
                               ("3306", "3399", "does not answer"), ("127.0.0.1", "no.invalid", "no.invalid")):
            CONF.write_text(MYSQL.replace(old, new).replace('"10"', '"1"'))
            for command in "mailbox list d.test", "mailbox add x@d.test":
                with self.subTest(new, command=command):
                    done = qvmailctl(command)
                    self.assertEqual((UNREACHABLE, ""), (done.returncode, done.stdout))
                    self.assertIn(says, done.stderr)
                    self.assertNotIn("secret", done.stderr)


class Commands(EmptyWorld):
    def test_names_that_resemble_each_other_are_left_alone(self):
        self.ctl("domain add b.test boss", "domain add ab.test boss", "domain add b.test.au boss")
        self.ctl("mailbox add jim.bob@b.test --quota 1K", "mailbox add bob@b.test --quota 2K")
        self.ctl("alias add jim.info@b.test q@z.test", "alias add info@b.test p@z.test")
        self.ctl("alias set info@b.test r@z.test", "alias delete info@b.test", "list add x@ab.test bob@b.test")
        self.ctl("mailbox type bob@b.test admin", "mailbox disable bob@b.test", "quota set bob@b.test 3K")
        self.answers("mailbox show bob@b.test", "address: bob@b.test", "type: admin", "state: disabled", "quota: 3072")
        self.ctl("quota delete bob@b.test", "mailbox delete bob@b.test")
        self.answers("mailbox list b.test", "boss@b.test", "jim.bob@b.test")
        jim = "address: jim.bob@b.test", "type: user", "state: enabled", "quota: 1024"
        self.answers("mailbox show jim.bob@b.test", *jim)
        self.answers("alias list q@z.test", "jim.info@b.test")
        self.answers("alias list r@z.test")
        self.ctl("domain delete b.test")
        self.assertEqual("ab.test\nb.test.au\n", LIST.read_text())
        self.answers("mailbox list ab.test", "boss@ab.test")
        self.answers("list list ab.test", "x@ab.test")

    def test_what_an_interruption_or_a_hand_left(self):
        self.ctl("domain add d.test boss")
        for name in ("vmaps-temp.txt", "valias-temp.txt", "vquota-temp.txt", "vpasswd_temp.txt", "vshadow_temp.txt",
                     "temp.txt", "vpasswd.addtmp", "vpasswd.edittmp", "vpasswd.deltmp", f"{LIST}-temp.txt"):
            (ETC / name).write_text("left\n")
            self.refused(NOT_FIT, "alias add a@d.test b@d.test", f"{ETC / name} ", "check --repair")
            (ETC / name).unlink()
        for file in (LIST, ETC / "vpasswd", ETC / "vshadow", ETC / "vmaps.txt"):
            file.write_text(file.read_text().rstrip())
        self.ctl("domain add e.test boss")
        self.assertEqual("d.test\ne.test\n", LIST.read_text())
        (ETC / "valias.txt").rename(ETC / "gone")
        self.refused(NOT_FIT, ["alias add a@d.test b@d.test", "domain delete d.test"], "valias.txt is missing", "init")
        (ETC / "gone").rename(ETC / "valias.txt")
        (ETC / "vshadow").write_text("boss@d.test\n")
        self.refused(NOT_WRITTEN, "mailbox passwd boss@d.test", "has no password field")
        (ETC / "vshadow").write_text("")
        self.refused(NOT_FIT, "mailbox passwd boss@d.test", "only one of", "mailbox delete boss@d.test")
        output("rm", "-r", SPOOL)
        self.refused(NOT_FIT, "mailbox add bob@d.test", "is the spool mounted?")
        self.refused(NOT_WRITTEN, "domain add f.test boss", "there is no directory above it", "nothing was changed")

    def test_what_is_no_map(self):
        self.ctl("domain add d.test boss --quota 5M", "alias add a@d.test boss@d.test")
        kinds = (("no regular file", os.mkfifo), ("no regular file", os.mkdir),
                 ("no regular file", lambda path: path.symlink_to("/dev/zero")),
                 ("it is a link", lambda path: path.symlink_to("/no")),
                 ("16 MiB", lambda path: (path.touch(), os.truncate(path, 5 << 30))))
        commands = {LIST: ("domain list", "domain add e.test boss"),
                    CONF: ("domain list", "alias add b@d.test c@d.test"),
                    ETC / "vpasswd": ("export", "mailbox list d.test", "mailbox add b@d.test"),
                    ETC / "vshadow": ("mailbox list d.test", "mailbox passwd boss@d.test"),
                    ETC / "vmaps.txt": ("catchall show d.test", "catchall set d.test boss"),
                    ETC / "valias.txt": ("alias list a@d.test", "alias delete a@d.test"),
                    ETC / "vquota.txt": ("mailbox list d.test", "quota set boss@d.test 1M")}
        for (reason, make), place in ((kind, place) for kind in kinds for place in commands):
            place.rename("/etc/kept")
            make(place)
            status, reason = (NOT_FIT, "") if place == CONF else (NOT_WRITTEN, reason)
            for command in commands[place]:
                with self.subTest(f"{reason} at {place}"):
                    self.ctl(command, status=status, says=(f"{place} cannot be read", reason), prefix=("timeout", "10"))
            output("rm", "-r", place)
            os.rename("/etc/kept", place)

    def interrupted(self, command, **how):
        waiting = start(command, stdout=subprocess.PIPE, **how)
        time.sleep(0.5)
        waiting.terminate()
        answer, said = waiting.communicate(timeout=10)
        self.assertEqual(INTERRUPTED, waiting.returncode, said)
        self.assertEqual("interrupted", checked(command, answer)["name"])
        self.assertIn("nothing was changed", said)

    def test_a_signal_leaves_the_old_state(self):
        self.ctl("domain add d.test boss")
        before = maps()
        POSTMAP.write_text('#!/bin/sh\nkill -TERM $PPID\nsleep 0.2\nexec /usr/sbin/postmap "$@"\n')
        POSTMAP.chmod(0o755)
        self.ctl("alias add a@d.test b@d.test")  # a commit runs to its end
        self.assertNotEqual(before, maps())
        before = maps()
        with transactions_locked():
            self.interrupted("alias delete a@d.test --yes --wait 60 --json")
            self.refused(BUSY, "mailbox add bob@d.test --wait 0", f"process {os.getpid()}")
            self.answers("mailbox count d.test", "1")  # a query does not wait
        for command in "mailbox passwd boss@d.test --json", "import - --json":  # while input is waited for
            self.interrupted(command, stdin=subprocess.PIPE)
        self.assertEqual(before, maps())

    def test_passwords(self):
        self.ctl("domain add d.test boss", stdin="first word\nnot this\n")
        self.assertTrue(accepts("boss@d.test", "first word"))
        for bad, why in ("\n", "empty"), ("a\tb\n", "control"), ("x" * 256 + "\n", "too long"):
            self.refused(REFUSED, "mailbox passwd boss@d.test", why, stdin=bad)
        for again, status in (b"other\n", REFUSED), (b"\x03", INTERRUPTED), (b"typed\n", 0):
            ended, seen = type_in("mailbox passwd boss@d.test", (b"boss@d.test: ", b"typed\n"), (b"once more: ", again))
            self.assertEqual(status, ended)
            self.assertNotIn(b"typed", seen)
            self.assertEqual(status == 0, accepts("boss@d.test", "typed"))

    def test_questions(self):
        self.ctl("domain add d.test boss")
        for command in ("mailbox add boss@d.test", "mailbox passwd no@d.test", "domain add d.test boss",
                        "domain delete e.test", "mailbox delete no@d.test"):
            self.assertNotRegex(type_in(command)[1], b"Password|Delete")  # what is refused is refused at once
        LIST.rename("/etc/kept")
        self.assertNotRegex(type_in("domain add e.test boss")[1], b"Password")
        Path("/etc/kept").rename(LIST)
        unasked = qvmailctl("mailbox delete boss@d.test --json", stdin="y\n")
        self.assertEqual(USAGE, unasked.returncode)
        self.assertIn("--yes", checked("mailbox", unasked.stdout)["message"])
        question = b"mail? [y/N] "
        self.assertEqual(INTERRUPTED, type_in("mailbox delete boss@d.test", (question, b"n\n"))[0])
        self.assertEqual(0, type_in("mailbox delete boss@d.test", (question, b"y\n"))[0])
        self.assertEqual(INTERRUPTED, type_in("domain delete d.test", (question, b"\x03"))[0])

    def test_names_and_values(self):
        self.ctl("domain add D.test boss", "quota set Boss@D.TEST 5g", says=["is written"])  # the first quota of all
        for name in (".b@d.test", "b..c@d.test", "a;b@d.test", "a'@d.test", "b@d", "b@-d.test", "$(id)@d.test",
                     "a,b@d.test", "|sh@d.test"):
            commands = [f"mailbox add {name}", f"alias add {name} x@d.test", f"catchall set d.test {name}"]
            self.refused(REFUSED, commands, name)
        for size, bytes in (("2000", 2000), ("500M", 500 << 20), ("1.5G", 3 << 29), ("5gb", 5 << 30), ("1T", 1 << 40),
                            ("0.001k", 1)):
            self.answers(f"quota set boss@d.test {size}", f"changed quota boss@d.test {bytes}")
        for size in ("", "0", "0.0G", "-1", "1025T", "99999999999999999999", "1.2.3G", "1.5", "5X", "G", ".5G", "1e3"):
            done = qvmailctl(["quota", "set", "boss@d.test", size])
            self.assertEqual(REFUSED, done.returncode, size)
            self.assertIn(f'"{size}"', done.stderr)
        evil = qvmailctl(["mailbox", "show", "\x1b]0;x\x07" + "y" * 300])
        self.assertIn("\\x1b]0;x\\x07", evil.stderr)
        self.assertNotIn("\x1b", evil.stderr)
        self.assertLess(len(evil.stderr), 300)

    def test_help(self):
        for word, nearest in (("mialbox", "mailbox"), ("mailbox remove", "mailbox delete"), ("list lst", "list list")):
            self.refused(USAGE, word, f'the nearest is "{nearest}"')
        self.refused(USAGE, "mailbox frobnicate", '"qvmailctl mailbox --help" lists all')
        deletion, query = self.ctl("mailbox delete --help"), self.ctl("mailbox show --help")
        self.assertIn("qvmailctl mailbox delete bob@example.com", deletion)
        self.assertIn("--if-there", deletion)
        self.assertNotRegex(query, "--(quota|dry-run|if-there|yes|wait)")
        for command in re.findall(r"^  (?:echo 'secret' \| )?qvmailctl (.*?)(?:  .*)?$", self.ctl("--help"), re.M):
            if not command.startswith(("init", "check")):  # servers are not set up here
                self.ctl(command)  # the first steps can be taken as they stand
        self.answers("mailbox list", "bob@example.com", "postmaster@example.com")

    def test_settings_rights_and_tools(self):
        for text, says in (("\nMailBackend mysql\n", "line 2"), ('MailBackend="mysql"\n', "line 1"),
                           ('DovecotLDA "Yes"\n', '"Yes"'), ('MailBackend "ldap"\n', "ldap"),
                           ("#" * 119 + "\n" + MYSQL, "line 1 "), (FILES + 'MailBackend "mysql"\n', "twice"),
                           (MYSQL.replace("MailSqlUser", "User"), "MailSqlUser"),
                           (MYSQL.replace("3306", "x"), "MailSqlPort"), (MYSQL.replace('"60"', '"0"'), "1 to 3600"),
                           (MYSQL.replace('"10"', '"5s"'), '"5s"'), ('\ufeffMailBackend "mysql"\n', "byte-order mark"),
                           ('MailBackendOld "mysql"\n', "not understood"), (MYSQL.replace("secret", "se\0ret"), "NUL")):
            CONF.write_text(text)
            self.refused(NOT_FIT, ["domain add d.test boss", "domain list"], says, "/etc/Quorvel.conf")
        CONF.write_text("")
        nobody = "setpriv", "--reuid=65534", "--inh-caps=+dac_read_search", "--ambient-caps=+dac_read_search"
        self.refused(NOT_ROOT, "domain add d.test boss", "root", prefix=nobody)
        output("mount", "--bind", "/dev/null", "/usr/sbin/postmap")
        self.addCleanup(output, "umount", "/usr/sbin/postmap")
        self.refused(NOT_FIT, "domain add d.test boss", "postmap")

    @unittest.skipIf("libasan" in output("ldd", QVMAILCTL), "the sanitizer keeps what is freed")
    def test_what_tools_find_of_passwords(self):
        """A stub of postmap looks for them in its qvmailctl's memory and its own input, and at the limits of cores."""
        POSTMAP.write_text(r"""#!/usr/bin/python3
import os, re, sys
process = os.getppid()
while os.path.basename(os.readlink(f"/proc/{process}/exe")) != "qvmailctl":
    process = int(re.search(r"PPid:\s*(\d+)", open(f"/proc/{process}/status").read())[1])
memory, places = open(f"/proc/{process}/mem", "rb", 0), []
for line in open(f"/proc/{process}/maps"):
    begin, end = (int(number, 16) for number in line.split()[0].split("-"))
    if " rw" in line:
        memory.seek(begin)
        content = memory.read(end - begin)
        places += [line.split()[-1] for secret in (b"hush-1", b"a-long-and-secret-word") if secret in content]
limits = [re.search("core file size *(.*?) ", open(f"/proc/{p}/limits").read())[1] for p in (process, "self")]
open("/run/found", "a").write(f"{places} {limits} {sys.stdin.read()}\n")
os.execv("/usr/sbin/postmap", sys.argv)
""")
        POSTMAP.chmod(0o755)
        passwords = "hush-1", "a-long-and-secret-word" * 10
        mailboxes = [{"address": f"u{i}@d.test", "password": passwords[i % 2][:22 * (i % 5 + 1)]} for i in range(50)]
        document = json.dumps({"format": 1, "domains": [{"domain": "d.test", "mailboxes": mailboxes}]})
        for password in passwords:
            for command in ("domain add d.test boss", "mailbox add bob@d.test --quota 5M", "import -",
                            "mailbox delete bob@d.test", "domain delete d.test"):
                given = document if command == "import -" else f"{password}\nhush-1\n"
                self.ctl(command, prefix=("prlimit", "--core=unlimited"), stdin=given)
        self.assertEqual({"[] ['0', '0'] "}, set(Path("/run/found").read_text().splitlines()))

    def test_the_record_of_changes(self):
        log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        log.bind("/dev/log")
        log.settimeout(10)
        self.addCleanup(os.unlink, "/dev/log")
        self.addCleanup(log.close)
        mail, authpriv, sudo = 2, 10, ("env", "SUDO_USER=ann")
        for command, status, facility, outcome in (("domain add d.test boss", 0, mail, "done"),
                                                   ("mailbox passwd boss@d.test", 0, authpriv, "done"),
                                                   ("mailbox delete no@d.test", NOT_THERE, mail, "not-there")):
            self.ctl(command + " --wait 9", status=status, prefix=sudo)
            line = log.recv(1000).decode()
            self.assertEqual(facility, int(re.match(r"<(\d+)>", line)[1]) // 8)
            self.assertTrue(line.endswith(f'user=ann command="{command}" outcome={outcome}'), line)
        self.ctl("mailbox list", "mailbox add x@d.test --dry-run")
        log.setblocking(False)
        self.assertRaises(BlockingIOError, log.recv, 1000)


del sys.argv[1]
output(TOP / "scripts/start-mariadb")
without_postfix()
POSTMAP.parent.mkdir()
os.environ["PATH"] = f"{POSTMAP.parent}:/usr/bin:/bin:/usr/sbin"
unittest.main()
