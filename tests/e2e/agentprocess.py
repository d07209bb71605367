"""The agent as a process. Nothing here sleeps: everything waits for a line or an end, with a deadline."""
import os
import pathlib
import queue
import signal
import subprocess
import threading
import time

AGENT = os.environ["E2E_AGENT"]
WORK = pathlib.Path(os.environ["E2E_WORK"])
DEADLINE = 30  # seconds, for what should take milliseconds
ROOT = pathlib.Path(__file__).resolve().parents[2]


def fenced(language, port, here, page="README.md"):
    """The page's block of that language that is run by the file `here`, for an agent on another port."""
    text = (ROOT / page).read_text(encoding="utf-8")
    marked = text.split(f"<!-- runs: tests/e2e/{pathlib.Path(here).name} -->\n```{language}\n")
    assert len(marked) == 2, f"{page} has {len(marked) - 1} such blocks of {language}"
    block = marked[1].split("\n```")[0]
    return block.replace("127.0.0.1:9339", f"127.0.0.1:{port}").replace('("127.0.0.1", 9339)', f'("127.0.0.1", {port})')


class AgentProcess:
    """`ondra-agent serve` on a port of its own, as a context."""

    def __init__(self, *options, secure=()):
        connection = secure or ("--insecure",)
        self.process = subprocess.Popen([AGENT, "serve", "--listen", "127.0.0.1:0", *connection, *options],
                                        stderr=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True)
        self.lines = []
        self._queue = queue.Queue()
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        self.port = int(self.awaitLine("listening on ").split("listening on ")[1].split(" ")[0].rsplit(":", 1)[1])

    def _read(self):
        for line in self.process.stderr:
            self.lines.append(line)
            self._queue.put(line)
        self._queue.put(None)

    def awaitLine(self, text):
        end = time.monotonic() + DEADLINE
        while True:
            line = self._queue.get(timeout=max(0.01, end - time.monotonic()))
            if line is None:
                raise AssertionError("the agent ended: " + "".join(self.lines))
            if text in line:
                return line

    def target(self):
        return ("127.0.0.1", self.port)

    def end(self, number=signal.SIGTERM):
        """Sends the signal and gives the exit code."""
        self.process.send_signal(number)
        return self.process.wait(timeout=DEADLINE)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=DEADLINE)
            finally:
                self.process.kill()
        self._reader.join(DEADLINE)
        self.process.stderr.close()
        if any("Sanitizer" in line for line in self.lines):
            raise AssertionError("".join(self.lines))
