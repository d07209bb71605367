#!/usr/bin/env python3
"""usage: published_interfaces.py NUMBER     so many interfaces of the published modules, 46 leaves each, as JSON

For `ondra-agent serve --yang ... --module openconfig-interfaces --data FILE`; 23,000 of them are a million leaves.
"""
import json
import sys

COUNTERS = ["in-octets", "in-pkts", "in-unicast-pkts", "in-broadcast-pkts", "in-multicast-pkts", "in-discards", "in-errors",
            "in-unknown-protos", "in-fcs-errors", "out-octets", "out-pkts", "out-unicast-pkts", "out-broadcast-pkts", "out-multicast-pkts",
            "out-discards", "out-errors", "carrier-transitions"]
IS_UP = {"admin-status": "UP", "oper-status": "UP"}
HOLD_TIME = {"up": 10, "down": 20}


def interface(i):
    name = f"eth{i}"
    config = {"name": name, "type": "iana-if-type:ethernetCsmacd", "mtu": 9000, "description": f"port {i} of the shelf", "enabled": True}
    counters = {counter: str(i * 1000 + j) for j, counter in enumerate(COUNTERS)}
    state = {**config, **IS_UP, "ifindex": i + 1, "last-change": str(1700000000000000000 + i), "counters": counters}
    half = {"index": 0, "description": "sub", "enabled": True}
    subinterface = {"index": 0, "config": half, "state": {**half, **IS_UP, "ifindex": 100000 + i}}
    return {"name": name, "config": config, "state": state, "hold-time": {"config": HOLD_TIME, "state": HOLD_TIME},
            "subinterfaces": {"subinterface": [subinterface]}}


json.dump({"openconfig-interfaces:interfaces": {"interface": [interface(i) for i in range(int(sys.argv[1]))]}}, sys.stdout)
