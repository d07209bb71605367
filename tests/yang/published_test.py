#!/usr/bin/env python3
"""usage: published_test.py AGENT PAGE     the declared model against the published modules

Reads the page of the paths that the agent serves of its machine, and what it makes of the modules in the folder KTD_YANG_DIR. Each path of
the page must be there with the same keys, the same type, and the same class. Exit status 77 when there are no modules.
"""
import os
import re
import subprocess
import sys

ROW = re.compile(r"^\| `(\S+)` \| (\S+)[^|]* \| (\w+) \| \w+ \|$", re.M)


def rows(text):
    return {path: (kind, of) for path, kind, of in ROW.findall(text)}


def isKeyOf(path):
    """Keys of lists whose entries nobody can configure here are state, as the page says."""
    above, leaf = path.rsplit("/", 1)
    return above.endswith(f"[{leaf}]")


def main(agent, page):
    folder = os.environ.get("KTD_YANG_DIR")
    if not folder:
        print("KTD_YANG_DIR names no folder of modules")
        return 77
    declared = rows(open(page, encoding="utf-8").read())
    published = rows(subprocess.run([agent, "paths", "--yang", folder], check=True, capture_output=True, text=True).stdout)
    wrong = [f"{path}: declared {ours}, published {published.get(path)}" for path, ours in declared.items()
             if published.get(path) != ours
             and not (isKeyOf(path) and published.get(path) == (ours[0], "config"))]
    print("\n".join(wrong) or f"{len(declared)} paths are as published")
    return 1 if wrong or not declared else 0


sys.exit(main(*sys.argv[1:]))
