#!/usr/bin/env python3
"""Proves by a solver what gates and rules promise: prove.py SOURCE-FOLDER PROGRAM-FOLDER. Needs python3-z3."""
import sys

import gates
import rules

if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    wrong = gates.prove(sys.argv[1], sys.argv[2]) + rules.prove(sys.argv[2])
    for line in wrong:
        print(f"wrong: {line}")
    sys.exit(1 if wrong else 0)
