#!/usr/bin/env python3
"""Runs the agent against programs that people use as clients of gNMI, each fetched and built on the first run and kept in the work folder.
What the registries do not give is skipped, with the reason. Exit code 77: everything was."""
import argparse
import os
import pathlib
import subprocess
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
SKIPPED = 77


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--agent", required=True, type=pathlib.Path, help="the program under test")
    parser.add_argument("--work", required=True, type=pathlib.Path, help="a folder for the clients, kept between runs")
    parser.add_argument("tests", nargs="*", help="names for unittest, as in client_programs.Telegraf")
    arguments = parser.parse_args()
    arguments.work.mkdir(parents=True, exist_ok=True)
    os.environ |= {"E2E_AGENT": str(arguments.agent.resolve()), "E2E_WORK": str(arguments.work.resolve()), "no_proxy": "127.0.0.1"}
    os.chdir(HERE)
    sys.path.insert(0, str(HERE))
    program = unittest.main(module=None, argv=["clients", *(arguments.tests or ["client_programs"])], verbosity=2, exit=False)
    result = program.result
    if not result.wasSuccessful():
        sys.exit(1)
    sys.exit(SKIPPED if result.testsRun == len(result.skipped) else 0)


if __name__ == "__main__":
    main()
