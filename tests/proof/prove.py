#!/usr/bin/env python3
"""Proves by a solver what gates and rules promise: prove.py SOURCE-FOLDER PROGRAM-FOLDER [gates|rules]. Needs python3-z3."""
import sys

import gates
import rules

if __name__ == "__main__":
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    parts = {"gates": lambda: gates.prove(sys.argv[1], sys.argv[2]), "rules": lambda: rules.prove(sys.argv[2])}
    wrong = [line for part in sys.argv[3:] or parts for line in parts[part]()]
    for line in wrong:
        print(f"wrong: {line}")
    sys.exit(1 if wrong else 0)
