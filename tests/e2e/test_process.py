"""The program: start and end, exit codes, and its own client."""
import json
import pathlib
import signal
import socket
import subprocess
import time
import unittest
import unittest.mock

import grpc

from support import AGENT, DEADLINE, WORK, Agent, command

DESCRIPTION = "/interfaces/interface[name=lo]/config/description"


class Process(unittest.TestCase):
    def testSigintEndsItAndNobodyNeedsToListen(self):
        with Agent() as agent:
            self.assertEqual(agent.end(signal.SIGINT), 0)
        for lost in ("2>&-", "2>/dev/full", "<&- >&- 2>&-"):  # no line tells that it listens: its socket does
            path = str(WORK / "lost.sock")
            process = subprocess.Popen(["sh", "-c", f'exec "$0" serve --insecure --no-machine --listen unix:{path} {lost}', AGENT])
            end = time.monotonic() + DEADLINE
            while command("capabilities", "--insecure", "-a", f"unix:{path}")[0] != 0:
                self.assertLess(time.monotonic(), end)
                self.assertIsNone(process.poll(), lost)
            code, out, err = command("serve", "--insecure", "--listen", f"unix:{path}")
            self.assertEqual((code, out), (3, ""), "a second one")
            self.assertIn(f"cannot listen on unix:{path}: Address already in use", err)
            process.terminate()
            self.assertEqual(process.wait(DEADLINE), 0)

    def testHealthSaysThatItDrainsAndASecondSignalEndsItAtOnce(self):
        for second, code in ((False, 0), (True, 128 + signal.SIGTERM)):
            with Agent() as agent, grpc.insecure_channel("127.0.0.1:%d" % agent.port) as channel:
                asIs = {"request_serializer": bytes, "response_deserializer": bytes}
                watch = channel.unary_stream("/grpc.health.v1.Health/Watch", **asIs)(b"\n\tgnmi.gNMI", timeout=DEADLINE)
                self.assertEqual(next(watch), b"\x08\x01")  # SERVING
                begin = time.monotonic()
                agent.process.send_signal(signal.SIGTERM)
                self.assertEqual(next(watch), b"\x08\x02")  # NOT_SERVING; the call itself stays, and is waited for
                self.assertEqual(agent.end() if second else agent.process.wait(timeout=DEADLINE), code)
                self.assertLess(time.monotonic() - begin, 10)

    def testTheServiceManagerIsToldAndTheWatchdogIsTheLoops(self):
        told = str(WORK / "notify.sock")
        pathlib.Path(told).unlink(missing_ok=True)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(told)
            manager.settimeout(DEADLINE)
            with unittest.mock.patch.dict("os.environ", NOTIFY_SOCKET=told, WATCHDOG_USEC="200000"), Agent("--no-machine") as agent:
                self.assertEqual(manager.recv(100), b"READY=1")
                self.assertEqual(manager.recv(100), b"STATUS=0 streams, 0 calls so far")
                begin = time.monotonic()
                for _ in range(5):
                    self.assertEqual(manager.recv(100), b"WATCHDOG=1")
                self.assertGreater(time.monotonic() - begin, 0.3)
                other = lambda: next(said for said in iter(lambda: manager.recv(100), None) if said != b"WATCHDOG=1")
                agent.process.send_signal(signal.SIGHUP)
                self.assertRegex(other(), rb"^RELOADING=1\nMONOTONIC_USEC=[0-9]+$")
                self.assertEqual(other(), b"READY=1")
                self.assertEqual(agent.end(), 0)
            self.assertEqual(other(), b"STOPPING=1")

    def testUsage(self):
        for arguments, code in (((), 2), (("--help",), 0), (("--version",), 0), (("fly",), 2), (("serve", "--help"), 0),
                                (("serve",), 2), (("serve", "--insecure", "--trace", "x/y"), 2), (("watch", "a[b"), 2),
                                (("serve", "--insecure", "--check-config"), 0),
                                (("serve", "--insecure", "--listen", "0.0.0.0:0", "--check-config"), 2)):
            result, out, err = command(*arguments)
            self.assertEqual(result, code, (arguments, err))
            self.assertTrue(out if code == 0 else err)
            self.assertFalse(err if code == 0 else out)


class OwnClient(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.agent = Agent()
        cls.addClassCleanup(cls.agent.__exit__)

    def run_(self, *arguments):
        return command(arguments[0], "--insecure", "-a", f"127.0.0.1:{self.agent.port}", *arguments[1:])

    def testSetThenGetThenWatch(self):
        self.assertEqual(self.run_("set", DESCRIPTION + "=to the core"), (0, f"UPDATE {DESCRIPTION}\n", ""))
        self.assertEqual(self.run_("get", DESCRIPTION), (0, f"{DESCRIPTION} to the core\n", ""))
        code, out, err = self.run_("watch", "--once", "--json", DESCRIPTION)
        lines = [json.loads(line) for line in out.splitlines()]
        self.assertEqual((code, err), (0, ""))
        self.assertEqual([(line["path"], line["value"]) for line in lines[:-1]], [(DESCRIPTION, "to the core")])
        self.assertEqual(lines[-1], {"sync": True})
        self.assertEqual(self.run_("set", "--delete", DESCRIPTION)[0], 0)
        code, out, err = self.run_("get", DESCRIPTION)
        self.assertEqual((code, out), (1, ""))
        self.assertIn("NOT_FOUND", err)

    def testCapabilitiesForPrograms(self):
        self.assertIn("supportedEncodings", json.loads(self.run_("capabilities", "--json")[1]))

    def testNobodyThere(self):
        code, out, err = command("get", "--insecure", "-a", "127.0.0.1:1", "--timeout", "1s")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("cannot connect to 127.0.0.1:1", err)
