"""The fleet of packaging/fleet on this machine: agents, telegraf as readers and writer, the log; each killed and started again while somebody
configures the agents."""
import json
import pathlib
import re
import shutil
import socket
import subprocess
import time
import unittest

from agentprocess import AGENT, DEADLINE, WORK, AgentProcess
from client_programs import telegraf

FILES = pathlib.Path(__file__).resolve().parents[2] / "packaging/fleet"
AGENTS, EVENTS = 6, 60


def freePort():
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


class Fleet(unittest.TestCase):
    def setUp(self):
        if shutil.which("nats-server") is None:
            self.skipTest("there is no nats-server")
        self.telegraf, self.folder, self.processes = telegraf(), WORK / "fleet", {}
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir()
        self.ports = {"4222": str(freePort()), "9273": str(freePort())}
        self.agents = [AgentProcess() for _ in range(AGENTS)]
        for agent in self.agents:
            self.addCleanup(agent.__exit__)
        (self.folder / "agents").write_text("".join(f"127.0.0.1:{agent.port}\n" for agent in self.agents))
        subprocess.run([FILES / "shards", self.folder / "agents", self.folder, "2"], check=True, stdout=subprocess.DEVNULL)
        for name in ("nats-server", "writer"):
            shutil.copy(FILES / f"{name}.conf", self.folder)
        self.commands = {"nats-server": ["nats-server", "-c", self.here("nats-server")]}
        self.commands |= {name: [self.telegraf, "--config", self.here(name)] for name in ("reader-0", "reader-1", "writer")}

    def here(self, name):
        """The configuration as it is shipped, but for ports and folders."""
        path = self.folder / f"{name}.conf"
        text = re.sub("4222|9273", lambda found: self.ports[found.group()], path.read_text())
        path.write_text(re.sub("/var/lib/nats|/var/log/ondra-fleet", str(self.folder), text))
        return path

    def start(self, name):
        with open(self.folder / f"{name}.log", "a", encoding="utf-8") as log:
            process = subprocess.Popen(self.commands[name], stdout=log, stderr=log)
        self.processes[name] = process
        self.addCleanup(lambda: (process.kill(), process.wait()))
        if name == "nats-server":
            self.until(self.isListening)

    def isListening(self):
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", int(self.ports["4222"]))) == 0

    def kill(self, name):
        process = self.processes.pop(name)
        process.kill()
        process.wait()

    def told(self):
        path = self.folder / "events"
        lines = path.read_text().splitlines() if path.exists() else []
        whole = (json.loads(line)["fields"] for line in lines if line.endswith("}"))
        return {fields["description"] for fields in whole if "description" in fields}

    def awaitTold(self, values):
        self.until(lambda: values <= self.told())

    def until(self, isTrue):
        """Looks from time to time, and starts again what has ended by itself, as a supervisor does: a writer that finds no log yet."""
        end = time.monotonic() + 3 * DEADLINE
        while not isTrue():
            self.assertLess(time.monotonic(), end, f"{len(self.told())} events told")
            for name in [name for name, process in self.processes.items() if process.poll() is not None]:
                self.start(name)
            with self.assertRaises(subprocess.TimeoutExpired, msg="an agent ended"):
                self.agents[0].process.wait(0.2)

    def configure(self, count):
        """So many changes, one agent after the other; what they set."""
        values = set()
        for _ in range(count):
            agent = self.agents[self.sent % AGENTS]
            values.add(value := f"event {self.sent}")
            self.sent += 1
            subprocess.run([AGENT, "set", "--insecure", "--address", f"127.0.0.1:{agent.port}", "--update",
                            f"/interfaces/interface[name=lo]/config/description={value}"], check=True, stdout=subprocess.DEVNULL)
        return values

    def testNoEventIsLostWhoeverDies(self):
        self.sent = 0
        for name in self.commands:
            self.start(name)
        self.awaitTold(self.configure(AGENTS))  # all read, and written
        for name in ("nats-server", "writer"):
            with self.subTest(name):
                self.kill(name)
                values = self.configure(EVENTS)
                self.start(name)
                self.awaitTold(values | self.configure(EVENTS))
        self.kill("reader-0")
        self.configure(EVENTS - AGENTS)  # of these each agent's last is told when it is read again
        last = self.configure(AGENTS)
        self.start("reader-0")
        self.awaitTold(last)
        self.awaitTold(self.configure(EVENTS))
