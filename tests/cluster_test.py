#!/usr/bin/env python3
"""cluster_test.py QVMAILCTL - accounts on three database nodes, of which one and then two are lost"""

import subprocess, sys, time, unittest
from pathlib import Path

from private_world import CONF, MYSQL, TOP, UNREACHABLE, output, qvmailctl, start

CONFIG = TOP / "config"


class Node:
    def __init__(self, number):
        self.address, self.log = f"127.0.0.{number}", Path(f"/var/log/mariadb-{number}.log")
        data = f"/var/lib/node{number}"
        settings = (CONFIG / "mariadb/cluster-node.cnf").read_text().replace("192.0.2.1,", "127.0.0.1,")
        settings = settings.replace("192.0.2.1", self.address).replace("192.0.2.", "127.0.0.")
        Path(f"/etc/mysql/node{number}.cnf").write_text(settings)
        self.client = ["mariadb", "--no-defaults", "-NS", f"/run/mysqld/{number}.sock"]
        self.options = [f"--defaults-file=/etc/mysql/node{number}.cnf", "--user=mysql", f"--datadir={data}",
                        f"--socket={self.client[-1]}", "--innodb-buffer-pool-size=32M", "--innodb-log-file-size=8M"]
        output("install", "-d", "-o", "mysql", data, "/run/mysqld")
        if number == 1:  # the others get a copy of its data
            output("mariadb-install-db", *self.options, "--skip-test-db", stderr=subprocess.STDOUT)

    def start(self, *how):
        self.server = subprocess.Popen(["mariadbd", *self.options, *how], stderr=self.log.open("a"))
        self.wait_until("Synced", "show status like 'wsrep_local_state_comment'")

    def ask(self, statement):
        return subprocess.run([*self.client, "-e", statement], text=True, capture_output=True).stdout

    def wait_until(self, expected, statement):
        end = time.monotonic() + 30
        while expected not in self.ask(statement).split():
            if time.monotonic() > end:
                raise AssertionError(f"no {expected} from {statement}\n" + self.log.read_text())
            time.sleep(0.2)  # innodb_trx shows nothing new to who asks more often than every 0.1 s


def go_through(*addresses):
    CONF.write_text(MYSQL.replace("127.0.0.1", ",".join(addresses)))


class Cluster(unittest.TestCase):
    def check(self, words, *answer, status=0, said=""):
        done = qvmailctl(words)
        self.assertEqual(status, done.returncode, f"{words}: {done.stderr}")
        self.assertEqual(list(answer), done.stdout.splitlines() if answer else [])
        self.assertIn(said, done.stderr)

    def kept_waiting(self, node, address, words):
        """Who has the address, and a command that waits for it."""
        lock = subprocess.Popen([*node.client, "qvmail"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True)
        print(f"begin; select * from virtual_users where email = '{address}' for update;", file=lock.stdin, flush=True)
        node.wait_until("1", "select count(*) from information_schema.innodb_trx")
        command = start(words, stdin=subprocess.PIPE)
        print("secret", file=command.stdin, flush=True)
        node.wait_until("2", "select count(*) from information_schema.innodb_trx")
        return lock, command

    def test_nothing_is_lost_with_one_node_nor_left_half_done_without_a_majority(self):
        first, second, third = (Node(number) for number in (1, 2, 3))
        first.start("--wsrep-new-cluster")
        second.start()
        output(*first.client, "-e", "source sql-accounts.sql\nuse qvmail\nsource schema.sql", cwd=CONFIG)
        third.start()
        for node in second, third:  # what schema.sql tells the optimizer reaches one that is there, and one that joins
            self.assertIn("0", node.ask("select cardinality from mysql.table_stats").split())

        go_through(first.address)
        self.check("domain add a.test ann --quota 5K")
        self.check("mailbox add bob@a.test --quota 7K")
        go_through(second.address)
        self.check("mailbox list a.test", "ann@a.test", "bob@a.test")
        self.check("mailbox count a.test", "2")
        self.check("quota show bob@a.test", "7168")

        # A node goes while a mailbox is being created through it, which is kept waiting.
        go_through(first.address)
        lock, creation = self.kept_waiting(first, "carl@a.test", "mailbox add carl@a.test")
        first.server.kill()
        first.server.wait()
        self.assertIn("nothing was changed", creation.communicate()[1])
        go_through(first.address, third.address)
        self.check("domain quota a.test", "12 KiB")
        self.check("mailbox add carl@a.test")

        # The majority goes while a domain is being created.
        lock, creation = self.kept_waiting(third, "dan@b.test", "domain add b.test dan")
        second.server.kill()
        third.wait_until("non-Primary", "show status like 'wsrep_cluster_status'")
        lock.communicate()
        self.assertIn("nothing was changed", creation.communicate()[1])
        self.check("mailbox list a.test", status=UNREACHABLE, said="WSREP")
        for change in ("mailbox add eve@a.test", "domain delete a.test --yes"):
            self.check(change, status=UNREACHABLE)

        third.ask("set global wsrep_provider_options = 'pc.bootstrap = true'")
        self.check("domain add b.test dan --quota 3K")
        first.start()
        go_through(first.address)
        self.check("mailbox list a.test", "ann@a.test", "bob@a.test", "carl@a.test")
        self.check("domain quota b.test", "3 KiB")


unittest.main(argv=sys.argv[:1], verbosity=2, warnings="ignore")
