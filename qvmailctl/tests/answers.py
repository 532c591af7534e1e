"""Runs qvmailctl, and holds its JSON answers to the schema in docs/json.md and its refusals to changing nothing"""
import json, re, unittest

import jsonschema
from private_world import ETC, LIST, TOP, qvmailctl

SCHEMA = json.loads(re.search(r"```json\n(.*?)```", (TOP / "docs/json.md").read_text(), re.S)[1])
DELETION = re.compile(r"(domain|mailbox|alias|list) delete |catchall remove ")


def checked(command, text):
    """The result of an answer, or its error."""
    document = json.loads(text)
    if "result" in document:
        schema = next(schema for name, schema in SCHEMA["commands"].items() if command.startswith(name))
        jsonschema.validate(document["result"], SCHEMA | schema)
    if "error" in document:
        jsonschema.validate(document["error"], SCHEMA | SCHEMA["failure"])
    return document.get("result", document.get("error"))


def maps():
    return {f: f.read_bytes() for f in (LIST, *ETC.glob("v*")) if f.exists() and f.suffix in ("", ".txt")}


class TestCase(unittest.TestCase):
    def ctl(self, *commands, status=0, says=(), **how):
        """Runs commands that all end with this status and say these texts; gives what they print."""
        printed = ""
        for command in commands:
            done = qvmailctl(command + " --yes" * bool(DELETION.match(command)), **how)
            self.assertEqual(status, done.returncode, f"{command}: {done.stdout}{done.stderr}")
            for text in says:
                self.assertIn(text, done.stderr, command)
            printed += done.stdout
        return printed

    def refused(self, status, commands, *says, **how):
        """One command, or a list of them: each ends with this status and these texts, and every map is as it was."""
        commands, before = [commands] if isinstance(commands, str) else commands, maps()
        self.assertEqual("", self.ctl(*commands, status=status, says=says, **how))
        self.assertEqual(before, maps(), commands)

    def answers(self, command, *lines):
        self.assertEqual(sorted(lines), sorted(self.ctl(command).splitlines()), command)

    def result(self, command, **how):
        return checked(command, self.ctl(command + " --json", **how))
