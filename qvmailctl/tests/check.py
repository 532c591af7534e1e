#!/usr/bin/python3
"""check.py QVMAILCTL - damages a world of mail that "qvmailctl check" mends, inside scripts/private-world"""
import fcntl, os, re, subprocess, sys, unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from answers import TestCase, checked
from private_world import BUSY, ETC, NOT_FIT, NOT_WRITTEN, QVMAILCTL, TOP, UNREACHABLE, qvmailctl, sql, without_postfix

KEPT = "/etc/vmail /etc/VirtualHosts /var/spool/vmail /etc/Quorvel.conf /etc/postfix /etc/dovecot /etc/passwd"
MAIN, LDA, LOCAL = "/etc/postfix/main.cf", "/etc/dovecot/accounts.conf", "/etc/dovecot/local.conf"
TREE = "/var/spool/vmail/d.test"
HOME, INBOX = f"{TREE}/mail/home", f"{TREE}/mail/inbox"
COMMANDS = "commands"
PRELUDE = r"""
add() { printf '%b\n' "$2" >> $1; postmap $1; }        # a line to a map, which is published
edit() { sed -i "$2" $1; postmap $1; }
has() { [[ $(stat -c %U:%G:%a $2) == $1 ]]; }          # owner, group and mode
sql() { mariadb qvmail -Ne "$1"; }
insert() { sql "insert into virtual_$1 values $2"; }
count() { test $(sql "select count(*) from virtual_$1") = $2; }
"""

# What happens in /etc/vmail, what is found, and what is so once it is mended (nothing: it stays found; COMMANDS:
# the last command that each finding prints is run, until nothing is left to find). The world has d.test with boss,
# and bob with a quota as its catch-all, the forwarder info and the list team.
ON_FILES = (
    # System accounts, directories, owners and modes
    ("sed -i /^qvadmin:/d /etc/passwd", "account-missing", None),
    ("sed -i s/:4201:4101:/:0:4101:/ /etc/passwd", "account-id directory-rights inbox-rights", None),
    ("chmod 777 .; chown qvadmin /var/spool/vmail; chmod 755 transaction", "directory-rights lock-unfit",
     "has root:*:755 . && has root:mail:710 /var/spool/vmail && has *:700 transaction"),
    ("chgrp 0 /var/spool/vmail", "directory-rights", "has root:mail:710 /var/spool/vmail"),
    ("chmod 755 /var/spool/vmail", "spool-open", "has root:mail:710 /var/spool/vmail"),
    ("chmod 755 /var/spool/vmail; sed -i s/^virtual_transport.*/virtual_transport=virtual/ " + MAIN +
     "; echo virtual_mailbox_base=/var/spool/vmail >> " + MAIN,
     "postfix-setting spool-open", None),  # the group of virtual(8) is unset
    ("rmdir transaction; ln -s /tmp transaction; mv vquota.txt x; ln -s x vquota.txt", "lock-unfit map-unfit", None),
    ("chown qvadmin vmaps.txt; chmod 600 vmaps.txt.db; chmod 644 vshadow vshadow.qvbackup",
     "map-rights secret-readable table-rights",
     "has root:*:644 vmaps.txt && has *:644 vmaps.txt.db && has *:640 vshadow && has *:640 vshadow.qvbackup"),
    ("chmod 666 vpasswd", "map-rights", "has *:644 vpasswd"),
    ("chmod 600 /etc/VirtualHosts vshadow", "map-rights", "has *:600 vshadow"),  # Dovecot's auth is root
    # Maps that are gone, work files, interrupted transactions
    ("rm valias.txt*", "map-missing", "test -f valias.txt -a -f valias.txt.db"),
    ("rm vshadow", "map-missing", COMMANDS),
    ("echo left > vmaps-temp.txt", "work-file", "grep -q left vmaps-temp.txt.aside-* && test $(wc -l < vmaps.txt) = 3"),
    ("mv vmaps.txt vmaps-temp.txt", "map-missing work-file", "test $(wc -l < vmaps.txt) = 3"),
    ("mv vshadow temp.txt", "map-missing work-file", "has *:mailstaff:640 vshadow"),
    ("(cat vshadow; printf 'cut@d.te') > vshadow_temp.txt; rm vshadow", "map-missing work-file", COMMANDS),
    ("cat vpasswd vshadow > x; cat x > vshadow; rm vpasswd", "map-missing",  # by a rename that failed
     "test $(wc -l < vpasswd)$(wc -l < vshadow) = 22"),
    ("echo left > vpasswd.edittmp", "work-file", None),  # a panel may be at work now
    ("cp vpasswd vpasswd.addtmp; mv vpasswd vpasswd_temp.txt", "map-missing work-file", None),
    (r"printf 'journal of a mail administration, format 1\nreload\nend\n' > transaction/journal", "change-interrupted",
     "test ! -e transaction/journal"),
    ("touch transaction/vmaps.txt", "copies-left", "test ! -e transaction/vmaps.txt"),
    # Lookup tables
    ("rm vmaps.txt.db; touch -d tomorrow valias.txt", "table-stale", "test -f vmaps.txt.db"),
    ("touch -d yesterday valias.txt.db", "table-stale", "test valias.txt.db -nt valias.txt"),
    ("echo x@d.test boss@d.test >> valias.txt; touch -d yesterday valias.txt", "table-stale",
     "postmap -q x@d.test valias.txt"),
    (r"sed -i 's/= .default_database_type:.etc.vmail.vmaps/= btree:\/etc\/vmail\/vmaps/' " + MAIN, "table-type", None),
    # Lines
    (r"printf '\r\n \n' >> valias.txt; sed -i s/5120/&\ / vquota.txt", "line-blanks table-stale",
     r"! grep -q '[ \r]$' *.txt"),
    ("cat vpasswd vpasswd > x; cat x > vpasswd", "line-twice", "test $(wc -l < vpasswd) = 2"),
    ("truncate -s -1 vmaps.txt; touch vmaps.txt.db", "line-end-missing", "test $(wc -l < vmaps.txt) = 3"),
    (r"printf '\n4001\n' >> vpasswd; echo 1 >> vshadow", "line-malformed", "! grep -E '^[0-9]+$' vpasswd vshadow"),
    ("sed -i 's/^boss.*:/boss@d.test:/' vshadow", "line-malformed", None),
    ("add vmaps.txt ' continued'", "line-malformed", None),
    ("edit vmaps.txt 's/^bob.*/& x/'", "line-malformed", None),  # and no route is missing
    ("echo 'boss@d.test:$1$x$y:1::99999::::0' >> vshadow; add valias.txt 'a;b@d.test x@d.test'; "
     "add valias.txt 'Info@d.test x@d.test'", "name-in-capitals name-twice name-unfit", None),
    (": > vshadow", "map-emptied", None),
    # Entries in one map and not in another
    (r"echo n@d.test:x:1:2::/h:/s >> vpasswd; add vquota.txt 'n@d.test\t5'", "mailbox-half-made",
     "! grep -q n@ vpasswd vquota.txt"),
    ("sed -i /boss/d vshadow; rm vshadow.qvbackup", "password-missing", "grep -q '^boss@d.test:.1.' vshadow"),
    ("sed -i /boss/d vshadow", "password-missing", None),  # the copy has it
    ("sed -i /bob/d vpasswd", "user-line-missing", "grep -q 'bob.*storage=5120B' vpasswd"),
    ("edit vmaps.txt /^bob/d", "route-missing", "postmap -q bob@d.test vmaps.txt"),
    (r"add vmaps.txt 'n@d.test d.test/mail/inbox/n@d.test'; add vquota.txt 'm@d.test\t5'",
     "quota-without-mailbox route-without-mailbox", "! grep -q '[nm]@' vmaps.txt vquota.txt"),
    (r"add vmaps.txt 'n@d.test d.test/mail/inbox/n@d.test'; add vquota.txt 'n@d.test\t5'; "
     f"install -o qvadmin /dev/null {INBOX}/n@d.test",
     "mail-without-mailbox quota-without-mailbox route-without-mailbox", COMMANDS),
    (r"add vquota.txt 'BOSS@d.test\t5'", "name-in-capitals quota-without-mailbox", None),
    ("sed -i s/storage=5120B/storage=7B/ vpasswd", "quota-differs", "grep -q storage=5120B vpasswd"),
    ("sed -i s/storage=5120B/storage=-1B/ vpasswd", "quota-differs", "grep -q storage=5120B vpasswd"),
    (r"add vquota.txt 'boss@d.test\t5'", "quota-differs", "grep -q 'boss.*=5B' vpasswd"),
    (": > vquota.txt; postmap vquota.txt", "quota-differs", "grep -q 5120 vquota.txt"),
    ("for map in vpasswd vshadow v*s.txt; do sed s/d.test/f.test/g $map > x; cat x >> $map; done; "
     "postmap vmaps.txt valias.txt; echo e.test >> /etc/VirtualHosts; mkdir -p /var/spool/vmail/f.test/mail/home/bob@f.test",
     "alias-not-hosted catch-all-not-hosted directory-missing domain-half-made domain-not-hosted", COMMANDS),
    ("edit vmaps.txt '/^@/s/bob/gone/'", "catch-all-astray", COMMANDS),
    ("edit vmaps.txt '/^@/d'; edit valias.txt s/bob/gone/", "alias-astray", None),
    # The spool
    ("rm -r /var/spool/vmail/*", "spool-missing", None),
    (f"rm -r {HOME} {INBOX}", "directory-missing", f"has qvadmin:mailstaff:2777 {INBOX} && test -d {HOME}/bob@d.test"),
    (f"chown root {TREE}/mail; chmod 555 {HOME}", "directory-rights", f"has qvadmin:*:2775 {TREE}/mail"),
    (f"rmdir {HOME}/bob@d.test; chmod 0 {HOME}/boss@d.test", "directory-rights home-missing",
     f"has qvadmin:*:2777 {HOME}/bob@d.test && has *:2777 {HOME}/boss@d.test"),
    (f"mv {TREE}/mail {TREE}/x; ln -s x {TREE}/mail", "not-a-directory", None),
    (f"mv {HOME}/bob@d.test /tmp/x; ln -s /etc {HOME}/bob@d.test; ln -sf /etc/shadow {INBOX}/bob@d.test; "
     f"chown root {INBOX}/boss@d.test", "inbox-is-link inbox-rights not-a-directory", None),
    (f"mkdir -p {HOME}/n@d.test /var/spool/vmail/e.test/mail/home/a@e.test /var/spool/vmail/lost+found",
     "mail-without-mailbox tree-without-domain", f"! test -e {HOME}/n@d.test && test $(ls /var/spool/vmail | wc -l) = 2"),
    ("mkdir -p /var/spool/vmail/e.test/mail/home/a@e.test/folder", "tree-without-domain", COMMANDS),
    (f"mkdir {HOME}/.removed-n@d.test", "mail-not-removed", None),
    # Settings of the servers
    (f"rm {MAIN}; echo x > {LOCAL}", "dovecot-unset postfix-unset", None),
    (f"echo recipient_delimiter = + >> {MAIN}; echo > /etc/Quorvel.conf", "dovecot-setting postfix-setting", None),
    (f"echo mydestination = D.test, localhost >> {MAIN}; sed -i s/MD5/SHA512/ {LDA}",
     "domain-is-own-name dovecot-setting", None),
    (f"sed -i '/^virtual_/d; /pipemap/d' {MAIN}; sed -i 's/ mail=.*//' {LDA}", "dovecot-setting postfix-setting", None),
    (f"echo virtual_alias_maps = hash:/etc/vmail/valias.txt >> {MAIN}", "postfix-setting", None),
    (rf"printf 'virtual_transport = virtual\nvirtual_mailbox_base = /x\n' >> {MAIN}", "postfix-setting", None),
    (rf"printf 'mail_plugins =\nrecipient_delimiter = +\nfirst_valid_uid = 5000\n' > {LOCAL}",
     "account-id dovecot-setting", None),
)

ON_TABLES = (
    ("sql 'drop table virtual_aliases'", "table-missing", None),
    ("sql 'alter table virtual_users modify quota bigint after email'", "table-columns", None),
    ("sql 'alter table virtual_users modify quota int; alter table virtual_users convert to character set latin1; "
     "alter table virtual_users drop key email; alter table virtual_domains engine=Aria'",
     "table-collation table-columns table-engine table-key", None),
    ("sql 'delete from mysql.table_stats; flush tables virtual_aliases'", "table-statistics", None),
    ("sql 'revoke delete on qvmail.* from qvmail@127.0.0.1'", "table-rights", None),
    ("""sql 'delete from virtual_aliases where source = destination'; insert aliases '("n@d.test", "N@d.test")'""",
     "self-row-left self-row-missing", "count 'aliases where source = destination' 2 && count aliases 6"),
    ("sql 'insert into virtual_aliases select * from virtual_aliases'", "row-twice", "count aliases 6"),
    ("sql 'insert into virtual_domains select * from virtual_domains'", "row-twice", "count domains 1"),
    ("sql 'alter table virtual_users drop key email; insert into virtual_users select * from virtual_users'",
     "row-twice table-key", None),
    ("""sql 'update virtual_users set password = if(email like "bob%", "", password)'""", "password-missing", None),
    ("""sql 'update virtual_users set quota = -1 where email like "bob%"'""", "quota-negative", COMMANDS),
    ("""insert domains '("e.test")'; insert users '("a;b@d.test", "x", 0)'""",
     "directory-missing domain-half-made name-unfit", None),
    ("""insert aliases '("a@f.test", "b@d.test"), ("@f.test", "c@d.test"), ("@d.test", "c@d.test")'""",
     "alias-not-hosted catch-all-not-hosted", COMMANDS),
    ("""sql 'insert into virtual_users select "a@f.test", password, 0 from virtual_users limit 1'""",
     "domain-not-hosted self-row-missing", COMMANDS),
    ("""sql 'update virtual_aliases set destination = "c@d.test" where source = "@d.test"'""",
     "catch-all-astray", None),
    (f"rm -r {HOME}", "directory-missing", f"test -d {HOME}/bob@d.test"),
    ("sed -i s/dbname=qvmail/dbname=old/ /etc/dovecot/sql.conf; rm /etc/postfix/sql-domains.cf", "sql-file", None),
    (f"sed -i s/127.0.0.1/192.0.2.1/ /etc/postfix/sql-aliases.cf; echo > {LDA}", "dovecot-setting sql-file", None),
    ("chmod 644 /etc/Quorvel.conf /etc/postfix/sql-*.cf /etc/dovecot/sql.conf", "secret-readable",
     "has root:root:640 /etc/Quorvel.conf && has root:postfix:640 /etc/postfix/sql-domains.cf && "
     "has root:dovecot:640 /etc/dovecot/sql.conf"),
)


def run(command, check=True, cwd=ETC):
    done = subprocess.run(["bash", "-c", PRELUDE + command], text=True, capture_output=True, cwd=cwd)
    assert not check or done.returncode == 0, f"{command}: {done.stderr}"
    return done


class World:
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        """As docs/servers.md has it."""
        if cls.backend == "mysql":
            sql("drop database qvmail; create database qvmail")
            run("mariadb qvmail < schema.sql", cwd=TOP / "config")
        run(f"""set -e; backend={cls.backend}; rm -rf /var/spool/vmail/* /etc/vmail/* /etc/VirtualHosts
            install -m 600 Quorvel-$backend.conf /etc/Quorvel.conf
            cat postfix/main.cf postfix/accounts-$backend.cf > {MAIN}
            touch -d @1 {MAIN}
            install -m 644 postfix/inbox_to_address /etc/postfix
            install -m 640 -g postfix postfix/sql-*.cf /etc/postfix
            install -m 644 dovecot/dovecot.conf /etc/dovecot
            install -m 644 dovecot/accounts-$backend.conf {LDA}
            install -m 640 -g dovecot dovecot/sql.conf /etc/dovecot
            ./create-empty-maps
            for change in "domain add d.test boss" "mailbox add bob@d.test --quota 5K" "catchall set d.test bob" \
                "alias add info@d.test bob@d.test" "list add team@d.test bob@d.test x@y.test"
            do echo secret | {QVMAILCTL} $change
            done
            install -o qvadmin /dev/null {INBOX}/boss@d.test
            tar cPf /run/world {KEPT}
            mariadb-dump --skip-comments qvmail > /run/rows
            grep -A1 '^--  .*replace' schema.sql | cut -c 3- >> /run/rows""", cwd=TOP / "config")

    def setUp(self):
        run(f"rm -rf {KEPT}; tar xPf /run/world", cwd="/")
        if self.backend == "mysql":
            run("mariadb -e 'drop database qvmail; create database qvmail; "
                "grant select, insert, update, delete on qvmail.* to qvmail@127.0.0.1'; mariadb qvmail < /run/rows")

    def findings(self, options, status):
        done = qvmailctl(f"check --json {options}")
        self.assertEqual(status, done.returncode, done.stdout + done.stderr)
        return checked("check", re.sub(r"(aside-)\d{8}-\d{6}", r"\1DATE", done.stdout))["findings"]

    def kinds(self, findings):
        return " ".join(sorted({finding["kind"] for finding in findings}))

    def files(self):
        return run(f"find {KEPT} -type f | sort | xargs ls -l --time-style=full-iso", check=False, cwd="/").stdout

    def run_commands(self, findings):
        for _ in range(9):
            command = re.findall('"(.*?)"', findings[0]["message"])[-1]
            command += " --yes" * (" delete " in command or " remove " in command)
            run(command.replace("qvmailctl", QVMAILCTL))
            findings = checked("check", qvmailctl("check --json").stdout)["findings"]
            if not findings:
                return
        self.fail(findings)

    def test_damages(self):
        self.assertEqual([], self.findings("", 0))
        for damage, kinds, proof in self.damages:
            with self.subTest(damage):
                self.setUp()
                run(damage + f"; touch -cd @1 {MAIN} *temp*")
                before = self.files()
                found = self.findings("--dry-run", NOT_FIT)
                self.assertEqual(kinds, self.kinds(found), found)
                self.assertEqual(before, self.files())
                expected = 0 if proof not in (None, COMMANDS) else NOT_FIT
                repaired = qvmailctl("check --repair --json")
                again = self.findings("", expected)
                self.assertEqual(expected, repaired.returncode, repaired.stdout + repaired.stderr)
                self.assertEqual([], [finding for finding in again if finding["repair"]])
                if proof == COMMANDS:
                    self.run_commands(again)
                elif proof:
                    run(proof)
                else:
                    by_hand = [finding for finding in found if not finding["repair"]]
                    self.assertEqual(self.kinds(by_hand), self.kinds(again), again)


class OnFiles(World, TestCase):
    backend, damages = "files", ON_FILES

    def test_an_answer_that_cannot_be_written(self):
        for damage, words, status in (("", "check --json", NOT_WRITTEN),
                                      ("", "quota delete bob@d.test --dry-run", NOT_WRITTEN),
                                      ("rm vmaps.txt.db;", "check --json", NOT_FIT)):
            self.assertEqual(status, run(f"{damage} {QVMAILCTL} {words} > /dev/full", check=False).returncode, words)

    def test_lines_for_people(self):
        run(r"printf 'a\033b@d.test x\n' >> valias.txt; touch valias.txt.db; rm vmaps.txt.db")
        done = qvmailctl("check")
        self.assertEqual(NOT_FIT, done.returncode)
        line, table = (line.rsplit("; ")[0] for line in done.stdout.splitlines())
        self.assertIn(r'valias.txt: line 3, "a\x1bb@d.test x", is of no use: it holds a control character', line)
        self.assertEqual("/etc/vmail/vmaps.txt.db: is missing, so Postfix puts off mail", table)
        self.assertIn('2 findings, of which "qvmailctl check --repair" mends 1', done.stderr)
        self.assertIn("repaired: postmap builds it anew", qvmailctl("check --repair").stdout)

    def test_a_change_at_work(self):
        directory = os.open("/etc/vmail/transaction", os.O_RDONLY)
        fcntl.flock(directory, fcntl.LOCK_EX)
        self.assertEqual([], self.findings("", 0))
        run("rm vmaps.txt.db")
        self.assertEqual("table-stale", self.kinds(self.findings("", NOT_FIT)))
        self.assertEqual("busy", self.result("check --repair --wait 0", status=BUSY)["name"])
        run("(sleep 0.3; postmap vmaps.txt) > /dev/null 2>&1 &")  # as the change at work does
        self.assertEqual([], self.findings("", 0))
        os.close(directory)

    def test_a_comment_in_a_map(self):
        run("sed -i '1i # by hand' vmaps.txt valias.txt; postmap vmaps.txt valias.txt")
        self.assertEqual([], self.findings("", 0))

    def test_the_longer_copy_is_kept(self):
        run("cp vmaps.txt vmaps.txt.qvbackup; sed -i /^bob/d vmaps.txt")
        self.findings("--repair", 0)
        self.assertEqual("3 3\n", run("echo $(cat vmaps.txt.qvbackup.aside-* | wc -l) $(wc -l < vmaps.txt)").stdout)


class OnTables(World, TestCase):
    backend, damages = "mysql", ON_TABLES

    def test_no_database(self):
        run("sed -i s/3306/3307/ /etc/Quorvel.conf")
        self.assertEqual("unreachable", self.result("check --repair", status=UNREACHABLE)["name"])


del sys.argv[1]
os.environ["PATH"] = "/usr/bin:/bin:/usr/sbin:/sbin"
run("[ -e /etc/ssl/private/ssl-cert-snakeoil.key ] || make-ssl-cert generate-default-snakeoil")
run(f"{TOP}/scripts/start-mariadb")
without_postfix()
unittest.main()
