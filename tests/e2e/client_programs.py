"""What people use as clients, as they come: gnmi_cli, telegraf and aiognmi, with the versions that are known to work."""
import json
import os
import shlex
import shutil
import subprocess
import unittest

from agentprocess import DEADLINE, WORK, AgentProcess, fenced
from run import Unreachable, environment, fetched, run

LO = "/interfaces/interface[name=lo]"


def orSkipped(get, *arguments):
    try:
        return get(*arguments)
    except Unreachable as why:
        raise unittest.SkipTest(str(why)) from None


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

    return orSkipped(fetched, WORK / name, f"{module} {version} {tags}", make) / name


def telegraf():
    """With what the fleet's readers and writers need, too."""
    return goProgram("github.com/influxdata/telegraf/cmd/telegraf", "github.com/influxdata/telegraf", "v1.37.2",
                     "custom,inputs.gnmi,inputs.nats_consumer,outputs.file,outputs.nats,outputs.prometheus_client,parsers.influx,"
                     "serializers.influx,serializers.json")


class GnmiCli(unittest.TestCase):
    """Sends paths in their old and their new form both."""
    NAME = '"name": {Deprecated TypedValue_JsonVal lo}'

    def setUp(self):
        self.program = goProgram("github.com/openconfig/gnmi/cmd/gnmi_cli", "github.com/openconfig/gnmi", "v0.14.1")
        self.agent = AgentProcess()
        self.addCleanup(self.agent.__exit__)
        self.address = f"127.0.0.1:{self.agent.port}"

    def output(self, *arguments):
        result = run(self.program, *arguments, timeout=DEADLINE)
        self.assertEqual(result.returncode, 0, result.stdout)
        return " ".join(result.stdout.split())  # its blanks change from build to build

    def testGet(self):
        path = 'path: {elem: {name: "interfaces"} elem: {name: "interface" key: {key: "name" value: "lo"}} elem: {name: "name"}}'
        self.assertIn('json_val: "\\"lo\\""', self.output("-address", self.address, "-insecure", "-get", "-proto", path))

    def testReadme(self):
        lines = [shlex.split(line) for line in fenced("sh", self.agent.port, __file__).splitlines()]
        self.assertEqual([line[0] for line in lines], ["gnmi_cli"] * 2)
        for line, expected in zip(lines, ('name: "openconfig-system-grpc"', self.NAME)):
            self.assertEqual(self.output(*line[1:]).count(expected), 1)

    def testPolls(self):
        told = self.output("-address", self.address, "-insecure", "-query", LO + "/state/name", "-query_type", "polling",
                           "-polling_interval", "100ms", "-count", "3")
        self.assertEqual(told.count(self.NAME), 3, told)


class Telegraf(unittest.TestCase):
    AGENT_AND_OUTPUT = """
[agent]
  flush_interval = "200ms"
  omit_hostname = true
[[outputs.file]]
  files = ["stdout"]
  data_format = "json"
"""

    def testTagsMeasurementsByTheirPath(self):
        program = telegraf()
        with AgentProcess() as agent:
            config = WORK / "telegraf.conf"
            recipe = fenced("toml", agent.port, __file__)
            self.assertIn('sample_interval = "10s"', recipe)
            config.write_text(recipe.replace('"10s"', '"1s"') + self.AGENT_AND_OUTPUT)  # for the test's sake
            reader = subprocess.Popen([program, "--config", config], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
            try:
                lines = map(json.loads, reader.stdout)
                found = [next(line for line in lines if line["tags"].get("name") == "lo") for _ in range(2)]
            finally:
                reader.kill()
                reader.communicate()
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

    def testCapabilitiesGetAndSet(self):
        python = orSkipped(environment, WORK / "aiognmi", *self.REQUIREMENTS)
        with AgentProcess() as agent:
            result = run(python, "-c", self.SCRIPT, str(agent.port), timeout=DEADLINE)
        self.assertEqual(result.returncode, 0, result.stdout)
        answers = json.loads(result.stdout.splitlines()[-1])
        self.assertEqual([failed for failed, _ in answers], [False] * 4, result.stdout)
        for (_, text), expected in zip(answers, ("openconfig-interfaces", "lo", "UPDATE", "by aiognmi")):
            self.assertIn(expected, text)
