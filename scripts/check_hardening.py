#!/usr/bin/env python3
"""Checks that the files of a delivered build have its guards.

usage: check_hardening.py FILE...
"""
import subprocess
import sys


def what_lacks(path):
    text = subprocess.run(["readelf", "-W", "-h", "-l", "-d", "--dyn-syms", path], check=True, capture_output=True,
                          text=True).stdout
    marks = {"a position of its own": "Type:                              DYN", "a table that can't be written to": "GNU_RELRO",
             "binding at the start": "BIND_NOW", "checks of its stacks": "__stack_chk_fail", "checks of its copies": "_chk@"}
    return [what for what, mark in marks.items() if mark not in text]


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    wrong = [f"{path} lacks {what}" for path in sys.argv[1:] for what in what_lacks(path)]
    sys.exit("\n".join(wrong) or None)
