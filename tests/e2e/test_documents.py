"""What the README says of clients, run as it stands there; only the address is another, and what would go on for ever is ended."""
import pathlib
import shlex
import subprocess
import sys
import unittest

from agentprocess import AGENT, DEADLINE, AgentProcess

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"
ADDRESS = "127.0.0.1:9339"


def fenced(language, port, here):
    """The README's block of that language that is run by the file `here`, for an agent on another port."""
    marked = README.read_text(encoding="utf-8").split(f"<!-- runs: tests/e2e/{pathlib.Path(here).name} -->\n```{language}\n")
    assert len(marked) == 2, f"the README has {len(marked) - 1} such blocks of {language}"
    block = marked[1].split("\n```")[0]
    return block.replace(ADDRESS, f"127.0.0.1:{port}").replace('("127.0.0.1", 9339)', f'("127.0.0.1", {port})')


class Readme(unittest.TestCase):
    def setUp(self):
        self.agent = AgentProcess()
        self.addCleanup(self.agent.__exit__)

    def firstLines(self, command, number):
        """What a command prints that does not end by itself."""
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        try:
            return [process.stdout.readline() for _ in range(number)]
        finally:
            process.kill()
            process.communicate()

    def testCommands(self):
        said = {}
        for line in fenced("sh", self.agent.port, __file__).splitlines():
            program, command, *rest = shlex.split(line)
            self.assertEqual(program, "ondra-agent")
            full = [AGENT, command, *rest, "--address", f"127.0.0.1:{self.agent.port}"]
            if command == "watch":
                said[command] = "".join(self.firstLines(full, 8))
                continue
            result = subprocess.run(full, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=DEADLINE, check=False)
            self.assertEqual(result.returncode, 0, f"{line}: {result.stdout}")
            said[command] = result.stdout
        self.assertIn("openconfig-interfaces", said["capabilities"])
        self.assertIn('"openconfig-interfaces:name": "lo"', said["get"])
        self.assertIn("/state/counters/in-octets", said["watch"])
        self.assertEqual(len(said), 4)

    def testPython(self):
        script = fenced("python", self.agent.port, __file__)
        lines = self.firstLines([sys.executable, "-u", "-c", script], 2)
        self.assertIn("in-octets", lines[0])
        self.assertIn("update", lines[1])


if __name__ == "__main__":
    unittest.main()
