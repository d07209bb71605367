"""What the end-to-end tests share: clients of the agent, certificates. Nothing here sleeps: everything waits for a line, a message or an
end, with a deadline."""
import logging
import os
import queue
import subprocess
import threading
import time
import unittest

import grpc
from pygnmi.client import gNMIclient
from pygnmi.spec.v080 import gnmi_pb2, gnmi_pb2_grpc

from agentprocess import AGENT, DEADLINE, WORK, AgentProcess
from certificates import Certificates

OWN_NETWORK = bool(os.environ.get("E2E_OWN_NETWORK"))
logging.disable(logging.CRITICAL)  # the client logs what the tests provoke

# The client's reader threads end with the error of their call; the tests look at it themselves.
threading.excepthook = lambda args: None


class Agent(AgentProcess):
    """With clients of it."""

    def client(self, **options):
        return gNMIclient(target=self.target(), **({"insecure": True} | options))

    def stub(self):
        """The published service, without what the client makes of it."""
        return gnmi_pb2_grpc.gNMIStub(grpc.insecure_channel("127.0.0.1:%d" % self.port))


def command(*arguments, check=None):
    """One of the agent's commands, to its end: (exit code, standard output, standard error)."""
    result = subprocess.run([AGENT, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False,
                            timeout=DEADLINE)
    return result.returncode, result.stdout, result.stderr


def changes(message):
    """The updates of one parsed message as {path: value}, and the deleted paths."""
    update = message.get("update", {})
    prefix = update.get("prefix", "")
    whole = lambda path: "/".join(part for part in (prefix, path) if part)
    return ({whole(entry["path"]): entry["val"] for entry in update.get("update", [])},
            [whole(entry["path"]) for entry in update.get("delete", [])])


def pathOf(text):
    """Of names with at most one key each, whose values hold no "/"."""
    elems = [part.partition("[") for part in text.split("/") if part]
    return gnmi_pb2.Path(elem=[gnmi_pb2.PathElem(name=name, key=dict([rest[:-1].split("=", 1)]) if rest else {})
                               for name, _, rest in elems])


class Watcher:
    """A subscription through the client, message by message: its own merging of messages loses their prefixes."""

    def __init__(self, client, subscribe):
        self.subscriber = client.subscribe2(subscribe=subscribe)

    def messages(self):
        """What comes, for so long that what is waited for must be among it."""
        end = time.monotonic() + DEADLINE
        while True:
            try:
                yield self.subscriber._get_one_update(timeout=max(0.001, end - time.monotonic()))
            except queue.Empty:
                raise AssertionError(f"it did not come; the call's error: {self.subscriber.error}") from None

    def toSync(self):
        """What comes until the sync, applied in order."""
        values = {}
        for message in self.messages():
            if "sync_response" in message:
                return values
            updates, deletes = changes(message)
            for path in deletes:
                values = {p: v for p, v in values.items() if p != path and not p.startswith(path + "/")}
            values |= updates

    def awaitUpdate(self, path, accepts=lambda value: True):
        for message in self.messages():
            value = changes(message)[0].get(path)
            if value is not None and accepts(value):
                return value, message["update"]["timestamp"]

    def close(self):
        self.subscriber.close()


def stream(*paths, mode="on_change", **options):
    """A subscription of the client's form."""
    return {"mode": "stream", "encoding": "proto", "subscription": [{"path": path, "mode": mode} for path in paths], **options}


class WithCertificates(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.certificates = Certificates()
        cls.addClassCleanup(cls.certificates.remove)
        cls.certificate, cls.key = cls.certificates.signed("server")
        cls.files = ("--tls-cert", cls.certificate, "--tls-key", cls.key)


def statusOf(error):
    """The gRPC status code behind an exception of the client."""
    cause = getattr(error, "orig_exc", None) or error
    return cause.code()


def link(*arguments):
    subprocess.run(["ip", "link", *arguments], check=True)


needsLinks = unittest.skipUnless(OWN_NETWORK, "needs a network namespace")
