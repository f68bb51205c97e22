#!/usr/bin/python3
"""End-to-end cases: curl against the desk access server and the backend simulator, both started
on a private port and socket root. Every JSON response is validated against the API description.

usage: desk_e2e_test.py --server BIN --simulator BIN --module SO --api YAML CASE
"""
import argparse
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
        self.simulator = None
        self.start_simulator()
        self.server = self.launch([args.server, "--module", args.module, "--port", str(self.port),
                                   "--run-dir", os.path.join(self.root, "run")])
        with open(args.api) as api_file:
            self.api = yaml.safe_load(api_file)

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

    def request(self, method, path, body=None, query="", upload=None, kind=None):
        """curl's answer as (status, parsed JSON); the JSON is checked against the API. The body
        is a text, or the file named by upload (a picture unless kind says otherwise)."""
        url = f"http://127.0.0.1:{self.port}{path}" + (f"?{query}" if query else "")
        kind = kind or ("image/jpeg" if upload else "application/json")
        command = ["curl", "-sS", "-m", "20", "-X", method, "-o", "-", "-w", "\n%{http_code}",
                   "-H", f"Content-Type: {kind}", url]
        if body is not None or upload:
            command += ["--data-binary", "@" + (upload or "-")]
        done = subprocess.run(command, input=body, capture_output=True, text=True, check=True)
        text, status = done.stdout.rsplit("\n", 1)
        document = json.loads(text)
        self.validate(path, method.lower(), int(status), document)
        return int(status), document

    def validate(self, path, method, status, document):
        operation = self.api["paths"].get(path, {}).get(method, {})
        response = operation.get("responses", {}).get(str(status),
                                                       {"$ref": "#/components/responses/Status"})
        if "$ref" in response:
            response = self.api["components"]["responses"][response["$ref"].rsplit("/", 1)[1]]
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
    path = "/api/v1/itgt/security-code-verify"
    rows = [(b"\xff\xd8" + b"picture" * 20 + b"\xff\xd9", 200, 4502),
            (b"\xff\xd8" + b"truncated" * 20, 200, 4501),
            (b"\x89PNG\r\n\x1a\n" + b"png" * 20, 400, None)]
    for picture, status, verdict in rows:
        upload = os.path.join(desk.root, "upload.jpg")
        with open(upload, "wb") as upload_file:
            upload_file.write(picture)
        got_status, document = desk.request("POST", path, query="ChannelId=3", upload=upload)
        expect(got_status == status, f"verify: HTTP {got_status} {document}")
        if verdict is not None:
            expect(document == {"channelId": 3, "verifyResult": verdict}, f"verify: {document}")
    leftovers = [name for name in os.listdir("/tmp") if name.startswith("talapi-upload-")]
    expect(not leftovers, f"uploads left behind: {leftovers}")


def case_concurrent_requests(desk):
    """8 clients at once, mixed reads and writes of several resources; every answer right."""
    import threading
    failures = []

    def client(number):
        channel = 1 + number % 4
        for round_number in range(25):
            mode = number * 100 + round_number
            try:
                envelope(desk, "PUT", LANGUAGE, 200, 0, json.dumps({"mode": mode}),
                         f"ChannelId={channel}")
                status, _ = desk.request("GET", CAPABILITY)
                expect(status == 200, f"capability {status}")
                status, _ = desk.request("GET", "/api/v1/itgt/frame-osd",
                                         query=f"ChannelId={channel}&OverlayPicType=0"
                                               "&BusinessType=TrafficDome")
                expect(status == 200, f"frame OSD {status}")
            except Exception as error:  # collected and reported by the main thread
                failures.append(f"client {number}: {error}")
                return

    threads = [threading.Thread(target=client, args=(number,)) for number in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    expect(not failures, "; ".join(failures))
    expect(desk.server.poll() is None, "the server is gone")


def case_startup_errors(desk):
    common = os.path.join(os.path.dirname(desk.args.module), "..", "..", "common",
                          "libtalapicommon.so")
    rows = [(["--module", "/nonexistent/liborbapiITGT.so"], "cannot load module"),
            (["--module", common], "missing stage RunGetITGTCapability"),
            (["--port", str(desk.port)], "cannot listen on")]
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
