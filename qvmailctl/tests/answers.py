"""Holds the command's JSON answers to the schema in docs/json.md"""
import json, re
from pathlib import Path

import jsonschema

PAGE = Path(__file__).resolve().parents[2] / "docs/json.md"
SCHEMA = json.loads(re.search(r"```json\n(.*?)```", PAGE.read_text(), re.S)[1])


def check_result(command, result):
    schema = next(schema for name, schema in SCHEMA["commands"].items() if command.startswith(name))
    jsonschema.validate(result, SCHEMA | schema)


def check_failure(error):
    jsonschema.validate(error, SCHEMA | SCHEMA["failure"])
