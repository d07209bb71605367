"""`ondra-agent top`: a table for scripts, and a screen on a terminal."""
import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios
import time
import unittest

from support import AGENT, DEADLINE, Agent, Watcher, command, stream

BEGIN, END = "\x1b[?1049h", "\x1b[?1049l"


class Screen:
    """The program on a terminal of its own."""

    def __init__(self, *arguments, rows=24, columns=200, **variables):
        self.ours, theirs = pty.openpty()
        self.size(rows, columns)
        self.before = termios.tcgetattr(theirs)
        environment = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
        self.process = subprocess.Popen(["setsid", "--ctty", AGENT, "top", *arguments], stdin=theirs, stdout=theirs, stderr=theirs,
                                        env=environment | {"TERM": "xterm"} | variables)
        self.theirs, self.shown = theirs, ""

    def size(self, rows, columns):
        fcntl.ioctl(self.ours, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def until(self, text):
        """What has been shown since the last time, to the end of that text."""
        end = time.monotonic() + DEADLINE
        while text not in self.shown:
            if not select.select([self.ours], [], [], max(0, end - time.monotonic()))[0]:
                raise AssertionError(f"no {text!r} in {self.shown!r}")
            self.shown += os.read(self.ours, 65536).decode()
        shown, self.shown = self.shown.split(text, 1)
        return shown + text

    def key(self, key):
        os.write(self.ours, key.encode())

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.ours)
        os.close(self.theirs)


class Top(unittest.TestCase):
    def testATableForScripts(self):
        with Agent("--no-machine", "--synthetic", "400", "--synthetic-rate", "200") as agent, agent.client() as client:
            watcher = Watcher(client, stream("synthetic", mode="on_change"))
            watcher.toSync()
            code, out, err = command("top", "--once", "--insecure", "-a", "127.0.0.1:%d" % agent.port)
            self.assertEqual((code, err), (0, ""))
            self.assertNotIn("\x1b", out)
            lines = out.splitlines()
            self.assertRegex(lines[0], r"^ondra-agent at 127\.0\.0\.1:\d+   up \d+s   1 streams   [\d.]+k? leaves/s")
            self.assertRegex(out, r"(?m)^calls .*Subscribe 1$")
            self.assertRegex(out, r"(?m)^slices +p50 \S+ .s, p99 ")
            row = dict(zip(lines[-2].split(), re.sub(r"(STREAM)", r"- \1", lines[-1]).split()))
            self.assertEqual((row["mode"], row["waiting"]), ("STREAM", "0"))
            self.assertGreater(float(row["leaves/s"]), 0)
            watcher.close()
            command("get", "--insecure", "-a", "127.0.0.1:%d" % agent.port, "/synthetic/none")
            self.assertRegex(command("top", "--once", "--insecure", "-a", "127.0.0.1:%d" % agent.port)[1], r"(?m)^refused  NOT_FOUND 1$")
        code, out, err = command("top", "--once", "--insecure", "--timeout", "1s", "-a", "127.0.0.1:1")
        self.assertEqual((code, out), (1, ""))
        self.assertIn("cannot connect", err)

    def testAScreenOnATerminal(self):
        with Agent("--no-machine") as agent, agent.client() as client:
            watcher = Watcher(client, stream("ondra-agent/state", mode="on_change"))
            watcher.toSync()
            address = ["--insecure", "-a", "127.0.0.1:%d" % agent.port]
            for end in ("q", signal.SIGTERM):
                screen = Screen(*address)
                self.addCleanup(screen.close)
                first = screen.until("sorted by leaves/s")
                self.assertTrue(first.startswith(BEGIN), first)
                self.assertIn("\x1b[7m", first)
                screen.key("s")
                screen.until("sorted by bytes/s")
                screen.key("S")
                screen.until("sorted by leaves/s")
                screen.size(10, 40)  # the kernel tells the program
                lines = []
                while len(lines) != 9:
                    lines = [re.sub(r"\x1b\[[\d;]*[a-zA-Z]", "", line) for line in screen.until("sorted by leaves/s").split("\r\n")]
                self.assertLessEqual(max(map(len, lines[1:])), 40)
                self.assertEqual(lines[6].split(), ["id", "peer", "leaves/s"])  # what there is room for
                screen.key(end) if isinstance(end, str) else screen.process.send_signal(end)
                screen.until(END)
                self.assertEqual(screen.process.wait(DEADLINE), 0)
                self.assertEqual(termios.tcgetattr(screen.theirs), screen.before)
            plain = Screen(*address, NO_COLOR="1")
            self.addCleanup(plain.close)
            self.assertNotIn("\x1b[7m", plain.until("sorted by"))
            watcher.close()
