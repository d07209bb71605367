#!/usr/bin/env python3
"""Prepares what the end-to-end tests need and runs them: a virtual environment with a gNMI client from the package index, and, where
the machine lets us, a network of our own to play with. Exit code 77: skipped, with the reason."""
import argparse
import hashlib
import os
import pathlib
import shutil
import subprocess
import sys
import venv

HERE = pathlib.Path(__file__).resolve().parent
SKIPPED = 77
# What the tools say when their registries cannot be reached, as opposed to when something is wrong with what is asked of them.
UNREACHABLE = ("connection broken", "NewConnectionError", "ConnectionError", "Temporary failure in name resolution",
               "ProxyError", "Network is unreachable", "ReadTimeoutError", "ConnectTimeoutError", "Max retries exceeded",
               "dial tcp", "no such host", "i/o timeout", "connection refused")


class Unreachable(Exception):
    """A registry is out of reach."""


def run(*command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)


def fetched(folder, wanted, make):
    """The folder, filled by `make` once for each text of what is wanted in it."""
    stamp = folder / "complete"
    wanted = hashlib.sha256(wanted.encode()).hexdigest()
    if stamp.is_file() and stamp.read_text() == wanted:
        return folder
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    result = make(folder)
    if result.returncode != 0:
        if any(text in result.stdout for text in UNREACHABLE):
            raise Unreachable(f"{folder.name}: its registry cannot be reached")
        raise AssertionError(f"{folder.name} could not be made, though its registry was reached: {result.stdout[-3000:]}")
    stamp.write_text(wanted)
    return folder


def environment(folder, *packages):
    """The python of a virtual environment with these packages, as pip names them."""
    def make(new):
        venv.create(new, with_pip=True)
        return run(new / "bin/python", "-m", "pip", "install", "--quiet", "--disable-pip-version-check", "--retries", "1", *packages)

    return fetched(folder, " ".join(packages) + sys.version, make) / "bin/python"


def clientOrSkipped(work):
    """The python of the environment with the gNMI client; ends the program when the index is out of reach."""
    packages = [line for line in (HERE / "requirements.txt").read_text().splitlines() if line and not line.startswith("#")]
    try:
        return environment(work.resolve() / "venv", *packages)
    except Unreachable as skipped:
        print("skipped:", skipped)
        sys.exit(SKIPPED)


def parserOf(about):
    parser = argparse.ArgumentParser(description=about)
    parser.add_argument("--agent", required=True, type=lambda path: pathlib.Path(path).resolve(), help="the program under test")
    parser.add_argument("--work", required=True, type=lambda path: pathlib.Path(path).resolve(), help="a folder for files, kept between runs")
    return parser


def variables(arguments, **more):
    """What the tests' own modules read, and keeps clients off proxies."""
    arguments.work.mkdir(parents=True, exist_ok=True)
    return {"E2E_AGENT": str(arguments.agent), "E2E_WORK": str(arguments.work), "PYTHONDONTWRITEBYTECODE": "1"} | more


def ownNetwork():
    """The command that runs another one in a network namespace with a loopback interface, or nothing."""
    command = ["unshare", "--net", "--", "sh", "-c", 'ip link set lo up && exec "$0" "$@"']
    try:
        works = subprocess.run([*command, "ip", "link", "add", "e2e0", "type", "veth", "peer", "name", "e2e1"],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode == 0
    except FileNotFoundError:
        works = False
    return command if works else []


def main():
    parser = parserOf(__doc__)
    parser.add_argument("tests", nargs="*", help="names for unittest, as in test_calls.Calls")
    arguments = parser.parse_args()
    python = clientOrSkipped(arguments.work)
    network = ownNetwork()
    print("in a network namespace of its own" if network else
          "no network namespace: what needs links that come and go is skipped", flush=True)
    own = variables(arguments, E2E_OWN_NETWORK="1" if network else "", no_proxy="*",
                    LSAN_OPTIONS=f"suppressions={HERE}/lsan.supp:print_suppressions=0")
    os.chdir(HERE)
    command = [*network, str(python), "-W", "ignore", "-m", "unittest", *(arguments.tests or ["discover"]), "--verbose"]
    os.execvpe(command[0], command, os.environ | own)


if __name__ == "__main__":
    main()
