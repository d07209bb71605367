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
# What pip says when the index cannot be reached, as opposed to when something is wrong with what is asked of it.
UNREACHABLE = ("connection broken", "NewConnectionError", "ConnectionError", "Temporary failure in name resolution",
               "ProxyError", "Network is unreachable", "ReadTimeoutError", "ConnectTimeoutError", "Max retries exceeded")


def environment(work):
    """The python of the virtual environment, made when it is missing or its list has changed; None when the index is out of reach."""
    requirements = HERE / "requirements.txt"
    wanted = hashlib.sha256(requirements.read_bytes() + sys.version.encode()).hexdigest()
    folder, python = work / "venv", work / "venv/bin/python"
    stamp = folder / "complete"
    if stamp.is_file() and stamp.read_text() == wanted:
        return python
    shutil.rmtree(folder, ignore_errors=True)
    venv.create(folder, with_pip=True)
    pip = subprocess.run([python, "-m", "pip", "install", "--quiet", "--disable-pip-version-check", "--retries", "1",
                          "-r", requirements], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if pip.returncode != 0:
        print(pip.stdout)
        if any(text in pip.stdout for text in UNREACHABLE):
            return None
        sys.exit("pip failed, though the package index was reached")
    stamp.write_text(wanted)
    return python


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
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--agent", required=True, type=pathlib.Path, help="the program under test")
    parser.add_argument("--work", required=True, type=pathlib.Path, help="a folder for the environment and the tests' files")
    parser.add_argument("tests", nargs="*", help="names for unittest, as in test_calls.Get")
    arguments = parser.parse_args()
    arguments.work.mkdir(parents=True, exist_ok=True)
    python = environment(arguments.work.resolve())
    if python is None:
        print("skipped: the package index cannot be reached")
        sys.exit(SKIPPED)
    network = ownNetwork()
    print("in a network namespace of its own" if network else
          "no network namespace: what needs links that come and go is skipped", flush=True)
    variables = dict(os.environ, E2E_AGENT=str(arguments.agent.resolve()), E2E_WORK=str(arguments.work.resolve()),
                     E2E_OWN_NETWORK="1" if network else "", PYTHONDONTWRITEBYTECODE="1", no_proxy="*",
                     LSAN_OPTIONS=f"suppressions={HERE}/lsan.supp:print_suppressions=0")
    tests = arguments.tests or ["discover"]
    os.chdir(HERE)
    command = [*network, str(python), "-W", "ignore", "-m", "unittest", *map(str, tests), "--verbose"]
    sys.stdout.flush()
    os.execvpe(command[0], command, variables)


if __name__ == "__main__":
    main()
