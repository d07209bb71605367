"""Capabilities, Get, Set and a ONCE, through a client that nobody here wrote."""
import json
import subprocess
import unittest

import grpc
from pygnmi.client import gNMIException

from support import Agent, Watcher, link, needsLinks, statusOf

LO = "interfaces/interface[name=lo]"
DESCRIPTION = LO + "/config/description"
OCTETS = LO + "/state/counters/in-octets"
AFTER = 1_600_000_000 * 10**9


class Calls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.agent = Agent()
        cls.addClassCleanup(cls.agent.__exit__)
        cls.client = cls.agent.client().connect()
        cls.addClassCleanup(cls.client.close)

    def testCapabilitiesNameModelsAndEncodings(self):
        answer = self.client.capabilities()
        self.assertEqual(set(answer["supported_encodings"]), {"json", "json_ietf", "proto"})
        self.assertEqual(answer["gnmi_version"], "0.10.0")
        names = {model["name"] for model in answer["supported_models"]}
        self.assertLessEqual({"openconfig-interfaces", "openconfig-system", "openconfig-platform"}, names)

    def testAnUpdateIsReadBack(self):
        for written, read in (("json", "json"), ("json_ietf", "json_ietf"), ("json", "proto")):
            text = f"uplink by {written} and {read}"
            answer = self.client.set(update=[(DESCRIPTION, f'"{text}"')], encoding=written)
            self.assertEqual([(r["op"], r["path"]) for r in answer["response"]], [("UPDATE", DESCRIPTION)])
            self.assertGreater(answer["timestamp"], AFTER)
            (told,) = self.client.get(path=[DESCRIPTION], encoding=read)["notification"]
            self.assertEqual([update["val"] for update in told["update"]], [text])
            self.assertGreater(told["timestamp"], AFTER)
        self.client.set(delete=[DESCRIPTION])
        with self.assertRaises(gNMIException) as caught:
            self.client.get(path=[DESCRIPTION])
        self.assertEqual(statusOf(caught.exception), grpc.StatusCode.NOT_FOUND)

    def testOnceGivesAllThenSyncThenEnds(self):
        self.client.set(update=[(DESCRIPTION, '"first"')])
        watcher = Watcher(self.client, {"mode": "once", "encoding": "proto", "subscription": [{"path": LO}]})
        self.addCleanup(watcher.close)
        values = watcher.toSync()
        self.assertEqual(values[DESCRIPTION], "first")
        self.assertIn(values[LO + "/state/admin-status"], ("UP", "DOWN"))
        self.assertIsInstance(values[OCTETS], int)
        watcher.subscriber._subscribe_thread.join(20)
        self.assertFalse(watcher.subscriber._subscribe_thread.is_alive(), "the call did not end")
        self.assertIsNone(watcher.subscriber.error)

    @needsLinks
    def testConfigurationStaysInTheModelUnlessTheAgentWasToldOtherwise(self):
        link("add", "conf0", "type", "veth", "peer", "name", "conf1")
        self.addCleanup(link, "del", "conf0")

        def kernel():
            shown = subprocess.run(["ip", "-j", "link", "show", "conf0"], stdout=subprocess.PIPE, check=True).stdout
            facts = json.loads(shown)[0]
            return facts["mtu"], "UP" in facts["flags"], facts.get("ifalias", "")

        before = kernel()
        self.client.set(update=[("interfaces/interface[name=conf0]/config", {"mtu": 1300, "enabled": True, "description": "first"})])
        self.assertEqual(kernel(), before)
