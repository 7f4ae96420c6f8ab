"""Where the tour takes place: the launcher, the backend behind it, and the camera."""

import os
import re
import signal
import subprocess
import sys
import time
from contextlib import contextmanager
from pathlib import Path

import Xlib.display
from Xlib.protocol import event
from gi.repository import GLib

from accessibility import Program
from waiting import StepFailed, check, wait_until

# Painting follows a change of state; the banner moves, so two equal pictures would never come.
PAINT_SECONDS = 0.25


class Stage:
    def __init__(self, arguments):
        self._launcher = arguments.launcher
        self._backend_pid = arguments.backend_pid
        self._shots = Path(arguments.shots)
        self._pictures = 0
        self.server = arguments.server
        self._process = None
        self._program = None
        # What the tour makes for uploading.
        self.files = Path(os.environ["HOME"])
        # Where the launcher keeps its files when nobody told it otherwise.
        self.game_dir = Path(os.environ["XDG_DATA_HOME"], "Tessellan/Tessellan Launcher/game")

    # The launcher ---------------------------------------------------------------------------

    def open_launcher(self):
        environment = dict(os.environ, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        # Its warnings belong to what the tour tells; the rest of stderr is the bus's chatter.
        self._process = subprocess.Popen([self._launcher], env=environment, stderr=sys.stdout)
        self._program = Program(self._process.pid)
        self.control("frame", "Tessellan Launcher .*", seconds=60)

    def close_launcher(self):
        """Asks the window to close, as the cross in a title bar does."""
        display = Xlib.display.Display()
        root = display.screen().root
        [window] = [each for each in root.query_tree().children if _is_launcher(each)]
        close = [display.intern_atom("WM_DELETE_WINDOW"), 0, 0, 0, 0]
        protocols = display.intern_atom("WM_PROTOCOLS")
        window.send_event(event.ClientMessage(window=window, client_type=protocols, data=(32, close)))
        display.sync()
        display.close()
        wait_until("the launcher ends", lambda: self._process.poll() is not None)
        check("the launcher ends with exit code 0", self._process.returncode == 0)

    def kill_launcher(self):
        if self._process and self._process.poll() is None:
            self._process.kill()
            self._process.wait()

    # The backend ----------------------------------------------------------------------------

    def stop_backend(self):
        os.kill(self._backend_pid, signal.SIGTERM)
        wait_until("the backend stops", lambda: not Path(f"/proc/{self._backend_pid}/exe").exists())

    @contextmanager
    def backend_asleep(self):
        """Nothing that needs an answer of the backend gets anywhere in here."""
        os.kill(self._backend_pid, signal.SIGSTOP)
        try:
            yield
        finally:
            os.kill(self._backend_pid, signal.SIGCONT)

    # What is on the screen ------------------------------------------------------------------

    def find(self, role, name):
        return self._program.find(role, name)

    def has(self, role, name):
        return bool(self.find(role, name))

    def control(self, role, name, seconds=None):
        """The one showing, enabled control of that role and name, as soon as there is one."""

        def only_one():
            self._check_alive()
            found = [each for each in self._program.find(role, name) if each.enabled]
            return found[0] if len(found) == 1 else None

        limit = {"seconds": seconds} if seconds else {}
        return wait_until(f'one {role} named "{name}" shows and is enabled', only_one, **limit)

    def focused(self):
        """The control that has the keyboard."""
        found = [each for each in self._program.controls() if each.focused]
        return found[-1] if found else None

    def wait_status(self, pattern, seconds=30):
        """Waits until the status line, or another label, reads like the pattern."""

        def reads():
            self._check_alive()
            return self._program.find("label", pattern)

        return wait_until(f'the status line reads "{pattern}"', reads, seconds)[0].name

    def _check_alive(self):
        if self._process.poll() is not None:
            raise StepFailed(f"the launcher has ended with exit code {self._process.returncode}")

    # The camera -----------------------------------------------------------------------------

    def photograph(self, name, paint_seconds=PAINT_SECONDS):
        """Saves what the launcher's windows cover of the screen as the next picture."""
        self._pictures += 1
        file = self._shots / f"{self._pictures:02}-{name}.png"
        time.sleep(paint_seconds)
        left, top, right, bottom = self._covered()
        crop = f"{right - left}x{bottom - top}+{left}+{top}"
        subprocess.run(
            ["import", "-silent", "-window", "root", "-crop", crop, "+repage", file], check=True
        )
        print(f"   picture {file.name}", flush=True)
        return file

    def record_failure(self):
        """A picture and every showing control, for the one who has to find out why."""
        if self._process is None or self._process.poll() is not None:
            return
        try:
            for control in self._program.controls():
                print(f"   {control} {control.text!r}")
            self.photograph("failed")
        except (GLib.Error, ValueError, subprocess.CalledProcessError) as error:
            print(f"   no picture of the failure: {error}")

    def _covered(self):
        boxes = [window.box for window in self._program.windows()]
        return (
            min(left for left, _, _, _ in boxes),
            min(top for _, top, _, _ in boxes),
            max(left + width for left, _, width, _ in boxes),
            max(top + height for _, top, _, height in boxes),
        )


def _is_launcher(window):
    name = window.get_wm_name() or ""
    return name.startswith("Tessellan Launcher") and window.get_attributes().map_state
