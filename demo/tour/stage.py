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
from gi.repository import GLib
from Xlib import X
from Xlib.protocol import event

from accessibility import Program
from waiting import SECONDS, StepFailed, check, wait_until

# Painting follows a change of state; the banner moves, so two equal pictures would never come.
PAINT_SECONDS = 0.25


class Stage:
    def __init__(self, arguments):
        self._launcher = arguments.launcher
        self._backend_pid = arguments.backend_pid
        self._shots = Path(arguments.shots)
        self._pictures = 0
        self._wayland = arguments.wayland
        self.preview_says = (
            r"3D preview needs OpenGL 3\.3\."
            if arguments.without_opengl
            else r"Drag to rotate, scroll to zoom\."
        )
        self.server = arguments.server
        self._process = None
        self._program = None
        # What the tour makes for uploading, at a place that every keyboard can spell.
        self.files = Path(os.environ["XDG_RUNTIME_DIR"])
        # Where the launcher keeps its files when nobody told it otherwise.
        self.game_dir = Path(os.environ["XDG_DATA_HOME"], "Tessellan/Tessellan Launcher/game")

    # The launcher ---------------------------------------------------------------------------

    def open_launcher(self):
        environment = dict(os.environ, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        # Its warnings belong to what the tour tells; the rest of stderr is the bus's chatter.
        self._process = subprocess.Popen([self._launcher], env=environment, stderr=sys.stdout)
        self._program = Program(self._process.pid)
        self.control("frame", "Tessellan Launcher .*")

    def give_keyboard(self):
        """What a window manager does for a new window; the tour's display has none."""
        display = Xlib.display.Display()
        _launcher_window(display).set_input_focus(X.RevertToParent, X.CurrentTime)
        display.sync()
        display.close()

    def close_launcher(self):
        """Asks the window to close, as the cross in a title bar does."""
        if self._wayland:
            # A compositor that shows one window, over everything, offers no cross.
            self._process.terminate()
            wait_until("the launcher ends", lambda: self._process.poll() is not None)
            return
        display = Xlib.display.Display()
        window = _launcher_window(display)
        close = [display.intern_atom("WM_DELETE_WINDOW"), 0, 0, 0, 0]
        protocols = display.intern_atom("WM_PROTOCOLS")
        window.send_event(
            event.ClientMessage(window=window, client_type=protocols, data=(32, close))
        )
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

    def control(self, role, name):
        """The one showing, enabled control of that role and name, as soon as there is one."""

        def only_one():
            self._check_alive()
            found = [each for each in self._program.find(role, name) if each.enabled]
            return found[0] if len(found) == 1 else None

        return wait_until(f'one {role} named "{name}" shows and is enabled', only_one)

    def has_focus(self, role, name):
        """Whether it has the keyboard. A list's current item says so even while it has not."""
        try:
            focused = [each for each in self._program.controls() if each.focused]
        except GLib.Error:
            return False
        elsewhere = [each for each in focused if each.role not in ("list", "list item")]
        return any(each.role == role and each.called(name) for each in elsewhere or focused)

    def settle(self):
        """An answer of the program: what it was sent before has been dealt with."""
        self._program.windows()

    def wait_status(self, pattern, seconds=SECONDS):
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
        _import(self._covered(), file)
        print(f"   picture {file.name}", flush=True)

    def pixels(self, control):
        """What a control looks like at the moment."""
        time.sleep(PAINT_SECONDS)
        return _import(control.box, "rgb:-")

    def is_painted(self, control):
        """Whether more than one colour is to be seen of it."""
        pixels = self.pixels(control)
        return any(pixels[i : i + 3] != pixels[:3] for i in range(0, len(pixels), 3))

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
        # None shows for the moment in which one is made anew.
        boxes = [window.box for window in wait_until("a window shows", self._program.windows)]
        left = min(box[0] for box in boxes)
        top = min(box[1] for box in boxes)
        right = max(box[0] + box[2] for box in boxes)
        bottom = max(box[1] + box[3] for box in boxes)
        return left, top, right - left, bottom - top


def _import(box, target):
    left, top, width, height = box
    crop = f"{width}x{height}+{left}+{top}"
    command = ["import", "-silent", "-window", "root", "-crop", crop, "+repage", target]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout


def _launcher_window(display):
    def is_it(window):
        name = window.get_wm_name() or ""
        return name.startswith("Tessellan Launcher") and window.get_attributes().map_state

    [window] = filter(is_it, display.screen().root.query_tree().children)
    return window
