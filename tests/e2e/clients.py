#!/usr/bin/env python3
"""Runs the agent against programs that people use as clients of gNMI, each fetched and built on the first run and kept in the work folder.
What the registries do not give is skipped, with the reason. Exit code 77: everything was."""
import os
import sys
import unittest

import run


def main():
    parser = run.parserOf(__doc__)
    parser.add_argument("tests", nargs="*", help="names for unittest, as in client_programs.Telegraf")
    arguments = parser.parse_args()
    os.environ |= run.variables(arguments, no_proxy="127.0.0.1")
    os.chdir(run.HERE)
    program = unittest.main(module=None, argv=["clients", *(arguments.tests or ["client_programs", "fleet_programs"])], verbosity=2, exit=False)
    result = program.result
    if not result.wasSuccessful():
        sys.exit(1)
    sys.exit(run.SKIPPED if result.testsRun == len(result.skipped) else 0)


if __name__ == "__main__":
    main()
