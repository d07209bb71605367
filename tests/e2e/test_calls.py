"""Capabilities, Get, Set and a ONCE, through a client that nobody here wrote."""
import json
import pathlib
import subprocess
import tempfile
import unittest

import grpc
from pygnmi.client import gNMIException
from pygnmi.spec.v080 import gnmi_pb2

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


class Keys(unittest.TestCase):
    """An entry of each type of key, made, read, told and deleted by what stands in its path."""

    TEXTS = {"string": ["a/b", '[x="y"]', "\\\\", "é€", " "], "uint8": ["0", "255"], "int64": [str(-2**63)], "uint64": [str(2**64 - 1)],
             "boolean": ["true", "false"], "decimal64 { fraction-digits 3; }": ["-1.125", "0.0"], "binary": ["AQID", ""],
             "enumeration { enum red; enum \"light green\"; }": ["red", "light green"], "identityref { base animal; }": ["keys:cat"],
             "bits { bit one; bit two; }": ["one two", ""], "union { type int8; type boolean; type enumeration { enum all; } }": ["-1", "true", "all"],
             "leafref { path \"/keys/list0/k\"; }": ["a/b"]}

    def testOfEveryType(self):
        lists = "".join(f"list list{i} {{ key \"k n\"; leaf k {{ type {type}{'' if type.endswith('}') else ';'} }} leaf n {{ type uint16; }} leaf x {{ type string; }} }}\n"
                        for i, type in enumerate(self.TEXTS))
        entries = {(f"list{i}", text, str(n)): f"{i}:{n}" for i, texts in enumerate(self.TEXTS.values()) for n, text in enumerate(texts)}
        leaf = lambda name, k, n: gnmi_pb2.Path(elem=[gnmi_pb2.PathElem(name="keys"), gnmi_pb2.PathElem(name=name, key={"k": k, "n": n}),
                                                      gnmi_pb2.PathElem(name="x")])
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "keys.yang").write_text("module keys { yang-version 1.1; namespace \"urn:keys\"; prefix k; identity animal;"
                                                         f"identity cat {{ base animal; }} container keys {{ {lists} }} }}")
            with Agent("--no-machine", "--yang", folder) as agent:
                stub = agent.stub()
                whole = gnmi_pb2.Path(elem=[gnmi_pb2.PathElem(name="keys"), gnmi_pb2.PathElem(name="*"), gnmi_pb2.PathElem(name="x")])
                every = lambda: stub.Get(gnmi_pb2.GetRequest(path=[whole], encoding=gnmi_pb2.PROTO))
                update = [gnmi_pb2.Update(path=leaf(*entry), val=gnmi_pb2.TypedValue(string_val=x)) for entry, x in entries.items()]
                stub.Set(gnmi_pb2.SetRequest(update=update))
                for entry, x in entries.items():
                    (told,) = stub.Get(gnmi_pb2.GetRequest(path=[leaf(*entry)], encoding=gnmi_pb2.PROTO)).notification
                    self.assertEqual([(u.path, u.val.string_val) for u in told.update], [(leaf(*entry), x)])
                self.assertEqual({(e[1].name, e[1].key["k"], e[1].key["n"]): u.val.string_val
                                  for note in every().notification for u in note.update for e in [u.path.elem]}, entries)
                stub.Set(gnmi_pb2.SetRequest(delete=[gnmi_pb2.Path(elem=leaf(*entry).elem[:-1]) for entry in reversed(entries)]))
                with self.assertRaises(grpc.RpcError) as caught:
                    every()
                self.assertEqual(caught.exception.code(), grpc.StatusCode.NOT_FOUND)
