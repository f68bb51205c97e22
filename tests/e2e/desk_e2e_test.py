#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""End-to-end cases: curl against the desk access server and the backend simulator, both started
on a private port and socket root. Every JSON response is validated against the API description.

usage: desk_e2e_test.py --server BIN --simulator BIN --module SO --api YAML CASE
"""
import argparse
import ctypes.util
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile

import jsonschema
import yaml

LANGUAGE = "/api/v1/itgt/sys-back-language"
VERIFY = "/api/v1/itgt/security-code-verify"
CAPABILITY = "/api/v1/itgt/capability"


class Desk:
    """The two programs of one case, in a private directory."""

    def __init__(self, args):
        self.args = args
        self.root = tempfile.mkdtemp(prefix="talapi-e2e-")
        self.env = dict(os.environ, TALAPI_SOCKET_ROOT=self.root)
        os.makedirs(os.path.join(self.root, "tmp"), exist_ok=True)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        self.simulator = self.server = None
        self.start_simulator()
        self.restart_server()
        with open(args.api) as api_file:
            self.api = yaml.safe_load(api_file)

    def restart_server(self, options=()):
        """(Re)starts the desk server with more options."""
        if self.server:
            self.server.send_signal(signal.SIGTERM)
            self.server.wait(timeout=30)
        self.server = self.launch([self.args.server, "--module", self.args.module, "--port",
                                   str(self.port), "--run-dir", os.path.join(self.root, "run"),
                                   *options])

    def launch(self, command, stderr=None):
        process = subprocess.Popen(command, env=self.env, stdout=subprocess.PIPE, stderr=stderr,
                                   text=True)
        line = process.stdout.readline()  # each program announces it is ready
        if "listening on" not in line:
            raise RuntimeError(f"{command[0]} did not start: {line!r}")
        return process

    def start_simulator(self):
        self.simulator = self.launch([self.args.simulator, "--state",
                                      os.path.join(self.root, "state.bin")])

    def stop_simulator(self):
        self.simulator.send_signal(signal.SIGTERM)
        self.simulator.wait(timeout=10)

    def close(self):
        for process in (self.server, self.simulator):
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
                process.wait(timeout=10)
        subprocess.run(["rm", "-rf", self.root], check=False)

    def request(self, method, path, body=None, query="", upload=None, kind=None, curl=()):
        """curl's answer as (status, parsed JSON or None when there is no body); the JSON is
        checked against the API. The body is a text, or the file named by upload (a picture
        unless kind says otherwise). curl: more curl options (headers, credentials, a form)."""
        status, _, text = self.exchange(method, path, body, query, upload, kind, curl)
        return status, json.loads(text) if text else None

    def exchange(self, method, path, body=None, query="", upload=None, kind=None, curl=()):
        """curl's answer as (status, headers with lower-case names, body text)."""
        url = f"http://127.0.0.1:{self.port}{path}" + (f"?{query}" if query else "")
        kind = kind or ("image/jpeg" if upload else "application/json")
        command = ["curl", "-sS", "-m", "20", "-o", "-", "-D", "/dev/stderr", "-w",
                   "\n%{http_code}", *(["--head"] if method == "HEAD" else ["-X", method]),
                   *curl, url]
        if "-F" not in curl:  # a form names its own type
            command += ["-H", f"Content-Type: {kind}"]
        if body is not None or upload:
            command += ["--data-binary", "@" + (upload or "-")]
        done = subprocess.run(command, input=body, capture_output=True, text=True, check=True)
        text, status = done.stdout.rsplit("\n", 1)
        headers = {}
        for line in done.stderr.splitlines():
            name, colon, value = line.partition(":")
            if name.startswith("HTTP/"):
                headers = {}  # the last of several answers (a digest challenge, then the answer)
            elif colon:
                headers[name.strip().lower()] = value.strip()
        text = "" if method == "HEAD" else text
        self.validate(path, method.lower(), int(status), json.loads(text) if text else None)
        return int(status), headers, text

    def validate(self, path, method, status, document):
        """The status must be one the description lists for the operation, and the body (None:
        no body) what it says. HEAD is the GET without a body. Paths and methods it does not
        describe answer with the envelope: an unknown path 404 or 414, another method 405; OPTIONS
        204 without a body (a CORS preflight 200)."""
        operation = self.api["paths"].get(path, {}).get("get" if method == "head" else method)
        if operation is None:
            options = method == "options"
            expect(status in ((200, 204) if options else (404, 405, 414)),
                   f"{method} {path}: HTTP {status}")
            response = {} if options else {"content": {"application/json": {"schema": {
                "$ref": "#/components/schemas/Envelope"}}}}
        else:
            response = operation["responses"].get(str(status))
            expect(response is not None, f"{method} {path}: HTTP {status} is not described")
        if "$ref" in response:
            response = self.api["components"]["responses"][response["$ref"].rsplit("/", 1)[1]]
        if method == "head" or "content" not in response:
            expect(document is None, f"{method} {path}: HTTP {status} has a body")
            return
        schema = response["content"]["application/json"]["schema"]
        resolver = jsonschema.RefResolver.from_schema(self.api)
        jsonschema.Draft202012Validator(schema, resolver=resolver).validate(document)


def expect(condition, what):
    if not condition:
        raise AssertionError(what)


def envelope(desk, method, path, status, code, body=None, query=""):
    got_status, document = desk.request(method, path, body, query)
    expect(got_status == status, f"{method} {path}?{query}: HTTP {got_status}, wanted {status}")
    expect(document["ResponseStatus"]["StatusCode"] == code, f"StatusCode in {document}")


def case_gets(desk):
    status, capability = desk.request("GET", CAPABILITY)
    expect(status == 200 and len(capability) == 38, f"capability {status} {capability}")
    status, language = desk.request("GET", LANGUAGE, query="ChannelId=1")
    expect(status == 200 and language["channelId"] == 1, f"language {status} {language}")


def case_put_then_get(desk):
    _, before = desk.request("GET", LANGUAGE, query="ChannelId=2")
    mode = 7 if before["mode"] != 7 else 8
    envelope(desk, "PUT", LANGUAGE, 200, 0, json.dumps({"mode": mode}), "ChannelId=2")
    _, after = desk.request("GET", LANGUAGE, query="ChannelId=2")
    expect(after == {"channelId": 2, "mode": mode}, f"after PUT: {after}")


def case_put_survives_simulator_restart(desk):
    envelope(desk, "PUT", LANGUAGE, 200, 0, '{"mode": 5}', "ChannelId=3")
    desk.stop_simulator()
    desk.start_simulator()
    _, after = desk.request("GET", LANGUAGE, query="ChannelId=3")
    expect(after["mode"] == 5, f"after restart: {after}")


def case_bad_requests(desk):
    envelope(desk, "PUT", LANGUAGE, 400, 4, '{"mode": ', "ChannelId=1")
    envelope(desk, "PUT", LANGUAGE, 400, 4, '{"mode": "two"}', "ChannelId=1")
    envelope(desk, "GET", LANGUAGE, 400, 4)
    envelope(desk, "GET", LANGUAGE, 400, 4, query="ChannelId=abc")
    status, _ = desk.request("GET", "/api/v1/itgt/no-such-resource")
    expect(status == 404, f"unknown path: {status}")
    status, _ = desk.request("DELETE", LANGUAGE, query="ChannelId=1")
    expect(status == 405, f"method not allowed: {status}")
    status, _ = desk.request("PUT", LANGUAGE, "{" + " " * (64 * 1024) + "}", "ChannelId=1")
    expect(status == 413, f"body over the limit: {status}")


def case_backend_down_then_back(desk):
    desk.stop_simulator()
    envelope(desk, "GET", CAPABILITY, 502, 1)
    envelope(desk, "GET", LANGUAGE, 502, 1, query="ChannelId=1")
    desk.start_simulator()
    status, _ = desk.request("GET", LANGUAGE, query="ChannelId=1")
    expect(status == 200, f"after the simulator came back: {status}")


def case_frame_osd(desk):
    path = "/api/v1/itgt/frame-osd"
    for business in ("TrafficDome", "Vlpr"):
        query = f"ChannelId=2&OverlayPicType=1&BusinessType={business}"
        status, before = desk.request("GET", path, query=query)
        expect(status == 200 and before["channelId"] == 2, f"{business}: {status} {before}")
        text = f"{business} road 7"
        envelope(desk, "PUT", path, 200, 0, json.dumps({"roadIdOSD": {"osdContent": text}}), query)
        _, after = desk.request("GET", path, query=query)
        expect(after["roadIdOSD"]["osdContent"] == text, f"{business} after PUT: {after}")
        before["roadIdOSD"]["osdContent"] = text
        expect(after == before, f"{business}: more than the text changed")
    envelope(desk, "GET", path, 500, -1, query="ChannelId=2&OverlayPicType=1&BusinessType=Face")


def case_detector_and_osd_capability(desk):
    path = "/api/v1/itgt/video-vehicle-detector"
    _, before = desk.request("GET", path, query="ChannelId=1")
    envelope(desk, "PUT", path, 200, 0, '{"rectInfo": {"x": 77}}', "ChannelId=1")
    _, after = desk.request("GET", path, query="ChannelId=1")
    before["rectInfo"]["x"] = 77
    expect(after == before, f"detector after PUT: {after}")
    status, matrix = desk.request("GET", "/api/v1/itgt/osd-capability", query="ChannelId=101")
    expect(status == 200 and len(matrix["Vlpr"]) == 36, f"osd capability: {status}")
    envelope(desk, "GET", "/api/v1/itgt/osd-capability", 404, 6, query="ChannelId=1")


def case_security_code_verify(desk):
    """Raw and form uploads; the upload file is gone afterwards whatever the verdict."""
    good = b"\xff\xd8" + b"picture" * 20 + b"\xff\xd9"
    # picture, form parts (0: the raw body), HTTP status, verdict
    rows = [(good, 0, 200, 4502),
            (b"\xff\xd8" + b"truncated" * 20, 0, 200, 4501),
            (b"\x89PNG\r\n\x1a\n" + b"png" * 20, 0, 400, None),
            (good, 1, 200, 4502),
            (good, 2, 400, None)]
    upload = os.path.join(desk.root, "upload.jpg")
    for picture, parts, status, verdict in rows:
        with open(upload, "wb") as upload_file:
            upload_file.write(picture)
        form = [["-F", f"picture{n}=@{upload};type=image/jpeg", "-F", "note=text"]
                for n in range(parts)]
        got_status, document = desk.request("POST", VERIFY, query="ChannelId=3",
                                            upload=None if parts else upload,
                                            curl=sum(form, []))
        expect(got_status == status, f"verify: HTTP {got_status} {document}")
        if verdict is not None:
            expect(document == {"channelId": 3, "verifyResult": verdict}, f"verify: {document}")
    leftovers = [name for name in os.listdir("/tmp") if name.startswith("talapi-upload-")]
    expect(not leftovers, f"uploads left behind: {leftovers}")


FRAME_OSD = "/api/v1/itgt/frame-osd"
FRAME_KEYS = ["roadIdOSD", "devIdOSD", "devIdOSD1", "dirIdOSD", "dirOSD", "customOSD",
              "locateOSD", "monitorOSD"]


def case_concurrent_writers(desk):
    """8 clients each change a different key of one frame OSD 50 times while 4 others write 4
    other instances; after every write each client reads its own value back: no update is lost
    (a read-merge-write that interleaves with another loses one)."""
    import threading
    failures = []

    def writer(number):
        if number < len(FRAME_KEYS):
            path, query = FRAME_OSD, "ChannelId=3&OverlayPicType=2&BusinessType=Vlpr"
        else:
            path, query = LANGUAGE, f"ChannelId={number - len(FRAME_KEYS) + 1}"
        for round_number in range(50):
            if path == FRAME_OSD:
                key, value = FRAME_KEYS[number], f"writer {number} round {round_number}"
                body, read = {key: {"osdContent": value}}, lambda doc: doc[key]["osdContent"]
            else:
                value = round_number
                body, read = {"mode": value}, lambda doc: doc["mode"]
            try:
                envelope(desk, "PUT", path, 200, 0, json.dumps(body), query)
                status, document = desk.request("GET", path, query=query)
                expect(status == 200 and read(document) == value,
                       f"round {round_number}: {read(document)!r}, wanted {value!r}")
            except Exception as error:  # collected and reported by the main thread
                failures.append(f"writer {number}: {error}")
                return

    threads = [threading.Thread(target=writer, args=(number,)) for number in range(12)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    expect(not failures, "; ".join(failures))
    expect(desk.server.poll() is None, "the server is gone")


def case_conditional_requests(desk):
    """A GET's ETag is the one a PUT's If-Match is compared with; If-None-Match gives 304; a PUT
    whose If-Match does not hold is 412 and leaves the record as it was, byte for byte (its
    tag is a hash of the record's bytes)."""
    for path, query, key in ((LANGUAGE, "ChannelId=4", "mode"),
                             (FRAME_OSD, "ChannelId=4&OverlayPicType=0&BusinessType=Vlpr",
                              "fgAlpha")):
        _, headers, _ = desk.exchange("GET", path, query=query)
        tag = headers["etag"]
        # If-None-Match, expected status
        for value, status in ((tag, 304), ("W/" + tag, 304), ("*", 304),
                              (f'"other", {tag}', 304), ('"other"', 200)):
            got, headers, text = desk.exchange("GET", path, query=query,
                                               curl=["-H", f"If-None-Match: {value}"])
            expect(got == status and headers.get("etag") == tag and (text == "") == (got == 304),
                   f"{path} If-None-Match {value}: {got} {headers}")
        # If-Match, expected status; the tag read first goes stale with the first write
        for number, (value, status) in enumerate(((f'"other"', 412), ("W/" + tag, 412),
                                                  (tag, 200), (tag, 412), ("*", 200))):
            _, before_headers, before = desk.exchange("GET", path, query=query)
            body = json.dumps({"picOSDInfo": {key: 100 + number}} if path == FRAME_OSD
                              else {key: 100 + number})
            got, document = desk.request("PUT", path, body, query,
                                         curl=["-H", f"If-Match: {value}"])
            _, after_headers, after = desk.exchange("GET", path, query=query)
            expect(got == status and document["ResponseStatus"]["StatusCode"] ==
                   (0 if status == 200 else -1), f"{path} If-Match {value}: {got} {document}")
            unchanged = after == before and after_headers["etag"] == before_headers["etag"]
            expect(unchanged == (status == 412), f"{path} If-Match {value}: {before} {after}")


def case_http_semantics(desk):
    """OPTIONS, HEAD and 405 with Allow; keep-alive and pipelining; no CORS and no client-claimed
    user without the options that enable them."""
    import http.client
    # method, path, status, Allow
    for method, path, status, allow in (
            ("OPTIONS", LANGUAGE, 204, "GET, HEAD, PUT, OPTIONS"),
            ("OPTIONS", VERIFY, 204, "POST, OPTIONS"),
            ("HEAD", VERIFY, 405, "POST, OPTIONS"),
            ("DELETE", LANGUAGE, 405, "GET, HEAD, PUT, OPTIONS")):
        got, headers, _ = desk.exchange(method, path, query="ChannelId=1",
                                        curl=["-H", "Origin: http://elsewhere.example"])
        expect(got == status and headers.get("allow") == allow and
               "access-control-allow-origin" not in headers, f"{method} {path}: {got} {headers}")
    connection = http.client.HTTPConnection("127.0.0.1", desk.port, timeout=20)
    answers, ports = [], set()
    for method in ("GET", "HEAD", "PUT", "GET"):
        connection.request(method, LANGUAGE + "?ChannelId=2",
                           body='{"mode": 1}' if method == "PUT" else None)
        response = connection.getresponse()
        answers.append((response.status, response.getheader("Content-Length"), response.read()))
        ports.add(connection.sock.getsockname()[1])
    expect(len(ports) == 1 and [a[0] for a in answers] == [200] * 4, f"keep-alive: {answers}")
    expect(answers[1][1] == answers[0][1] and answers[1][2] == b"", f"HEAD: {answers[:2]}")
    with socket.create_connection(("127.0.0.1", desk.port), timeout=20) as raw:
        get = f"GET {LANGUAGE}?ChannelId=2 HTTP/1.1\r\nHost: desk\r\n\r\n".encode()
        raw.sendall(get * 3)
        received = b""
        while received.count(b"HTTP/1.1 200") < 3 or not received.endswith(b"}"):
            received += raw.recv(65536)
    desk.request("GET", CAPABILITY, curl=["-u", "mallory:anything"])
    with open(os.path.join(desk.root, "run", "operation.log"), encoding="utf-8") as log:
        expect("mallory" not in log.read(), "a name the client claimed was logged")


def case_access(desk):
    """Digest authentication against a passwords file made with the server's own command; a
    viewer only reads; CORS headers on every answer, errors included; If-Match required."""
    passwords = os.path.join(desk.root, "passwords")
    for user, password in (("alice", "secret"), ("bob", "viewer-pw")):
        subprocess.run([desk.args.server, "--auth-file", passwords, "--set-password", user],
                       input=password + "\n", text=True, check=True)
    origin = "http://console.example"
    desk.restart_server(["--auth-file", passwords, "--viewer", "bob", "--cors-origin", origin,
                         "--require-if-match"])
    alice, bob = ["--digest", "-u", "alice:secret"], ["--digest", "-u", "bob:viewer-pw"]
    picture = os.path.join(desk.root, "picture.jpg")
    with open(picture, "wb") as out:
        out.write(b"\xff\xd8 picture \xff\xd9")
    put = ("PUT", LANGUAGE, '{"mode": 6}')
    # what, curl options, method, path, body, status
    for what, curl, (method, path, body), status in (
            ("no credentials", [], ("GET", LANGUAGE, None), 401),
            ("wrong password", ["--digest", "-u", "alice:wrong"], ("GET", LANGUAGE, None), 401),
            ("unknown user", ["--digest", "-u", "carol:secret"], ("GET", LANGUAGE, None), 401),
            ("user", alice, ("GET", LANGUAGE, None), 200),
            ("viewer reads", bob, ("GET", LANGUAGE, None), 200),
            ("viewer writes", bob + ["-H", "If-Match: *"], put, 403),
            ("viewer uploads", bob, ("POST", VERIFY, None), 403),
            ("PUT without If-Match", alice, put, 428),
            ("user writes", alice + ["-H", "If-Match: *"], put, 200)):
        upload = picture if path == VERIFY else None
        got, headers, _ = desk.exchange(method, path, body, "ChannelId=1", upload, curl=curl)
        expect(got == status and headers.get("access-control-allow-origin") == origin and
               headers.get("www-authenticate", "Digest").startswith("Digest"),
               f"{what}: {got} {headers}")
    with open(os.path.join(desk.root, "run", "operation.log"), encoding="utf-8") as log:
        writes = [line for line in log if "Put Sys BackLanguange" in line]
    expect(writes and all(line.count("alice[") == 2 for line in writes), f"log: {writes}")
    got, headers, _ = desk.exchange("OPTIONS", LANGUAGE, curl=[
        "-H", f"Origin: {origin}", "-H", "Access-Control-Request-Method: PUT",
        "-H", "Access-Control-Request-Headers: if-match"])
    expect(got in (200, 204) and headers.get("access-control-allow-origin") == origin and
           "If-Match" in headers.get("access-control-allow-headers", ""), f"preflight: {headers}")


def case_startup_errors(desk):
    other = ctypes.util.find_library("json-c")  # a library without the stages
    rows = [(["--module", "/nonexistent/liborbapiITGT.so"], "cannot load module"),
            (["--module", other], "missing stage RunGetITGTCapability"),
            (["--port", str(desk.port)], "cannot listen on"),
            (["--listen", "0.0.0.0"], "reachable from other machines"),
            (["--auth-file", "/nonexistent/passwords"], "cannot read the passwords file")]
    for options, message in rows:
        done = subprocess.run([desk.args.server, "--run-dir", os.path.join(desk.root, "run2")]
                              + options, env=desk.env, capture_output=True, text=True, timeout=30)
        expect(done.returncode == 1 and message in done.stderr, f"{options}: {done}")


def main(cases=None, desk_type=Desk):
    """Runs the case named on the command line: a case_<name> function of cases (a module's
    globals; this module's by default) on a fresh desk_type."""
    parser = argparse.ArgumentParser()
    for option in ("--server", "--simulator", "--module", "--api"):
        parser.add_argument(option, required=True)
    parser.add_argument("case")
    args = parser.parse_args()
    desk = desk_type(args)
    try:
        (cases or globals())["case_" + args.case](desk)
    finally:
        desk.close()
    print(f"{args.case}: passed")


if __name__ == "__main__":
    sys.exit(main())
