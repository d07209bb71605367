#!/usr/bin/env python3
"""Kills an agent that keeps its configuration, again and again, while clients change it. Each of its next starts must find what every
client was told last, or what it had asked for and not been told of; both places that a Set writes, or neither. Links in a network of
our own have what is configured of them, and what they had before. `--quick`: few kills."""
import json
import os
import pathlib
import random
import shutil
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))
import run  # noqa: E402

CLIENTS = 8
ENTRY = "/interfaces/interface[name=%s]"


def written(name, number):
    return pb.Update(path=support.pathOf(ENTRY % name), val=pb.TypedValue(json_val=b'{"config":{"description":"%d"}}' % number))


def requestOf(client, number):
    """Every seventh removes what the others make."""
    names = [f"{side}{client}" for side in ("left", "right")]
    if number % 7 == 0:
        return pb.SetRequest(delete=[support.pathOf(ENTRY % name) for name in names])
    return pb.SetRequest(update=[written(name, number) for name in names])


class Client(threading.Thread):
    """Sets one after the other, until the agent is gone."""

    def __init__(self, agent, index, told):
        super().__init__()
        self.stub, self.index, self.told, self.asked = agent.stub(), index, told, told

    def run(self):
        try:
            while True:
                self.asked = self.told + 1
                self.stub.Set(requestOf(self.index, self.asked), timeout=20)
                self.told = self.asked
        except grpc.RpcError:
            pass


def found(agent, client):
    """The number that a client's places hold; None where there are none."""
    numbers = []
    for side in ("left", "right"):
        try:
            path = support.pathOf(ENTRY % f"{side}{client}" + "/config/description")
            answer = agent.stub().Get(pb.GetRequest(path=[path], encoding=2), timeout=20)
            numbers.append(int(answer.notification[0].update[0].val.string_val))
        except grpc.RpcError as error:
            assert error.code() == grpc.StatusCode.NOT_FOUND, error
            numbers.append(None)
    assert numbers[0] == numbers[1], f"half of a Set: {numbers}"
    return numbers[0]


def kills(arguments):
    folder = arguments.work / "killed-store"
    shutil.rmtree(folder, ignore_errors=True)
    chance = random.Random(arguments.seed)
    count = 6 if arguments.quick else arguments.kills
    told, old, new, torn = [0] * CLIENTS, 0, 0, 0
    for _ in range(count + 1):
        with support.Agent("--no-machine", "--config-store", str(folder)) as agent:
            torn += any("was cut off" in line for line in agent.lines)
            for client in range(CLIENTS):
                for number in (told[client], told[client] + 1):
                    if found(agent, client) == (number if number % 7 else None):
                        break
                else:
                    raise AssertionError(f"client {client} was told {told[client]} and finds {found(agent, client)}")
                old, new = old + (number == told[client]), new + (number != told[client])
                told[client] = number
            clients = [Client(agent, index, number) for index, number in enumerate(told)]
            [each.start() for each in clients]
            time.sleep(chance.uniform(0.01, 0.4))
            agent.process.kill()
            [each.join() for each in clients]
            told = [each.told for each in clients]
    print(f"store: {count} kills under {CLIENTS} clients, {sum(told)} Sets: {old} times as they were told, {new} times one more, nothing else; "
          f"{torn} writes were cut off")
    return new > 0 or arguments.quick


# --- what is configured of links, in a network of our own ---


def field(number, content):
    return bytes([number << 3 | 2, len(content)]) + content


def commit(name, seconds=None):
    """The extension, as bytes at the end of a SetRequest; without a time it is the confirmation."""
    action = field(3, b"") if seconds is None else field(2, field(1, bytes([8, seconds])))
    return field(5, field(4, field(1, name.encode()) + action))


def setOf(agent, updates, deletes=(), extension=b""):
    request = pb.SetRequest(update=[pb.Update(path=support.pathOf(path), val=pb.TypedValue(json_val=value.encode()))
                                    for path, value in updates.items()], delete=[support.pathOf(path) for path in deletes])
    agent.stub().Set(pb.SetRequest.FromString(request.SerializeToString() + extension), timeout=30)


def linkOf(name):
    """What the kernel has of it: MTU, description, whether it is up, IPv4 addresses. None when it is not there."""
    parts = []
    for what in ("link", "address"):
        shown = subprocess.run(["ip", "-json", what, "show", name], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
        if shown.returncode != 0:
            return None
        parts.append(json.loads(shown.stdout)[0])
    link, addresses = parts
    return (link["mtu"], link.get("ifalias", ""), "UP" in link["flags"],
            sorted(f"{one['local']}/{one['prefixlen']}" for one in addresses["addr_info"] if one["family"] == "inet"))


def awaited(what, wanted):
    end = time.monotonic() + 60
    while (found := what()) != wanted:
        assert time.monotonic() < end, f"{found} and not {wanted}"


def links(arguments):
    folder = arguments.work / "links-store"
    shutil.rmtree(folder, ignore_errors=True)
    ip = lambda *words: subprocess.run(["ip", *words], check=True)
    serve = lambda: support.Agent("--apply-config", "--config-store", str(folder))
    ip("link", "add", "a0", "mtu", "1500", "type", "veth", "peer", "name", "a1")
    ip("link", "set", "a0", "alias", "before")
    ip("address", "add", "198.51.100.1/24", "dev", "a0")
    before, old, new = linkOf("a0"), (1400, "old", True, ["192.0.2.9/24", "198.51.100.1/25"]), (1300, "before", True, ["198.51.100.1/24"])
    entry = ENTRY % "a0"
    addresses = entry + "/subinterfaces/subinterface[index=0]/ipv4/addresses/address"
    first = {entry + "/config/mtu": "1400", entry + "/config/description": '"old"', entry + "/config/enabled": "true",
             addresses + "[ip=192.0.2.9]/config/prefix-length": "24", addresses + "[ip=198.51.100.1]/config/prefix-length": "25"}
    other = {entry + "/config/mtu": "1300"}, [entry + "/config/description", addresses + "[ip=192.0.2.9]", addresses + "[ip=198.51.100.1]"]
    with serve() as agent:
        setOf(agent, first)
        assert linkOf("a0") == old, linkOf("a0")
        setOf(agent, *other, commit("a", 100))  # nobody confirms it: the next start takes it back
        assert linkOf("a0") == new, linkOf("a0")
        agent.process.kill()
    with serve() as agent:
        assert linkOf("a0") == old, linkOf("a0")
        setOf(agent, *other, commit("b", 1))  # and here its time
        awaited(lambda: linkOf("a0"), old)
        setOf(agent, *other, commit("c", 100))
        setOf(agent, {}, extension=commit("c"))
        agent.process.kill()
    with serve() as agent:
        assert linkOf("a0") == new, linkOf("a0")
        setOf(agent, first)
        later = ENTRY % "b0" + "/config"
        setOf(agent, {later + "/mtu": "1280", later + "/description": '"later"'})
        for _ in range(2):  # a link gets what is configured of it when it comes, and when it comes again
            ip("link", "add", "b0", "mtu", "1500", "type", "veth", "peer", "name", "b1")
            awaited(lambda: (linkOf("b0") or (0, ""))[:2], (1280, "later"))
            ip("link", "delete", "b0")
            awaited(lambda: linkOf("b0"), None)
        agent.process.kill()
    with serve() as agent:  # what was there before the first write has been kept all the time
        assert linkOf("a0") == old, linkOf("a0")
        setOf(agent, {}, [entry])
        assert linkOf("a0") == before, f"{linkOf('a0')} and not {before}"
    print("store: links follow a commit back over a SIGKILL and at its end, come to what is configured of them when they come, and have what "
          "they had before when it is deleted")


def main():
    parser = run.parserOf(__doc__)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--kills", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    if "E2E_AGENT" not in os.environ:
        python = run.clientOrSkipped(arguments.work)
        network = run.ownNetwork()
        sys.exit(subprocess.run([*network, python, *sys.argv], env=os.environ | run.variables(arguments, no_proxy="*", E2E_OWN_NETWORK="1" if network else ""), check=False).returncode)
    global grpc, pb, support
    import grpc
    import support
    from pygnmi.spec.v080 import gnmi_pb2 as pb
    if os.environ["E2E_OWN_NETWORK"]:
        links(arguments)
    else:
        print("store: no network namespace: links are left out")
    sys.exit(0 if kills(arguments) else 1)


if __name__ == "__main__":
    main()
