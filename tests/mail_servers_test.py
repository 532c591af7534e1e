#!/usr/bin/env python3
"""mail_servers_test.py files|mysql QVMAILCTL - accounts made by qvmailctl, on real servers

Each test has a domain of its own. Servers see a change after a moment: what is expected is asked for until it holds."""

import contextlib, functools, grp, imaplib, json, os, pwd, re, smtplib, subprocess, sys, time, unittest
from pathlib import Path

import private_world
from private_world import TOP, output, sql

BACKEND = sys.argv[1]
del sys.argv[1:3]
SMTP = functools.partial(smtplib.SMTP, "127.0.0.1", local_hostname="client.elsewhere.test", timeout=20)
WRONG_PASSWORD = str(b"[AUTHENTICATIONFAILED] Authentication failed.")


def password_of(address):
    return "pw-" + address.split("@")[0].lower()


def qvmailctl(words, password=""):
    done = private_world.qvmailctl(words, password + "\n")
    assert done.returncode == 0, words + done.stderr
    return done.stdout


def send(recipient, subject, size=100, sender="visitor@elsewhere.test"):
    with SMTP() as server:
        server.sendmail(sender, [recipient], f"Subject: {subject}\n\n" + ("x" * 70 + "\n") * (size // 71 + 1))


def answer_to_recipient(recipient):
    with SMTP() as server:
        server.ehlo_or_helo_if_needed()
        server.mail("visitor@elsewhere.test")
        return server.rcpt(recipient)[0]


@contextlib.contextmanager
def login(address, password=None):
    with imaplib.IMAP4("127.0.0.1", timeout=20) as server:
        server.login(address, password or password_of(address))
        server.select(readonly=True)
        yield server


def subjects(address, password=None):
    with login(address, password) as server:
        numbers = server.search(None, "ALL")[1][0].decode().replace(" ", ",")
        found = server.fetch(numbers, "(BODY[HEADER.FIELDS (SUBJECT)])")[1] if numbers else []
        return sorted(part[1].decode().strip()[len("Subject: "):] for part in found if isinstance(part, tuple))


def quota(address):
    """The limit in KiB that Dovecot reports, or None."""
    with login(address) as server:
        found = re.search(r"STORAGE \d+ (\d+)", str(server.getquotaroot("INBOX")))
        return int(found[1]) if found else None


class MailServers(unittest.TestCase):
    def eventually(self, expected, question):
        deadline = time.monotonic() + 20
        while True:
            try:
                answer = question()
            except imaplib.IMAP4.error as error:
                answer = str(error)
            if answer == expected or time.monotonic() > deadline:
                return self.assertEqual(expected, answer, subprocess.getoutput("tail -n 20 /var/log/[dp]o*.log"))
            time.sleep(0.05)

    def create(self, *addresses):
        """The first makes its domain. Then waits until Dovecot, which looks at a changed account file
        only once a second, knows the last: it returns mail for strangers."""
        for number, address in enumerate(addresses):
            name, domain = address.split("@")
            qvmailctl(f"mailbox add {address}" if number else f"domain add {domain} {name}", password_of(address))
        self.inbox_holds([], addresses[-1])
        self.answers(250, addresses[-1])

    def inbox_holds(self, expected, address, password=None):
        self.eventually(sorted(expected), lambda: subjects(address, password))

    def login_is_refused(self, address, password=None):
        self.eventually(WRONG_PASSWORD, lambda: subjects(address, password))

    def quota_is(self, limit, address):
        self.eventually(limit, lambda: quota(address))

    def answers(self, code, recipient):
        self.eventually(code, lambda: answer_to_recipient(recipient))

    def nobody_else_reaches(self, mail, address):
        """As a local user: to list, read, rename and plant inboxes fails, though inbox itself is writable for all."""
        self.assertEqual("2777", output("stat", "-c", "%a", f"{mail}/inbox").strip())
        nobody = "setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"
        for attempt in ("ls /var/spool/vmail", f"ls {mail}/inbox", f"cat {mail}/inbox/{address}",
                        f"touch {mail}/inbox/planted@ways.test", f"mv {mail}/inbox/{address} {mail}/inbox/away",
                        f"ln -s /etc/passwd {mail}/home/planted", "mkdir /var/spool/vmail/planted.test"):
            done = subprocess.run([*nobody, *attempt.split()], text=True, capture_output=True)
            self.assertIn("Permission denied", done.stderr, attempt)

    def test_mail_is_received_and_read(self):
        self.create("alice@read.test", "bob@read.test")
        send("alice@read.test", "for alice")
        send("BOB@Read.Test", "for bob")
        send("postmistress", "for a local name")  # of /etc/aliases
        self.inbox_holds(["for alice"], "alice@read.test")
        self.inbox_holds(["for bob", "for a local name"], "Bob@read.test")
        self.answers(550, "nobody@read.test")
        self.answers(554, "bob@elsewhere.test")
        self.login_is_refused("bob@read.test", "pw-alice")
        qvmailctl("mailbox passwd alice@read.test", "changed")
        self.login_is_refused("alice@read.test")
        self.inbox_holds(["for alice"], "alice@read.test", "changed")

    def test_a_disabled_mailbox_takes_mail_and_lets_nobody_in(self):
        self.create("alice@off.test", "bob@off.test")
        self.assertNotIn("table-statistics", subprocess.getoutput(f"{private_world.QVMAILCTL} check"))
        self.inbox_holds([], "bob@off.test")
        qvmailctl("mailbox disable bob@off.test")
        self.login_is_refused("bob@off.test")
        self.login_is_refused("bob@off.test", "!" + password_of("bob@off.test"))
        send("bob@off.test", "while disabled")
        qvmailctl("mailbox enable bob@off.test")
        self.inbox_holds(["while disabled"], "bob@off.test")
        qvmailctl("quota set bob@off.test 1M")
        self.quota_is(1024, "bob@off.test")
        shown = json.loads(qvmailctl("mailbox show bob@off.test --json"))["result"]
        self.assertGreater(shown["used"], 0)  # as Dovecot tells

    def test_quota_is_reported_and_enforced_and_keeps_the_inbox_in_its_place(self):
        self.create("alice@quota.test", "bob@quota.test")
        send("bob@quota.test", "before the first quota")
        self.inbox_holds(["before the first quota"], "bob@quota.test")
        self.quota_is(None, "bob@quota.test")

        qvmailctl("quota set bob@quota.test 20K")
        if BACKEND == "files":
            os.chmod("/etc/vmail/vpasswd", 0o600)  # as under a strict umask
        self.quota_is(20, "bob@quota.test")
        send("bob@quota.test", "too big", 40000, sender="alice@quota.test")
        self.inbox_holds(["Undelivered Mail Returned to Sender"], "alice@quota.test")
        send("bob@quota.test", "small")
        self.inbox_holds(["before the first quota", "small"], "bob@quota.test")

        qvmailctl("quota set bob@quota.test 1M")
        self.quota_is(1024, "bob@quota.test")
        send("bob@quota.test", "no more too big", 40000)
        qvmailctl("quota delete bob@quota.test")
        self.quota_is(None, "bob@quota.test")
        self.inbox_holds(["before the first quota", "small", "no more too big"], "bob@quota.test")

        qvmailctl("mailbox add carl@quota.test --quota 30K", "pw-carl")
        self.quota_is(30, "carl@quota.test")

    def test_forwarders_lists_and_a_catch_all_that_takes_only_what_is_left(self):
        self.create("alice@all.test", "bob@all.test", "carl@all.test")
        qvmailctl("alias add sales@all.test bob@all.test")
        qvmailctl("list add team@all.test alice@all.test bob@all.test")
        qvmailctl("catchall set all.test carl")
        self.answers(250, "anybody@all.test")
        for name in ("alice", "bob", "carl", "sales", "team", "anybody"):
            send(f"{name}@all.test", f"for {name}")
        self.inbox_holds(["for alice", "for team"], "alice@all.test")
        self.inbox_holds(["for bob", "for sales", "for team"], "bob@all.test")
        self.inbox_holds(["for carl", "for anybody"], "carl@all.test")

        qvmailctl("alias delete sales@all.test --yes")
        if BACKEND == "mysql":  # the library's deletion of a forwarder leaves a self row; a mailbox may lose its own
            sql("delete from virtual_aliases where source = 'bob@all.test';"
                "insert into virtual_aliases values ('sales@all.test', 'sales@all.test')")
        send("sales@all.test", "again for sales")
        send("bob@all.test", "again for bob")
        self.inbox_holds(["for bob", "for sales", "for team", "again for bob"], "bob@all.test")
        self.inbox_holds(["for carl", "for anybody", "again for sales"], "carl@all.test")
        qvmailctl("catchall remove all.test --yes")
        self.answers(550, "anybody@all.test")
        self.answers(550, "sales@all.test")
        self.answers(250, "bob@all.test")

    def test_every_way_of_delivery_reaches_the_same_inbox(self):
        self.create("alice@ways.test", "bob@ways.test")
        qvmailctl("quota set bob@ways.test 1M")
        qvmailctl("catchall set ways.test alice")
        uid, gid = pwd.getpwnam("qvadmin").pw_uid, grp.getgrnam("mail").gr_gid
        output("postconf", "-e", "dovecot_destination_recipient_limit=1", "virtual_mailbox_base=/var/spool/vmail",
            "virtual_mailbox_limit=0", f"virtual_uid_maps=static:{uid}", f"virtual_gid_maps=static:{gid}")
        if BACKEND == "mysql":
            output("postconf", "-e", "virtual_mailbox_maps=mysql:/etc/postfix/sql-mailboxes.cf")
        else:
            qvmailctl("mailbox type bob@ways.test admin")
        ways = []
        for way in ("dovecot", "virtual", "lmtp:unix:private/dovecot-lmtp"):
            output("sh", "-c", f"postconf -e virtual_transport={way} && postfix reload")
            self.answers(250, "bob@ways.test")
            send("bob@ways.test", f"bob by {way}")
            send("anybody@ways.test", f"anybody by {way}")
            ways.append(way)
            self.inbox_holds([f"bob by {way}" for way in ways], "bob@ways.test")
            self.inbox_holds([f"anybody by {way}" for way in ways], "alice@ways.test")
            self.nobody_else_reaches("/var/spool/vmail/ways.test/mail", "bob@ways.test")
            self.assertNotIn("/var/spool/vmail", subprocess.getoutput(f"{private_world.QVMAILCTL} check"))

    def test_deletion_is_effective(self):
        self.create("alice@gone.test", "bob@gone.test")
        send("bob@gone.test", "for bob")
        self.inbox_holds(["for bob"], "bob@gone.test")
        qvmailctl("mailbox delete bob@gone.test --yes")
        self.answers(550, "bob@gone.test")
        self.login_is_refused("bob@gone.test")
        qvmailctl("mailbox delete bob@gone.test --yes --if-there")  # a login of the last second makes a home again
        qvmailctl("mailbox add bob@gone.test", "second-bob")
        self.inbox_holds([], "bob@gone.test", "second-bob")
        qvmailctl("domain delete gone.test --yes")
        self.login_is_refused("bob@gone.test", "second-bob")


Path("/etc/aliases").write_text("postmaster: root\npostmistress: bob@read.test\n")
output("rm", "-f", "/etc/aliases.db")
if BACKEND == "mysql":
    output(f"{TOP}/scripts/start-mariadb", "empty")
output(f"{TOP}/scripts/start-mail-servers", BACKEND, private_world.QVMAILCTL)
unittest.main(verbosity=2, warnings="ignore")  # imaplib leaves sockets to the collector that Dovecot closed
