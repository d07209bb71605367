#!/usr/bin/env python3
"""The attacks of http2.py against an agent behind the front that packaging/front describes, and, for comparison, against the agent itself.
Loopback only; every attack is bounded in bytes and seconds, prints its figures, and fails beyond what is promised. Exit code 77: skipped, because
the front is not installed."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))
import http2  # noqa: E402
import run  # noqa: E402

DEADLINE = 20
SECONDS, MEBIBYTES, CONNECTIONS = 5, 64, 4
MAIN = """
daemon off; master_process on; worker_processes 2; {user} pid {folder}/pid; error_log {folder}/error.log;
events {{ worker_connections 4096; }}
http {{
  access_log off;
  client_body_temp_path {folder}/a; proxy_temp_path {folder}/b; fastcgi_temp_path {folder}/c; uwsgi_temp_path {folder}/d; scgi_temp_path {folder}/e;
  include {folder}/site.conf;
}}
"""


def freePort():
    with http2.socket.create_server(("127.0.0.1", 0)) as taken:
        return taken.getsockname()[1]


def memory(pid):
    """Resident mebibytes of a process and its children."""
    total = 0
    for one in [str(pid), *pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]:
        try:
            total += int(re.search(r"VmRSS:\s*(\d+)", pathlib.Path(f"/proc/{one}/status").read_text())[1]) / 1024
        except (OSError, TypeError):
            pass  # has gone
    return total


class Setting:
    """The agent, the front where it is wanted, and a polite client of whatever is in front."""

    def __init__(self, agent, folder, isFronted, certificates):
        self.program, self.certificates = agent, certificates
        self.address = ("127.0.0.1", freePort())
        socket = str(folder / "agent.sock")
        listen = "unix:" + socket if isFronted else "%s:%d" % self.address
        self.agent = subprocess.Popen([agent, "serve", "--insecure", "--no-machine", "--listen", listen, "--memory-budget", "64MiB"],
                                      stderr=subprocess.DEVNULL)
        self.front = None
        if isFronted:
            site = (HERE.parents[1] / "packaging/front/nginx.conf").read_text()
            site = re.sub(r"listen \[::\]:9339[^\n]*\n", "", site).replace("listen 9339", "listen %s:%d" % self.address)
            site = site.replace("/run/ondra-agent/agent.sock", socket).replace("/etc/ondra-agent/", str(certificates.root) + "/")
            (folder / "site.conf").write_text(site)
            user = "user root;" if os.geteuid() == 0 else ""
            (folder / "main.conf").write_text(MAIN.format(folder=folder, user=user))
            self.front = subprocess.Popen([shutil.which("nginx"), "-e", folder / "error.log", "-p", folder, "-c", folder / "main.conf"])
        end = time.monotonic() + DEADLINE
        while self.polite() is None:
            if time.monotonic() > end:
                raise AssertionError("nobody serves")

    def tls(self):
        return http2.client(*self.certificates.client, self.certificates.ca) if self.front else None

    def polite(self):
        """How long a whole call takes, connecting included, in seconds; None when it is not answered."""
        certificate, key = self.certificates.client
        secure = ["--ca", self.certificates.ca, "--cert", certificate, "--key", key] if self.front else ["--insecure"]
        begin = time.monotonic()
        result = subprocess.run([self.program, "capabilities", *secure, "-a", "%s:%d" % self.address, "--timeout", "10s"],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        return time.monotonic() - begin if result.returncode == 0 else None

    def resident(self):
        return memory(self.agent.pid), memory(self.front.pid) if self.front else 0

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        for process in (self.front, self.agent):
            if process:
                process.terminate()
                process.wait(DEADLINE)


def attacked(setting, make):
    """(mebibytes sent, the most memory of agent and front, the longest polite call)."""
    sent, most, ended = [], [0, 0], threading.Event()

    def attack():
        end = time.monotonic() + SECONDS
        while (left := end - time.monotonic()) > 0:  # again, whenever it is cut off
            try:
                sent.append(http2.pour(http2.greeted(setting.address, tls=setting.tls(), source="127.0.0.2"), make(), left, MEBIBYTES))
            except OSError:
                pass

    def measure():
        while not ended.wait(0.05):
            most[:] = [max(pair) for pair in zip(most, setting.resident())]

    measurer = threading.Thread(target=measure)
    measurer.start()
    attackers = [threading.Thread(target=attack) for _ in range(CONNECTIONS)]
    [attacker.start() for attacker in attackers]
    calls = [setting.polite()]
    while any(attacker.is_alive() for attacker in attackers):
        calls.append(setting.polite())
    ended.set()
    measurer.join()
    return sum(sent), *most, float("inf") if None in calls else max(calls)


def main():
    parser = run.parserOf(__doc__)
    parser.add_argument("--without", action="store_true", help="the agent itself, plaintext, as well")
    arguments = parser.parse_args()
    if shutil.which("nginx") is None:
        print("skipped: nginx is not installed")
        sys.exit(run.SKIPPED)
    os.environ |= run.variables(arguments)
    import certificates as made
    keys = made.Certificates()
    keys.signed("server")
    keys.client = keys.signed("client", names="")
    shutil.copy(keys.ca, keys.root / "clients-ca.pem")
    isKept = True
    for isFronted in (True, False) if arguments.without else (True,):
        for name, make in http2.ATTACKS.items():
            with tempfile.TemporaryDirectory(dir=arguments.work) as folder, \
                    Setting(arguments.agent, pathlib.Path(folder), isFronted, keys) as setting:
                before = setting.resident()
                quiet = setting.polite()
                sent, agent, front, polite = attacked(setting, make)
                isGood = agent < before[0] + (32 if isFronted else 500) and front < before[1] + 64 and (polite < 10 or not isFronted)
                isKept = isKept and isGood
                print(f"{'behind the front' if isFronted else 'agent alone'}: {name}: {sent:.1f} MiB sent; agent {before[0]:.0f} -> {agent:.0f} MiB, "
                      f"front {before[1]:.0f} -> {front:.0f} MiB; a call takes {quiet * 1e3:.0f} ms, {polite * 1e3:.0f} ms at most among them"
                      f"{'' if isGood else '  <- too much'}", flush=True)
    keys.remove()
    sys.exit(0 if isKept else 1)


if __name__ == "__main__":
    main()
