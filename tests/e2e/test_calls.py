"""Capabilities, Get and Set through a client that nobody here wrote."""
import unittest

import grpc
from pygnmi.client import gNMIException
from pygnmi.spec.v080 import gnmi_pb2

from support import Agent, statusOf

LO = "interfaces/interface[name=lo]"
DESCRIPTION = LO + "/config/description"


class Calls(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.agent = Agent()
        cls.addClassCleanup(cls.agent.__exit__)
        cls.client = cls.agent.client().connect()
        cls.addClassCleanup(cls.client.close)

    def value(self, path, **options):
        answer = self.client.get(path=[path], **options)
        self.assertEqual(len(answer["notification"]), 1)
        self.assertGreater(answer["notification"][0]["timestamp"], 1_600_000_000 * 10**9)
        updates = answer["notification"][0]["update"]
        self.assertEqual(len(updates), 1, updates)
        return updates[0]["val"]

    def refused(self, code, call, **arguments):
        with self.assertRaises(gNMIException) as caught:
            call(**arguments)
        self.assertEqual(statusOf(caught.exception), code, caught.exception)


class Get(Calls):
    def testCapabilitiesNameModelsAndEncodings(self):
        answer = self.client.capabilities()
        self.assertEqual(set(answer["supported_encodings"]), {"json", "json_ietf", "proto"})
        self.assertEqual(answer["gnmi_version"], "0.10.0")
        names = {model["name"] for model in answer["supported_models"]}
        self.assertLessEqual({"openconfig-interfaces", "openconfig-system", "openconfig-platform"}, names)

    def testALeafInEachEncoding(self):
        for encoding in ("json", "json_ietf", "proto"):
            self.assertEqual(self.value(LO + "/state/name", encoding=encoding), "lo")
        counter = LO + "/state/counters/in-octets"
        self.assertIsInstance(self.value(counter, encoding="json"), int)
        self.assertIsInstance(self.value(counter, encoding="proto"), int)

    def testWhatIsNotThereIsSaid(self):
        code = grpc.StatusCode
        self.refused(code.NOT_FOUND, self.client.get, path=["interfaces/interface[name=none]"])
        self.refused(code.NOT_FOUND, self.client.get, path=["nothing/like/this"])
        with self.assertRaises(grpc.RpcError) as caught:
            self.agent.stub().Get(gnmi_pb2.GetRequest(encoding=gnmi_pb2.ASCII))
        self.assertEqual(caught.exception.code(), code.UNIMPLEMENTED)


class Set(Calls):
    def tearDown(self):
        self.client.set(delete=[DESCRIPTION])

    def testAnUpdateIsReadBack(self):
        for encoding in ("json", "json_ietf"):
            text = f"uplink by {encoding}"
            answer = self.client.set(update=[(DESCRIPTION, f'"{text}"')], encoding=encoding)
            self.assertEqual([(r["op"], r["path"]) for r in answer["response"]], [("UPDATE", DESCRIPTION)])
            self.assertGreater(answer["timestamp"], 1_600_000_000 * 10**9)
            self.assertEqual(self.value(DESCRIPTION, encoding=encoding), text)

    def testARefusedRequestChangesNothing(self):
        self.client.set(update=[(DESCRIPTION, '"before"')])
        self.refused(grpc.StatusCode.INVALID_ARGUMENT, self.client.set,
                     update=[(DESCRIPTION, '"after"'), (LO + "/config/mtu", 70_000)])
        self.assertEqual(self.value(DESCRIPTION), "before")
