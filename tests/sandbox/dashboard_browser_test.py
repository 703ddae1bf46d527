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
import select
import shutil
import subprocess
import sys
import tempfile
import time

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
    """The browser's DevTools protocol over --remote-debugging-pipe: JSON messages ended by NUL, read on the
    browser's fd 3 and written on its fd 4."""

    def __init__(self, command):
        to_browser, self.out = os.pipe()
        self.inp, from_browser = os.pipe()

        def in_child():
            # Copied out of the way first, so that neither end lands on the other's number.
            read, write = os.dup(to_browser), os.dup(from_browser)
            for source, target in ((read, 3), (write, 4)):
                os.dup2(source, target)
                os.set_inheritable(target, True)

        self.process = subprocess.Popen(command + ["--remote-debugging-pipe"], close_fds=False, preexec_fn=in_child,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.received = b""
        self.next_id = 0

    def call(self, method, session=None, **params):
        self.next_id += 1
        message = {"id": self.next_id, "method": method, "params": params}
        if session:
            message["sessionId"] = session
        os.write(self.out, json.dumps(message).encode() + b"\0")
        while True:  # events arrive in between; only the answer counts
            while b"\0" not in self.received:
                if not select.select([self.inp], [], [], PATIENCE)[0]:
                    fail(f"{method}: no answer from the browser")
                chunk = os.read(self.inp, 65536)
                if not chunk:
                    fail("the browser closed its DevTools pipe")
                self.received += chunk
            text, self.received = self.received.split(b"\0", 1)
            answer = json.loads(text)
            if answer.get("id") == self.next_id:
                if "error" in answer:
                    fail(f"{method}: {answer['error']}")
                return answer["result"]

    def evaluate(self, session, expression):
        result = self.call("Runtime.evaluate", session, expression=expression, returnByValue=True)
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
        devtools = DevTools(
            [args.chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--hide-scrollbars", "--window-size=1400,1000", f"--user-data-dir={os.path.join(work, 'profile')}",
             dashboard])
        browser = devtools.process

        def page():
            targets = devtools.call("Target.getTargets")["targetInfos"]
            return next((t["targetId"] for t in targets
                         if t["type"] == "page" and t["url"].startswith(dashboard.split("#")[0])), None)

        session = devtools.call("Target.attachToTarget", targetId=until("the dashboard page", page),
                                flatten=True)["sessionId"]
        until("the seeded reservations on the page",
              lambda: devtools.evaluate(session, "document.querySelectorAll('#reservations tbody tr').length") == 13)

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
              lambda: devtools.evaluate(session, shown))

        shot = devtools.call("Page.captureScreenshot", session, format="png")
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
