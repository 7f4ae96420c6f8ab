"""Drives the launcher as a person would and photographs every step.

Needs a display and a D-Bus session of its own; scripts/demo --headless gives it both.
"""

import argparse
import subprocess
import sys
import time

import accessibility
import by_keyboard
import by_pointer
from stage import Stage

BUS_LAUNCHER = "/usr/libexec/at-spi-bus-launcher"


def parse_arguments():
    parser = argparse.ArgumentParser(prog="tour", description=__doc__)
    parser.add_argument("--launcher", required=True, help="the launcher's executable")
    parser.add_argument("--server", required=True, help="the backend's origin")
    parser.add_argument("--backend-pid", required=True, type=int)
    parser.add_argument("--shots", required=True, help="directory for the pictures")
    parser.add_argument("--keyboard", action="store_true", help="leave the pointer alone")
    parser.add_argument("--wayland", action="store_true", help="the window has no place on X")
    parser.add_argument("--without-opengl", action="store_true", help="there is no preview")
    return parser.parse_args()


def run(steps, stage):
    for number, step in enumerate(steps, start=1):
        started = time.monotonic()
        print(f"-- {number}/{len(steps)} {step.__doc__}", flush=True)
        step(stage)
        print(f"   done in {time.monotonic() - started:.1f} s", flush=True)


def main():
    arguments = parse_arguments()
    # Before the launcher, which looks for the bus once, when it starts.
    bus = subprocess.Popen([BUS_LAUNCHER, "--launch-immediately"], stdout=subprocess.DEVNULL)
    accessibility.connect()
    stage = Stage(arguments)
    try:
        run(by_keyboard.STEPS if arguments.keyboard else by_pointer.STEPS, stage)
    except Exception as error:
        print(f"error: {error}", flush=True)
        stage.record_failure()
        return 1
    finally:
        stage.kill_launcher()
        bus.terminate()
        bus.wait(timeout=10)
    return 0


sys.exit(main())
