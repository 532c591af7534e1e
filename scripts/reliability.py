#!/usr/bin/env python3
"""reliability.py [SUITE ...] - runs the suites that attack, and writes counts into docs/reliability.md

Without a name all of them, which takes hours: whole, but for the four that say so below; ctest runs a sample
of each. Builds what they need first. A suite prints what it tried as a line of its own,
'reliability: {"calls failed": 9804, ...}', on standard output or error. Its exit status is 0 when all of it
held. Rows of other suites stay as their last run left them.
"""

import datetime, json, re, subprocess, sys, time
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
PAGE, BUILD = TOP / "docs/reliability.md", TOP / "build/release"
QVMAILCTL, INJECT = BUILD / "qvmailctl/qvmailctl", BUILD / "tests/inject"
PLAIN_CALL, PANEL = BUILD / "tests/plain_call", BUILD / "tests/panel"
LIBRARY_TESTS = BUILD / "postfixmanager/tests/postfixmanager-tests"
WORLD = [TOP / "scripts/private-world", "python3"]
SUITES = {
    # A ninth and a seventh of the points: all take more than an hour.
    "faults.files": [*WORLD, TOP / "tests/faults_test.py", "files", "9", QVMAILCTL, INJECT],
    "faults.mysql": [*WORLD, TOP / "tests/faults_test.py", "mysql", "7", QVMAILCTL, INJECT],
    "power_cuts.files": [*WORLD, TOP / "tests/power_cuts_test.py", "files", "1", QVMAILCTL, INJECT],
    "power_cuts.mysql": [*WORLD, TOP / "tests/power_cuts_test.py", "mysql", "1", QVMAILCTL, INJECT],
    "plain_calls.files": [*WORLD, TOP / "tests/plain_calls_test.py", "files", "1", QVMAILCTL, INJECT, PLAIN_CALL],
    "plain_calls.mysql": [*WORLD, TOP / "tests/plain_calls_test.py", "mysql", "1", QVMAILCTL, INJECT, PLAIN_CALL],
    # A third of the packets, in 20 minutes, and a ninth: each silence takes as long as the time limit.
    "cuts.cut": [*WORLD, TOP / "tests/cuts_test.py", "3", QVMAILCTL, "cut"],
    "cuts.silence": [*WORLD, TOP / "tests/cuts_test.py", "9", QVMAILCTL, "silence"],
    "races.files": [*WORLD, TOP / "tests/races_test.py", "files", "200", QVMAILCTL, PANEL],
    "races.mysql": [*WORLD, TOP / "tests/races_test.py", "mysql", "200", QVMAILCTL, PANEL],
    "Load": ["env", "LOAD=10000", WORLD[0], LIBRARY_TESTS, "--gtest_filter=Load.*"],
    "fuzz": [TOP / "fuzz/run", "300"]}
ROW = re.compile(r"^\| `(.+)` \|.*$", re.M)
MARKED = re.compile(r"(<!-- numbers -->\n).*(<!-- end of numbers -->)", re.S)


def run(command):
    """Shows what the suite prints, and gives its exit status and the counts of its closing line."""
    counts = {}
    both = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}
    suite = subprocess.Popen(command, text=True, errors="replace", **both)
    for line in suite.stdout:
        print(line, end="", flush=True)
        if line.startswith("reliability: "):
            counts = json.loads(line.split(maxsplit=1)[1])
    return suite.wait(), counts


def main(names):
    unknown = [name for name in names if name not in SUITES]
    if unknown:
        sys.exit(f"reliability.py: no suite {unknown[0]}; there are: {' '.join(SUITES)}")
    subprocess.run(["cmake", "--preset", "release"], cwd=TOP, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", "--preset", "release"], cwd=TOP, check=True)
    fell = []
    for name in names or SUITES:
        begin = time.monotonic()
        status, counts = run(SUITES[name])
        if status != 0:
            fell.append(name)
        tried = ", ".join(f"{count:,} {what}" for what, count in counts.items()) or "no counts"
        minutes = (time.monotonic() - begin) / 60
        outcome = "**fell**" if status else "held"
        row = f"| `{name}` | {datetime.date.today()}, {minutes:.0f} min | {tried} | {outcome} |"
        text = PAGE.read_text()
        rows = {found[1]: found[0] for found in ROW.finditer(MARKED.search(text)[0])}
        rows[name] = row
        table = ["| Suite | Last run | Tried | Outcome |", "|---|---|---|---|"]
        table += [rows[each] for each in SUITES if each in rows]
        PAGE.write_text(MARKED.sub(lambda found: found[1] + "\n".join(table) + "\n" + found[2], text))
    if fell:
        sys.exit("reliability.py: fell: " + " ".join(fell))


if __name__ == "__main__":
    main(sys.argv[1:])
