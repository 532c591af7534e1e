#!/usr/bin/python3
"""report.py RESULTS ... [--into DOCS] - tells what measure.py has measured, as tables

With --into, the tables take their place between the marks in DOCS/performance.md, and the plots theirs in
DOCS/performance. A ratio is that of the sides of one round: the median of all rounds, and the least and the most.
"""
import argparse, json, pathlib, statistics

MARKS = "<!-- measured: begin -->", "<!-- measured: end -->"
BEYOND = 1.1  # ratios above this are bold

arguments = argparse.ArgumentParser()
arguments.add_argument("results", nargs="+", type=pathlib.Path)
arguments.add_argument("--into", type=pathlib.Path)
given = arguments.parse_args()

measured = [json.loads(path.read_text()) for path in given.results]
rows = [row for result in measured for row in result["rows"]]


def duration(seconds):
    for unit, length in (" s", 1), (" ms", 1e-3):
        if seconds >= length * 0.995:
            return f"{seconds / length:.3g}{unit}"
    return f"{seconds * 1e6:.0f} µs"


def size(amount):
    for unit, length in ("GiB", 1 << 30), ("MiB", 1 << 20):
        if amount >= length:
            return f"{amount / length:.1f} {unit}"
    return f"{amount >> 10} KiB"


def median(row, side, key="seconds"):
    return statistics.median(row["sides"][side][key])


def ratio(row, ours, theirs, isShort=False):
    rounds = [a / b for a, b in zip(row["sides"][ours]["seconds"], row["sides"][theirs]["seconds"])]
    middle = statistics.median(rounds)
    text = f"**{middle:.2f}**" if middle > BEYOND else f"{middle:.2f}"
    return text if isShort else f"{text} ({min(rounds):.2f}–{max(rounds):.2f})"


def of(kind, world):
    """The rows by name, and below that by number of accounts"""
    found = {}
    for row in rows:
        if row["kind"] == kind and row["world"] == world:
            found.setdefault(row["name"], {})[row["accounts"]] = row
    return found


def accounts(number):
    return f"{number:,}"


def table(heading, cells):
    return "\n".join("| " + " | ".join(line) + " |" for line in [heading, ["---"] * len(heading), *cells])


def own_memory(row, side):
    """The memory that the work has added to the process at its peak"""
    sample = row["sides"][side]
    return max(peak - before for peak, before in zip(sample["peak"], sample["before"]))


def by_size(kind, world, ours, cell, memory):
    """A line for each name and a column for each number of accounts; memory is that of the largest"""
    found = of(kind, world)
    sizes = sorted({number for row in found.values() for number in row})
    lines = [[name, *(cell(row[number]) if number in row else "" for number in sizes), memory(row[max(row)])]
             for name, row in found.items()]
    return table([ours, *map(accounts, sizes), "memory"], lines) if lines else ""


def memory_of_operation(row):
    commands = max(row["sides"]["library"]["commands"])
    own = f"{size(own_memory(row, 'library') << 10)}"
    return f"{own}; commands {size(commands << 10)}" if commands else own


def against_floor(row):
    return f"{duration(median(row, 'library'))}, {ratio(row, 'library', 'floor')}"


def against_readings(row):
    return (f"{duration(median(row, 'library'))}, {ratio(row, 'library', 'grep')}, "
            f"{ratio(row, 'library', 'wc', True)}")


def against_library(row):
    return f"{duration(median(row, 'qvmailctl'))}, {ratio(row, 'qvmailctl', 'library')}"


def memory_of_command(row):
    return " ".join(size(max(row["sides"][side]["commands"]) << 10) for side in ("qvmailctl",))


def special_cases():
    cases = [("GetLists", "mysql", "as it is"), ("GetLists", "mysql-aliases", "1,000 more aliases in the domain"),
             ("RetrieveDomainQuota", "mysql", "all mailboxes limited"),
             ("RetrieveDomainQuota", "mysql-unlimited", "nine of ten without a limit"),
             ("IsDomainHasUnlimitedQuota", "mysql", "all mailboxes limited"),
             ("IsDomainHasUnlimitedQuota", "mysql-unlimited", "nine of ten without a limit")]
    lines = []
    for name, world, what in cases:
        for number, row in of("query", world).get(name, {}).items():
            scans = ratio(row, "library", "scans") if "scans" in row["sides"] else ""
            lines.append([name, what, accounts(number), duration(median(row, "library")),
                          ratio(row, "library", "floor"), scans])
    return table(["operation", "database", "accounts", "time", "of the bare statements", "of a scan of both tables"],
                 lines)


def tables_of_postfix():
    heading = ["accounts", "type", "rebuild", "of hash 16 MiB", "size", "memory", "look-ups a second"]
    lines = []
    for number, row in of("table", "files").get("rebuild", {}).items():
        asked = next(found[number] for found in of("lookup", "files").values() if number in found)
        for name, samples in row["sides"].items():
            asking = statistics.median(asked["sides"][name]["seconds"])
            lines.append([accounts(number), name, duration(median(row, name)), ratio(row, name, "hash 16 MiB"),
                          size(samples["bytes"][0]), size(max(samples["commands"]) << 10),
                          f"{int(asked['name'].split()[0]) / asking:,.0f}"])
    return table(heading, lines)


def reloads():
    lines = [[name, f"{1 / median(row, name):.0f}", ratio(row, name, "none")]
             for row in of("reload", "files").get("mail", {}).values() for name in row["sides"]]
    return table(["reload", "messages a second", "time of a message, to that without a reload"], lines)


def machines():
    one = measured[0]["machine"]
    return (f"A machine of {one['cores']} cores and {size(one['memory'])} of memory; files and database on "
            f"{one['files'].replace('overlayfs', 'tmpfs')}, so that no disk's time is in it.")


SECTIONS = [
    ("Changes, on files", "Time, and its ratio to the commands that the operation has to run and a copy of the files that "
     "it has to rewrite.", lambda: by_size("change", "files", "operation", against_floor, memory_of_operation)),
    ("Queries, on files", "Time, and its ratio to `grep -c -F` and to `wc -l` of the files read (and the copy of the map "
     "that a catch-all call makes).",
     lambda: by_size("query", "files", "operation", against_readings, memory_of_operation)),
    ("Changes, in the database", "Time, and its ratio to the bare connections, statements and commands.",
     lambda: by_size("change", "mysql", "operation", against_floor, memory_of_operation)),
    ("Queries, in the database", "The same.",
     lambda: by_size("query", "mysql", "operation", against_floor, memory_of_operation)),
    ("Queries whose time depends on what the database holds", "", special_cases),
    ("Transactions, on files", "Time, and its ratio to writing and syncing each map once, hashing, making the homes, a "
     "table for each map and one reload.",
     lambda: by_size("transaction", "files", "change", against_floor, memory_of_operation)),
    ("Transactions, in the database", "Time, and its ratio to the bare statements in one transaction, hashing and making "
     "the homes.", lambda: by_size("transaction", "mysql", "change", against_floor, memory_of_operation)),
    ("qvmailctl, on files", "Time, and its ratio to a process that makes the library's calls for the same thing, a change "
     "in a transaction. `mailbox show` also has `doveadm`, the call for the catch-all and one that reads the other account "
     "file, `list list` the latter: what the command answers needs them. `check` and `export` are compared with one read of all maps, `import` has 10,000 mailboxes. "
     "The memory is the largest of the command and of what it runs.",
     lambda: by_size("command", "files", "command", against_library, memory_of_command)),
    ("qvmailctl, in the database", "The same.",
     lambda: by_size("command", "mysql", "command", against_library, memory_of_command)),
    ("Tables of Postfix", "`postmap` of the mailbox map by type, with `berkeley_db_create_buffer_size` where it has one.",
     tables_of_postfix),
    ("Reloads of a busy server", "Messages that Postfix takes over loopback and discards.", reloads),
]


def text():
    return "\n\n".join([machines()] + [f"### {title}\n\n{about}\n\n{make()}".replace("\n\n\n\n", "\n\n")
                                       for title, about, make in SECTIONS])


def line_of(found, name, side):
    row = found.get(name, {})
    return [(number, median(row[number], side)) for number in sorted(row)]


def draw(path, title, lines):
    """lines: label, points, style and number of the color"""
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(figsize=(8, 5), layout="constrained")
    for label, points, style, color in lines:
        if points:
            axes.plot(*zip(*points), style, color=f"C{color}", label=label)
    axes.set(xscale="log", yscale="log", xlabel="accounts", ylabel="seconds", title=title)
    axes.grid(alpha=0.3)
    axes.legend(fontsize="small", loc="center left", bbox_to_anchor=(1, 0.5))
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)


def against(kind, world, names, ours, theirs):
    found = of(kind, world)
    return [line for color, name in enumerate(names) for line in [
        (name, line_of(found, name, ours), "o-", color), ("", line_of(found, name, theirs), "--", color)]]


def plots(directory):
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams.update({"svg.hashsalt": "postfixmanager", "svg.fonttype": "none"})
    directory.mkdir(exist_ok=True)
    changes = ["CreateMailDomain", "CreateMailbox", "DeleteMailbox", "UpdateMailbox UpdatePasswd",
               "VQuota UpdateQuota", "VAlias AddAlias", "VList UpdateList", "UpdateCatchAllAddress"]
    queries = ["GetMailboxList", "IsMailboxExists", "RetrieveQuota", "RetrieveDomainQuota", "RetrieveAlias", "GetLists",
               "GetLists, nearly every entry"]
    some = ["mailbox add", "mailbox show", "mailbox list", "alias add", "domain show", "check", "export", "import"]
    bulk = [f"transaction of {count}" for count in ("1 mailbox", "1000 mailboxes", "10000 mailboxes")]
    tables = [(name, [(number, median(row, name)) for number, row in of("table", "files")["rebuild"].items()], "o-", color)
              for color, name in enumerate(next(iter(of("table", "files")["rebuild"].values()))["sides"])]
    both = [line for color, name in enumerate(changes[:4] + ["GetMailboxList", "GetLists"]) for line in [
        (f"{name}, {where}", line_of({**of("change", world), **of("query", world)}, name, "library"), style, color)
        for world, where, style in (("files", "files", "o-"), ("mysql", "database", "s:"))]]
    for name, title, lines in [
            ("changes", "Changes on files (dashed: their floor)", against("change", "files", changes, "library", "floor")),
            ("queries", "Queries on files (dashed: grep)", against("query", "files", queries, "library", "grep")),
            ("backends", "Files and database", both),
            ("transactions", "Mailboxes in one transaction, on files (dashed: their floor)",
             against("transaction", "files", bulk, "library", "floor")),
            ("qvmailctl", "qvmailctl on files (dashed: the library)",
             against("command", "files", some, "qvmailctl", "library")),
            ("tables", "postmap of the mailbox map", tables)]:
        draw(directory / f"{name}.svg", title, lines)


if given.into:
    page = given.into / "performance.md"
    before, rest = page.read_text().split(MARKS[0])
    page.write_text(f"{before}{MARKS[0]}\n{text()}\n{MARKS[1]}{rest.split(MARKS[1])[1]}")
    plots(given.into / "performance")
else:
    print(text())
