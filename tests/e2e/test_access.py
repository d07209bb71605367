"""Access rules, and files that are read anew while streams run."""
import contextlib
import json
import os
import pathlib
import pwd
import signal
import subprocess
import threading

import grpc
from pygnmi.client import gNMIException
from pygnmi.spec.v080 import gnmi_pb2, gnmi_pb2_grpc

from support import DEADLINE, Agent, Watcher, WithCertificates, command, pathOf, statusOf, stream

DESCRIPTION = "interfaces/interface[name=lo]/config/description"
STREAMS, TURNS = (200, 100) if os.environ.get("E2E_LONG") else (20, 12)


def rule(who, path, mode="read", action="permit"):
    return dict([who.split(" ")]) | {"path": path, "mode": mode, "action": action}


def readAnew(agent):
    """What the agent says of it."""
    agent.process.send_signal(signal.SIGHUP)
    return agent.awaitLine("read anew")


@contextlib.contextmanager
def asUser(number, folder, socket):
    """Connects as another one, who may open the socket."""
    if number is not None:
        os.chmod(folder, 0o711)
        os.chmod(socket, 0o666)
        os.seteuid(number)
    try:
        yield
    finally:
        os.seteuid(os.getuid())


class WithFiles(WithCertificates):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.ann, cls.bob = (subprocess.run(["openssl", "passwd", "-6", name], stdout=subprocess.PIPE, text=True, check=True).stdout
                            for name in ("ann", "bob"))

    def users(self, **hashes):
        return self.certificates.file("users", "".join(f"{name}:{hashed}" for name, hashed in hashes.items()))

    def rules(self, *rules, **groups):
        return self.certificates.file("access", json.dumps({"groups": groups, "rules": rules}, indent=1))

    def assertEnds(self, watcher, code):
        watcher.subscriber._subscribe_thread.join(DEADLINE)
        self.assertEqual(watcher.subscriber.error.code(), code, watcher.subscriber.error)

    def assertRefused(self, code, call):
        with self.assertRaises(gNMIException) as caught:
            call()
        self.assertEqual(statusOf(caught.exception), code)
        return str(caught.exception)


class Rules(WithFiles):
    def testUsersReadAndWriteWhatTheyMayAndACheckSaysWhy(self):
        access = self.rules(rule("group all", "/interfaces"), rule("user bob", "/interfaces/interface[name=*]/state", action="deny"),
                            rule("user ann", "/interfaces/interface[name=lo]/config", "write"), all=["ann", "bob"])
        with Agent("--users", self.users(ann=self.ann, bob=self.bob), "--access", access) as agent, \
                agent.client(username="ann", password="ann") as ann, agent.client(username="bob", password="bob") as bob:
            ann.set(update=[(DESCRIPTION, '"x"')])
            told = self.assertRefused(grpc.StatusCode.PERMISSION_DENIED, lambda: bob.set(update=[(DESCRIPTION, '"y"')]))
            self.assertIn("/interfaces/interface[name=lo]/config/description", told)
            self.assertEqual(bob.get(path=[DESCRIPTION])["notification"][0]["update"][0]["val"], "x")
            self.assertRefused(grpc.StatusCode.NOT_FOUND, lambda: ann.get(path=["system"]))
            for client, sees in ((ann, True), (bob, False)):
                watcher = Watcher(client, stream("/"))
                values = watcher.toSync()
                self.assertEqual(values[DESCRIPTION], "x")
                self.assertEqual(any(path.startswith("interfaces/interface[name=lo]/state/") for path in values), sees)
                self.assertFalse(any(path.startswith("system") for path in values))
                watcher.close()
        check = ("access", "check", "--access", access, "--path", "/" + DESCRIPTION, "--write")
        code, out, err = command(*check, "--user", "ann")
        self.assertEqual((code, err), (0, ""))
        self.assertIn("ann may write", out)
        self.assertIn("by line 21: user ann, write, permit", out)
        code, out, err = command(*check, "--user", "bob")
        self.assertEqual((code, err), (1, ""))
        self.assertIn("no rule matches", out)
        code, out, err = command("access", "check", "--access", access, "--path", "/interfaces/interface[name=lo]/state", "--user", "bob")
        self.assertEqual((code, err), (1, ""))
        self.assertIn("by line 15: user bob, read, deny", out)
        self.assertIn("longer", out)
        wrong = self.certificates.file("wrong", '{"rules": [\n{"user": "ann"}]}')
        for check in ((), ("--check-config",)):
            code, out, err = command("serve", "--listen", "127.0.0.1:0", "--insecure", "--access", wrong, *check)
            self.assertEqual((code, out), (3, ""))
            self.assertIn("line 2: 'mode' is missing", err)

    def testCertificatesAndSocketsHaveNames(self):
        spiffe = self.certificates.signed("plain", names="URI:spiffe://example.net/collector")
        common = self.certificates.signed("by-name", names="")
        path = str(self.certificates.root / "access.sock")
        for who, certificate, sees in (("spiffe://example.net/collector", spiffe, True), ("plain", spiffe, False), ("by-name", common, True)):
            with Agent("--access", self.rules(rule("user " + who, "/system")), secure=(*self.files, "--tls-client-ca", self.certificates.ca)) as agent:
                code, out, err = command("get", "-a", f"127.0.0.1:{agent.port}", "--ca", self.certificates.ca, "--cert", certificate[0],
                                         "--key", certificate[1], "/system/state/hostname")
                self.assertEqual(code == 0, sees, (who, err))
        audit = str(self.certificates.root / "audit")
        us = "unix:" + pwd.getpwuid(os.geteuid()).pw_name
        request = gnmi_pb2.GetRequest(path=[gnmi_pb2.Path(elem=[gnmi_pb2.PathElem(name="system")])], encoding=gnmi_pb2.PROTO)
        with Agent("--listen", f"unix:{path}", "--audit", audit, "--access", self.rules(rule("user " + us, "/system"))) as agent:
            asked = ("get", "--insecure", "/system/state/hostname", "-a")
            self.assertEqual(command(*asked, f"127.0.0.1:{agent.port}")[0], 1)
            for user in (None, 65534, None) if os.geteuid() == 0 else (None,):
                with asUser(user, self.certificates.root, path):
                    channel = grpc.insecure_channel(f"unix:{path}")
                    told = gnmi_pb2_grpc.gNMIStub(channel).Get.with_call
                    if user is None:
                        self.assertGreater(len(told(request)[0].notification), 0)
                    else:
                        with self.assertRaises(grpc.RpcError) as caught:
                            told(request)
                        self.assertEqual(caught.exception.code(), grpc.StatusCode.NOT_FOUND)
                    channel.close()
            self.assertEqual(command("set", "--insecure", "-a", f"unix:{path}", DESCRIPTION + "=x")[0], 1)
        self.assertIn(f'"peer":"{us}"', pathlib.Path(audit).read_text())


class ReadAnew(WithFiles):
    def testUsersAndRulesChangeForThoseWhomItConcerns(self):
        users = self.users(ann=self.ann, bob=self.bob)
        everything = rule("group all", "/")
        self.rules(everything, all=["ann", "bob", "carl"])
        with Agent("--users", users, "--access", str(self.certificates.root / "access")) as agent, \
                agent.client(username="ann", password="ann") as ann, agent.client(username="bob", password="bob") as bob:
            anns, bobs = Watcher(ann, stream(DESCRIPTION)), Watcher(bob, stream(DESCRIPTION))
            for watcher in (anns, bobs):
                watcher.toSync()
            self.users(ann=self.ann)
            self.assertIn("read anew: 1 users, 1 access rules; 1 streams have ended", readAnew(agent))
            self.assertEnds(bobs, grpc.StatusCode.UNAUTHENTICATED)
            self.assertRefused(grpc.StatusCode.UNAUTHENTICATED, lambda: bob.get(path=[DESCRIPTION]))
            self.certificates.file("users", "ann\n")
            self.rules()
            self.assertIn("nothing is read anew", readAnew(agent))
            self.users(ann=self.ann, carl=self.bob)
            self.rules(everything, rule("user ann", "/interfaces", "write"), all=["ann", "bob"])
            self.assertNotIn("ended", readAnew(agent), "who may write does not concern who reads")
            ann.set(update=[(DESCRIPTION, '"z"')])
            anns.awaitUpdate(DESCRIPTION, lambda value: value == "z")
            self.rules(rule("user ann", "/interfaces"), all=["ann", "bob"])
            self.assertIn("1 streams have ended", readAnew(agent))
            self.assertEnds(anns, grpc.StatusCode.UNAVAILABLE)

    def testCertificatesTurnAndWhoIsRevokedEnds(self):
        from cryptography import x509
        from cryptography.hazmat.primitives import hashes, serialization
        import datetime

        good, bad = (self.certificates.signed(name, names="") for name in ("good", "bad"))

        def revoke(*certificates):
            root = self.certificates.root
            ca = x509.load_pem_x509_certificate((root / "ca.pem").read_bytes())
            now = datetime.datetime.utcnow()
            made = x509.CertificateRevocationListBuilder().issuer_name(ca.subject).last_update(now - datetime.timedelta(hours=1))
            made = made.next_update(now + datetime.timedelta(days=1))
            for one in certificates:
                number = x509.load_pem_x509_certificate(pathlib.Path(one).read_bytes()).serial_number
                made = made.add_revoked_certificate(
                    x509.RevokedCertificateBuilder().serial_number(number).revocation_date(now - datetime.timedelta(hours=1)).build())
            key = serialization.load_pem_private_key((root / "ca.key").read_bytes(), None)
            return self.certificates.file("crl", made.sign(key, hashes.SHA256()).public_bytes(serialization.Encoding.PEM).decode())

        with Agent(secure=(*self.files, "--tls-client-ca", self.certificates.ca, "--tls-client-crl", revoke())) as agent:
            options = lambda one: {"insecure": False, "path_cert": one[0], "path_key": one[1], "path_root": self.certificates.ca}
            with agent.client(**options(good)) as goods, agent.client(**options(bad)) as bads:
                watchers = [Watcher(each, stream(DESCRIPTION)) for each in (goods, bads)]
                for watcher in watchers:
                    watcher.toSync()
                before = self.served(agent, good)
                pathlib.Path(self.key).write_text("no key")
                self.assertIn("holds no key", readAnew(agent))
                self.assertEqual(self.served(agent, good), before)
                self.certificates.signed("server")
                revoke(bad[0])
                self.assertIn("read anew: certificate, authorities of clients, 1 revocation lists; 1 streams have ended",
                              readAnew(agent))
                self.assertNotEqual(self.served(agent, good), before, "new handshakes take the new one")
                self.assertEnds(watchers[1], grpc.StatusCode.UNAUTHENTICATED)
                self.assertRefused(grpc.StatusCode.UNAUTHENTICATED, lambda: bads.capabilities())
                goods.set(update=[(DESCRIPTION, '"still there"')])
                watchers[0].awaitUpdate(DESCRIPTION, lambda value: value == "still there")

    def served(self, agent, client):
        """The certificate that a handshake shows."""
        told = subprocess.run(["openssl", "s_client", "-connect", f"127.0.0.1:{agent.port}", "-alpn", "h2", "-cert", client[0], "-key",
                               client[1]], input="", stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False,
                              errors="replace").stdout
        self.assertIn("BEGIN CERTIFICATE", told)
        return told.split("BEGIN CERTIFICATE")[1].split("END CERTIFICATE")[0]

    def testManyTurnsUnderManyStreamsLoseNoUpdate(self):
        users, access = self.users(ann=self.ann), self.rules(rule("user ann", "/"), rule("user ann", "/", "write"))
        request = gnmi_pb2.SubscribeRequest()
        request.subscribe.encoding = gnmi_pb2.PROTO
        request.subscribe.subscription.add(mode=gnmi_pb2.ON_CHANGE, path=pathOf(DESCRIPTION))
        last = str(TURNS)
        seen = [[] for _ in range(STREAMS)]
        synced = threading.Barrier(STREAMS + 1)
        trusted = grpc.ssl_channel_credentials(pathlib.Path(self.certificates.ca).read_bytes())
        ann = {"metadata": (("username", "ann"), ("password", "ann")), "timeout": DEADLINE}

        def read(one, stub):
            for response in stub.Subscribe(iter([request]), metadata=ann["metadata"]):
                if response.sync_response:
                    synced.wait(DEADLINE)
                for update in response.update.update:
                    one.append(update.val.string_val)
                if one and one[-1] == last:
                    return

        with Agent("--users", users, "--access", access, secure=self.files) as agent:
            connected = lambda: grpc.secure_channel(f"127.0.0.1:{agent.port}", trusted, [("grpc.use_local_subchannel_pool", 1)])
            with connected() as channel:
                stub = gnmi_pb2_grpc.gNMIStub(channel)
                write = lambda text: stub.Set(gnmi_pb2.SetRequest(update=[gnmi_pb2.Update(
                    path=pathOf(DESCRIPTION), val=gnmi_pb2.TypedValue(string_val=text))]), **ann)
                write("0")
                threads = [threading.Thread(target=read, args=(one, stub), daemon=True) for one in seen]
                for thread in threads:
                    thread.start()
                synced.wait(DEADLINE)
                for turn in range(1, TURNS + 1):
                    self.certificates.signed("server")
                    self.users(ann=self.ann, **{f"user{turn}": self.bob})
                    agent.process.send_signal(signal.SIGHUP)
                    write(str(turn))
                    self.assertNotIn("ended", agent.awaitLine("read anew: certificate, 2 users"))
                    with connected() as other:
                        gnmi_pb2_grpc.gNMIStub(other).Capabilities(gnmi_pb2.CapabilityRequest(), **ann)
                for thread in threads:
                    thread.join(DEADLINE)
        expected = [str(turn) for turn in range(TURNS + 1)]
        for one in seen:
            self.assertEqual(one, expected)
