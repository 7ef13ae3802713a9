#!/usr/bin/env python3
"""Writes the picture of the components in the language of Graphviz: what each may include, from includes_test.py.

Usage: picture.py | dot -Tsvg > docs/components.svg

Edges that follow from others (a may include b, b may include c) are left out, those to include/tavrik2 as well.
"""
from includes_test import ALLOWED, drawn_edges

GROUPS = {"tools/": "#fdf3d7", "database/": "#e8f3e2", "samples": "#e8f3e2", "tavrik2": "#fbe3d0", "platform": "#fbe3d0",
          "companions": "#fbe3d0", "include/": "#fbe3d0", "": "#e3edf7"}


def colour(name):
    return next(value for start, value in GROUPS.items() if name.startswith(start))


def main():
    print('digraph components {\n  rankdir=TB; nodesep=0.25; ranksep=0.45; bgcolor="white";')
    print('  node [shape=box, style="filled,rounded", fontname="sans-serif", fontsize=12, color="#334455"];')
    print('  edge [color="#556677", arrowsize=0.7];')
    for name in ALLOWED:
        print(f'  "{name}" [fillcolor="{colour(name)}"];')
    for edge in sorted(drawn_edges()):
        print('  "{}" -> "{}";'.format(*edge))
    print("}")


if __name__ == "__main__":
    main()
