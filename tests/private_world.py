"""What the tests in Python share: they delete and write below /etc and /var, so they ask first whose these are"""
import re
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent


def require():
    """Ends the program unless both are laid over the machine's own, as scripts/private-world does it."""
    mounts = Path("/proc/self/mountinfo").read_text()
    if not all(re.search(f" {place} .*lowerdir={place},", mounts) for place in ("/etc", "/var")):
        sys.exit(f"this test writes to /etc and /var: run scripts/private-world {sys.argv[0]}")
