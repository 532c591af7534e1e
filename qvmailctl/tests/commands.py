#!/usr/bin/python3
"""commands.py QVMAILCTL - drives the command as an administrator does, inside scripts/private-world"""
import contextlib, fcntl, os, pty, subprocess, sys, time, unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from private_world import TOP

QVMAILCTL = os.path.abspath(sys.argv.pop(1))
ETC, SPOOL, CONF = Path("/etc/vmail"), Path("/var/spool/vmail"), Path("/etc/Quorvel.conf")
LIST, STAGE = Path("/etc/VirtualHosts"), ETC / "transaction"
MYSQL = (TOP / "config/Quorvel-mysql.conf").read_text()


def output(*command):
    return subprocess.run(command, text=True, stdout=subprocess.PIPE, check=True).stdout


def maps():
    return {f: f.read_bytes() for f in (LIST, *ETC.glob("v*")) if f.exists() and f.suffix in ("", ".txt")}


@contextlib.contextmanager
def transactions_locked():
    directory = os.open(STAGE, os.O_RDONLY)
    fcntl.flock(directory, fcntl.LOCK_EX)
    yield
    os.close(directory)


def accepts(address, password):
    stored = dict(line.split(":")[:2] for line in (ETC / "vshadow").read_text().split())[address]
    return output("openssl", "passwd", "-1", "-salt", stored.split("$")[2], password).strip() == stored


class EmptyWorld(unittest.TestCase):
    settings = ""

    def setUp(self):
        # To reload no mail server takes a second: a stub does. The real postmap would wait while main.cf is new.
        output("sh", "-ec", f"rm -rf {LIST}* {ETC} {SPOOL} /run/stubs; mkdir /run/stubs; "
               ": > /etc/postfix/main.cf; touch -d @1 /etc/postfix/main.cf; install /dev/null /run/stubs/postfix; "
               f"PATH=$PATH:/usr/sbin {TOP}/config/create-empty-maps")
        output("mariadb", "qvmail", "-e", "delete from virtual_domains; delete from virtual_users; delete from virtual_aliases")
        os.environ["PATH"] = "/run/stubs:/usr/bin:/bin"
        CONF.write_text(self.settings)

    def ctl(self, *commands, status=0, says=(), stdin="secret\n", prefix=()):
        """Runs commands that all end with this status and say these texts; gives what they print."""
        printed = ""
        for command in commands:
            done = subprocess.run([*prefix, QVMAILCTL, *command.split()], input=stdin, text=True, capture_output=True)
            self.assertEqual(status, done.returncode, f"{command}: {done.stdout}{done.stderr}")
            for text in says:
                self.assertIn(text, done.stderr, command)
            printed += done.stdout
        return printed

    def refused(self, commands, *says, status=2, **how):
        """One command, or a list of them: each is refused with these texts, and every map is as it was."""
        commands, before = [commands] if isinstance(commands, str) else commands, maps()
        self.assertEqual("", self.ctl(*commands, status=status, says=says, **how))
        self.assertEqual(before, maps(), commands)

    def answers(self, command, *lines):
        self.assertEqual(sorted(lines), sorted(self.ctl(command).splitlines()), command)


class ADomainsLife:
    """What holds on either backend, of a domain with two mailboxes; one user is called like a command."""

    def setUp(self):
        super().setUp()
        self.ctl("domain add d.test list", "mailbox add bob@d.test --quota 2K")

    def test_mailboxes(self):
        self.refused(["mailbox add bob@d.test", "domain add d.test bob"], "already")
        self.refused(["mailbox add ann@e.test", "alias add a@e.test b@e.test", "catchall set e.test b"],
                     "domain add e.test", status=4)
        self.refused(["mailbox passwd no@d.test", "mailbox delete no@d.test"], "there is no mailbox no@d.test", status=4)
        self.answers("mailbox list d.test", "list@d.test", "bob@d.test")
        self.answers("mailbox count d.test", "2")

    def test_quotas(self):
        self.refused("quota set no@d.test 5", "there is no mailbox no@d.test", status=4)
        self.answers("domain quota d.test", "unlimited")
        self.ctl("quota set list@d.test 1M", "domain add other.test x")  # whose lack of a limit is no matter of d.test
        self.answers("domain quota d.test", "1026 KiB")
        self.answers("quota show list@d.test", "1048576")
        self.ctl("quota set list@d.test unlimited")
        self.answers("quota show list@d.test", "unlimited")

    def test_forwarders(self):
        self.ctl("alias add bob@d.test Far.Away@e.test")
        self.refused("alias add bob@d.test x@e.test", "alias set")
        self.ctl("alias set bob@d.test x@e.test")
        self.answers("mailbox show bob@d.test", "address: bob@d.test", "quota: 2048", "forwards to: x@e.test")
        self.ctl("alias delete bob@d.test", "alias add info@d.test bob@d.test", "alias delete info@d.test")
        self.refused("list delete info@d.test", "no list", status=4)  # nothing of the forwarder is left

    def test_lists(self):
        self.ctl("alias add bob@d.test x@e.test")
        self.refused(["list delete bob@d.test", "list add bob@d.test a@d.test"], "is a mailbox")
        self.ctl("list add team@d.test bob@d.test Ann@e.test")
        self.refused(["mailbox add team@d.test", "alias delete team@d.test"], "list delete")
        self.ctl("list set team@d.test a@e.test b@e.test c@e.test")
        self.answers("list show team@d.test", "a@e.test", "b@e.test", "c@e.test")
        self.answers("list list d.test", "team@d.test")

    def test_catch_all(self):
        self.refused("catchall set d.test no", "there is no mailbox no@d.test", status=4)
        self.refused("catchall show d.test", "has no catch-all", status=4)
        self.ctl("catchall set d.test list", "catchall set d.test bob")
        self.answers("catchall show d.test", "bob@d.test")
        self.refused("mailbox delete bob@d.test", "catchall remove")

    def test_deletion_leaves_nothing(self):
        self.ctl("domain add other.test x", "list add team@d.test bob@d.test a@e.test", "list add away@other.test bob@d.test",
                 "catchall set d.test bob", "catchall remove d.test", "mailbox delete bob@d.test", "catchall set d.test list")
        self.answers("mailbox list d.test", "list@d.test")
        self.ctl("domain delete d.test", "domain delete other.test")
        self.refused(["mailbox count d.test", "domain delete other.test"], "not hosted", status=4)
        self.assertEqual([], list(SPOOL.iterdir()))
        self.assertEqual("", self.entries())


class OnFiles(ADomainsLife, EmptyWorld):
    def entries(self):
        return output("/usr/sbin/postmap", "-s", ETC / "vmaps.txt")


class OnTables(ADomainsLife, EmptyWorld):
    settings = MYSQL

    def entries(self):
        return output("mariadb", "qvmail", "-Ne", "select name from virtual_domains union "
                      "select email from virtual_users union select source from virtual_aliases")

    def test_what_needs_maps_or_the_right_password(self):
        self.refused("alias list x@e.test", "map files alone")
        CONF.write_text(MYSQL.replace("secret", "wrong"))
        self.refused("mailbox list d.test", "MailSql", status=1)


class Commands(EmptyWorld):
    def test_names_that_resemble_each_other_are_left_alone(self):
        self.ctl("domain add b.test boss", "domain add ab.test boss", "domain add b.test.au boss")
        self.ctl("mailbox add jim.bob@b.test --quota 1K", "mailbox add bob@b.test --quota 2K")
        self.ctl("alias add jim.info@b.test q@z.test", "alias add info@b.test p@z.test", "alias set info@b.test r@z.test")
        self.ctl("list add x@ab.test bob@b.test", "alias delete info@b.test", "mailbox type bob@b.test admin")
        self.ctl("quota set bob@b.test 3K", "quota delete bob@b.test", "mailbox delete bob@b.test")
        self.answers("mailbox list b.test", "boss@b.test", "jim.bob@b.test")
        self.answers("quota show jim.bob@b.test", "1024")
        self.answers("alias list q@z.test", "jim.info@b.test")
        self.answers("alias list r@z.test")
        self.ctl("domain delete b.test")
        self.assertEqual("ab.test\nb.test.au\n", LIST.read_text())
        self.answers("mailbox list ab.test", "boss@ab.test")
        self.answers("list list ab.test", "x@ab.test")

    def test_what_an_interruption_or_a_hand_left(self):
        self.ctl("domain add d.test boss")
        names = "vmaps-temp valias-temp vquota-temp vpasswd_temp vshadow_temp temp".split()
        work_files = [ETC / f"{name}.txt" for name in names] + [Path(f"{LIST}-temp.txt")]
        for file in work_files + [ETC / f"vpasswd.{ending}" for ending in ("addtmp", "edittmp", "deltmp")]:
            file.write_text("left\n")
            self.refused("alias add a@d.test b@d.test", f"{file} ", "then remove it")
            file.unlink()
        for file in (LIST, ETC / "vpasswd", ETC / "vshadow", ETC / "vmaps.txt"):
            file.write_text(file.read_text().rstrip())
        self.ctl("domain add e.test boss")
        self.assertEqual("d.test\ne.test\n", LIST.read_text())
        (ETC / "valias.txt").rename(ETC / "gone")
        self.refused(["alias add a@d.test b@d.test", "domain delete d.test"],
                     "valias.txt is missing", "create-empty-maps", status=1)
        (ETC / "gone").rename(ETC / "valias.txt")
        (ETC / "vshadow").write_text("")
        self.refused("mailbox passwd boss@d.test", "only one of", "mailbox delete boss@d.test")
        output("rm", "-r", SPOOL)
        self.refused("mailbox add bob@d.test", "is the spool mounted?")
        self.refused("domain add f.test boss", "there is no directory above it", "nothing was changed", status=1)

    def test_a_signal_leaves_the_old_state(self):
        self.ctl("domain add d.test boss")
        before = maps()
        Path("/run/stubs/postmap").write_text('#!/bin/sh\nkill -TERM $PPID\nsleep 0.2\nexec /usr/sbin/postmap "$@"\n')
        Path("/run/stubs/postmap").chmod(0o755)
        self.ctl("alias add a@d.test b@d.test")  # a commit runs to its end
        self.assertNotEqual(before, maps())
        with transactions_locked():
            before, deletion = maps(), [QVMAILCTL, "alias", "delete", "a@d.test", "--yes", "--wait", "60"]
            waiting = subprocess.Popen(deletion, stderr=subprocess.PIPE)
            time.sleep(0.5)
            waiting.terminate()
            self.assertIn(b"nothing was changed", waiting.communicate(timeout=10)[1])
            self.assertNotEqual(0, waiting.returncode)
        self.assertEqual(before, maps())

    def test_passwords(self):
        self.ctl("domain add d.test boss", stdin="first word\nnot this\n")
        self.assertTrue(accepts("boss@d.test", "first word"))
        for bad, why in ("\n", "empty"), ("a\tb\n", "control"), ("x" * 256 + "\n", "too long"):
            self.refused("mailbox passwd boss@d.test", why, stdin=bad)
        for again, status in ("other", 2), ("typed", 0):
            child, terminal = pty.fork()
            if child == 0:
                os.execv(QVMAILCTL, [QVMAILCTL, "mailbox", "passwd", "boss@d.test"])
            seen = b""
            for question, reply in (b"boss@d.test: ", "typed"), (b"once more: ", again):
                while not seen.endswith(question):
                    seen += os.read(terminal, 100)
                os.write(terminal, reply.encode() + b"\n")
            self.assertEqual(status, os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
            self.assertNotIn(b"typed", seen)
            self.assertEqual(status == 0, accepts("boss@d.test", "typed"))

    def test_refused_names_and_values(self):
        self.ctl("domain add d.test boss", "quota set boss@d.test 5G")  # the first quota of all
        for name in "Bob@d.test .b@d.test b..c@d.test a;b@d.test a'@d.test b@d b@-d.test $(id)@d.test a,b@d.test |sh@d.test".split():
            self.refused([f"mailbox add {name}", f"alias delete {name}", f"catchall set d.test {name}"], name)
        for size in "0", "-1", "5T", "1048577G", "99999999999999999999", "1.5G":
            self.refused(f"quota set boss@d.test {size}", f'"{size}"')
        self.refused("alias add a@d.test a@d.test", "to itself")

    def test_one_command_at_a_time(self):
        self.ctl("domain add d.test boss")
        with ThreadPoolExecutor(8) as racers:
            list(racers.map(lambda i: self.ctl(f"mailbox add u{i}@d.test --quota 1K"), range(8)))
        self.assertEqual([9, 8], [(ETC / name).read_text().count("\n") for name in ("vmaps.txt", "vquota.txt")])
        with transactions_locked():
            self.refused("mailbox add bob@d.test --wait 0", f"process {os.getpid()}", status=3)
            self.answers("mailbox count d.test", "9")  # a query does not wait

    def test_settings_rights_and_tools(self):
        for text, says in (("MailBackend mysql\n", "MailBackend"), ('MailBackend="mysql"\n', "MailBackend"),
                           ('MailBackend "ldap"\n', "ldap"), ("#" * 119 + "\n" + MYSQL, "118"), ("#" * 1000 + "\n" + MYSQL, "999"),
                           (MYSQL.replace("MailSqlUser", "User"), "MailSqlUser"), (MYSQL.replace("3306", "x"), "MailSqlPort")):
            CONF.write_text(text)
            self.refused("domain add d.test boss", says, "/etc/Quorvel.conf")
        CONF.write_text("")
        nobody = ("setpriv", "--reuid=65534", "--inh-caps=+dac_read_search", "--ambient-caps=+dac_read_search")
        self.refused("domain add d.test boss", "root", prefix=nobody)
        output("mount", "--bind", "/dev/null", "/usr/sbin/postmap")
        self.addCleanup(output, "umount", "/usr/sbin/postmap")
        self.refused("domain add d.test boss", "postmap")


output(TOP / "scripts/start-mariadb")
unittest.main()
