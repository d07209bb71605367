"""What people use as clients, as they come: gnmi_cli, telegraf and aiognmi, with the versions that are known to work."""
import hashlib
import json
import os
import shutil
import subprocess
import sys
import unittest
import venv

from agentprocess import DEADLINE, WORK, AgentProcess

LO = "/interfaces/interface[name=lo]"
# What the tools say when their registries cannot be reached, as opposed to when something is wrong with what is asked of them.
UNREACHABLE = ("dial tcp", "no such host", "i/o timeout", "connection refused", "Temporary failure in name resolution",
               "Network is unreachable", "NewConnectionError", "ConnectTimeoutError", "ReadTimeoutError", "ProxyError", "Max retries exceeded")


def fetched(name, wanted, make):
    """The folder of a client, made once for each version of it."""
    folder = WORK / name
    stamp = folder / "complete"
    wanted = hashlib.sha256(wanted.encode()).hexdigest()
    if stamp.is_file() and stamp.read_text() == wanted:
        return folder
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    result = make(folder)
    if result.returncode != 0:
        if any(text in result.stdout for text in UNREACHABLE):
            raise unittest.SkipTest(f"{name}: its registry cannot be reached")
        raise AssertionError(f"{name} could not be made, though its registry was reached: {result.stdout[-3000:]}")
    stamp.write_text(wanted)
    return folder


def run(*command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)


def goProgram(package, module, version, tags=""):
    """A program of a Go module, built one package at a time and with patience: there may be hundreds."""
    name = package.rsplit("/", 1)[1]
    if shutil.which("go") is None:
        raise unittest.SkipTest(f"{name}: there is no go to build it with")

    def make(folder):
        steps = (("go", "mod", "init", "clients"), ("go", "get", f"{module}@{version}"),
                 ("nice", "go", "build", "-p", "1", "-tags", tags, "-o", name, package))
        for step in steps:
            result = run(*step, cwd=folder, env=os.environ | {"GOFLAGS": "-mod=mod -buildvcs=false"})
            if result.returncode != 0:
                break
        return result

    return fetched(name, f"{module} {version} {tags}", make) / name


class GnmiCli(unittest.TestCase):
    """Sends paths in their old and their new form both."""

    def setUp(self):
        self.program = goProgram("github.com/openconfig/gnmi/cmd/gnmi_cli", "github.com/openconfig/gnmi", "v0.14.1")
        self.agent = AgentProcess()
        self.addCleanup(self.agent.__exit__)

    def output(self, *arguments):
        result = run(self.program, "-address", f"127.0.0.1:{self.agent.port}", "-insecure", *arguments, timeout=DEADLINE)
        self.assertEqual(result.returncode, 0, result.stdout)
        return " ".join(result.stdout.split())  # its blanks change from build to build

    def testCapabilitiesAndGet(self):
        self.assertIn('name: "openconfig-system-grpc"', self.output("-capabilities"))
        path = 'path: {elem: {name: "interfaces"} elem: {name: "interface" key: {key: "name" value: "lo"}} elem: {name: "name"}}'
        self.assertIn('json_val: "\\"lo\\""', self.output("-get", "-proto", path))

    def testQueries(self):
        for times, kind in ((1, ("once",)), (3, ("polling", "-polling_interval", "100ms", "-count", "3"))):
            told = self.output("-query", LO + "/state/name", "-query_type", *kind)
            self.assertEqual(told.count('"name": {Deprecated TypedValue_JsonVal lo}'), times, told)


class Telegraf(unittest.TestCase):
    CONFIG = """
[agent]
  flush_interval = "200ms"
  omit_hostname = true
[[inputs.gnmi]]
  addresses = ["127.0.0.1:{port}"]
  [[inputs.gnmi.subscription]]
    name = "counters"
    origin = "openconfig"
    path = "/interfaces/interface/state/counters"
    subscription_mode = "sample"
    sample_interval = "1s"
[[outputs.file]]
  files = ["stdout"]
  data_format = "json"
"""

    def testTagsMeasurementsByTheirPath(self):
        program = goProgram("github.com/influxdata/telegraf/cmd/telegraf", "github.com/influxdata/telegraf", "v1.37.2",
                            "custom,inputs.gnmi,outputs.file,serializers.json")
        with AgentProcess() as agent:
            config = WORK / "telegraf.conf"
            config.write_text(self.CONFIG.format(port=agent.port))
            telegraf = subprocess.Popen([program, "--config", config], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
            try:
                lines = map(json.loads, telegraf.stdout)
                found = [next(line for line in lines if line["tags"].get("name") == "lo") for _ in range(2)]
            finally:
                telegraf.kill()
                telegraf.communicate()
        for line in found:
            self.assertEqual(line["name"], "counters")
            self.assertEqual(line["tags"]["path"], "openconfig:/interfaces/interface/state/counters")
            self.assertIsInstance(line["fields"]["in_octets"], int)
        self.assertNotEqual(found[0]["timestamp"], found[1]["timestamp"])


class Aiognmi(unittest.TestCase):
    """Sends the origin in the prefix and in each path."""

    REQUIREMENTS = ("aiognmi==0.1.1", "grpcio==1.59.0", "protobuf==4.24.4", "aiofile==3.8.8", "caio==0.9.25")
    SCRIPT = """
import asyncio, json, sys
from aiognmi import AsyncgNMIClient
async def main():
    async with AsyncgNMIClient(host="127.0.0.1", port=int(sys.argv[1]), username="", password="", insecure=True) as client:
        answers = [await client.get_capabilities(),
                   await client.get(paths=["/interfaces/interface[name=lo]/state/name"]),
                   await client.set(update=[{"path": "/interfaces/interface[name=lo]/config", "data": {"description": "by aiognmi"}}]),
                   await client.get(paths=["/interfaces/interface[name=lo]/config/description"])]
        print(json.dumps([[answer.failed, str(answer.result)] for answer in answers]))
asyncio.run(main())
"""

    def make(self, folder):
        venv.create(folder / "venv", with_pip=True)
        return run(folder / "venv/bin/python", "-m", "pip", "install", "--quiet", "--disable-pip-version-check", "--retries", "1",
                   *self.REQUIREMENTS)

    def testCapabilitiesGetAndSet(self):
        python = fetched("aiognmi", " ".join(self.REQUIREMENTS) + sys.version, self.make) / "venv/bin/python"
        with AgentProcess() as agent:
            result = run(python, "-c", self.SCRIPT, str(agent.port), timeout=DEADLINE)
        self.assertEqual(result.returncode, 0, result.stdout)
        answers = json.loads(result.stdout.splitlines()[-1])
        self.assertEqual([failed for failed, _ in answers], [False] * 4, result.stdout)
        for (_, text), expected in zip(answers, ("openconfig-interfaces", "lo", "UPDATE", "by aiognmi")):
            self.assertIn(expected, text)
