#!/usr/bin/env python3
"""The dashboard in headless Chromium, driven over the DevTools protocol with the standard library only.

Starts the background service with vlmsdk-pms (state in a temporary directory), opens the dashboard,
runs two commands with the tool, and waits until the page shows the requests and the new state. Saves a
screenshot. Exits 0 when everything appeared, 1 otherwise -- also when Chromium is missing.

    dashboard_browser_test.py --tool build/tools/vlmsdk-pms/vlmsdk-pms [--screenshot out.png]
"""
import argparse
import base64
import json
import os
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time
import urllib.request

PATIENCE = 30  # seconds any one thing may take


def fail(message):
    print("dashboard test: FAILED: " + message, file=sys.stderr)
    print("0 passed, 1 failed")
    sys.exit(1)


def until(what, probe, seconds=PATIENCE):
    """Polls probe() until it answers something true, at most `seconds`; fails with `what` otherwise."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = probe()
        if value:
            return value
        time.sleep(0.1)
    fail("gave up waiting for " + what)


class DevTools:
    """One page's DevTools connection: a minimal client websocket (RFC 6455) carrying JSON commands."""

    def __init__(self, url):
        match = re.match(r"ws://([^:/]+):(\d+)(/.*)", url)
        self.sock = socket.create_connection((match.group(1), int(match.group(2))), timeout=PATIENCE)
        key = base64.b64encode(os.urandom(16)).decode()
        self.sock.sendall((f"GET {match.group(3)} HTTP/1.1\r\nHost: {match.group(1)}:{match.group(2)}\r\n"
                           f"Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: {key}\r\n"
                           "Sec-WebSocket-Version: 13\r\n\r\n").encode())
        head = b""
        while b"\r\n\r\n" not in head:
            chunk = self.sock.recv(1)
            if not chunk:
                fail("DevTools closed the websocket handshake")
            head += chunk
        if b" 101 " not in head.split(b"\r\n")[0]:
            fail("DevTools refused the websocket: " + head.decode(errors="replace"))
        self.next_id = 0

    def _read(self, count):
        data = b""
        while len(data) < count:
            chunk = self.sock.recv(count - len(data))
            if not chunk:
                fail("DevTools closed the connection")
            data += chunk
        return data

    def _send_frame(self, opcode, payload):
        header = bytes([0x80 | opcode])
        if len(payload) < 126:
            header += bytes([0x80 | len(payload)])
        elif len(payload) < 65536:
            header += bytes([0x80 | 126]) + struct.pack(">H", len(payload))
        else:
            header += bytes([0x80 | 127]) + struct.pack(">Q", len(payload))
        mask = os.urandom(4)
        self.sock.sendall(header + mask + bytes(b ^ mask[i % 4] for i, b in enumerate(payload)))

    def _message(self):
        parts = b""
        while True:
            first, second = self._read(2)
            length = second & 0x7F
            if length == 126:
                length = struct.unpack(">H", self._read(2))[0]
            elif length == 127:
                length = struct.unpack(">Q", self._read(8))[0]
            mask = self._read(4) if second & 0x80 else None
            payload = self._read(length)
            if mask:
                payload = bytes(b ^ mask[i % 4] for i, b in enumerate(payload))
            opcode = first & 0x0F
            if opcode == 8:
                fail("DevTools closed the websocket")
            if opcode == 9:
                self._send_frame(10, payload)
                continue
            parts += payload
            if first & 0x80:
                return json.loads(parts)

    def call(self, method, **params):
        self.next_id += 1
        self._send_frame(1, json.dumps({"id": self.next_id, "method": method, "params": params}).encode())
        while True:  # events arrive in between; only the answer counts
            message = self._message()
            if message.get("id") == self.next_id:
                if "error" in message:
                    fail(f"{method}: {message['error']}")
                return message["result"]

    def evaluate(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        return result.get("result", {}).get("value")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True, help="the vlmsdk-pms program")
    parser.add_argument("--chromium", default=shutil.which("chromium") or shutil.which("chromium-browser"))
    parser.add_argument("--screenshot", default="sandbox-dashboard.png")
    args = parser.parse_args()
    if not args.chromium:
        fail("no chromium on PATH (scripts/setup.sh --tests installs it)")

    work = tempfile.mkdtemp(prefix="dashboard-test-")
    environment = {k: v for k, v in os.environ.items() if not k.startswith("VLMSDK_PMS_")}
    environment["XDG_STATE_HOME"] = os.path.join(work, "state")
    browser = None

    def tool(*arguments):
        run = subprocess.run([args.tool, *arguments], env=environment, capture_output=True, text=True,
                             timeout=PATIENCE)
        if run.returncode != 0:
            fail(f"vlmsdk-pms {' '.join(arguments)} exited {run.returncode}: {run.stderr}")
        return run.stdout

    try:
        started = time.monotonic()
        dashboard = re.search(r"dashboard: (\S+)", tool("sandbox", "start", "--port", "0")).group(1)
        profile = os.path.join(work, "profile")
        browser = subprocess.Popen(
            [args.chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--hide-scrollbars", "--window-size=1400,1000", f"--user-data-dir={profile}",
             "--remote-debugging-port=0", dashboard],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        port_file = os.path.join(profile, "DevToolsActivePort")
        port = until("Chromium's DevTools port", lambda: os.path.exists(port_file) and
                     open(port_file).read().split("\n")[0].strip())
        direct = urllib.request.build_opener(urllib.request.ProxyHandler({}))

        def page():
            try:
                targets = json.load(direct.open(f"http://127.0.0.1:{port}/json/list", timeout=5))
            except OSError:
                return None
            return next((t["webSocketDebuggerUrl"] for t in targets
                         if t.get("type") == "page" and t.get("url", "").startswith(dashboard.split("#")[0])), None)

        devtools = DevTools(until("the dashboard page", page))
        until("the seeded reservations on the page",
              lambda: devtools.evaluate("document.querySelectorAll('#reservations tbody tr').length") == 13)

        tool("create", "--confirmation", "HLI-48213", "--venue", "ven_harborlight", "--last-name", "Quillfeather")
        tool("checkin", "rsv_0001")
        tool("charge", "rsv_0001", "itm_breakfast:2", "itm_parking")
        tool("sandbox", "fault", "add", "--status", "503", "--retry-after", "1", "--method", "GET",
             "--path", "guest/reservations/rsv_0002", "--times", "2")
        shown = """(() => {
            const row = document.querySelector('#reservations tr[data-id="rsv_0001"]');
            const checkin = document.querySelector('#requests tr[data-path="/guest/reservations/rsv_0001/mobile_checkin"]');
            return row && row.querySelector('.status').textContent === 'in house'
                && row.querySelector('.outstanding').textContent === '61.00 USD'
                && checkin && checkin.dataset.status === '200'
                && document.querySelector('#faults tbody').textContent.includes('status 503 (Retry-After 1)')
                && document.querySelector('#connection').textContent === 'live';
        })()"""
        until("the requests, the guest in house with the charges, and the fault on the page",
              lambda: devtools.evaluate(shown))

        shot = devtools.call("Page.captureScreenshot", format="png")
        with open(args.screenshot, "wb") as out:
            out.write(base64.b64decode(shot["data"]))
        print(f"dashboard test: the page showed the request and the new state; screenshot in {args.screenshot} "
              f"({time.monotonic() - started:.1f} s)")
        print("1 passed, 0 failed")
    finally:
        if browser:
            browser.terminate()
            try:
                browser.wait(timeout=10)
            except subprocess.TimeoutExpired:
                browser.kill()
        subprocess.run([args.tool, "sandbox", "stop"], env=environment, capture_output=True, timeout=PATIENCE)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
