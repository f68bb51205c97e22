#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Contract cases: the API description against the running desk. Every operation is called with
its documented example and made to answer each failure status it documents; requests the
description rejects are rejected by the server, and those it accepts that the server refuses
are refused as the description says. Every response is checked against the description
(its status listed for the operation, its body valid).

usage: desk_contract_test.py --server BIN --simulator BIN --module SO --api YAML CASE
"""
import json
import os
import socket
import subprocess
import sys

import jsonschema

from desk_e2e_test import FRAME_OSD, LANGUAGE, VERIFY, expect, main
from desk_faults_test import FakeDaemon, WatchedDesk, patched

DETECTOR = "/api/v1/itgt/video-vehicle-detector"
PICTURE = b"\xff\xd8 contract picture \xff\xd9"


class ContractDesk(WatchedDesk):
    """A watched desk whose requests are built from the description's own examples."""

    def operations(self):
        for path, item in self.api["paths"].items():
            for method, operation in item.items():
                if method != "parameters":
                    yield path, method.upper(), operation, item.get("parameters", [])

    def resolve(self, node):
        while "$ref" in node:
            section, name = node["$ref"].split("/")[-2:]
            node = self.api["components"][section][name]
        return node

    def example_query(self, operation, shared):
        """The query of the operation's documented parameter examples."""
        parameters = [self.resolve(p) for p in shared + operation.get("parameters", [])]
        return "&".join(f"{p['name']}={p['example']}" for p in parameters if p["in"] == "query")

    def call(self, path, method, operation, shared, query=None, body=None, curl=(), kind=None):
        """The operation with its example query and body unless given (a POST uploads a picture
        unless curl sends a form); (status, headers)."""
        query = self.example_query(operation, shared) if query is None else query
        if method == "PUT" and body is None:
            content = operation["requestBody"]["content"]["application/json"]
            body = json.dumps(content["example"])
        upload = None
        if method == "POST" and "-F" not in curl:
            upload = os.path.join(self.root, "contract.jpg")
            with open(upload, "wb") as out:
                out.write(PICTURE if body is None else body)
            body = None
        status, headers, _ = self.exchange(method, path, body, query, upload, kind, curl)
        return status, headers

    def stalled(self, path, method, query):
        """A request whose body stops short of its length; the status it is answered with."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=30) as raw:
            raw.sendall(f"{method} {path}?{query} HTTP/1.1\r\nHost: desk\r\n"
                        "Content-Type: image/jpeg\r\nContent-Length: 40\r\n\r\n{}".encode())
            answer = b""
            while chunk := raw.recv(65536):  # the server closes after answering
                answer += chunk
            head, _, text = answer.decode().partition("\r\n\r\n")
        status = int(head.split()[1])
        self.validate(path, method.lower(), status, json.loads(text))
        return status


def passwords(desk):
    path = os.path.join(desk.root, "passwords")
    for user in ("alice", "bob"):
        subprocess.run([desk.args.server, "--auth-file", path, "--set-password", user],
                       input=f"{user}-pw\n", text=True, check=True)
    return ["--auth-file", path, "--viewer", "bob", "--require-if-match"]


ALICE, BOB = ["--digest", "-u", "alice:alice-pw"], ["--digest", "-u", "bob:bob-pw"]
# How each documented status is provoked, by the server set-up it needs: a function of the desk
# and the operation (path, method, operation, shared parameters) giving the status it got.
PLAIN, AUTH, DAEMON_ERROR, NO_DAEMON = "plain", "auth", "daemon error", "no daemon"
PROVOKE = {
    200: (PLAIN, lambda d, *op: d.call(*op)[0]),
    304: (PLAIN, lambda d, *op: d.call(*op, curl=["-H", "If-None-Match: *"])[0]),
    400: (PLAIN, lambda d, *op: d.call(
        *op, query=d.example_query(*op[2:]).replace("ChannelId=", "ChannelId=x"))[0]),
    404: (PLAIN, lambda d, *op: d.call(*op, query="ChannelId=1")[0]),
    408: (PLAIN, lambda d, path, method, operation, shared:
          d.stalled(path, method, d.example_query(operation, shared))),
    411: (PLAIN, lambda d, *op: d.call(*op, curl=["-F", f"p=@{__file__}",
                                                  "-H", "Transfer-Encoding: chunked"])[0]),
    412: (PLAIN, lambda d, *op: d.call(*op, curl=["-H", 'If-Match: "0000000000000000"'])[0]),
    413: (PLAIN, lambda d, *op: d.call(
        *op, body=b"\xff\xd8" + bytes(8 << 20) if op[1] == "POST" else " " * 65537)[0]),
    414: (PLAIN, lambda d, *op: d.call(*op, query=d.example_query(*op[2:]) + "&p=" + "p" * 2100)[0]),
    415: (PLAIN, lambda d, *op: d.call(*op, kind="text/plain")[0]),
    401: (AUTH, lambda d, *op: d.call(*op)[0]),
    403: (AUTH, lambda d, *op: d.call(*op, curl=BOB + ["-H", "If-Match: *"])[0]),
    428: (AUTH, lambda d, *op: d.call(*op, curl=ALICE)[0]),
    500: (DAEMON_ERROR, lambda d, *op: d.call(*op)[0]),
    502: (NO_DAEMON, lambda d, *op: d.call(*op)[0]),
}


# Documented statuses that HTTP alone cannot provoke, and what does.
UNPROVOKED = {
    ("GET", "/api/v1/itgt/capability", 500):
        "the module takes the daemon's capability payload whatever its Result, so this is only "
        "a failed allocation: tests/robustness/alloc_injection_test.cpp",
}


def case_documented_statuses(desk):
    """Every operation answers its example with success and each failure status it documents;
    nothing but a successful PUT reaches the daemon as a write."""
    fake_path = os.path.join(desk.root, "tmp", "A")
    for setup in (PLAIN, AUTH, DAEMON_ERROR, NO_DAEMON):
        desk.restart_server(passwords(desk) if setup == AUTH else ["--request-timeout-ms", "1000"])
        fake = None
        if setup in (DAEMON_ERROR, NO_DAEMON):
            desk.stop_simulator()
            fake = FakeDaemon(fake_path, patched(176, 7)) if setup == DAEMON_ERROR else None
        try:
            for path, method, operation, shared in desk.operations():
                for status in sorted(int(s) for s in operation["responses"]):
                    if PROVOKE[status][0] != setup or (method, path, status) in UNPROVOKED:
                        continue
                    writes = desk.writes()
                    got = PROVOKE[status][1](desk, path, method, operation, shared)
                    expect(got == status, f"{method} {path} for {status}: HTTP {got}")
                    wrote = desk.writes() - writes
                    expect(wrote == int(method == "PUT" and status == 200),
                           f"{method} {path} for {status}: {wrote} writes")
        finally:
            if fake:
                fake.close()
            if setup in (DAEMON_ERROR, NO_DAEMON):
                desk.start_simulator()


# what the request is, path, query, body, whether the description accepts it, the status, and
# whether the record read back afterwards differs.
ONE = "ChannelId=1"
OSD_QUERY = "ChannelId=1&OverlayPicType=0&BusinessType=TrafficDome"
REQUESTS = [
    ("wrong member type", LANGUAGE, ONE, {"mode": "two"}, False, 400, False),
    ("unknown key, ignored", LANGUAGE, ONE, {"colour": 1}, True, 200, False),
    ("an array body changes nothing", LANGUAGE, ONE, [1, 2], True, 200, False),
    ("a string body changes nothing", LANGUAGE, ONE, "mode", True, 200, False),
    ("out of range, narrowed", DETECTOR, ONE, {"rectInfo": {"x": 40000}}, True, 200, True),
    ("a fraction, truncated", DETECTOR, ONE, {"enable": 2.7}, True, 200, True),
    ("one array sets the shared count", FRAME_OSD, OSD_QUERY,
     {"picOSDInfo": {"spaceNum": [9]}}, True, 200, True),
    ("38 items", FRAME_OSD, OSD_QUERY, {"picOSDInfo": {"warpNum": [0] * 38}}, False, 400, False),
    ("count over 37", FRAME_OSD, OSD_QUERY, {"picOSDInfo": {"picOSDNum": 38}}, False, 400, False),
    ("100 two-byte characters in 176 bytes", FRAME_OSD, OSD_QUERY,
     {"laneOSD": {"osdContent": "é" * 100}}, True, 400, False),
    ("missing ChannelId", LANGUAGE, "", {"mode": 1}, False, 400, False),
    ("ChannelId 2^64", LANGUAGE, "ChannelId=18446744073709551616", {"mode": 1}, True, 400, False),
    ("a channel the daemon lacks", LANGUAGE, "ChannelId=99", {"mode": 1}, True, 400, False),
    ("a picture type the daemon lacks", FRAME_OSD, OSD_QUERY.replace("=0", "=7"), {}, True, 400,
     False),
    ("another business type", FRAME_OSD, OSD_QUERY.replace("TrafficDome", "Face"), {}, False,
     500, False),
]


def case_rejected_requests(desk):
    """The description rejects a request exactly when the server does, but for the refusals it
    writes down in words (byte limits, the daemon's channels); a refused PUT changes nothing."""
    for what, path, query, body, accepted, status, changes in REQUESTS:
        operation = desk.api["paths"][path]["put"]
        schema = operation["requestBody"]["content"]["application/json"]["schema"]
        resolver = jsonschema.RefResolver.from_schema(desk.api)
        valid = jsonschema.Draft202012Validator(schema, resolver=resolver).is_valid(body)
        pairs = dict(pair.split("=", 1) for pair in query.split("&") if pair)
        for parameter in map(desk.resolve, desk.api["paths"][path]["parameters"]):
            value = pairs.get(parameter["name"])
            valid = valid and value is not None and jsonschema.Draft202012Validator(
                parameter["schema"]).is_valid(value)
        expect(valid == accepted, f"{what}: the description {'accepts' if valid else 'rejects'}")
        read_query = query if status == 200 else (OSD_QUERY if path == FRAME_OSD else ONE)
        _, before = desk.request("GET", path, query=read_query)
        got, document = desk.request("PUT", path, json.dumps(body), query)
        _, after = desk.request("GET", path, query=read_query)
        expect(got == status and (after != before) == changes,
               f"{what}: HTTP {got} {document}, changed: {after != before}")
    got, _ = desk.request("DELETE", LANGUAGE, query=ONE)
    expect(got == 405, f"a method the description lacks: {got}")


if __name__ == "__main__":
    sys.exit(main(globals(), ContractDesk))
