#!/usr/bin/env python3
"""usage: published_test.py AGENT PAGE FOLDER     the declared model against the published modules

Reads the page of the paths that the agent serves of its machine, and what it makes of the modules in the folder KTD_YANG_DIR. Each path of
the page must be there with the same keys, the same type, and the same class; those of /ondra-agent in the modules of FOLDER. Exit status 77
when that is all, because there are no modules of others.
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


def faults(agent, declared, folder):
    published = rows(subprocess.run([agent, "paths", "--yang", folder], check=True, capture_output=True, text=True).stdout)
    return [f"{path}: declared {ours}, published {published.get(path)}" for path, ours in declared.items()
            if published.get(path) != ours
            and not (isKeyOf(path) and published.get(path) == (ours[0], "config"))]


def main(agent, page, own):
    declared = rows(open(page, encoding="utf-8").read())
    ours = {path: row for path, row in declared.items() if path.startswith("/ondra-agent/")}
    folder = os.environ.get("KTD_YANG_DIR")
    wrong = faults(agent, ours, own) + (faults(agent, {path: row for path, row in declared.items() if path not in ours}, folder) if folder else [])
    print("\n".join(wrong) or f"{len(declared if folder else ours)} paths are as published")
    if wrong or not ours or len(ours) == len(declared):
        return 1
    if not folder:
        print("KTD_YANG_DIR names no folder of modules: the machine's paths have not been looked at")
    return 0 if folder else 77


sys.exit(main(*sys.argv[1:]))
