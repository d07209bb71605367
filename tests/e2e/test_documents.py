"""What the pages say of clients, run as it stands there; only the address is another, and what would go on for ever is ended."""
import pathlib
import shlex
import subprocess
import sys
import tempfile
import unittest

from agentprocess import AGENT, DEADLINE, ROOT, AgentProcess, fenced
from support import command


class Readme(unittest.TestCase):
    SAYS = {"capabilities": "openconfig-interfaces 3.8.1 ", "get": '"openconfig-interfaces:name": "lo"', "set": "UPDATE ",
            "watch": "-- in sync\n"}

    def testCommands(self):
        with AgentProcess() as agent:
            lines = [shlex.split(line) for line in fenced("sh", agent.port, __file__).splitlines()]
            self.assertEqual([line[:2] for line in lines], [["ondra-agent", name] for name in self.SAYS])
            for _, name, *rest in lines:
                ends = ("--seconds", "1") if name == "watch" else ()
                code, out, err = command(name, *rest, "--address", f"127.0.0.1:{agent.port}", *ends)
                self.assertEqual((code, err), (0, ""))
                self.assertIn(self.SAYS[name], out)

    def testPython(self):
        with AgentProcess() as agent:
            script = [sys.executable, "-u", "-c", fenced("python", agent.port, __file__)]
            process = subprocess.Popen(script, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            try:
                told = [process.stdout.readline() for _ in range(2)]
            finally:
                process.kill()
                process.communicate()
        self.assertIn("in-octets", told[0])
        self.assertIn("update", told[1])


class DeviceData(unittest.TestCase):
    def testProvider(self):
        with tempfile.TemporaryDirectory() as folder:
            socket = pathlib.Path(folder, "provider.sock")
            with AgentProcess("--no-machine", "--yang", str(ROOT / "demo/yang"), "--provider", f"unix:{socket}",
                              "--provider-mode", "660") as agent:
                self.assertEqual(socket.stat().st_mode & 0o777, 0o660)
                script = fenced("python", agent.port, __file__, "docs/yang.md").replace("/run/device/provider.sock", str(socket))
                provider = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
                told = subprocess.Popen([AGENT, "watch", "--insecure", "--address", f"127.0.0.1:{agent.port}", "--seconds", str(DEADLINE),
                                         "/sensors/sensor[name=hall]/state/millivolts"], stdout=subprocess.PIPE, text=True)
                try:
                    self.assertTrue(any("1500" in line for line in told.stdout), "nothing was told of what the provider wrote")
                finally:
                    for process in (provider, told):
                        process.kill()
                        process.communicate()
