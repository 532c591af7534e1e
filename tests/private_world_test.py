#!/usr/bin/env python3
"""private_world_test.py - what a test does in its private world stays there, and can be kept when it fails"""
import os
import subprocess
import tempfile
import unittest
from pathlib import Path

import private_world

WORLD = private_world.TOP / "scripts/private-world"


class PrivateWorld(unittest.TestCase):
    def test_who_needs_a_world_refuses_to_run_without(self):
        with self.assertRaisesRegex(SystemExit, "run scripts/private-world"):
            private_world.require()

    def test_the_machines_devices_keep_owner_and_mode(self):
        before = os.stat("/dev/full")[:6]
        subprocess.run([WORLD, "sh", "-c", "chmod 640 /dev/full; chown 12:34 /dev/full"])
        self.assertEqual(before, os.stat("/dev/full")[:6])

    def test_the_world_of_a_failed_command_is_kept(self):
        with tempfile.TemporaryDirectory() as kept:
            for status in 0, 7:
                command = f"echo said > /var/log/some.log; echo a > /etc/vmail/vmaps.txt; exit {status}"
                done = subprocess.run([WORLD, "sh", "-c", command], env={**os.environ, "KEEP_WORLD": kept})
                self.assertEqual(status, done.returncode)
            files = [*Path(kept).glob("*/log/some.log"), *Path(kept).glob("*/vmail/vmaps.txt")]
            self.assertEqual(["said\n", "a\n"], [file.read_text() for file in files])


unittest.main()
