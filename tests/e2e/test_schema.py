"""The project's .proto files say what the published ones say, which the client brings along."""
import pathlib
import subprocess
import unittest

from google.protobuf import descriptor_pb2
from pygnmi.spec.v080 import gnmi_ext_pb2, gnmi_pb2

from support import WORK

ROOT = pathlib.Path(__file__).resolve().parents[2] / "proto"


def described():
    """The project's files as descriptors, by name."""
    to = WORK / "project.descriptors"
    files = sorted(str(path.relative_to(ROOT)) for path in ROOT.rglob("*.proto"))
    subprocess.run(["protoc", "-I", ROOT, "--include_imports", "-o", to, *files], check=True)
    return descriptor_pb2.FileDescriptorSet.FromString(to.read_bytes()).file


def facts(files):
    """Every field, enumerator and method by its full name, with what counts on the wire; and what is reserved."""
    found, reserved = {}, {}

    def message(prefix, m):
        name = f"{prefix}.{m.name}"
        reserved[name] = (set(m.reserved_name), {n for r in m.reserved_range for n in range(r.start, min(r.end, r.start + 50))})
        for f in m.field:
            oneof = m.oneof_decl[f.oneof_index].name if f.HasField("oneof_index") else ""
            found[f"{name}.{f.name}"] = (f.number, f.type, f.label, f.type_name, oneof)
        for e in m.enum_type:
            enum(name, e)
        for nested in m.nested_type:
            message(name, nested)

    def enum(prefix, e):
        for v in e.value:
            found[f"{prefix}.{e.name}.{v.name}"] = v.number

    for file in files:
        for m in file.message_type:
            message(file.package, m)
        for e in file.enum_type:
            enum(file.package, e)
        for s in file.service:
            for method in s.method:
                found[f"{file.package}.{s.name}.{method.name}"] = (method.input_type, method.output_type,
                                                                   method.client_streaming, method.server_streaming)
    return found, reserved


class Schema(unittest.TestCase):
    def testEveryFieldAgrees(self):
        published = []
        for module in (gnmi_pb2, gnmi_ext_pb2):
            file = descriptor_pb2.FileDescriptorProto()
            module.DESCRIPTOR.CopyToProto(file)
            published.append(file)
        theirs, _ = facts(published)
        ours, reserved = facts(file for file in described() if file.package in ("gnmi", "gnmi_ext"))
        self.assertGreater(len(theirs), 100)
        for name, fact in theirs.items():
            owner, _, field = name.rpartition(".")
            with self.subTest(name):
                if name in ours:
                    self.assertEqual(ours[name], fact)
                elif owner in reserved:  # the client's files are older: what has gone since keeps its place and name
                    self.assertIn(field, reserved[owner][0])
                    self.assertIn(fact[0], reserved[owner][1])
                else:
                    self.assertIn(owner, ("gnmi.Alias", "gnmi.AliasList"), "a message that has gone")
