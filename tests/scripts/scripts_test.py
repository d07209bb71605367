#!/usr/bin/env python3
"""The project's own scripts: the checks find what they are there to find, and the two commands prepare a machine."""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def write(root, name, text, mode=0o644):
    path = pathlib.Path(root, name)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")
    path.chmod(mode)


def call(*command, **options):
    return subprocess.run([str(c) for c in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, timeout=120, **options)


class ChecksOfTexts(unittest.TestCase):
    LAYERS = [  # file, its content, what the check says of it (None: nothing)
        ("platform/Kel/A.h", '#include "Tovak/String.h"\n#include <map>\n', None),
        ("platform/Tovak/A.h", '\n  #  include <Kel/Ptr.h>\n', "A.h:2: platform/Tovak may not include Kel/Ptr.h"),
        ("platform/Kel/A.h", '#include "Ondra/Path.h"\n', "platform/Kel may not include Ondra/Path.h"),
        ("platform/Kel/A.h", '#include "../Kel/Ptr.h"\n', "include by folder"),
        ("platform/Kel/A.cpp", "#include <google/protobuf/arena.h>\n", "protobuf and gRPC"),
        ("src/Ondra/A.cpp", '#include <grpcpp/grpcpp.h>\n#include "github.com/a/b.pb.h"\ngnmi::Path p;\n', None),
        ("src/Ondra/A.cpp", '#include "agent/Host.h"\n', "src/Ondra may not include agent/Host.h"),
        ("src/Ondra/live/A.cpp", '#include "Ondra/rules/B.h"\n#include "Ondra/BaseRouter.h"\n#include "Ondra/live/C.h"\n', None),
        ("src/Ondra/rules/A.h", '#include "Ondra/BaseRouter.h"\n', "src/Ondra/rules may not include Ondra/BaseRouter.h"),
        ("src/Ondra/set/A.h", '#include "Ondra/live/B.h"\n', "src/Ondra/set may not include Ondra/live/B.h"),
        ("src/Ondra/A.h", '#include "Ondra/live/B.h"\n', "a public header may not include Ondra/live/B.h"),
        ("agent/data/A.cpp", '#include "Ondra/rules/B.h"\n', "agent/data may not include Ondra/rules/B.h"),
        ("src/Ondra/A.cpp", "auto t = std::chrono::steady_clock::now();\n", "the clock"),
        ("platform/Tovak/Clock.cpp", "auto t = std::chrono::steady_clock::now();\n", None),
        ("src/Ondra/A.cpp", "int a;\nstd::mutex m;\n", "A.cpp:2: threads and locks"),
        ("src/Ondra/A.cpp", "// std::mutex\n/* std::thread\n */ auto t = \"std::mutex\";\n", None),
        ("src/Ondra/A.cpp", "std::lock_guard<Tovak::Locking::Lock> hold(lock);\n", None),
        ("agent/service/A.cpp", '#include "agent/context/Worker.h"\nstd::thread t;\ngrpc::Status s;\n', None),
        ("agent/context/A.h", '#include "agent/service/Calls.h"\n', "agent/context may not include agent/service/Calls.h"),
        ("agent/main.cpp", '#include "agent/service/Calls.h"\n', None),
        ("agent/router/A.cpp", "std::thread t;\n", "threads and locks"),
        ("agent/service/A.cpp", "std::this_thread::sleep_for(1s);\n", "nobody sleeps"),
        ("agent/CMakeLists.txt", "agent_room(context ON model router)\n", "CMakeLists.txt:1: context stands on agent/model"),
        ("tests/ondra/a_test.cpp", "auto c = 1'000; usleep(5);\n", "nobody sleeps"),
        ("tests/ondra/a_test.cpp", "std::thread t;\n", None),
        ("src/Other/A.cpp", "\n", "no layer is known"),
    ]

    DOCUMENTS = [
        ("README.md", "[a](README.md), `bits/of.others`\n", None),
        ("docs/a.md", "\n[a](../b.md#c)\n", "docs/a.md:2: there is no ../b.md"),
        ("README.md", "see `src/Nothing.h`\n", "README.md:1: there is no src/Nothing.h"),
        ("docs/decisions.md", "**A?** Yes. (2026-11-22)\n\n**B?** No.\n", "docs/decisions.md:3: the entry is not dated"),
        ("src/Ondra/A.h", '\n// docs/decisions.md: "B?"\n', 'A.h:2: docs/decisions.md has no "B?"'),
        ("docs/diagrams/a.dot", "digraph {}\n", "a.svg is not made from it"),
    ]

    WIDE = "so many words " * 8
    DIALECT = [
        ("src/Ondra/a.cpp", "// What it is.\nstd::int64_t a; // int64_t\nchar const* b = \"int64_t\";\n", None),
        ("src/Ondra/a.cpp", "#pragma once\n", "a.cpp:1: open with a comment"),
        ("src/Ondra/a.cpp", "// What it is.\n/* old */\n", "a.cpp:2: a comment is lines of //"),
        ("src/Ondra/a.cpp", "// What it is.\nuint8_t a;\n", "a.cpp:2: say std:: of integer types"),
        ("src/Ondra/a.cpp", "// " + WIDE + "\n", "a.cpp:1: a comment is 110 characters wide"),
        ("docs/a.md", WIDE + "\n```\n" + WIDE + "\n```\n| " + WIDE + "|\n", "docs/a.md:1: a paragraph is 110"),
    ]

    def testEachKindOfFaultIsFound(self):
        for check, cases in (("check-layers", self.LAYERS), ("check-docs", self.DOCUMENTS), ("check-dialect", self.DIALECT)):
            for name, content, expected in cases:
                with self.subTest(name=name, content=content), tempfile.TemporaryDirectory() as tree:
                    write(tree, name, content)
                    result = call(ROOT / "scripts" / check, tree)
                    self.assertEqual(result.returncode, 0 if expected is None else 1, result.stdout)
                    self.assertIn(expected or "", result.stdout)
                    self.assertEqual(len(result.stdout.splitlines()), 0 if expected is None else 1, result.stdout)

    def testThisProjectHasNone(self):
        for check in ("check-layers", "check-docs", "check-dialect"):
            result = call(ROOT / "scripts" / check)
            self.assertEqual(result.returncode, 0, result.stdout)


class ApiReference(unittest.TestCase):
    def testANameWithoutACommentIsNamed(self):
        with tempfile.TemporaryDirectory() as tree:
            for folder in ("platform", "src"):
                shutil.copytree(ROOT / folder, tree, dirs_exist_ok=True, ignore=shutil.ignore_patterns("*.cpp"))
            self.assertEqual(call(ROOT / "scripts/api-reference", "--headers", tree).stdout, "")
            header = pathlib.Path(tree, "Kel/Dir.h")
            text = header.read_text(encoding="utf-8")
            header.write_text(text.replace("  // Removes an entity; a missing one is no matter.\n", ""), encoding="utf-8")
            result = call(ROOT / "scripts/api-reference", "--headers", tree)
            self.assertEqual(result.returncode, 1)
            self.assertRegex(result.stdout, r"^Kel/Dir.h:\d+: entityDel\(std::string_view name\) of class Kel::Dir\n$")


class CheckHeaders(unittest.TestCase):
    def testAHeaderThatLeansOnOthersIsNamed(self):
        with tempfile.TemporaryDirectory() as tree:
            write(tree, "platform/Kel/Good.h", "#pragma once\n#include <string>\nstd::string good();\n")
            self.assertEqual(call(ROOT / "scripts/check-headers", "--root", tree).returncode, 0)
            write(tree, "platform/Kel/Leaning.h", "#pragma once\nstd::string leaning();\n")
            result = call(ROOT / "scripts/check-headers", "--root", tree)
            self.assertNotEqual(result.returncode, 0)
            self.assertIn("not self-contained: platform/Kel/Leaning.h", result.stdout)
            self.assertNotIn("Good.h", result.stdout)


class Packages(unittest.TestCase):
    """ensurePackages on a machine played by a dpkg-query and an apt-get of the test's own."""

    def prepare(self, missing, aptWorks=True):
        packages = call("bash", "-c", "source scripts/lib.sh; packages", cwd=ROOT).stdout.split()
        self.assertIn("libprotobuf-dev", packages)
        with tempfile.TemporaryDirectory() as tools:
            rows = "".join(f"{p} installed\n" for p in packages if p not in missing)
            write(tools, "dpkg-query", f"#!/bin/sh\ncat <<E\n{rows}E\nexit {1 if missing else 0}\n", 0o755)
            write(tools, "apt-get", f'#!/bin/sh\necho "apt-get $*"\nexit {0 if aptWorks else 100}\n', 0o755)
            write(tools, "sudo", '#!/bin/sh\nexec "$@"\n', 0o755)
            environment = dict(os.environ, PATH=f"{tools}:{os.environ['PATH']}")
            script = "set -euo pipefail; source scripts/lib.sh; ensurePackages; echo ready"
            return call("bash", "-c", script, cwd=ROOT, env=environment)

    def testWhatIsMissingIsInstalledAfterAnUpdate(self):
        for missing, expected in ([], []), (["libfmt-dev", "ccache"], [" update", " ccache libfmt-dev"]):
            result = self.prepare(missing)
            calls = [line for line in result.stdout.splitlines() if line.startswith("apt-get")]
            self.assertEqual((result.returncode, len(calls)), (0, len(expected)), result.stdout)
            self.assertTrue(all(call.endswith(end) for call, end in zip(calls, expected)), calls)

    def testOfflineTheMissingPackagesAreNamed(self):
        result = self.prepare(missing=["libfmt-dev"], aptWorks=False)
        self.assertEqual(result.returncode, 1)
        self.assertIn("offline", result.stdout)
        self.assertTrue(result.stdout.rstrip().endswith("libfmt-dev"), result.stdout)
        self.assertNotIn("ready", result.stdout)

    def testWrongOptionsAreRefused(self):
        for command in (["./run", "--nonsense"], ["./run", "--seconds", "x"], ["./test", "-j", "x"], ["./test", "--preset"]):
            result = call(*command, cwd=ROOT)
            self.assertEqual(result.returncode, 1, command)
            self.assertIn(command[1], result.stdout)


class Run(unittest.TestCase):
    """./run on a machine played by commands that do nothing, with an agent that says how it was called."""
    AGENT = """#!/bin/bash
echo "$*" >>calls
[[ $1 == serve ]] || { echo "update"; exit "${WATCH_ENDS:-0}"; }
[[ -z ${SERVE_FAILS:-} ]] || { echo "ondra-agent serve: cannot listen" >&2; exit 3; }
[[ $2 == --insecure && $3 == --listen ]] || exit 0
trap 'echo "ended" >>calls; exit 0' TERM
echo "ondra-agent serve: listening on 127.0.0.1:5 (plaintext)" >&2
tail -f /dev/null &
wait
"""

    def run_(self, *arguments, **variables):
        with tempfile.TemporaryDirectory() as tree:
            for name in ("run", "scripts/lib.sh", "CMakePresets.json"):
                write(tree, name, (ROOT / name).read_text(encoding="utf-8"), 0o755)
            write(tree, "scripts/packages.txt", "")
            write(tree, "build/release/agent/ondra-agent", self.AGENT, 0o755)
            for tool in ("ninja", "cmake", "dpkg-query"):
                write(tree, f"tools/{tool}", "#!/bin/sh\nexit 0\n", 0o755)
            environment = dict(os.environ, PATH=f"{tree}/tools:{os.environ['PATH']}", **variables)
            result = call("./run", *arguments, cwd=tree, env=environment)
            calls = pathlib.Path(tree, "calls")
            return result, calls.read_text().splitlines() if calls.exists() else []

    def testItServesAndWatchesForAWhileAndPassesOnWhatAndHowItEnded(self):
        for arguments, code, watched in (([], 0, "10 "), (["--seconds", "3"], 0, "3 "), (["--", "--json", "/system"], 1, "10 --json /system")):
            result, calls = self.run_(*arguments, WATCH_ENDS=str(code))
            self.assertEqual(result.returncode, code, result.stdout)
            self.assertIn("update", result.stdout)
            self.assertEqual(calls[0], "serve --insecure --listen 127.0.0.1:0")
            self.assertTrue(calls[1].startswith(f"watch --insecure --address 127.0.0.1:5 --seconds {watched}"), calls)
            self.assertEqual("/interfaces" in calls[1], code == 0, calls)
            self.assertEqual(calls[2:], ["ended"])

    def testAnAgentThatDoesNotStartIsTold(self):
        result, calls = self.run_(SERVE_FAILS="1")
        self.assertEqual(result.returncode, 1)
        self.assertIn("cannot listen", result.stdout)
        self.assertEqual(len(calls), 1)

    def testServeTakesAllOptions(self):
        self.assertEqual(self.run_("--serve", "--synthetic", "1000", "--help")[1], ["serve --synthetic 1000 --help"])
        self.assertEqual(self.run_("--serve")[1], ["serve --insecure"])


if __name__ == "__main__":
    unittest.main()
