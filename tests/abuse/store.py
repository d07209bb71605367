#!/usr/bin/env python3
"""Kills an agent that keeps its configuration, again and again, while clients change it. Each of its next starts must find what every
client was told last, or what it had asked for and not been told of; both places that a Set writes, or neither. `--quick`: few kills."""
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


def place(name):
    return pb.Path(elem=[pb.PathElem(name="interfaces"), pb.PathElem(name="interface", key={"name": name})])


def written(name, number):
    return pb.Update(path=place(name), val=pb.TypedValue(json_val=b'{"config":{"description":"%d"}}' % number))


def requestOf(client, number):
    """Every seventh removes what the others make."""
    names = [f"{side}{client}" for side in ("left", "right")]
    if number % 7 == 0:
        return pb.SetRequest(delete=[place(name) for name in names])
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
            path = place(f"{side}{client}")
            path.elem.extend([pb.PathElem(name="config"), pb.PathElem(name="description")])
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


def main():
    parser = run.parserOf(__doc__)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--kills", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    if "E2E_AGENT" not in os.environ:
        python = run.clientOrSkipped(arguments.work)
        sys.exit(subprocess.run([python, *sys.argv], env=os.environ | run.variables(arguments, no_proxy="*"), check=False).returncode)
    global grpc, pb, support
    import grpc
    import support
    from pygnmi.spec.v080 import gnmi_pb2 as pb
    sys.exit(0 if kills(arguments) else 1)


if __name__ == "__main__":
    main()
