"""A person's hands: real pointer and key events at places on the screen."""

import subprocess

from waiting import wait_until

KEY_DELAY_MS = "8"


def _xdotool(*arguments):
    subprocess.run(["xdotool", *map(str, arguments)], check=True)


def click(control, times=1):
    """Clicks into the middle of a control, once it has stopped moving."""
    left, top, width, height = _settled_box(control)
    _xdotool("mousemove", left + width // 2, top + height // 2)
    _xdotool("click", "--repeat", times, "--delay", 40, 1)


def press(*keys):
    """Keys by their X names, one after the other: "Tab", "ctrl+a", "Return"."""
    _xdotool("key", "--delay", KEY_DELAY_MS, *keys)


def type_text(text):
    _xdotool("type", "--delay", KEY_DELAY_MS, "--", text)


def fill(field, text):
    """Clicks into a field and replaces what stands in it."""
    click(field)
    replace_text(text)


def replace_text(text):
    """Replaces what stands in the focused field."""
    press("ctrl+a", "BackSpace")
    type_text(text)


def scroll_down(control, notches):
    """Turns the wheel over a control."""
    _xdotool("mousemove", *control.centre)
    _xdotool("click", "--repeat", notches, "--delay", 40, 5)


def _settled_box(control):
    """A layout that still moves would take the control away from under the pointer."""
    seen = [None]

    def at_rest():
        seen.append(control.box)
        return seen[-1] == seen[-2] and seen[-1]

    return wait_until(f"{control} comes to rest", at_rest)
