"""Ends a test, when it imports this, that is not inside scripts/private-world: it would delete what the machine has"""
import pathlib, subprocess, sys

TOP = pathlib.Path(__file__).resolve().parent.parent
if subprocess.call([TOP / "scripts/private-world", "--inside"]) != 0:
    sys.exit(1)
