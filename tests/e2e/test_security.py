"""TLS with and without client certificates, credentials, wrong files."""
import json
import pathlib
import socket
import ssl
import subprocess

import grpc
from pygnmi.client import gNMIException

from support import Agent, WithCertificates, command, statusOf


class Tls(WithCertificates):
    def assertServes(self, agent, **options):
        with agent.client(insecure=False, **options) as client:
            self.assertIn("json", client.capabilities()["supported_encodings"])

    def assertServesNot(self, agent, **options):
        with self.assertRaises((grpc.FutureTimeoutError, gNMIException)):
            agent.client(**({"insecure": False} | options), gnmi_timeout=1).connect()

    def testTheServersCertificateIsEnough(self):
        with Agent(secure=self.files) as agent:
            self.assertServes(agent, path_cert=self.certificates.ca)
            for address in ("127.0.0.1", "localhost"):
                code, out, err = command("capabilities", "-a", f"{address}:{agent.port}", "--ca", self.certificates.ca)
                self.assertEqual((code, err), (0, ""))
            self.assertEqual(command("capabilities", "-a", f"127.0.0.1:{agent.port}", "--skip-verify")[0], 0)
            code, out, err = command("capabilities", "-a", f"127.0.0.1:{agent.port}", "--timeout", "1s")
            self.assertEqual((code, out), (1, ""), "an authority that is not trusted")

    def testPlaintextAndOldProtocolsGetNowhereAndDisturbNobody(self):
        with Agent(secure=self.files) as agent:
            self.assertServesNot(agent, insecure=True)
            with socket.create_connection(agent.target(), timeout=20) as plain:
                plain.sendall(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + b"x" * 1000)
                while plain.recv(4096):
                    pass  # an alert, perhaps, and the end
            old = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
            old.check_hostname, old.verify_mode = False, ssl.CERT_NONE
            old.set_ciphers("ALL:@SECLEVEL=0")
            old.minimum_version = old.maximum_version = ssl.TLSVersion.TLSv1_1
            with socket.create_connection(agent.target(), timeout=20) as plain, self.assertRaises((ssl.SSLError, OSError)):
                old.wrap_socket(plain)
            self.assertServes(agent, path_cert=self.certificates.ca)
            self.assertEqual([line for line in agent.lines if "listening" not in line], [], "nothing is logged")

    def testClientCertificatesAreAskedFor(self):
        certificate, key = self.certificates.signed("client", names="")
        stranger, strangerKey = self.certificates.selfSigned("stranger")
        with Agent(secure=(*self.files, "--tls-client-ca", self.certificates.ca)) as agent:
            self.assertServes(agent, path_cert=certificate, path_key=key, path_root=self.certificates.ca)
            self.assertServesNot(agent, path_cert=self.certificates.ca)
            self.assertServesNot(agent, path_cert=stranger, path_key=strangerKey, path_root=self.certificates.ca)
            self.assertEqual(command("capabilities", "-a", f"127.0.0.1:{agent.port}", "--ca", self.certificates.ca, "--cert",
                                     certificate, "--key", key)[0], 0)

    def testCredentials(self):
        hashed = subprocess.run(["openssl", "passwd", "-6", "open sesame"], stdout=subprocess.PIPE, text=True,
                                check=True).stdout
        users = self.certificates.file("users", "# people\nann:" + hashed)
        for secure, options in ((self.files, {"insecure": False, "path_cert": self.certificates.ca}), ((), {})):
            audit = pathlib.Path(self.certificates.file("audit", ""))
            with Agent("--users", users, "--audit", str(audit), secure=secure) as agent:
                with agent.client(username="ann", password="open sesame", **options) as client:
                    client.get(path=["system/state/hostname"])
                    client.set(update=[("system/config", {"hostname": "x"})])
                for name, password in (("ann", "wrong"), ("bob", "open sesame"), ("", "")):
                    with self.assertRaises(gNMIException) as caught:
                        agent.client(username=name, password=password, **options).connect()
                    self.assertEqual(statusOf(caught.exception), grpc.StatusCode.UNAUTHENTICATED)
            told = [json.loads(line) for line in audit.read_text().splitlines()]
            self.assertEqual([(one["call"], one["user"], one["result"]) for one in told[:2]],
                             [("Set", "ann", "OK"), ("Capabilities", "ann", "UNAUTHENTICATED")])
            self.assertEqual(told[0]["update"], ["/system/config"])

    def testWrongFilesAreNamedAtStart(self):
        other, otherKey = self.certificates.signed("other", names="")
        text = self.certificates.file("text", "no certificate")
        for options, expected in (
                (("--tls-cert", "no/such", "--tls-key", self.key), "cannot read the certificate no/such"),
                (("--tls-cert", text, "--tls-key", self.key), "holds no certificate"),
                (("--tls-cert", self.certificate, "--tls-key", text), "holds no key"),
                (("--tls-cert", self.certificate, "--tls-key", otherKey), "does not belong to the certificate"),
                ((*self.files, "--tls-client-ca", text), "holds no certificate"),
                (("--insecure", "--users", text), "not of the form NAME:HASH")):
            for check in ((), ("--check-config",)):
                code, out, err = command("serve", "--listen", "127.0.0.1:0", *options, *check)
                self.assertEqual((code, out), (3, ""))
                self.assertIn(expected, err)
        with Agent(secure=("--tls-cert", other, "--tls-key", otherKey)) as agent:
            self.assertTrue(any("no subjectAltName" in line for line in agent.lines), agent.lines)
