"""An authority for tests."""
import pathlib
import subprocess
import tempfile

from agentprocess import WORK


class Certificates:
    """An authority, and certificates that it signs, for 127.0.0.1."""

    def __init__(self):
        self._folder = tempfile.TemporaryDirectory(dir=WORK)
        self.root = pathlib.Path(self._folder.name)
        self._make("ca", "-addext", "basicConstraints=critical,CA:TRUE")

    def _make(self, name, *options):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                        "-days", "2", "-subj", f"/CN={name}", "-keyout", self.root / f"{name}.key", "-out",
                        self.root / f"{name}.pem", *options],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def signed(self, name, names="IP:127.0.0.1,DNS:localhost", by="ca"):
        """(certificate, key) as file names."""
        san = ["-addext", f"subjectAltName={names}"] if names else []
        self._make(name, "-CA", self.root / f"{by}.pem", "-CAkey", self.root / f"{by}.key", *san)
        return str(self.root / f"{name}.pem"), str(self.root / f"{name}.key")

    def selfSigned(self, name):
        self._make(name, "-addext", "basicConstraints=critical,CA:TRUE")
        return str(self.root / f"{name}.pem"), str(self.root / f"{name}.key")

    @property
    def ca(self):
        return str(self.root / "ca.pem")

    def file(self, name, text):
        (self.root / name).write_text(text)
        return str(self.root / name)

    def remove(self):
        self._folder.cleanup()
