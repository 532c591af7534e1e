#!/usr/bin/python3
"""measure.py files|mysql BUILD RESULTS [quick] - measures accounts of one kind, inside the private world

What is compared runs in turns, each time in a process of its own. Cheap ones run more often. The raw results
are written to RESULTS as JSON; report.py tells what they mean.
"""
import json, os, pathlib, random, subprocess, sys, threading, time

TOP = pathlib.Path(__file__).resolve().parent.parent
if subprocess.call([TOP / "scripts/private-world", "--inside"]) != 0:
    sys.exit(1)
BACKEND, BUILD, RESULTS = sys.argv[1:4]
QUICK = sys.argv[4:] == ["quick"]
BENCH = f"{BUILD}/bench/bench_operations"
QVMAILCTL = f"{BUILD}/qvmailctl/qvmailctl"

if QUICK:
    SIZES = {"files": [1000, 10000], "mysql": [1000]}
    LEAST_ROUNDS, MOST_ROUNDS, SECONDS = 2, 5, 0.3
    MAIL_SECONDS, LOOKUPS = 2, 1000
    LEFT_OUT = ["transaction of 10000 mailboxes", "import"]
else:
    SIZES = {"files": [1000, 10000, 100000, 1000000], "mysql": [1000, 10000, 100000]}
    LEAST_ROUNDS, MOST_ROUNDS, SECONDS = 3, 15, 1
    MAIL_SECONDS, LOOKUPS = 5, 100000
    LEFT_OUT = []
LONGEST = 12  # seconds: no further round begins after that
IMPORTED = 10000

# Operations that are measured again in these variants of the database.
VARIANTS = {
    "mysql-aliases": ["GetLists"],
    "mysql-unlimited": ["RetrieveDomainQuota", "IsDomainHasUnlimitedQuota"],
}
# The type of a table that postmap makes, and the buffer of Berkeley DB in MiB (16 is the default).
TABLES = [("hash", 16), ("hash", 64), ("hash", 128), ("hash", 256), ("btree", 16), ("btree", 128), ("cdb", None),
          ("lmdb", None)]
RELOADS = {"none": None, "every second": 1, "every 100 ms": 0.1}

rows = []
start = time.monotonic()


def run(*command, input=None):
    return subprocess.run([str(word) for word in command], check=True, stdout=subprocess.PIPE, text=True,
                          input=input).stdout


def bench(world, size, *words):
    return json.loads(run(BENCH, world, size, *words))


def tell(text):
    print(f"{time.monotonic() - start:6.0f} s  {text}", file=sys.stderr)


def alternate(sides):
    """The samples of each side, round by round; every second round runs in reverse order"""
    samples = {name: [] for name in sides}
    begin = time.monotonic()
    for number in range(MOST_ROUNDS):
        seconds = time.monotonic() - begin
        if number >= LEAST_ROUNDS and seconds > SECONDS or seconds > LONGEST:
            break
        for name in list(sides)[::-1 if number % 2 else 1]:
            samples[name].append(sides[name]())
    return samples


def add(kind, world, size, name, samples):
    rows.append({"kind": kind, "world": world, "accounts": size, "name": name, "sides": {
        side: {key: [sample[key] for sample in taken] for key in taken[0]} for side, taken in samples.items()}})


def make_tables():
    for table in "vmaps", "valias", "vquota":
        run("postmap", f"/etc/vmail/{table}.txt")


def populate(world, size):
    tell(f"{world}: {size} accounts")
    bench(world, size, "populate")
    if world == "files":
        make_tables()


def measure_operations(world, size, names=None):
    for operation in bench(world, size, "list"):
        name, kind = operation["name"], operation["kind"]
        if kind == "command" or name in LEFT_OUT or names and name not in names:
            continue
        bench(world, size, "restore")  # only changes restore it themselves
        sides = {side: lambda side=side: bench(world, size, "run", name, side) for side in operation["sides"]}
        sides = {"library": lambda: bench(world, size, "run", name), **sides}
        add(kind, world, size, name, alternate(sides))


def timed(world, size, command, input="/dev/null", restore=False):
    if restore:
        bench(world, size, "restore")
    sample = bench(world, size, "timed", input, *command)
    if sample["status"] not in (0, 78):  # 78: check has found something
        sys.exit(f"measure.py: {command} ended with status {sample['status']}")
    return sample


def measure_commands(world, size):
    bench(world, size, "restore")
    domain = f"domain{(size - 1) // 1000}.test"
    address = f"user{size - 1}@{domain}"
    document = {"format": 1, "domains": [{"domain": domain, "mailboxes": [
        {"address": f"new{i}@{domain}", "password": "a-password-of-some-length", "quota": 1048576}
        for i in range(IMPORTED)]}]}
    pathlib.Path("/run/password").write_text("a-password-of-some-length\n")
    pathlib.Path("/run/document").write_text(json.dumps(document))
    commands = [
        ("mailbox add", f"new0@{domain} --quota 1M", True),
        ("mailbox show", address, False),
        ("mailbox list", domain, False),
        ("mailbox delete", f"{address} --yes", True),
        ("alias add", f"newalias@{domain} {address}", True),
        ("domain show", domain, False),
        ("list list", domain, False),
        ("check", "", False),
        ("export", "", False),
        ("import", "/run/document", True),
    ]
    for name, words, changes in commands:
        if name in LEFT_OUT:
            continue
        if name == "check" and world == "files":
            make_tables()  # of the maps as they are restored: what is found is looked at twice
        command = [QVMAILCTL, *name.split(), *words.split()]
        library = [BENCH, world, str(size), "run", name]
        add("command", world, size, name, alternate({
            "qvmailctl": lambda: timed(world, size, command, "/run/password", changes),
            "library": lambda: timed(world, size, library, restore=changes)}))
        if changes:
            bench(world, size, "restore")


def measure_tables(size):
    # Shuffled: accounts come in no order, and some table types are faster with sorted keys.
    lines = pathlib.Path("/etc/vmail/vmaps.txt").read_text().splitlines()
    random.Random(1).shuffle(lines)
    text = "".join(line + "\n" for line in lines)
    keys = [line.split()[0] for line in lines]
    random.Random(2).shuffle(keys)
    pathlib.Path("/run/keys").write_text("".join(key + "\n" for key in keys[:LOOKUPS]))

    makers, askers, sizes = {}, {}, {}
    for kind, buffer in TABLES:
        name = f"{kind} {buffer} MiB" if buffer else kind
        place = pathlib.Path("/etc/tables") / name.replace(" ", "-")
        place.mkdir(parents=True, exist_ok=True)
        (place / "main.cf").write_text("compatibility_level = 3.6\nmyhostname = mx.example.test\n" + (
            f"berkeley_db_create_buffer_size = {buffer << 20}\n" if buffer else ""))
        (place / "map").write_text(text)
        table = f"{kind}:{place}/map"
        makers[name] = lambda place=place, table=table: timed("files", size, ["postmap", "-c", place, table])
        askers[name] = lambda place=place, table=table: timed(
            "files", size, ["postmap", "-c", place, "-q", "-", table], "/run/keys")
        makers[name]()
        sizes[name] = sum(file.stat().st_size for file in place.glob("map.*"))
    samples = alternate(makers)
    for name, taken in samples.items():
        for sample in taken:
            sample["bytes"] = sizes[name]
    add("table", "files", size, "rebuild", samples)
    add("lookup", "files", size, f"{min(size, LOOKUPS)} look-ups", alternate(askers))
    run("rm", "-r", "/etc/tables")


def send_mail(interval, recipient):
    """The time for each message of a steady stream while Postfix is reloaded at this interval"""
    # With mail left in its queue, Postfix delays the next mail (in_flow_delay). What a reload has
    # deferred would be tried again only after minutes.
    while "queue is empty" not in run("mailq"):
        run("postqueue", "-f")
        time.sleep(0.1)
    done = threading.Event()

    def reload():
        while interval and not done.wait(interval):
            subprocess.call(["postfix", "reload"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    reloader = threading.Thread(target=reload)
    reloader.start()
    sender = subprocess.Popen(
        ["smtp-source", "-c", "-s", "4", "-m", "1000000", "-f", "sender@elsewhere.test", "-t", recipient, "127.0.0.1:25"],
        stdout=subprocess.PIPE, text=True)
    time.sleep(MAIL_SECONDS)
    if sender.poll() is not None:
        sys.exit("measure.py: smtp-source has ended by itself")
    sender.terminate()
    counted = sender.communicate()[0]
    done.set()
    reloader.join()
    return {"seconds": MAIL_SECONDS / int(counted.split()[-1])}


def measure_reloads(size):
    tell("mail while Postfix is reloaded")
    recipient = "user0@domain0.test"
    run("postconf", "-e", "virtual_transport=discard:")
    run("postfix", "reload")
    send_mail(None, recipient)
    add("reload", "files", size, "mail", alternate(
        {name: lambda interval=interval: send_mail(interval, recipient) for name, interval in RELOADS.items()}))


def machine():
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
    return {"cores": os.cpu_count(), "memory": memory, "files": run("stat", "-f", "-c", "%T", "/etc/vmail").strip()}


def measure():
    if BACKEND == "mysql":
        run(TOP / "scripts/start-mariadb", "empty")
        # The defaults of a server, which start-mariadb lowers for the tests.
        run("mariadb", "--no-defaults", "-S", "/run/mysqld/mysqld.sock", input="""
            set global innodb_buffer_pool_size = 128 << 20;
            set global innodb_flush_log_at_trx_commit = 1;""")
    run(TOP / "scripts/start-mail-servers", BACKEND, QVMAILCTL)
    for size in SIZES[BACKEND]:
        populate(BACKEND, size)
        measure_operations(BACKEND, size)
        measure_commands(BACKEND, size)
        if BACKEND == "files":
            measure_tables(size)
        else:
            for variant, names in VARIANTS.items():
                populate(variant, size)
                measure_operations(variant, size, names)
        if BACKEND == "files" and size == SIZES["files"][0]:
            measure_reloads(size)
        keep()
    tell("done")


def keep():
    pathlib.Path(RESULTS).write_text(json.dumps({"machine": machine(), "quick": QUICK, "rows": rows}))


measure()
