#!/usr/bin/python3
"""init.py files|mysql QVMAILCTL - prepares a machine that has nothing, and starts its servers, inside scripts/private-world"""
import grp, imaplib, json, os, pwd, re, shutil, smtplib, subprocess, sys, time, unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from answers import check_result
from private_world import TOP

BACKEND, QVMAILCTL = sys.argv.pop(1), os.path.abspath(sys.argv.pop(1))
CONF, POSTFIX, DOVECOT = Path("/etc/Quorvel.conf"), Path("/etc/postfix"), Path("/etc/dovecot")
NOT_FIT = 78


def output(*command):
    return subprocess.run(command, text=True, stdout=subprocess.PIPE, check=True).stdout


def everything():
    """All that init might change."""
    files = {}
    for path in (*Path("/etc").rglob("*"), *Path("/var/spool").glob("vmail*")):
        about = path.lstat()
        files[path] = (about.st_mode, about.st_uid, about.st_gid, path.is_file() and path.read_bytes())
    return files


def init(*options, status=0):
    done = subprocess.run([QVMAILCTL, "init", BACKEND, "--config", TOP / "config", "--json", *options],
                          text=True, capture_output=True)
    assert done.returncode == status, done.stdout + done.stderr
    document = json.loads(done.stdout)
    if status == 0:
        check_result("init", document["result"])
    return document.get("result") or document["error"]["message"]


class Init(unittest.TestCase):
    def setUp(self):
        """A machine on which the packages were just installed, Postfix with "No configuration"."""
        for place in map(Path, ("/etc/vmail", "/var/spool/vmail")):
            shutil.rmtree(place, ignore_errors=True)
        for file in (CONF, Path("/etc/VirtualHosts"), Path("/etc/aliases.db"), *POSTFIX.glob("m*.cf*"), *POSTFIX.glob("sql-*"),
                     *DOVECOT.glob("*.conf*")):
            if file.suffix != ".proto":
                file.unlink(missing_ok=True)
        (DOVECOT / "dovecot.conf").write_text("# Debian's\n")
        for file in ("/etc/passwd", "/etc/group", "/etc/gshadow", "/etc/shadow"):
            output("sed", "-i", "/^qvadmin:/d", file)
        Path("/etc/aliases").write_text("postmaster: root\npostmistress: bob@d.test\n")
        if BACKEND == "mysql":
            output("mariadb", "-e", "drop database if exists qvmail; drop user if exists qvmail@'127.0.0.1'; "
                   "drop user if exists qvmailread@'127.0.0.1'")

    def eventually(self, question):
        deadline = time.monotonic() + 20
        while not question():
            self.assertLess(time.monotonic(), deadline, subprocess.getoutput("tail -n 20 /var/log/[dp]o*.log"))
            time.sleep(0.1)

    def test_a_dry_run_tells_and_changes_nothing(self):
        before = everything()
        foreseen = init("--servers", "--dry-run")
        self.assertEqual(before, everything())
        made = init("--servers")
        for key in ("made", "changed"):
            self.assertEqual(*([re.sub(r"-\d{6}$", "", name) for name in sorted(result[key])] for result in (foreseen, made)))

    def test_servers_are_told_of_or_set_up_and_nothing_is_done_twice(self):
        told = "\n".join(init()["to_do"])
        self.assertIn("make /etc/postfix/main.cf from", told)
        self.assertEqual("# Debian's\n", (DOVECOT / "dovecot.conf").read_text())
        self.assertEqual(pwd.getpwnam("qvadmin").pw_gid, grp.getgrnam("qvadmin").gr_gid)
        init("--servers")
        (former,) = DOVECOT.glob("dovecot.conf.before-qvmailctl-*")
        self.assertEqual("# Debian's\n", former.read_text())
        secrets = [path for path in (CONF, *POSTFIX.glob("sql-*"), DOVECOT / "sql.conf") if path.exists()]
        self.assertEqual([], [path for path in secrets if path.stat().st_mode & 0o7 or '"secret"' in path.read_text()])
        with (POSTFIX / "main.cf").open("a") as settings:  # the administrator's own stay
            settings.write("message_size_limit = 1000000\n")

        before = everything()
        again = init("--servers")
        self.assertEqual(([], []), (again["made"], again["changed"]))
        self.assertEqual(before, everything())

    def test_mail_arrives_and_is_read(self):
        said = json.dumps(init("--servers"))
        if BACKEND == "mysql":
            self.assertNotIn(re.search('MailSqlPassword "(.*)"', CONF.read_text())[1], said)
        self.assertEqual(0, subprocess.call("newaliases"))
        self.assertNotEqual("mx.example.test", output("postconf", "-h", "myhostname").strip())
        output(TOP / "scripts/start-mail-servers", BACKEND, QVMAILCTL)
        self.addCleanup(subprocess.run, "postfix stop; doveadm stop", shell=True, stderr=subprocess.DEVNULL)
        for words in ("domain add d.test ann", "mailbox add bob@d.test --quota 1M"):
            subprocess.run([QVMAILCTL, *words.split()], input="secret\n", text=True, check=True)
        self.assertNotIn("table-statistics", subprocess.getoutput(f"{QVMAILCTL} check"))
        self.eventually(lambda: subprocess.call(["doveadm", "auth", "test", "bob@d.test", "secret"],
                                                stdout=subprocess.DEVNULL) == 0)
        with smtplib.SMTP("127.0.0.1", timeout=20) as server:
            server.sendmail("visitor@e.test", ["bob@d.test"], "Subject: to bob\n\nx\n")
            server.sendmail("visitor@e.test", ["postmistress"], "Subject: to a local alias\n\nx\n")
        with imaplib.IMAP4("127.0.0.1", timeout=20) as server:
            server.login("bob@d.test", "secret")
            self.eventually(lambda: server.select(readonly=True)[1] == [b"2"])

    def test_what_is_in_the_way_is_named_and_nothing_is_changed(self):
        def refused(path, text, *says):
            before = everything()
            for name in (path, *says):
                self.assertIn(str(name), init("--servers", status=NOT_FIT))
            self.assertEqual(before, everything())
            path.unlink() if text is None else path.write_text(text)

        victim = Path("/etc/victim")
        victim.write_text("mine\n")
        Path("/etc/vmail").mkdir()
        for path in (CONF, POSTFIX / "main.cf", Path("/etc/vmail/vpasswd")):
            path.symlink_to(victim)
            refused(path, None, "is a link")
        (lost := Path("/etc/vmail/vshadow.qvbackup")).write_text("ann@d.test:$1$a$b:1::::::1\n")
        refused(lost, "", "is missing")
        other = "mysql" if BACKEND == "files" else "files"
        CONF.write_text((TOP / f"config/Quorvel-{other}.conf").read_text())
        refused(CONF, "", "qvmailctl export")

    @unittest.skipIf(BACKEND == "files", "no database")
    def test_a_database_that_is_there_is_taken_as_it_is(self):
        output("sh", "-c", f"mariadb < {TOP}/config/sql-accounts.sql; mariadb qvmail < {TOP}/config/schema.sql")
        self.assertIn("qvmail@'127.0.0.1'", init(status=NOT_FIT))  # whose password nobody told
        CONF.write_text((TOP / "config/Quorvel-mysql.conf").read_text())
        self.assertLessEqual({"database account qvmail", "database qvmail", "table virtual_users"}, set(init()["kept"]))
        output("mariadb", "qvmail", "-e", "drop table virtual_users; alter user root@localhost identified by 'x'")
        self.addCleanup(output, "mariadb", "-uroot", "-px", "-e", "alter user root@localhost identified via unix_socket")
        self.assertIn(f"mariadb qvmail < {TOP}/config/schema.sql", init()["to_do"])
        output("mariadb", "-uroot", "-px", "-e", "drop user qvmail@'127.0.0.1'")
        self.assertIn("CREATE USER `qvmail`@'127.0.0.1' IDENTIFIED BY '(the password in /etc/Quorvel.conf)';", init()["to_do"])


if BACKEND == "mysql":
    output(TOP / "scripts/start-mariadb", "empty")
unittest.main(verbosity=2)
