#!/usr/bin/python3
"""check.py QVMAILCTL - damages a world of mail, and lets "qvmailctl check" find and mend it; inside scripts/private-world"""
import fcntl, json, os, re, subprocess, sys, unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests"))
from answers import check_failure, check_result
from private_world import TOP

QVMAILCTL = os.path.abspath(sys.argv.pop(1))
KEPT = "/etc/vmail /etc/VirtualHosts /var/spool/vmail /etc/Quorvel.conf /etc/postfix /etc/dovecot /etc/passwd"
TREE = "/var/spool/vmail/d.test"
SQL = "mariadb qvmail -e"
MAIN, LDA = "/etc/postfix/main.cf", "/etc/dovecot/accounts.conf"
HOME, INBOX = f"{TREE}/mail/home", f"{TREE}/mail/inbox"
COMMANDS = "commands"

# What happens in /etc/vmail, what is found, and what is so once it is mended (nothing: it stays found; COMMANDS:
# the last command that each finding prints is run, until nothing is left to find). The world has d.test with boss, and bob with a quota as its catch-all, the forwarder info and the list team.
ON_FILES = (
    # System accounts, directories, owners and modes
    ("sed -i /^qvadmin:/d /etc/passwd", "account-missing", None),
    ("sed -i s/:4201:4101:/:0:4101:/ /etc/passwd", "account-id directory-rights inbox-rights", None),
    ("chmod 777 .", "directory-rights", "test $(stat -c %a .) = 755"),
    ("chown qvadmin /var/spool/vmail", "directory-rights", "test $(stat -c %U /var/spool/vmail) = root"),
    ("chmod 755 /var/spool/vmail", "spool-open", "test $(stat -c %G:%a /var/spool/vmail) = mail:710"),
    ("chmod 755 /var/spool/vmail; sed -i s/^virtual_transport.*/virtual_transport=virtual/ " + MAIN + "; echo "
     "virtual_mailbox_base=/var/spool/vmail >> " + MAIN, "postfix-setting spool-open", None),  # the group of virtual(8) is unset
    ("chgrp 0 /var/spool/vmail", "directory-rights", "test $(stat -c %G:%a /var/spool/vmail) = mail:710"),
    ("chmod 755 transaction", "lock-unfit", "test $(stat -c %a transaction) = 700"),
    ("rmdir transaction; ln -s /tmp transaction", "lock-unfit", None),
    ("chown qvadmin vmaps.txt", "map-rights", "test $(stat -c %U:%a vmaps.txt) = root:644"),
    ("chmod 666 vpasswd", "map-rights", "test $(stat -c %a vpasswd) = 644"),
    ("chmod 600 /etc/VirtualHosts vshadow", "map-rights", "test $(stat -c %a vshadow) = 600"),  # Dovecot's auth is root
    ("chmod 644 vshadow vshadow.qvbackup", "secret-readable", "test \"$(stat -c %a vshadow*)\" = '640\n640'"),
    ("mv vquota.txt x; ln -s x vquota.txt", "map-unfit", None),
    # Maps that are gone, work files
    ("rm valias.txt*", "map-missing", "test -f valias.txt -a -f valias.txt.db"),
    ("rm vshadow", "map-missing", COMMANDS),
    ("echo left > vmaps-temp.txt", "work-file", "grep -q left vmaps-temp.txt.aside-* && test $(wc -l < vmaps.txt) = 3"),
    ("mv vmaps.txt vmaps-temp.txt", "map-missing work-file", "test $(wc -l < vmaps.txt) = 3"),
    ("mv vshadow temp.txt", "map-missing work-file", "test $(stat -c %G:%a vshadow) = mailstaff:640"),
    ("(cat vshadow; printf 'cut@d.te') > vshadow_temp.txt; rm vshadow", "map-missing work-file", COMMANDS),
    ("cat vpasswd vshadow > x; cat x > vshadow; rm vpasswd", "map-missing",  # by a rename that failed
     "test $(wc -l < vpasswd)$(wc -l < vshadow) = 22"),
    ("echo left > vpasswd.edittmp", "work-file", None),  # a panel may be at work now
    ("cp vpasswd vpasswd.addtmp; mv vpasswd vpasswd_temp.txt", "map-missing work-file", None),
    # Interrupted transactions
    ("printf 'journal of a mail administration, format 1\\nreload\\nend\\n' > transaction/journal", "change-interrupted",
     "test ! -e transaction/journal"),
    ("touch transaction/vmaps.txt", "copies-left", "test ! -e transaction/vmaps.txt"),
    # Lookup tables
    ("rm vmaps.txt.db", "table-stale", "test -f vmaps.txt.db"),
    ("touch -d tomorrow valias.txt", "table-stale", "true"),
    ("touch -d yesterday valias.txt.db", "table-stale", "test valias.txt.db -nt valias.txt"),
    ("echo x@d.test boss@d.test >> valias.txt; touch -d yesterday valias.txt", "table-stale",
     "postmap -q x@d.test valias.txt"),
    ("chmod 600 vmaps.txt.db", "table-rights", "test $(stat -c %a vmaps.txt.db) = 644"),
    ("sed -i 's/= .default_database_type:.etc.vmail.vmaps/= btree:\\/etc\\/vmail\\/vmaps/' " + MAIN, "table-type", None),
    # Lines
    ("printf '\\r\\n \\n' >> valias.txt; sed -i s/5120/&\\ / vquota.txt", "line-blanks table-stale", "! grep -q '[ \r]$' *.txt"),
    ("cat vpasswd vpasswd > x; cat x > vpasswd", "line-twice", "test $(wc -l < vpasswd) = 2"),
    ("printf %s \"$(cat vmaps.txt)\" > vmaps.txt; touch vmaps.txt.db", "line-end-missing", "test $(wc -l < vmaps.txt) = 3"),
    ("printf '\\n4001\\n' >> vpasswd; echo 1 >> vshadow", "line-malformed", "! grep -E '^[0-9]+$' vpasswd vshadow"),
    ("sed -i 's/^boss.*:/boss@d.test:/' vshadow", "line-malformed", None),
    ("echo ' continued' >> vmaps.txt; postmap vmaps.txt", "line-malformed", None),
    ("sed -i 's/^bob.*/& x/' vmaps.txt; postmap vmaps.txt", "line-malformed", None),  # and no route is missing
    ("echo 'boss@d.test:$1$x$y:1::99999::::0' >> vshadow", "name-twice", None),
    ("echo 'a;b@d.test x@d.test' >> valias.txt; postmap valias.txt", "name-unfit", None),
    ("echo 'Info@d.test x@d.test' >> valias.txt; postmap valias.txt", "name-in-capitals", None),
    (": > vshadow", "map-emptied", None),
    # Entries in one map and not in another
    ("echo n@d.test:x:1:2::/h:/s >> vpasswd; printf 'n@d.test\\t5\\n' >> vquota.txt; postmap vquota.txt",
     "mailbox-half-made", "! grep -q n@ vpasswd vquota.txt"),
    ("sed -i /boss/d vshadow; rm vshadow.qvbackup", "password-missing", "grep -q '^boss@d.test:.1.' vshadow"),
    ("sed -i /boss/d vshadow", "password-missing", None),  # the copy has it
    ("sed -i /bob/d vpasswd", "user-line-missing", "grep -q 'bob.*storage=5120B' vpasswd"),
    ("sed -i /^bob/d vmaps.txt; postmap vmaps.txt", "route-missing", "postmap -q bob@d.test vmaps.txt"),
    ("echo n@d.test d.test/mail/inbox/n@d.test >> vmaps.txt; postmap vmaps.txt", "route-without-mailbox",
     "! postmap -q n@d.test vmaps.txt"),
    ("echo n@d.test d.test/mail/inbox/n@d.test >> vmaps.txt; printf 'n@d.test\\t5\\n' >> vquota.txt; postmap vmaps.txt vquota.txt; "
     f"touch {INBOX}/n@d.test", "mail-without-mailbox quota-without-mailbox route-without-mailbox", COMMANDS),
    ("printf 'n@d.test\\t5\\n' >> vquota.txt; postmap vquota.txt", "quota-without-mailbox", "! grep n@ vquota.txt"),
    ("printf 'BOSS@d.test\\t5\\n' >> vquota.txt; postmap vquota.txt", "name-in-capitals quota-without-mailbox", None),
    ("sed -i s/storage=5120B/storage=7B/ vpasswd", "quota-differs", "grep -q storage=5120B vpasswd"),
    ("sed -i s/storage=5120B/storage=-1B/ vpasswd", "quota-differs", "grep -q storage=5120B vpasswd"),
    ("printf 'boss@d.test\\t5\\n' >> vquota.txt; postmap vquota.txt", "quota-differs", "grep -q 'boss.*=5B' vpasswd"),
    (": > vquota.txt; postmap vquota.txt", "quota-differs", "grep -q 5120 vquota.txt"),
    ("for map in vpasswd vshadow v*s.txt; do sed s/d.test/f.test/g $map > x; cat x >> $map; done; postmap vmaps.txt valias.txt; "
     "echo e.test >> /etc/VirtualHosts; mkdir -p /var/spool/vmail/f.test/mail/home/bob@f.test",
     "alias-not-hosted catch-all-not-hosted directory-missing domain-half-made domain-not-hosted", COMMANDS),
    ("sed -i '/^@/s/bob/gone/' vmaps.txt; postmap vmaps.txt", "catch-all-astray", COMMANDS),
    ("sed -i '/^@/d' vmaps.txt; sed -i s/bob/gone/ valias.txt; postmap vmaps.txt; postmap valias.txt", "alias-astray", None),
    # The spool
    ("rm -r /var/spool/vmail/*", "spool-missing", None),
    (f"mkdir {TREE}; rm -r {INBOX}", "directory-missing", f"test $(stat -c %U:%G:%a {INBOX}) = qvadmin:mailstaff:2777"),
    (f"rm -r {HOME}", "directory-missing", f"test -d {HOME}/bob@d.test"),
    (f"chown root {TREE}/mail; chmod 555 {HOME}", "directory-rights", f"test $(stat -c %U:%a {TREE}/mail) = qvadmin:2775"),
    (f"rmdir {HOME}/bob@d.test", "home-missing", f"test $(stat -c %U:%a {HOME}/bob@d.test) = qvadmin:2777"),
    (f"chmod 0 {HOME}/bob@d.test", "directory-rights", f"test $(stat -c %a {HOME}/bob@d.test) = 2777"),
    (f"mv {HOME}/bob@d.test /tmp/x; ln -s /etc {HOME}/bob@d.test", "not-a-directory", None),
    (f"mv {TREE}/mail {TREE}/x; ln -s x {TREE}/mail", "not-a-directory", None),
    (f"ln -sf /etc/shadow {INBOX}/bob@d.test", "inbox-is-link", None),
    (f"chown root {INBOX}/boss@d.test", "inbox-rights", COMMANDS),
    (f"mkdir {HOME}/n@d.test", "mail-without-mailbox", f"! test -e {HOME}/n@d.test"),
    ("mkdir -p /var/spool/vmail/e.test/mail/home/a@e.test /var/spool/vmail/lost+found", "tree-without-domain",
     "test $(ls /var/spool/vmail | wc -l) = 2"),
    ("mkdir -p /var/spool/vmail/e.test/mail/home/a@e.test/folder", "tree-without-domain", COMMANDS),
    (f"mkdir {HOME}/.removed-n@d.test", "mail-not-removed", None),
    # Settings of the servers
    (f"rm {MAIN}", "postfix-unset", None),
    (f"echo recipient_delimiter = + >> {MAIN}", "postfix-setting", None),
    (f"echo mydestination = D.test, localhost >> {MAIN}", "domain-is-own-name", None),
    (f"sed -i '/^virtual_/d; /pipemap/d' {MAIN}", "postfix-setting", None),
    (f"printf 'virtual_alias_maps = hash:/etc/vmail/valias.txt\\n' >> {MAIN}", "postfix-setting", None),
    (f"printf 'virtual_transport = virtual\\nvirtual_mailbox_base = /x\\n' >> {MAIN}", "postfix-setting", None),
    (f"sed -i s/MD5/SHA512/ {LDA}", "dovecot-setting", None),
    (f"sed -i 's/ mail=.*//' {LDA}", "dovecot-setting", None),
    ("printf 'mail_plugins =\\nrecipient_delimiter = +\\nfirst_valid_uid = 5000\\n' > /etc/dovecot/local.conf",
     "account-id dovecot-setting", None),
    ("echo x > /etc/dovecot/local.conf", "dovecot-unset", None),
    ("echo > /etc/Quorvel.conf", "dovecot-setting", None),
)

ON_TABLES = (
    (f"{SQL} 'drop table virtual_aliases'", "table-missing", None),
    (f"{SQL} 'alter table virtual_users modify quota bigint after email'", "table-columns", None),
    (f"{SQL} 'alter table virtual_users modify quota int'", "table-columns", None),
    (f"{SQL} 'alter table virtual_users convert to character set latin1'", "table-collation", None),
    (f"{SQL} 'alter table virtual_users drop key email'", "table-key", None),
    (f"{SQL} 'alter table virtual_domains engine=Aria'", "table-engine", None),
    (f"{SQL} 'delete from mysql.table_stats; flush tables virtual_aliases'", "table-statistics", None),
    (f"{SQL} 'revoke delete on qvmail.* from qvmail@127.0.0.1'", "table-rights", None),
    (f"{SQL} 'delete from virtual_aliases where source = destination'", "self-row-missing",
     f"{SQL} 'select * from virtual_aliases' | grep -q 'bob@d.test.*bob@d.test'"),
    (f"{SQL} 'insert into virtual_aliases values (\"n@d.test\", \"N@d.test\")'", "self-row-left",
     f"! {SQL} 'select * from virtual_aliases' | grep n@d.test"),
    (f"{SQL} 'insert into virtual_aliases select source, destination from virtual_aliases'", "row-twice",
     f"{SQL} 'select count(*) from virtual_aliases' | grep -q 6"),
    (f"{SQL} 'insert into virtual_domains select name from virtual_domains'", "row-twice",
     f"{SQL} 'select count(*) from virtual_domains' | grep -q 1"),
    (f"{SQL} 'alter table virtual_users drop key email; insert into virtual_users select email, password, quota from virtual_users'",
     "row-twice table-key", None),
    (f"{SQL} 'update virtual_users set password = \"\" where email like \"bob%\"'", "password-missing", None),
    (f"{SQL} 'update virtual_users set quota = -1 where email like \"bob%\"'", "quota-negative", COMMANDS),
    (f"{SQL} 'insert into virtual_domains values (\"e.test\"); insert into virtual_users values (\"a;b@d.test\", \"x\", 0)'",
     "directory-missing domain-half-made name-unfit", None),
    (f"{SQL} 'insert into virtual_aliases values (\"a@f.test\", \"b@d.test\"), (\"@f.test\", \"c@d.test\"), (\"@d.test\", \"c@d.test\")'",
     "alias-not-hosted catch-all-not-hosted", COMMANDS),
    (f"{SQL} 'insert into virtual_users select \"a@f.test\", password, 0 from virtual_users limit 1'",
     "domain-not-hosted self-row-missing", COMMANDS),
    (f"{SQL} 'update virtual_aliases set destination = \"c@d.test\" where source = \"@d.test\"'", "catch-all-astray", None),
    (f"rm -r {HOME}", "directory-missing", f"test -d {HOME}/bob@d.test"),
    ("sed -i s/dbname=qvmail/dbname=old/ /etc/dovecot/sql.conf; rm /etc/postfix/sql-domains.cf", "sql-file", None),
    ("sed -i s/127.0.0.1/192.0.2.1/ /etc/postfix/sql-aliases.cf", "sql-file", None),
    ("chmod 644 /etc/Quorvel.conf /etc/postfix/sql-*.cf /etc/dovecot/sql.conf", "secret-readable",
     "stat -c %G:%a /etc/Quorvel.conf /etc/postfix/sql-domains.cf /etc/dovecot/sql.conf | "
     "tr '\\n' ' ' | grep -q 'root:640 postfix:640 dovecot:640'"),
    ("rm /etc/dovecot/accounts.conf; touch /etc/dovecot/accounts.conf", "dovecot-setting", None),
)


def run(command, check=True, cwd="/etc/vmail"):
    done = subprocess.run(["bash", "-c", command], text=True, capture_output=True, cwd=cwd)
    assert not check or done.returncode == 0, f"{command}: {done.stderr}"
    return done


class World(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        """As docs/servers.md has it, with a stub for the reload; a main.cf that is new makes postmap wait."""
        run(f"""set -e; backend={cls.backend}; rm -rf /run/stubs /var/spool/vmail/* /etc/vmail/* /etc/VirtualHosts
            install -m 600 Quorvel-$backend.conf /etc/Quorvel.conf; cat postfix/main.cf postfix/accounts-$backend.cf > {MAIN}
            install -m 644 postfix/inbox_to_address /etc/postfix; install -m 640 -g postfix postfix/sql-*.cf /etc/postfix
            install -m 644 dovecot/dovecot.conf /etc/dovecot; install -m 640 -g dovecot dovecot/sql.conf /etc/dovecot
            install -m 644 dovecot/accounts-$backend.conf {LDA}
            [ -e /etc/ssl/private/ssl-cert-snakeoil.key ] || make-ssl-cert generate-default-snakeoil
            touch -d @1 {MAIN}; mkdir /run/stubs; install /dev/null /run/stubs/postfix; ln -s {QVMAILCTL} /run/stubs/qvmailctl; ./create-empty-maps""", cwd=TOP / "config")
        if cls.backend == "mysql":
            run(cls.tables())
        for command in ("domain add d.test boss", "mailbox add bob@d.test --quota 5K", "alias add info@d.test bob@d.test",
                        "list add team@d.test bob@d.test x@y.test", "catchall set d.test bob"):
            run(f"echo secret | {QVMAILCTL} {command}")
        run(f"touch {INBOX}/boss@d.test; chown qvadmin {INBOX}/boss@d.test; tar cPf /run/world {KEPT}; "
            f"mariadb-dump --skip-comments qvmail > /run/rows; grep -A1 '^--  .*replace' {TOP}/config/schema.sql | cut -c 3- >> /run/rows")

    @staticmethod
    def tables():
        return f"mariadb -e 'drop database qvmail; create database qvmail'; mariadb qvmail < {TOP}/config/schema.sql"

    def setUp(self):
        run(f"rm -rf {KEPT}; tar xPf /run/world", cwd="/")
        if self.backend == "mysql":
            run("mariadb -e 'drop database qvmail; create database qvmail; "
                "grant select, insert, update, delete on qvmail.* to qvmail@127.0.0.1'; mariadb qvmail < /run/rows")

    def ctl(self, command, status):
        done = run(f"{QVMAILCTL} {command} --json", check=False)
        self.assertEqual(status, done.returncode, f"{command}: {done.stdout}{done.stderr}")
        document = json.loads(re.sub(r"(aside-)\d{8}-\d{6}", r"\1DATE", done.stdout))
        if "result" in document:
            check_result("check", document["result"])
        if "error" in document:
            check_failure(document["error"])
        return document

    def kinds(self, findings):
        return " ".join(sorted({finding["kind"] for finding in findings}))

    def run_commands(self, findings):
        for _ in range(9):
            command = re.findall('"(.*?)"', findings[0]["message"])[-1]
            run(command + " --yes" * (" delete " in command or " remove " in command))
            findings = json.loads(run(f"{QVMAILCTL} check --json", check=False).stdout)["result"]["findings"]
            if not findings:
                return
        self.fail(findings)

    def rows(self, table):
        self.assertEqual([], self.ctl("check", 0)["result"]["findings"])
        for damage, kinds, proof in table:
            with self.subTest(damage):
                self.setUp()
                run(damage + f"; touch -cd @1 {MAIN} *temp*")
                found = self.ctl("check", 78)["result"]["findings"]
                self.assertEqual(kinds, self.kinds(found), found)
                before = run(f"find {KEPT} -type f | sort | xargs ls -l --time-style=full-iso", check=False, cwd="/").stdout
                self.assertEqual(found, self.ctl("check --dry-run", 78)["result"]["findings"])
                self.assertEqual(before, run(f"find {KEPT} -type f | sort | xargs ls -l --time-style=full-iso", check=False, cwd="/").stdout)
                stays = [finding for finding in found if not finding["repair"]]
                done = run(f"{QVMAILCTL} check --repair --json", check=False)
                self.assertIn(done.returncode, (0, 78), done.stdout + done.stderr)
                again = self.ctl("check", 0 if proof not in (None, COMMANDS) else 78)["result"]["findings"]
                if proof == COMMANDS:
                    self.run_commands(again)
                elif proof:
                    self.assertEqual("", run(proof, check=True).stderr)
                else:
                    self.assertEqual(self.kinds(stays), self.kinds(again), again)
                self.assertFalse([finding for finding in again if finding["repair"]])


class OnFiles(World):
    backend = "files"

    def test_damages(self):
        self.rows(ON_FILES)

    def test_an_answer_that_cannot_be_written(self):
        self.assertEqual(74, run(f"{QVMAILCTL} check --json > /dev/full", check=False).returncode)
        self.assertEqual(74, run(f"{QVMAILCTL} quota delete bob@d.test --dry-run > /dev/full", check=False).returncode)
        run("rm vmaps.txt.db")
        self.assertEqual(78, run(f"{QVMAILCTL} check --json > /dev/full", check=False).returncode)

    def test_lines_for_people(self):
        run("printf 'a\\033b@d.test x\\n' >> valias.txt; touch valias.txt.db; rm vmaps.txt.db")
        done = run(f"{QVMAILCTL} check", check=False)
        self.assertEqual(78, done.returncode)
        self.assertEqual(["/etc/vmail/valias.txt: line 3, \"a\\x1bb@d.test x\", is of no use: it holds a control character",
                          "/etc/vmail/vmaps.txt.db: is missing, so Postfix puts off mail"],
                         [line.rsplit("; ")[0] for line in done.stdout.splitlines()])
        self.assertIn('2 findings, of which "qvmailctl check --repair" mends 1', done.stderr)
        self.assertIn("repaired: postmap builds it anew", run(f"{QVMAILCTL} check --repair", check=False).stdout)

    def test_a_change_at_work(self):
        directory = os.open("/etc/vmail/transaction", os.O_RDONLY)
        fcntl.flock(directory, fcntl.LOCK_EX)
        self.assertEqual([], self.ctl("check", 0)["result"]["findings"])
        run("rm vmaps.txt.db")
        self.assertEqual("table-stale", self.kinds(self.ctl("check", 78)["result"]["findings"]))
        self.assertEqual("busy", self.ctl("check --repair --wait 0", 75)["error"]["name"])
        run("(sleep 0.3; postmap vmaps.txt) > /dev/null 2>&1 &")  # as the change at work does
        self.assertEqual([], self.ctl("check", 0)["result"]["findings"])
        os.close(directory)

    def test_a_comment_in_a_map(self):
        run("sed -i '1i # by hand' vmaps.txt valias.txt; postmap vmaps.txt valias.txt")
        self.assertEqual([], self.ctl("check", 0)["result"]["findings"])

    def test_the_longer_copy_is_kept(self):
        run("cp vmaps.txt vmaps.txt.qvbackup; sed -i /^bob/d vmaps.txt")
        self.ctl("check --repair", 0)
        self.assertEqual("3 3\n", run("echo $(cat vmaps.txt.qvbackup.aside-* | wc -l) $(wc -l < vmaps.txt)").stdout)


class OnTables(World):
    backend = "mysql"

    def test_damages(self):
        self.rows(ON_TABLES)

    def test_no_database(self):
        run("sed -i s/3306/3307/ /etc/Quorvel.conf")
        self.assertEqual("unreachable", self.ctl("check --repair", 69)["error"]["name"])


os.environ["PATH"] = "/run/stubs:/usr/bin:/bin:/usr/sbin:/sbin"
run(f"{TOP}/scripts/start-mariadb", cwd="/")
unittest.main()
