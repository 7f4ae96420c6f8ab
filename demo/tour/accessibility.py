"""What is on the screen, as a screen reader sees it: every control by its role and name."""

import re

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402 (the version comes first)

# A program that is busy starting answers late; better an error than waiting for ever.
ANSWER_MS = 5000


def connect():
    Atspi.init()
    Atspi.set_timeout(ANSWER_MS, ANSWER_MS)


class Control:
    """One control that is showing. It is valid until the program destroys it."""

    def __init__(self, accessible):
        self._accessible = accessible

    @property
    def role(self):
        return self._accessible.get_role_name()

    @property
    def name(self):
        return self._accessible.get_name()

    @property
    def label(self):
        """The name of the label that belongs to it; the only name that a combo box has."""
        for relation in self._accessible.get_relation_set():
            if relation.get_relation_type() == Atspi.RelationType.LABELLED_BY:
                return relation.get_target(0).get_name()
        return ""

    @property
    def text(self):
        """What stands in it: the text of a field or a view, else the control's name."""
        content = self._accessible.get_text_iface()
        if content is None:
            return self.name
        return Atspi.Text.get_text(content, 0, Atspi.Text.get_character_count(content))

    @property
    def enabled(self):
        return self.has_state(Atspi.StateType.SENSITIVE)

    @property
    def focused(self):
        return self.has_state(Atspi.StateType.FOCUSED)

    @property
    def selected(self):
        return self.has_state(Atspi.StateType.SELECTED)

    @property
    def box(self):
        """Left, top, width and height on the screen."""
        extents = Atspi.Component.get_extents(self._accessible, Atspi.CoordType.SCREEN)
        return extents.x, extents.y, extents.width, extents.height

    @property
    def centre(self):
        left, top, width, height = self.box
        return left + width // 2, top + height // 2

    def called(self, pattern):
        return any(re.fullmatch(pattern, name) for name in (self.name, self.label))

    def has_state(self, state):
        try:
            return self._accessible.get_state_set().contains(state)
        except GLib.Error:
            return False  # it is gone, or was never more than a moment there

    def __str__(self):
        return f'{self.role} "{self.name}"'


class Program:
    """The accessibility tree of one running program."""

    def __init__(self, pid):
        self._pid = pid

    def windows(self):
        """Its showing top-level windows, dialogs and popups included."""
        root = self._root()
        return [Control(child) for child in _children(root) if _showing(child)] if root else []

    def controls(self):
        """Every showing control. What is inside a hidden one is not looked at."""
        pending = [window._accessible for window in self.windows()]
        while pending:
            accessible = pending.pop(0)
            yield Control(accessible)
            pending.extend(child for child in _children(accessible) if _showing(child))

    def find(self, role, name):
        """All showing controls of that role whose whole name or label matches the pattern."""
        try:
            return [each for each in self.controls() if each.role == role and each.called(name)]
        except GLib.Error:
            # The tree changed under the walk, or the program has not registered yet.
            return []

    def _root(self):
        desktop = Atspi.get_desktop(0)
        # Without a main loop no event ever corrects a cached answer.
        desktop.set_cache_mask(Atspi.Cache.NONE)
        for program in _children(desktop):
            if program.get_process_id() == self._pid:
                program.set_cache_mask(Atspi.Cache.NONE)
                return program
        return None


def _children(accessible):
    count = accessible.get_child_count()
    children = (accessible.get_child_at_index(index) for index in range(count))
    return [child for child in children if child is not None]


def _showing(accessible):
    return accessible.get_state_set().contains(Atspi.StateType.SHOWING)
