#!/usr/bin/env python3
"""Clients that ask for too much, or take too little, against an agent of this machine: what it costs the agent, and a polite subscriber.
Loopback only; every case is bounded in calls and time, prints its figures, and fails beyond what is promised. `--quick`: smaller."""
import argparse
import os
import pathlib
import resource
import subprocess
import sys
import threading
import time
import typing

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))
import http2  # noqa: E402
import run  # noqa: E402


def watch(port):
    """The polite client's own process: for every line read, how late changes came since the last, in milliseconds."""
    lags = []

    def read():
        isSynced = False
        for response in stubOf(f"[::1]:{port}").Subscribe(iter([subscribe("/synthetic/port", "PROTO")])):
            isSynced = isSynced or response.sync_response
            if isSynced and response.update.timestamp:
                lags.append(time.time() * 1e3 - response.update.timestamp / 1e6)

    threading.Thread(target=read, daemon=True).start()
    until(lambda: len(lags) > 20, 30)
    lags.clear()
    for _ in sys.stdin:
        some, lags[:] = sorted(lags), []
        print(*([some[int(part * (len(some) - 1))] for part in (0.99, 1)] if some else ["inf", "inf"]), flush=True)


class Polite:
    """Watches one port's counters, from an address and a process of its own: as one elsewhere, whom the attackers' processor time is no
    matter (as far as this machine lets us say so)."""

    def __init__(self, agent):
        self.process = subprocess.Popen([sys.executable, __file__, "--watch", agent.other, *sys.argv[1:]], text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        if os.geteuid() == 0:
            os.setpriority(os.PRIO_PROCESS, self.process.pid, -10)

    def __enter__(self):
        self.late()
        return self

    def __exit__(self, *unused):
        self.process.kill()
        self.process.communicate()

    def late(self):
        """How late changes came since it was asked last."""
        print(file=self.process.stdin, flush=True)
        return Late(*map(float, self.process.stdout.readline().split()))


class Late(typing.NamedTuple):
    """How late changes come to the polite client, in milliseconds."""
    p99: float
    worst: float

    def __str__(self):
        return f"{self.p99:.0f} ms (p99; {self.worst:.0f} at most)"

    def isLike(self, quiet, arguments):
        """Within twice what it is when nobody else calls; a machine that does other things beside is forgiven some."""
        return self.p99 < 2 * quiet.p99 + arguments.count(20, 200)


def until(isTrue, seconds):
    end = time.monotonic() + seconds
    while not isTrue() and time.monotonic() < end:
        time.sleep(0.02)
    return isTrue()


def subscribe(text, encoding, mode="ON_CHANGE", paths=None, **options):
    subscriptions = [pb.Subscription(path=support.pathOf(one), mode=pb.SubscriptionMode.Value(mode), **options)
                     for one in (paths or [text])]
    return pb.SubscribeRequest(subscribe=pb.SubscriptionList(
        mode=0, encoding=pb.Encoding.Value(encoding), subscription=subscriptions))


def stubOf(target, *options):
    return gnmi_pb2_grpc.gNMIStub(grpc.insecure_channel(target, options=[("grpc.use_local_subchannel_pool", 1), *options]))


def resident(agent):
    status = pathlib.Path(f"/proc/{agent.process.pid}/status").read_text()
    return int(status.partition("VmRSS:")[2].split()[0]) / 1024


def unread(agent, request, count):
    """So many calls that are never read."""
    stubs = [agent.stub() for _ in range(8)]
    return [stubs[i % 8].Subscribe(iter([request])) for i in range(count)]


def codeOf(call):
    try:
        call()
        return "OK"
    except grpc.RpcError as error:
        return error.code().name


def slowReader(arguments):
    """Whoever reads faster than the model changes is in sync within twice the time that the snapshot takes to read."""
    leaves, changes, rate = (4000, 600, 800) if arguments.quick else (20000, 1000, 1200)

    def read(agent, encoding, result):
        call = agent.stub(("grpc.http2.lookahead_bytes", 16384), ("grpc.http2.bdp_probe", 0)).Subscribe(
            iter([subscribe("/synthetic", encoding)]))
        start, count, deletes = time.monotonic(), 0, 0
        for response in call:
            count += len(response.update.update)
            deletes += len(response.update.delete)
            late = count / rate - (time.monotonic() - start)
            if response.sync_response or late < -3 * leaves / rate:
                break
            time.sleep(max(0, late))
        result[encoding] = (time.monotonic() - start, deletes)
        call.cancel()

    with Agent("--no-machine", "--synthetic", str(leaves), "--synthetic-rate", str(changes),
               "--max-queue", "64KiB") as agent:
        result = {}
        readers = [threading.Thread(target=read, args=(agent, encoding, result)) for encoding in ("PROTO", "JSON_IETF")]
        [reader.start() for reader in readers]
        [reader.join() for reader in readers]
    for encoding, (took, deletes) in result.items():
        yield f"{encoding}: in sync after {took:.1f} s, {leaves / rate:.1f} s for the leaves; {deletes} restarts", \
            deletes == 0 and took < 2.2 * leaves / rate


def overlaps(arguments):
    """Many subscriptions that overlap, on many streams, cost others little."""
    with Agent("--no-machine", "--synthetic", "5000", "--synthetic-rate", "1000") as agent, Polite(agent) as polite:
        time.sleep(2)
        quiet = polite.late()
        paths = ["/*" * (1 + i % 8) if i < 8 else "/synthetic" + "/*" * (i % 3) + f"/x{i}" for i in range(24)]
        paths += [f"/*/port[name=port{i}]" for i in range(arguments.count(200, 60))]
        calls = unread(agent, subscribe("", "PROTO", paths=paths), arguments.count(20, 5))
        time.sleep(3)
        worst = polite.late()
        [call.cancel() for call in calls]
        yield f"a change is {quiet} late, {worst} among them", worst.isLike(quiet, arguments)


def many(arguments):
    """Who has many streams has no more of the agent's time than who has one."""
    count = arguments.count(2000, 300)
    with Agent("--no-machine", "--synthetic", "20000", "--synthetic-rate", "1000", "--max-streams-per-peer", str(count + 9)) as agent, \
            Polite(agent) as polite:
        def once(isOther):
            start, request = time.monotonic(), subscribe("/", "PROTO")
            request.subscribe.mode = 1
            try:
                return sum(len(one.update.update) for one in agent.stub(isOther=isOther).Subscribe(iter([request]), timeout=60)), \
                    time.monotonic() - start
            except grpc.RpcError:
                return 0, float("inf")

        time.sleep(2)
        (leaves, alone), quiet = once(True), polite.late()
        message = subscribe("/", "PROTO").SerializeToString()
        connections = [http2.withoutWindow(("127.0.0.1", agent.port), count // 10, message) for _ in range(10)]
        (_, other), (_, same) = once(True), once(False)
        time.sleep(arguments.count(30, 1))
        worst = polite.late()
        [connection.close() for connection in connections]
        yield (f"a ONCE of {leaves} leaves takes {alone:.2f} s, among {count} streams without a window of another address {other:.2f} s, of its own "
               f"{same:.2f} s; a change is {quiet} late, {worst} among them"), other < 10 + 10 * alone and worst.isLike(quiet, arguments)


def unreadOf(arguments, leaves, calls, gets, *options):
    """Calls that never read, and Gets of all: (whether it is there still, what it held before and at most, how late changes were before and
    among them, what to say of it)."""
    with Agent("--no-machine", "--synthetic", str(leaves), "--synthetic-rate", "1000", *options) as agent, Polite(agent) as polite:
        time.sleep(5)
        quiet, before, most, codes = polite.late(), resident(agent), 0, []
        unreads = [call for request, count in calls for call in unread(agent, request, count)]
        stub = agent.stub(("grpc.max_receive_message_length", -1))
        request = pb.GetRequest(path=[support.pathOf("/")], encoding=pb.Encoding.Value("JSON"))
        getters = [threading.Thread(target=lambda: codes.append(codeOf(lambda: stub.Get(request, timeout=120)))) for _ in range(gets)]
        [get.start() for get in getters]
        for _ in range(arguments.count(60, 16)):
            time.sleep(0.5)
            most = max(most, resident(agent))
        late = polite.late()
        [get.join() for get in getters]
        [call.cancel() for call in unreads]
        until(lambda: resident(agent) < before + 40, 70)
        return agent.process.poll() is None, before, most, quiet, late, (
            f"{leaves} leaves, {len(unreads)} that never read, {gets} Gets of all ({', '.join(sorted(codes))}): {before:.0f} MiB before, "
            f"{most:.0f} MiB at most, {resident(agent):.0f} MiB afterwards; a change is {quiet} late, {late} among them")


def scale(arguments):
    """All at once, in half a gigabyte: run it in a control group with such a limit. The promise is twice the quiet p99."""
    isThere, _, _, quiet, late, figures = unreadOf(arguments, arguments.count(1000000, 200000),
                                                   [(subscribe("/", "JSON"), arguments.count(400, 150))], 2)
    yield figures, isThere and late.isLike(quiet, arguments)


def neverRead(arguments):
    """What waits for those who never read stays within the budget, and all of it goes back."""
    calls = [(subscribe("/", "JSON"), arguments.count(400, 150)),
             (subscribe("/", "PROTO", "SAMPLE", suppress_redundant=True), arguments.count(100, 30))]
    isThere, before, most, _, _, figures = unreadOf(arguments, 20000, calls, 0, "--memory-budget", "64MiB", "--max-streams-per-peer", "500")
    yield figures, isThere and most < before + 300


def sets(arguments):
    """Sets that are much to look at or to do hold up nobody for long."""
    with Agent("--no-machine", "--synthetic", "5000", "--synthetic-rate", "1000") as agent, Polite(agent) as polite:
        time.sleep(2)
        quiet, stub = polite.late(), agent.stub()
        dots = [pb.Path(elem=[pb.PathElem(name="...")] * 126 + [pb.PathElem(name="interface", key={"name": f"x{i}"})])
                for i in range(2500)]
        start = time.monotonic()
        code = codeOf(lambda: stub.Set(pb.SetRequest(delete=dots), timeout=60))
        yield f"2,500 deletes of 126 '...': {code} after {time.monotonic() - start:.2f} s", time.monotonic() - start < 5
        yield f"a change is {quiet} late, {polite.late()} meanwhile", True
        count = arguments.count(20000, 5000)
        entries = [pb.Update(path=support.pathOf("/system/dns/servers/server[address=10.%d.%d.1]" % (i >> 8, i & 255)),
                             val=pb.TypedValue(json_val=b"{}")) for i in range(count)]
        before, start = resident(agent), time.monotonic()
        code = codeOf(lambda: stub.Set(pb.SetRequest(update=entries), timeout=60))
        yield (f"{count} new entries: {code} after {time.monotonic() - start:.2f} s, {resident(agent) - before:.0f} MiB; "
               f"a change is {polite.late()} late"), code in ("OK", "RESOURCE_EXHAUSTED")
        start = time.monotonic()
        calls = [stub.Set.future(pb.SetRequest(delete=dots)) for _ in range(4)]
        [call.cancel() for call in calls]
        ended = agent.end()
        yield f"ended {time.monotonic() - start:.1f} s after SIGTERM, with {ended}", time.monotonic() - start < 10


def gets(arguments):
    """Gets of everything are answered as far as there is memory."""
    leaves = arguments.count(200000, 60000)
    with Agent("--no-machine", "--synthetic", str(leaves), "--memory-budget", "64MiB") as agent:
        before, most, codes = resident(agent), 0, []
        for encoding in ("JSON", "PROTO"):
            stub = agent.stub(("grpc.max_receive_message_length", -1))
            request = pb.GetRequest(path=[support.pathOf("/")], encoding=pb.Encoding.Value(encoding))
            calls = [threading.Thread(target=lambda: codes.append(codeOf(lambda: stub.Get(request, timeout=60))))
                     for _ in range(4)]
            [call.start() for call in calls]
            while any(call.is_alive() for call in calls):
                most = max(most, resident(agent))
                time.sleep(0.05)
        until(lambda: resident(agent) < before + 40, 20)
        yield (f"{leaves} leaves, 4 at a time: {', '.join(sorted(codes))}; {before:.0f} MiB before, {most:.0f} MiB at most, "
               f"{resident(agent):.0f} MiB afterwards"), most < before + 300


def answered(agent):
    """How long a call on a connection of its own takes, in seconds; endless when it fails."""
    start = time.monotonic()
    return time.monotonic() - start if codeOf(lambda: agent.stub().Capabilities(pb.CapabilityRequest(), timeout=10)) == "OK" else float("inf")


def connections(arguments):
    """Connections without end, and such as never get anywhere, keep nobody out, nor do descriptors that run out."""
    def opened(count, greets):
        found = []
        for i in range(count):
            source = "127.0.0.%d" % (2 + i % 4)
            try:
                found.append((http2.greeted if greets else http2.connect)(agent.target(), source=source))
            except OSError:
                pass  # closed already
        return found

    with Agent("--no-machine", "--handshake-timeout", "2s") as agent:
        descriptors = lambda: len(os.listdir(f"/proc/{agent.process.pid}/fd"))
        before, count = descriptors(), arguments.count(2000, 600)
        silent = opened(count, False)
        took, held = answered(agent), descriptors() - before
        until(lambda: descriptors() <= before + 2, 5)
        yield (f"{len(silent)} that are silent: {held} of them held, a call takes {took * 1e3:.0f} ms; {descriptors() - before} held after 2 s",
               took < 2 and descriptors() <= before + 2)
        resource.prlimit(agent.process.pid, resource.RLIMIT_NOFILE, (before + 100, resource.prlimit(agent.process.pid, resource.RLIMIT_NOFILE)[1]))
        greeted = opened(count, True)
        held = descriptors() - before
        [each.close() for each in silent + greeted]
        start = time.monotonic()  # what still waits to be accepted may take the descriptors once more
        until(lambda: answered(agent) < 2, 5)
        took = time.monotonic() - start
        yield (f"{len(greeted)} with descriptors for 50: {held} descriptors held; all closed, a call gets through after {took * 1e3:.0f} ms",
               took < 2)


def floods(arguments):
    """What gRPC holds for a peer before anybody knows who he is."""
    for name, make in http2.ATTACKS.items():
        with Agent("--no-machine", "--memory-budget", "64MiB") as agent:
            before, most, slowest, end = resident(agent), 0, 0, time.monotonic() + arguments.count(10, 3)

            def flood():
                while (left := end - time.monotonic()) > 0:
                    try:
                        http2.pour(http2.greeted(agent.target(), source="127.0.0.2"), make(), left, 64)
                    except OSError:
                        pass

            floods = [threading.Thread(target=flood) for _ in range(2)]
            [each.start() for each in floods]
            while any(each.is_alive() for each in floods):
                slowest, most = max(slowest, answered(agent)), max(most, resident(agent))
            until(lambda: resident(agent) < before + 40, 10)
            recovered = until(lambda: answered(agent) < 5, 30)
            yield (f"{name}: {before:.0f} MiB before, {most:.0f} MiB at most, {resident(agent):.0f} MiB afterwards; a call takes "
                   f"{slowest * 1e3:.0f} ms at most", most < before + 500 and recovered)


def guesses(arguments):
    """Who guesses a user's password from four places does not lock him out."""
    users = pathlib.Path(os.environ["E2E_WORK"]) / "guessed-users"
    people = ["ann%d" % i for i in range(arguments.count(40, 12))]  # another one each time: nobody is remembered
    users.write_text("".join("%s:%s\n" % (name, subprocess.run(["openssl", "passwd", "-6", name], stdout=subprocess.PIPE, text=True,
                                                              check=True).stdout.strip()) for name in people))
    with Agent("--no-machine", "--users", str(users)) as agent:
        ended = threading.Event()

        def guess(source):
            while not ended.is_set():
                http2.pour(http2.greeted(agent.target(), source=source), http2.guesses(people), 1, 1)

        guessers = [threading.Thread(target=guess, args=("127.0.0.%d" % (2 + i),)) for i in range(4)]
        [each.start() for each in guessers]
        time.sleep(1)
        codes = []
        for name in people:
            metadata = [("username", name), ("password", name)]
            codes.append(codeOf(lambda: agent.stub().Capabilities(pb.CapabilityRequest(), metadata=metadata, timeout=10)))
        ended.set()
        [each.join() for each in guessers]
        yield f"{codes.count('OK')} of {len(codes)} users get in at once, whose passwords are guessed from four places", codes.count("OK") == len(codes)


CASES = {"connections": connections, "floods": floods, "guesses": guesses, "slow-reader": slowReader, "overlaps": overlaps, "many": many, "scale": scale, "never-read": neverRead, "sets": sets, "gets": gets}


def main():
    parser = run.parserOf(__doc__)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--watch", metavar="PORT", help=argparse.SUPPRESS)
    parser.add_argument("cases", nargs="*", help=", ".join(CASES))
    arguments = parser.parse_args()
    arguments.count = lambda full, quick: quick if arguments.quick else full
    if "E2E_AGENT" not in os.environ:
        python = run.clientOrSkipped(arguments.work)
        sys.exit(subprocess.run([python, *sys.argv], env=os.environ | run.variables(arguments, no_proxy="*"), check=False).returncode)
    global grpc, pb, gnmi_pb2_grpc, support, Agent
    import grpc
    import support
    from pygnmi.spec.v080 import gnmi_pb2 as pb
    from pygnmi.spec.v080 import gnmi_pb2_grpc

    class Agent(support.Agent):
        def __init__(self, *options):
            super().__init__("--listen", "[::1]:0", *options)
            self.other = self.awaitLine("listening on [::1]").split(" (")[0].rsplit(":", 1)[1]

        def stub(self, *options, isOther=False):
            return stubOf(f"[::1]:{self.other}" if isOther else f"127.0.0.1:{self.port}", *options)

    if arguments.watch is not None:
        watch(arguments.watch)
        return

    isKept = True
    for name in arguments.cases or [name for name in CASES if name != "scale"]:
        for figures, isGood in CASES[name](arguments):
            print(f"{name}: {figures}{'' if isGood else '  <- too much'}", flush=True)
            isKept = isKept and isGood
    sys.exit(0 if isKept else 1)


if __name__ == "__main__":
    main()
