"""Starts the launcher, tries to sign in, and reads what it says about a missing TLS library."""

import argparse
import re
import subprocess
import sys

import accessibility
import hands
from stage import Stage
from waiting import check

launcher, shots = sys.argv[1:]
bus = subprocess.Popen(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately"])
accessibility.connect()
stage = Stage(
    argparse.Namespace(
        launcher=launcher, backend_pid=0, shots=shots, server="", wayland=False, without_opengl=False
    )
)
try:
    for _ in range(2):
        stage.open_launcher()
        said = [stage.wait_status(r"Offline - .*")]
        hands.fill(stage.control("text", "Username"), "Mira")
        hands.fill(stage.control("password text", "Password"), "seven green cubes")
        for button in ("Login", "Register", "Login"):
            hands.click(stage.control("push button", button))
            said.append(stage.wait_status(r".* failed: .*"))
        stage.photograph("without-tls")
        stage.kill_launcher()
        print("\n".join(said), flush=True)
        check("each of them names the cause", all("TLS initialization failed" in text for text in said))
finally:
    stage.kill_launcher()
    bus.terminate()
    bus.wait(timeout=10)
