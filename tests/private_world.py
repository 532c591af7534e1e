"""What all suites share. Ends one that is not inside scripts/private-world: it would delete what the machine has"""
import os, subprocess, sys
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
if subprocess.call([TOP / "scripts/private-world", "--inside"]) != 0:
    sys.exit(1)

QVMAILCTL = next((os.path.abspath(word) for word in sys.argv if Path(word).name == "qvmailctl"), "qvmailctl")
ETC, SPOOL, LIST, CONF = map(Path, ("/etc/vmail", "/var/spool/vmail", "/etc/VirtualHosts", "/etc/Quorvel.conf"))
FILES, MYSQL = ((TOP / f"config/Quorvel-{backend}.conf").read_text() for backend in ("files", "mysql"))

# The exit statuses, after sysexits(3).
USAGE, REFUSED, NOT_THERE, UNREACHABLE, EXISTS = 64, 65, 67, 69, 73
NOT_WRITTEN, BUSY, NOT_ROOT, NOT_FIT, INTERRUPTED = 74, 75, 77, 78, 130


def output(*command, **how):
    return subprocess.run(command, text=True, stdout=subprocess.PIPE, check=True, **how).stdout


def sql(statements):
    return output("mariadb", "qvmail", "-Ne", statements)


def qvmailctl(words, stdin="secret\n", prefix=()):
    """Runs it with words, of a text or a list, and gives how it ended and what it said."""
    words = words.split() if isinstance(words, str) else words
    return subprocess.run([*prefix, QVMAILCTL, *words], input=stdin, text=True, capture_output=True)


def start(words, **how):
    """The same in the background."""
    return subprocess.Popen([QVMAILCTL, *words.split()], text=True, stderr=subprocess.PIPE, **how)


def without_postfix():
    """For suites without it: its reload would take a second, and postmap waits while main.cf is new."""
    output("sh", "-ec", ": > /etc/postfix/main.cf; touch -d @1 /etc/postfix/main.cf; "
           "mount --bind /bin/true /usr/sbin/postfix")


def empty_accounts(settings):
    """On both backends; what is in the spool stays."""
    CONF.write_text(settings)
    CONF.chmod(0o600)
    output("sh", "-ec", f"rm -rf {LIST}* {ETC}; {TOP}/config/create-empty-maps")
    if Path("/run/mysqld").exists():
        sql("delete from virtual_domains; delete from virtual_users; delete from virtual_aliases")
