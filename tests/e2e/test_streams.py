"""Subscribe in all its modes; what becomes of configuration."""
import json
import subprocess
import unittest

from pygnmi.client import gNMIException

from support import Agent, Watcher, changes, link, needsLinks, stream

LO = "interfaces/interface[name=lo]"
DESCRIPTION = LO + "/config/description"
OCTETS = LO + "/state/counters/in-octets"
TICK = 100_000_000  # ns


class Streams(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.agent = Agent("--sample-floor", "100ms", "--default-sample", "100ms", "--machine-period", "100ms")
        cls.addClassCleanup(cls.agent.__exit__)
        cls.client = cls.agent.client().connect()
        cls.addClassCleanup(cls.client.close)

    def setUp(self):
        self.describe("first")

    def describe(self, text):
        self.client.set(update=[(DESCRIPTION, f'"{text}"')])

    def watch(self, subscribe):
        watcher = Watcher(self.client, subscribe)
        self.addCleanup(watcher.close)
        return watcher

    def testOnceGivesAllThenSyncThenEnds(self):
        watcher = self.watch({"mode": "once", "encoding": "proto", "subscription": [{"path": LO}]})
        values = watcher.toSync()
        self.assertEqual(values[DESCRIPTION], "first")
        self.assertIn(values[LO + "/state/admin-status"], ("UP", "DOWN"))
        self.assertIsInstance(values[OCTETS], int)
        watcher.subscriber._subscribe_thread.join(20)
        self.assertFalse(watcher.subscriber._subscribe_thread.is_alive(), "the call did not end")
        self.assertIsNone(watcher.subscriber.error)

    def testPollGivesAllAtOnceAndAtEachPoll(self):
        subscriber = self.client.subscribe2(subscribe={"mode": "poll", "encoding": "json",
                                                       "subscription": [{"path": DESCRIPTION}]})
        self.addCleanup(subscriber.close)
        answers = [subscriber._get_updates_till_sync(timeout=20)]  # which nobody asked for
        self.describe("second")
        answers.append(subscriber.get_update(timeout=20))
        for text, answer in zip(("first", "second"), answers):
            self.assertEqual([entry["val"] for entry in answer["update"]["update"]], [text])
            self.assertTrue(answer["sync_response"])

    def testSamplesComeAtTheirIntervalChangedOrNot(self):
        watcher = self.watch(stream(DESCRIPTION, mode="sample", sample_interval=TICK))
        watcher.toSync()
        stamps = [watcher.awaitUpdate(DESCRIPTION)[1] for _ in range(3)]
        self.assertEqual(stamps, sorted(set(stamps)))

    @needsLinks
    def testLinksComeAndGo(self):
        watcher = self.watch(stream("interfaces/interface[name=*]/state"))
        watcher.toSync()
        link("add", "left0", "type", "veth", "peer", "name", "right0")
        watcher.awaitAll({f"interfaces/interface[name={name}]/state/name": name for name in ("left0", "right0")})
        link("set", "left0", "up")
        watcher.awaitUpdate("interfaces/interface[name=left0]/state/admin-status", lambda value: value == "UP")
        link("del", "left0")
        watcher.awaitDelete("interfaces/interface[name=left0]/state/name")


@needsLinks
class Configuration(unittest.TestCase):
    def setUp(self):
        link("add", "conf0", "type", "veth", "peer", "name", "conf1")
        self.addCleanup(link, "del", "conf0")

    def configure(self, client, **leaves):
        client.set(update=[("interfaces/interface[name=conf0]/config", leaves)])

    def kernel(self):
        out = subprocess.run(["ip", "-j", "link", "show", "conf0"], stdout=subprocess.PIPE, check=True).stdout
        facts = json.loads(out)[0]
        return facts["mtu"], "UP" in facts["flags"], facts.get("ifalias", "")

    def testGoesToTheKernelWhenTheAgentWasToldSo(self):
        state, before = "interfaces/interface[name=conf0]/state", self.kernel()
        with Agent("--apply-config") as agent, agent.client() as client:
            watcher = Watcher(client, stream(state))
            self.addCleanup(watcher.close)
            watcher.toSync()
            self.configure(client, mtu=1300, enabled=True, description="first")
            watcher.awaitAll({state + "/mtu": 1300, state + "/enabled": True, state + "/description": "first"})
            self.assertEqual(self.kernel(), (1300, True, "first"))
            with self.assertRaisesRegex(gNMIException, "'conf0' was not changed as asked: Invalid"):  # there is no such MTU
                self.configure(client, mtu=1, enabled=False, description="second")
            self.assertEqual(self.kernel(), (1300, True, "first"), "nothing of it")
            answer = client.get(path=[state + "/mtu", "interfaces/interface[name=conf0]/config/mtu"])
            self.assertEqual([n["update"][0]["val"] for n in answer["notification"]], [1300, 1300])
            # What is deleted goes back to what was there before, and does not come back by itself.
            client.set(delete=["interfaces/interface[name=conf0]"])
            missing = {"mtu", "description"}  # in whichever order
            for message in watcher.messages():
                updates, deletes = changes(message)
                missing -= {"mtu"} if updates.get(state + "/mtu") == 1500 else set()
                missing -= {"description"} if state + "/description" in deletes else set()
                if not missing:
                    break
            self.assertEqual(self.kernel(), before)
            with self.assertRaises(gNMIException):
                client.get(path=["interfaces/interface[name=conf0]/config"])

    def testStaysInTheModelOtherwise(self):
        before = self.kernel()
        with Agent() as agent, agent.client() as client:
            self.configure(client, mtu=1300, enabled=not before[1], description="first")
            self.assertEqual(agent.end(), 0)
        self.assertEqual(self.kernel(), before)
