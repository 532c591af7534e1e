#!/usr/bin/python3
"""init.py files|mysql QVMAILCTL - prepares a machine that has nothing, inside scripts/private-world"""
import grp, json, pwd, re, sys, unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from answers import TestCase, checked
from private_world import CONF, ETC, FILES, LIST, MYSQL, NOT_FIT, SPOOL, TOP, output, sql

BACKEND = sys.argv.pop(1)
POSTFIX, DOVECOT, CONFIG = Path("/etc/postfix"), Path("/etc/dovecot"), TOP / "config"


def everything():
    """All that init might change."""
    files = {}
    for path in (*Path("/etc").rglob("*"), *Path("/var/spool").glob("vmail*")):
        about = path.lstat()
        files[path] = (about.st_mode, about.st_uid, about.st_gid, path.is_file() and path.read_bytes())
    return files


class Init(TestCase):
    def setUp(self):
        """A machine on which the packages were just installed, Postfix with "No configuration"."""
        made = [path for path in (*POSTFIX.glob("m*.cf*"), *POSTFIX.glob("sql-*"), *DOVECOT.glob("*.conf*"))
                if path.suffix != ".proto"]
        output("rm", "-rf", ETC, SPOOL, CONF, LIST, "/etc/aliases.db", *made)
        output("sed", "-i", "/^qvadmin:/d", "/etc/passwd", "/etc/group", "/etc/gshadow", "/etc/shadow")
        (DOVECOT / "dovecot.conf").write_text("# Debian's\n")
        Path("/etc/aliases").write_text("postmaster: root\n")
        if BACKEND == "mysql":
            output("mariadb", "-e", "drop database if exists qvmail; drop user if exists qvmail@'127.0.0.1'; "
                   "drop user if exists qvmailread@'127.0.0.1'")

    def init(self, options="", status=0):
        words = f"init {BACKEND} --config {CONFIG} --json {options}"
        return checked("init", self.ctl(words, status=status))

    def test_a_dry_run_tells_and_changes_nothing(self):
        before = everything()
        foreseen = self.init("--servers --dry-run")
        self.assertEqual(before, everything())
        made = self.init("--servers")
        for key in ("made", "changed"):
            told, done = ([re.sub(r"-\d{6}$", "", name) for name in result[key]] for result in (foreseen, made))
            self.assertEqual(sorted(told), sorted(done))

    def test_servers_are_told_of_or_set_up_and_nothing_is_done_twice(self):
        told = "\n".join(self.init()["to_do"])
        self.assertIn("make /etc/postfix/main.cf from", told)
        self.assertEqual("# Debian's\n", (DOVECOT / "dovecot.conf").read_text())
        self.assertEqual(pwd.getpwnam("qvadmin").pw_gid, grp.getgrnam("qvadmin").gr_gid)
        said = json.dumps(self.init("--servers"))
        if BACKEND == "mysql":
            self.assertNotIn(re.search('MailSqlPassword "(.*)"', CONF.read_text())[1], said)
        (former,) = DOVECOT.glob("dovecot.conf.before-qvmailctl-*")
        self.assertEqual("# Debian's\n", former.read_text())
        for path in (CONF, *POSTFIX.glob("sql-*"), *DOVECOT.glob("sql.conf")):
            self.assertFalse(path.stat().st_mode & 0o7 or '"secret"' in path.read_text(), path)
        self.assertNotIn("mx.example.test", (POSTFIX / "main.cf").read_text())
        with (POSTFIX / "main.cf").open("a") as settings:  # the administrator's own stay
            settings.write("message_size_limit = 1000000\n")

        before = everything()
        again = self.init("--servers")
        self.assertEqual(([], []), (again["made"], again["changed"]))
        self.assertEqual(before, everything())

    def test_what_is_in_the_way_is_named_and_nothing_is_changed(self):
        def refused(path, text, *says):
            before = everything()
            message = self.init("--servers", status=NOT_FIT)["message"]
            for name in (str(path), *says):
                self.assertIn(name, message)
            self.assertEqual(before, everything())
            path.unlink() if text is None else path.write_text(text)

        ETC.mkdir()
        for path in (CONF, POSTFIX / "main.cf", ETC / "vpasswd"):
            path.symlink_to("/etc/passwd")
            refused(path, None, "is a link")
        (ETC / "vshadow.qvbackup").write_text("ann@d.test:$1$a$b:1::::::1\n")
        refused(ETC / "vshadow.qvbackup", "", "is missing")
        CONF.write_text(MYSQL if BACKEND == "files" else FILES)
        refused(CONF, "", "qvmailctl export")

    @unittest.skipIf(BACKEND == "files", "no database")
    def test_a_database_that_is_there_is_taken_as_it_is(self):
        output("sh", "-c", "mariadb < sql-accounts.sql; mariadb qvmail < schema.sql", cwd=CONFIG)
        unknown_password = self.init(status=NOT_FIT)["message"]
        self.assertIn("qvmail@'127.0.0.1'", unknown_password)
        CONF.write_text(MYSQL)
        kept = {"database account qvmail", "database qvmail", "table virtual_users"}
        self.assertLessEqual(kept, {*self.init()["kept"]})
        sql("drop table virtual_users; alter user root@localhost identified by 'x'")
        as_root = "mariadb", "-uroot", "-px", "-e"
        self.addCleanup(output, *as_root, "alter user root@localhost identified via unix_socket")
        self.assertIn(f"mariadb qvmail < {CONFIG}/schema.sql", self.init()["to_do"])
        output(*as_root, "drop user qvmail@'127.0.0.1'")
        creation = "CREATE USER `qvmail`@'127.0.0.1' IDENTIFIED BY '(the password in /etc/Quorvel.conf)';"
        self.assertIn(creation, self.init()["to_do"])


del sys.argv[1]
if BACKEND == "mysql":
    output(TOP / "scripts/start-mariadb", "empty")
unittest.main(verbosity=2)
