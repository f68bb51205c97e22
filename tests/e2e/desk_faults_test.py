#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""End-to-end fault cases: the desk server against a misbehaving backend daemon, and bad input
over HTTP, which must be refused without any write reaching the daemon. Every JSON response is
validated against the API description.

usage: desk_faults_test.py --server BIN --simulator BIN --module SO --api YAML CASE
"""
import os
import socket
import struct
import sys
import threading
import time

from desk_e2e_test import LANGUAGE, Desk, expect, main

WIRE_HEAD = struct.Struct("<IIIIQ")  # magic, message type, command, body/data length, value
REPLY_MAGIC = 0x50525756
READ_BODY_LEN = 21208                   # a read carries a whole command body, a write its record
LANGUAGE_RECORD = struct.pack("<QI4x", 1, 7)  # channel 1, mode 7


def reply_to(msg_type, cmd, value):
    """A well-formed successful reply of the daemon carrying LANGUAGE_RECORD."""
    head = bytearray(200)
    WIRE_HEAD.pack_into(head, 0, REPLY_MAGIC, msg_type, cmd, len(LANGUAGE_RECORD), value)
    return bytes(head) + LANGUAGE_RECORD


def recv_exactly(conn, length):
    data = b""
    while len(data) < length:
        chunk = conn.recv(length - len(data))
        if not chunk:
            raise ConnectionError("request cut")
        data += chunk
    return data


class FakeDaemon:
    """A daemon at the desk's socket path that reads each request whole, then calls
    behave(connection, well-formed reply, stop event); an OSError ends the connection."""

    def __init__(self, path, behave):
        self.path, self.behave, self.stop = path, behave, threading.Event()
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen()
        self.listener.settimeout(0.05)
        self.connections = []
        self.threads = [threading.Thread(target=self.serve)]
        self.threads[0].start()

    def serve(self):
        while not self.stop.is_set():
            try:
                conn, _ = self.listener.accept()
            except socket.timeout:
                continue
            conn.settimeout(None)
            self.threads.append(threading.Thread(target=self.answer, args=(conn,)))
            self.threads[-1].start()

    def answer(self, conn):
        self.connections.append(conn)
        with conn:
            try:
                while True:
                    _, msg_type, cmd, length, value = WIRE_HEAD.unpack(recv_exactly(conn, 24))
                    recv_exactly(conn, length)
                    self.behave(conn, reply_to(msg_type, cmd, value), self.stop)
            except OSError:
                pass  # the desk went away, or the behaviour ended the connection

    def close(self):
        """Goes away like a daemon that exits: its connections close, kept ones included."""
        self.stop.set()
        self.threads[0].join()  # no connection is accepted after it
        for conn in self.connections:
            try:
                conn.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass  # already closed
        for thread in self.threads[1:]:
            thread.join(timeout=10)
        self.listener.close()
        os.unlink(self.path)


def stale_socket_file(path):
    """A socket file nobody listens on: connecting to it is refused."""
    with socket.socket(socket.AF_UNIX) as unbound:
        unbound.bind(path)


def cut(length):
    def behave(conn, reply, _):
        conn.sendall(reply[:length])
        raise ConnectionError("cut")  # closes the connection: the daemon is gone mid-reply
    return behave


def well_formed(conn, reply, _):
    conn.sendall(reply)


def patched(offset, number):
    """Sends the reply with the 32-bit head field at offset replaced by number."""
    def behave(conn, reply, _):
        conn.sendall(reply[:offset] + struct.pack("<I", number) + reply[offset + 4:])
    return behave


def slow(conn, reply, stop):
    if not stop.wait(5):
        conn.sendall(reply)


# what, the daemon (a behaviour; "stale": a socket file nobody listens on; None: no file at all),
# HTTP status of a GET and a PUT, least and most seconds each may take.
FAULTS = [
    ("well-formed fake (control)", well_formed, 200, 0, 1),
    ("no daemon, no socket file", None, 502, 0, 1),
    ("no daemon, stale socket file", "stale", 502, 0, 1),
    ("killed inside the reply head", cut(100), 502, 0, 1),
    ("killed after the head", cut(200), 502, 0, 1),
    ("reply shorter than its head says", cut(200 + len(LANGUAGE_RECORD) - 4), 502, 0, 1),
    ("wrong reply magic", patched(0, 0x4B4E554A), 502, 0, 1),
    ("reply naming another command", patched(8, 31110), 502, 0, 1),
    ("reply data length over 21208", patched(12, 21209), 502, 0, 1),
    ("reply after 5 s, past the 3 s timeout", slow, 502, 3, 4),
]


def case_backend_faults(desk):
    path = os.path.join(desk.root, "tmp", "A")
    desk.stop_simulator()
    for what, daemon, status, least, most in FAULTS:
        fake = FakeDaemon(path, daemon) if callable(daemon) else None
        if daemon == "stale":
            stale_socket_file(path)
        try:
            for method, body in (("GET", None), ("PUT", '{"mode": 3}')):
                start = time.monotonic()
                got, document = desk.request(method, LANGUAGE, body, "ChannelId=1")
                took = time.monotonic() - start
                expect(got == status and least <= took < most,
                       f"{what}: {method} HTTP {got} in {took:.2f} s")
                if status == 502 or body:
                    expect(document["ResponseStatus"]["StatusCode"] == (1 if status == 502 else 0),
                           f"{what}: {method} {document}")
                else:
                    expect(document == {"channelId": 1, "mode": 7}, f"{what}: {document}")
        finally:
            if fake:
                fake.close()
            elif daemon == "stale":
                os.unlink(path)
        expect(desk.server.poll() is None, f"{what}: the server is gone")
        desk.start_simulator()
        status, document = desk.request("GET", LANGUAGE, query="ChannelId=1")
        expect(status == 200 and document["channelId"] == 1, f"after {what}: {status} {document}")
        desk.stop_simulator()


class WatchedDesk(Desk):
    """A desk whose simulator logs every command it serves, so that writes can be counted."""

    def start_simulator(self):
        with open(os.path.join(self.root, "simulator.log"), "a") as log:
            self.simulator = self.launch([self.args.simulator, "--verbose", "--state",
                                          os.path.join(self.root, "state.bin")], stderr=log)

    def writes(self):
        """Commands whose body is a record rather than a whole command body."""
        with open(os.path.join(self.root, "simulator.log")) as log:
            return sum(1 for line in log if " bytes: Result" in line
                       and f"body {READ_BODY_LEN} bytes" not in line)


LANG = LANGUAGE + "?ChannelId=1"
OSD = "/api/v1/itgt/frame-osd?ChannelId=1&OverlayPicType=0&BusinessType=Vlpr"
VERIFY = "/api/v1/itgt/security-code-verify?ChannelId=1"
MIB = 1024 * 1024


def osd_text(length):
    return '{"laneOSD": {"osdContent": "' + "x" * length + '"}}'


# what, path and query, body (None: none sent), HTTP status, StatusCode. PUT, or POST of an upload
# to VERIFY. The 200 rows are accepted edge cases and must write exactly once; all others never.
BAD_INPUT = [
    ("truncated JSON", LANG, '{"mode": ', 400, 4),
    ("trailing comma", LANG, '{"mode": 2,}', 400, 4),
    ("unquoted key", LANG, '{mode: 2}', 400, 4),
    ("single quotes", LANG, "{'mode': 2}", 400, 4),
    ("two documents", LANG, '{"mode": 2} {"mode": 3}', 400, 4),
    ("whitespace only", LANG, "   ", 400, 4),
    ("empty body", LANG, "", 400, 4),
    ("no body", LANG, None, 400, 4),
    ("arrays nested 10,000 deep", LANG, '{"mode": ' + "[" * 10000 + "]" * 10000 + "}", 400, 4),
    ("objects nested 10,000 deep", LANG, '{"a":' * 10000 + "1" + "}" * 10000, 400, 4),
    ("60 KiB string in a 176-byte text", OSD, osd_text(60 * 1024), 400, 4),
    ("177 characters in a 176-byte text", OSD, osd_text(177), 400, 4),
    ("176 characters in a 176-byte text", OSD, osd_text(176), 200, 0),
    ("1e400", LANG, '{"mode": 1e400}', 400, 4),
    ("-1e400", LANG, '{"mode": -1e400}', 400, 4),
    ("NaN literal", LANG, '{"mode": NaN}', 400, 4),
    ("Infinity literal", LANG, '{"mode": Infinity}', 400, 4),
    ("-Infinity literal", LANG, '{"mode": -Infinity}', 400, 4),
    ("-0 is 0", LANG, '{"mode": -0}', 200, 0),
    ("duplicate keys, the last wins", LANG, '{"mode": 3, "mode": 4}', 200, 0),
    ("a NUL byte in the body", LANG, b'{"mode": 6}\x00junk', 400, 4),
    ("array of a million elements", LANG, '{"mode": [' + "0," * 999999 + "0]}", 413, 4),
    ("invalid UTF-8 in a key", LANG, b'{"mode\xff": 2}', 400, 4),
    ("lone continuation byte", LANG, b'{"x": "\x80"}', 400, 4),
    ("overlong encoding", LANG, b'{"x": "\xc0\xaf"}', 400, 4),
    ("UTF-8 encoded surrogate", LANG, b'{"x": "\xed\xa0\x80"}', 400, 4),
    ("truncated sequence", LANG, b'{"x": "\xe2\x82"}', 400, 4),
    ("byte order mark", LANG, b'\xef\xbb\xbf{"mode": 2}', 400, 4),
    ("repeated key, first value bad", LANGUAGE + "?ChannelId=abc&ChannelId=1", "{}", 400, 4),
    ("repeated key, first value good", LANGUAGE + "?ChannelId=1&ChannelId=abc", "{}", 200, 0),
    ("empty key", LANGUAGE + "?=1", "{}", 400, 4),
    ("empty value", LANGUAGE + "?ChannelId=", "{}", 400, 4),
    ("ChannelId 2^64", LANGUAGE + "?ChannelId=18446744073709551616", "{}", 400, 4),
    ("ChannelId of 2000 digits", LANGUAGE + "?ChannelId=" + "1" * 2000, "{}", 400, 4),
    ("OverlayPicType 2^32", OSD.replace("=0", "=4294967296"), "{}", 400, 4),
    ("BusinessType of 300 bytes", OSD.replace("Vlpr", "V" * 300), "{}", 400, 4),
    ("query of 2049 bytes", LANG + "&pad=" + "p" * (2049 - 16), "{}", 414, 4),
    ("path of 300 bytes", "/api/v1/itgt/" + "p" * 287, "{}", 414, 4),
    ("upload without a body", VERIFY, None, 400, 4),
    ("empty upload", VERIFY, b"", 400, 4),
    ("upload of 8 MiB, not a JPEG", VERIFY, bytes(8 * MIB), 400, 4),
    ("upload of 8 MiB + 1", VERIFY, bytes(8 * MIB + 1), 413, 4),
    ("upload to ChannelId=abc", VERIFY.replace("=1", "=abc"), b"\xff\xd8 \xff\xd9", 400, 4),
    ("upload as JSON", VERIFY, b"\xff\xd8 \xff\xd9", 415, 4, "application/json"),
    ("upload as a URL-encoded form", VERIFY, b"a=1", 415, 4, "application/x-www-form-urlencoded"),
]


def case_bad_input(desk):
    body_file = os.path.join(desk.root, "body")
    for what, target, body, status, code, *kind in BAD_INPUT:
        path, query = target.split("?", 1) if "?" in target else (target, "")
        upload = path == VERIFY.split("?")[0]
        kind = (kind or ["image/jpeg" if upload else "application/json"])[0]
        if body is not None:
            with open(body_file, "wb") as out:
                out.write(body.encode() if isinstance(body, str) else body)
        writes = desk.writes()
        got, document = desk.request("POST" if upload else "PUT", path, query=query,
                                     upload=None if body is None else body_file,
                                     kind=kind)
        expect(got == status and document["ResponseStatus"]["StatusCode"] == code,
               f"{what}: HTTP {got} {document}")
        expect(desk.writes() - writes == int(status == 200), f"{what}: writes reached the daemon")
    expect(desk.server.poll() is None, "the server is gone")
    leftovers = [name for name in os.listdir("/tmp") if name.startswith("talapi-upload-")]
    expect(not leftovers, f"uploads left behind: {leftovers}")


def send_raw(desk, request):
    """A connection that sends request and then falls silent."""
    raw = socket.create_connection(("127.0.0.1", desk.port), timeout=30)
    raw.sendall(request)
    return raw


PUT_HEAD = f"PUT {LANG} HTTP/1.1\r\nHost: desk\r\n".encode()
# what, what the client sends before it falls silent, the status it gets
STALLED_BODIES = [
    ("Content-Length 40, 11 bytes sent", PUT_HEAD + b'Content-Length: 40\r\n\r\n{"mode": 2}', 408),
    ("chunked body without its last chunk",
     PUT_HEAD + b'Transfer-Encoding: chunked\r\n\r\nb\r\n{"mode": 2}\r\n', 400),
]


def case_stalled_clients(desk):
    """Bodies that never arrive whole are refused within the request timeout and never reach the
    daemon; with the default settings 16 silent connections leave other clients served."""
    desk.restart_server(["--request-timeout-ms", "1000"])
    for what, request, status in STALLED_BODIES:
        writes, start = desk.writes(), time.monotonic()
        with send_raw(desk, request) as raw:
            answer = raw.recv(65536).decode()
        took = time.monotonic() - start
        expect(answer.startswith(f"HTTP/1.1 {status} ") and 1 <= took < 3,
               f"{what}: {answer[:40]!r} after {took:.1f} s")
        expect(desk.writes() == writes, f"{what}: a write reached the daemon")
    desk.restart_server()
    stalled = [send_raw(desk, b"GET " + LANG.encode() + b" HTTP/1.1\r\n") for _ in range(16)]
    try:
        start = time.monotonic()
        status, _ = desk.request("GET", LANGUAGE, query="ChannelId=1")
        took = time.monotonic() - start
        expect(status == 200 and took < 2, f"with 16 stalled clients: {status} in {took:.1f} s")
    finally:
        for raw in stalled:
            raw.close()


if __name__ == "__main__":
    sys.exit(main(globals(), WatchedDesk))
