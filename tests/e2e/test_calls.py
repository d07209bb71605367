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
        self.assertRegex(answer["gnmi_version"], r"^0\.\d+\.\d+$")
        names = {model["name"] for model in answer["supported_models"]}
        self.assertLessEqual({"openconfig-interfaces", "openconfig-system", "openconfig-platform"}, names)

    def testALeafInEachEncoding(self):
        for encoding in ("json", "json_ietf", "proto"):
            self.assertEqual(self.value(LO + "/state/name", encoding=encoding), "lo")
        counter = LO + "/state/counters/in-octets"
        self.assertIsInstance(self.value(counter, encoding="json"), int)
        # The client parses the JSON in the string again; the digits are a string all the same.
        raw = self.agent.stub().Get(gnmi_pb2.GetRequest(path=[path("interfaces", ("interface", "lo"), "state", "counters",
                                                                   "in-octets")], encoding=gnmi_pb2.JSON_IETF))
        self.assertRegex(raw.notification[0].update[0].val.json_ietf_val.decode(), r'^"\d+"$')
        self.assertIsInstance(self.value(counter, encoding="proto"), int)

    def testAContainerAsJson(self):
        interface = self.value(LO, encoding="json_ietf")
        names = {name.split(":")[-1] for name in interface}
        self.assertLessEqual({"name", "config", "state", "subinterfaces"}, names)
        self.assertNotIn("state", {n.split(":")[-1] for n in self.value(LO, encoding="json_ietf", datatype="config")})

    def testWhatIsNotThereIsSaid(self):
        code = grpc.StatusCode
        self.refused(code.NOT_FOUND, self.client.get, path=["interfaces/interface[name=none]"])
        self.refused(code.NOT_FOUND, self.client.get, path=["nothing/like/this"])
        with self.assertRaises(grpc.RpcError) as caught:
            self.agent.stub().Get(gnmi_pb2.GetRequest(path=[path("interfaces")], encoding=gnmi_pb2.ASCII))
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

    def testContainersAreUpdatedAndReplaced(self):
        config = LO + "/config"
        self.client.set(update=[(config, {"description": "a", "mtu": 9000})])
        self.assertEqual(self.value(config + "/mtu"), 9000)
        self.client.set(update=[(config, {"description": "b"})])
        self.assertEqual((self.value(config + "/mtu"), self.value(DESCRIPTION)), (9000, "b"))
        self.client.set(replace=[(config, {"name": "lo", "description": "c"})])
        self.assertEqual(self.value(DESCRIPTION), "c")
        self.refused(grpc.StatusCode.NOT_FOUND, self.client.get, path=[config + "/mtu"])

    def testARefusedRequestChangesNothing(self):
        self.client.set(update=[(DESCRIPTION, '"before"')])
        code = grpc.StatusCode
        for bad, expected in (((LO + "/config/mtu", 70_000), code.INVALID_ARGUMENT),
                              ((LO + "/config/no-such-leaf", 1), code.NOT_FOUND),
                              ((LO + "/config/name", '"other"'), code.INVALID_ARGUMENT)):
            self.refused(expected, self.client.set, update=[(DESCRIPTION, '"after"'), bad])
            self.assertEqual(self.value(DESCRIPTION), "before")
        with self.assertRaises(gNMIException):
            self.client.set(update=[(DESCRIPTION, '"after"'), (LO + "/state/mtu", 1500)])
        self.assertEqual(self.value(DESCRIPTION), "before")


def path(*elems):
    """A path of the published type: names, and (name, value of the key "name")."""
    return gnmi_pb2.Path(elem=[gnmi_pb2.PathElem(name=e) if isinstance(e, str) else
                               gnmi_pb2.PathElem(name=e[0], key={"name": e[1]}) for e in elems])


