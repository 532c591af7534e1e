#!/usr/bin/env python3
"""faults_test.py files|mysql EVERY[+SEED] QVMAILCTL INJECT [TEST ...] - dies and fails at every step

Runs inside scripts/private-world. Each changing command is run again and again, killed before its first
change of a file, before its second, and so on; or that change fails, or a read; with a database also each sending of
a statement and each receipt of an answer. At once, no file may be other than it was or is to be, nor an entry be
missing that the command is not about. After the next command the state is the old or the new one, whole.

EVERY is 1 for all, which takes long; 9 for a ninth, 9+1 to 9+8 for the others (an even number would leave
out kinds of failures).
"""

import collections, contextlib, ctypes, functools, itertools, json, os, re, shutil, subprocess
import sys, tempfile, unittest
from pathlib import Path

from private_world import CONF, ETC, EXISTS, LIST, NOT_THERE, SPOOL, TOP, output as run

BACKEND, SAMPLE, QVMAILCTL, INJECT = sys.argv[1:5]
EVERY, SEED = map(int, f"{SAMPLE}+0".split("+")[:2])
NOTHING_CHANGED = 64, 65, 67, 69, 73, 74, 75, 77, 78  # exit statuses
DONE_ALREADY = NOT_THERE, EXISTS  # a repeated deletion or addition
POSTMAP, POSTFIX, REAL_POSTMAP = "/usr/sbin/postmap", "/usr/sbin/postfix", "/run/postmap"
TABLES = "virtual_domains", "virtual_users", "virtual_aliases"
SIDE_FILE = re.compile(r"\.(qvbackup|CABackup|addbak|editbak|delbak)$|\.aside-")  # what a change may leave
NO_QUOTA_FIELDS, QUOTA_FIELDS = "no", "yes"  # DovecotLDA

WORLD = ["domain add b.test a", "domain add ab.test a --quota 1M", "mailbox add ba@b.test --quota 2M",
         "mailbox add cba@b.test --quota 3M", "mailbox add ba@ab.test", "mailbox add cba@ab.test",
         "mailbox add dba@ab.test --quota 5M", "alias add info@b.test a@b.test", "alias add cba@b.test x@else.test",
         "alias add keep@b.test a@b.test", "alias add info@ab.test a@b.test",
         "list add team@b.test a@b.test ba@b.test x@else.test", "catchall set b.test a", "mailbox disable ba@b.test"]
HARMLESS = "alias set keep@b.test a@b.test"
ABOUT_QUOTAS = [
    "domain add cab.test boss --quota 7K", "domain delete ab.test --yes", "mailbox add dcba@b.test --quota 7K",
    "mailbox delete cba@b.test --yes", "quota set cba@b.test 7K", "quota set cba@ab.test 7K", "quota delete cba@b.test"]
COMMANDS = ABOUT_QUOTAS + [
    "domain add cab.test boss", "mailbox add dcba@b.test", "mailbox passwd cba@b.test",
    "alias add ainfo@b.test ba@ab.test", "alias set info@ab.test ba@ab.test", "alias delete cba@b.test --yes",
    "alias delete info@ab.test --yes", "list add ateam@b.test a@b.test ba@b.test", "list set team@b.test a@b.test y@else.test",
    "list join team@b.test z@else.test", "list leave team@b.test ba@b.test", "mailbox disable cba@b.test",
    "mailbox enable ba@b.test", "import /run/new.json",
    "list delete team@b.test --yes", "catchall set b.test ba", "catchall set ab.test ba", "catchall remove b.test --yes"]
Path("/run/new.json").write_text("""{"format": 1, "domains": [
    {"domain": "cab.test", "catch_all": "boss@cab.test", "mailboxes": [
        {"address": "boss@cab.test", "hash": "$1$abcdefgh$0123456789012345678901", "quota": 7168, "forwards_to": ["x@else.test"]}],
     "lists": [{"address": "all@cab.test", "members": ["boss@cab.test", "x@else.test"]}]},
    {"domain": "b.test", "mailboxes": [{"address": "cba@b.test", "enabled": false}]}]}""")
if BACKEND == "files":
    COMMANDS.append("mailbox type cba@b.test admin")

DAMAGE = {
    "files": """cd /etc/vmail; sed -i /^cba@b/d vmaps.txt; postmap vmaps.txt; sed -n 1p vpasswd >> vpasswd; rm valias.txt.db
        touch -d yesterday vquota-temp.txt""",
    "mysql": """mariadb --no-defaults -S /run/mysqld/mysqld.sock qvmail -e 'delete from virtual_aliases
        where source = destination; insert into virtual_domains select name from virtual_domains'"""}[BACKEND] + """
    rm -r /var/spool/vmail/b.test/mail/home/ba@b.test; mkdir -p /var/spool/vmail/e.test/mail"""
BARE_MACHINE = f"rm -rf {ETC} {LIST}* {CONF} {SPOOL}; sed -i /^qvadmin:/d /etc/passwd /etc/group" + {
    "files": "", "mysql": """; mariadb --no-defaults -S /run/mysqld/mysqld.sock -f -e
        "drop database qvmail; drop user qvmail@'127.0.0.1'" """.replace("\n", "")}[BACKEND]

POSTMAP_STAND_INS = {
    "fails": "exit 1", "is killed": "kill -9 $$", "is killed with its caller": "kill -9 $(pidof qvmailctl) $$",
    "fails at its second table": f'[ -e /run/second ] && exit 1; : > /run/second; exec {REAL_POSTMAP} "$@"',
    "leaves half a table": f'{REAL_POSTMAP} "$@"; for table; do :; done; truncate -s 4096 "$table.db"; kill -9 $$'}
POSTFIX_STAND_INS = {name: POSTMAP_STAND_INS[name] for name in ("fails", "is killed", "is killed with its caller")}


def qvmailctl(words, prefix=(), password="changed"):
    return subprocess.run([*prefix, QVMAILCTL, *words.split()], input=password + "\n", text=True, capture_output=True)


def database_client():
    run(TOP / "scripts/start-mariadb")
    return subprocess.Popen(["mariadb", "--no-defaults", "-S", "/run/mysqld/mysqld.sock", "-Nn", "qvmail"],
                            text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)


def ask(statements):
    CLIENT.stdin.write(statements + "; select 'the end';\n")
    CLIENT.stdin.flush()
    return [line.rstrip("\n") for line in iter(CLIENT.stdout.readline, "the end\n")]


@functools.lru_cache(None)
def password_of(stored):
    crypt = ctypes.CDLL("libcrypt.so.1").crypt
    crypt.restype = ctypes.c_char_p
    return next((word for word in ("secret", "changed") if crypt(word.encode(), stored.encode()) == stored.encode()), "?")


def masked(line):
    """With passwords in the places of their salted hashes."""
    return re.sub(r"\$1\$[./\w]+\$[./\w]+", lambda found: password_of(found[0]), line)


@functools.lru_cache(None)
def table_entries(table):
    """What Postfix finds in a look-up table of these bytes."""
    Path("/run/table.db").write_bytes(table)
    read = subprocess.run([REAL_POSTMAP, "-s", "/run/table"], text=True, capture_output=True)
    return sorted(read.stdout.splitlines()) + ["unreadable"] * read.returncode


def content(path):
    status = path.lstat()
    mode = f"mode {status.st_mode:o}"
    if SPOOL in path.parents:
        return [mode, f"owner {status.st_uid}", f"group {status.st_gid}"]
    # Not a map's owner: that is another for each operation that may have written it last.
    if path.suffix == ".db":
        return [mode, *table_entries(path.read_bytes())]
    return [mode, *sorted(masked(line) for line in path.read_text().splitlines() if line)]


def below_etc():
    """All that is qvmailctl's there, wherever it keeps what it works on."""
    return [path for path in Path("/etc").iterdir() if path not in ETC_OF_OTHERS]


def state():
    """What the servers see and what is left over: a dictionary, from places to their content."""
    places = [path for top in below_etc() for path in (top, *top.rglob("*")) if not path.is_dir()]
    found = {str(path): content(path) for path in (*places, *SPOOL.rglob("*")) if not SIDE_FILE.search(path.name)}
    if BACKEND == "mysql":
        found.update((table, sorted(map(masked, ask(f"select * from {table}")))) for table in TABLES)
    return found


def machine():
    """What init makes, as it is there or not."""
    places = [CONF, LIST, SPOOL, ETC, *(ETC.iterdir() if ETC.exists() else ())]
    found = {str(path): [f"{path.lstat().st_mode:o} {path.lstat().st_uid}"] for path in places if path.exists()}
    if BACKEND == "mysql":
        found.update((row, ["there"]) for row in ask("""select table_name from information_schema.tables where table_schema =
            'qvmail' union select concat(table_name, ' statistics') from mysql.table_stats where db_name = 'qvmail' union select
            privilege_type from information_schema.schema_privileges where grantee like "'qvmail'%" """))
        found["domain list"] = [f"status {qvmailctl('domain list').returncode}"]
    return found


def differences(expected, found):
    """The entries that came and went, a few."""
    lines = []
    for place in sorted({*expected, *found}):
        before, after = expected.get(place, ["the whole place"]), found.get(place, ["the whole place"])
        lines += [f"{place} lacks {line}" for line in before if line not in after]
        lines += [f"{place} has {line}" for line in after if line not in before]
    return "".join("\n      " + line for line in lines[:6])


def only(places, found):
    return {place: found[place] for place in places if place in found}


class World:
    """One that can be had again, with what each command makes of it."""

    def __init__(self, quota_fields):
        self.settings = (TOP / f"config/Quorvel-{BACKEND}.conf").read_text().replace('LDA "yes"', f'LDA "{quota_fields}"')
        self.saved = Path("/run/saved") / quota_fields
        self.saved.mkdir(parents=True)
        self.rows, self.news = {table: [] for table in TABLES}, {}
        self.restore()
        run(TOP / "config/create-empty-maps")
        for words in [*WORLD, HARMLESS]:
            done = qvmailctl(words, password="secret")
            assert done.returncode == 0, words + done.stderr
        (SPOOL / "b.test/mail/inbox/cba@b.test").write_text("mail of old\n")
        (SPOOL / "ab.test/mail/home/dba@ab.test/folder").write_text("mail of old\n")
        self.old = state()
        run("cp", "-a", *below_etc(), self.saved)
        run("cp", "-aT", SPOOL, self.saved / "spool")
        if BACKEND == "mysql":
            self.rows = {table: ask(f"select * from {table}") for table in TABLES}

    def restore(self):
        CONF.write_text(self.settings)
        for top in ETC, SPOOL:
            top.mkdir(exist_ok=True)
        for path in (*below_etc(), *ETC.iterdir(), *SPOOL.iterdir()):
            if path != ETC:  # which may be a mount point
                shutil.rmtree(path) if path.is_dir() else path.unlink()
        for path in self.saved.iterdir():
            run("cp", "-aT", path, SPOOL if path.name == "spool" else Path("/etc") / path.name)
        if BACKEND == "mysql":
            rows = {table: ",".join("('" + line.replace("\t", "','") + "')" for line in lines)
                    for table, lines in self.rows.items() if lines}
            ask("; ".join([f"delete from {table}" for table in TABLES] +
                          [f"insert into {table} values {values}" for table, values in rows.items()]))

    def new(self, words):
        if words not in self.news:
            self.restore()
            done = qvmailctl(words)
            self.news[words] = state()
            assert done.returncode == 0 and self.news[words] != self.old, words + done.stderr
            qvmailctl(HARMLESS)
            assert self.news[words] == state(), words
        return self.news[words]


world = functools.lru_cache(None)(World)


class Interruptions(unittest.TestCase):
    def setUp(self):
        self.faults, self.points = [], 0

    def tearDown(self):
        if self.faults:
            self.fail(f"{len(self.faults)} of {self.points} points show faults, the first of them:" + "".join(self.faults[:12]))

    def outcome(self, what, here, words, prefix=(), fault=contextlib.nullcontext(), must_say="", second=None,
                later=contextlib.nullcontext()):
        """The command's end, and what it did wrong goes to the faults. It has to fail if it must say why; a second
        interruption is one of the next command. What is there is looked at later, once that has begun."""
        here.new(words)
        here.restore()
        with fault:
            done = qvmailctl(words, prefix)
        self.assertNotEqual(125, done.returncode, done.stderr)
        self.points += 1
        wrong = ""
        if must_say and (done.returncode == 0 or not re.search(must_say, done.stderr)):
            wrong += f"\n    it should have failed and have said: {must_say}"
        with later:
            wrong += self.judged(here, words, done.returncode, bool(must_say), second)
        if wrong:
            self.faults.append(f"\n  {words}, {what}, status {done.returncode} {done.stderr.strip()}{wrong}")
        return done

    def judged(self, here, words, status, nothing_changed, second=None):
        """What is wrong with the state that a command left that ended with this status."""
        old, new, wrong = here.old, here.new(words), ""
        if second:
            qvmailctl(HARMLESS, second)
        now = state()
        nothing_changed = nothing_changed or status in NOTHING_CHANGED
        allowed = [old] if nothing_changed else [new] if status == 0 else [old, new]
        bad = [place for place in {*old, *new} if now.get(place) not in [whole.get(place) for whole in allowed]
               and not (place.startswith(str(SPOOL)) and old.get(place) != new.get(place))]  # trees come and go by files
        if bad:
            wrong += f"\n    at once:{differences(only(bad, allowed[-1]), only(bad, now))}"
        if self.points % 2:
            after = qvmailctl(HARMLESS)
            then = state()
            if after.returncode != 0:
                wrong += f"\n    the next command answers {after.returncode}: {after.stderr}"
            if then != old and (nothing_changed or then != new):
                wrong += f"\n    then it is not the old state:{differences(old, then)}"
                wrong += f"\n    nor the new one:{differences(new, then)}" if not nothing_changed else ""
        again = qvmailctl(words)
        if again.returncode not in (0, *DONE_ALREADY) or (again.returncode != 0 and nothing_changed) or state() != new:
            wrong += f"\n    repeated, it answers {again.returncode}: {again.stderr}{differences(new, state())}"
        return wrong


class Faults(Interruptions):
    def interrupted(self, *kinds, twice=False):
        """Each command at each point with each kind of interruption, or a part of these; if so, at some point of the
        next command again."""
        worlds = [(NO_QUOTA_FIELDS, COMMANDS)] + [(QUOTA_FIELDS, ABOUT_QUOTAS)] * (BACKEND == "files")
        for quota_fields, commands in worlds:
            for number, words in enumerate(commands):
                for trial in itertools.count((SEED + number) % EVERY, EVERY):
                    point, kind = 1 + trial // len(kinds), kinds[trial % len(kinds)]
                    again = 1 + (5 * point + number) % 29
                    done = self.outcome(f"{kind} {point}" + f", then {again}" * twice, world(quota_fields), words,
                                        (INJECT, *kind.split(), str(point)), second=twice and (INJECT, kind, str(again)))
                    if "inject: " not in done.stderr:
                        break
                    COUNTS[kind] += 1
                if done.returncode != 0:
                    self.faults.append(f"\n  {words}, {kind}, uninterrupted: status {done.returncode} {done.stderr}")

    def test_killed_before_each_change(self):
        self.interrupted("kill")

    def test_killed_while_a_tool_is_at_work(self):
        self.interrupted("--children kill", "--children killmain", "--children killall")

    def test_a_tool_fails_at_each_change(self):
        self.interrupted("--children ENOSPC", "--children EIO", "--children EACCES", "--children EMFILE")

    def test_no_process_and_no_program_starts(self):
        self.interrupted("--starts EAGAIN", "--starts ENOENT")

    def test_killed_and_the_next_command_too(self):
        self.interrupted("kill", twice=True)

    def test_the_next_owner_does_not_see_former_mail(self):
        mail, here = SPOOL / "ab.test/mail/home/dba@ab.test/folder", world(NO_QUOTA_FIELDS)
        for point in itertools.count(1 + SEED % EVERY, EVERY):
            here.restore()
            deleted = qvmailctl("domain delete ab.test --yes", (INJECT, "kill", str(point)))
            qvmailctl("domain add ab.test a")
            added = qvmailctl("mailbox add dba@ab.test")
            self.assertIn(added.returncode, (0, EXISTS), added.stderr)
            self.assertNotEqual(added.returncode == 0, mail.exists(), f"killed at {point}")
            if "inject: " not in deleted.stderr:
                break
            COUNTS["kill"] += 1

    def test_each_change_fails(self):
        self.interrupted("ENOSPC", "EIO", "EACCES", "EMFILE")

    def test_each_read_fails(self):
        self.interrupted("--reads EIO")

    @unittest.skipIf(BACKEND == "files", "no statements")
    def test_killed_or_cut_off_around_each_statement(self):
        self.interrupted("--sockets kill", "--sockets EIO")

    def test_what_is_more_than_a_transaction(self):
        """Each place is as before or as it is to be, and the same command again finishes."""
        here, kinds = world(NO_QUOTA_FIELDS), ("kill", "ENOSPC", "--children kill", "--starts ENOENT")
        if BACKEND == "mysql":
            kinds = "kill", "ENOSPC", "--starts ENOENT", "--sockets kill", "--sockets EIO"
        init = f"init {BACKEND} --config {TOP}/config"
        for words, damage, look in ("check --repair", DAMAGE, state), (init, BARE_MACHINE, machine):
            def begin(*prefix):
                if look == state:
                    here.restore()
                subprocess.run(damage, shell=True)
                return look(), qvmailctl(words, prefix), look()

            (before, whole, after), over = begin(), set()
            for trial in itertools.count(SEED % EVERY, EVERY):
                point, kind = 1 + trial // len(kinds), kinds[trial % len(kinds)]
                if kind in over:
                    continue
                _, done, now = begin(INJECT, *kind.split(), str(point))
                if "inject: " not in done.stderr:
                    over.add(kind)
                    if len(over) == len(kinds):
                        break
                    continue
                COUNTS[kind] += 1
                self.points += 1
                is_done = done.returncode == 0 and "start the database and run this again" not in done.stdout
                bad = [place for place in {*before, *after} if now.get(place) not in (before.get(place), after.get(place))
                       and not place.startswith((str(SPOOL), "domain list"))]
                again, then = qvmailctl(words), look()
                if bad or again.returncode != whole.returncode or then != after or (is_done and only(after, now) != after):
                    self.faults.append(f"\n  {words}, {kind} {point}, status {done.returncode} {done.stderr}"
                                       f"\n    at once:{differences(only(bad, before), only(bad, now))}"
                                       f"\n    repeated, it answers {again.returncode}: {again.stderr}{differences(after, then)}")

    def test_tools_fail(self):
        for tool, stand_ins in (POSTMAP, POSTMAP_STAND_INS), (POSTFIX, POSTFIX_STAND_INS):
            for number, (name, script) in enumerate(stand_ins.items()):
                for words in COMMANDS[(SEED + number) % EVERY::EVERY]:
                    Path("/run/second").unlink(missing_ok=True)
                    self.outcome(f"{Path(tool).name} {name}", world(NO_QUOTA_FIELDS), words, fault=stand_in(tool, script))
            self.outcome(f"no {tool}", world(NO_QUOTA_FIELDS), COMMANDS[0], (), stand_in(tool, "", 0o644),
                         "is not found" if BACKEND == "files" else "")

    def test_the_disk_is_full(self):
        here = world(NO_QUOTA_FIELDS)
        new = {words: here.new(words) for words in COMMANDS}
        for place, limit in (ETC, "size=512k"), (Path("/etc"), "size=64m"), (SPOOL, "size=4m,nr_inodes=99"):
            must_say = "(?i)space|full" if BACKEND == "files" and place != SPOOL else ""
            with small_disk(place, limit):
                for number, words in enumerate(new if place == ETC else COMMANDS[SEED % EVERY::EVERY]):
                    for free in (0, *list(range(1, 40))[(SEED + number) % EVERY::EVERY]):
                        done = self.outcome(f"{place}: {free} free", here, words, (), full_disk(place, free), "" if free else must_say)
                        if done.returncode == 0:
                            break

    def test_a_read_only_disk(self):
        for mount, must_say in ("/etc", "(?i)read-only" if BACKEND == "files" else ""), ("/var", ""):
            if mount == "/var" and BACKEND == "mysql":
                continue  # the database is there
            for words in COMMANDS:
                self.outcome(f"read-only {mount}", world(NO_QUOTA_FIELDS), words, (), read_only(mount), must_say)


@contextlib.contextmanager
def stand_in(tool, script, mode=0o755):
    with tempfile.NamedTemporaryFile("w", delete=False) as file:
        file.write("#!/bin/sh\n" + script + "\n")
    os.chmod(file.name, mode)
    run("mount", "--bind", file.name, tool)
    yield
    run("umount", "--lazy", tool)  # one whose caller was killed may take a moment to end


@contextlib.contextmanager
def small_disk(place, limit):
    made = Path("/run/small")
    made.mkdir(exist_ok=True)
    run("mount", "-t", "tmpfs", "-o", limit, "tmpfs", made)
    run("cp", "-aT", place, made)
    run("mount", "--move", made, place)
    yield
    run("umount", "--lazy", place)


@contextlib.contextmanager
def full_disk(place, free):
    """But for so many files of a page each."""
    filler = place / "filler"
    filler.mkdir()
    with contextlib.suppress(OSError), (filler / "large").open("wb") as large:
        while os.statvfs(place).f_bavail > 99:
            os.posix_fallocate(large.fileno(), large.tell(), 99 * 4096)
            large.seek(99 * 4096, 1)
    with contextlib.suppress(OSError):
        for number in itertools.count():
            (filler / str(number)).write_bytes(b"x" * 4096)
    for each in range(free):
        (filler / str(max(0, number - 1 - each))).unlink(missing_ok=True)
    yield
    shutil.rmtree(filler)


@contextlib.contextmanager
def read_only(mount):
    run("mount", "-o", "remount,ro", mount)
    yield
    run("mount", "-o", "remount,rw", mount)


def setUpModule():
    global CLIENT, ETC_OF_OTHERS
    Path("/etc/postfix/main.cf").write_text("")
    shutil.copy(POSTMAP, REAL_POSTMAP)
    no_server = stand_in(POSTFIX, "exit 0")  # whose reload would take a second
    no_server.__enter__()
    CONF.touch()
    CLIENT = database_client() if BACKEND == "mysql" else None
    ETC_OF_OTHERS = {*Path("/etc").iterdir()} - {ETC, LIST}
    unittest.addModuleCleanup(no_server.__exit__, None, None, None)


def tearDownModule():
    print("reliability:", json.dumps(COUNTS), file=sys.stderr)
    if CLIENT:
        CLIENT.communicate("")


COUNTS = collections.Counter()

if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[5:]], verbosity=2)
