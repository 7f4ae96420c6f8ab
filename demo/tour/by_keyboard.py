"""The same road without a pointer: Tab and the keys, and the focus to be seen at every stop."""

import os
from pathlib import Path

import game
import hands
from waiting import StepFailed, check, wait_until

NAME = "Juno"
PASSWORD = "nine blue cubes"
PROFILE = "Keys"
OLDER_VERSION = "0.1.0"
EXITED = "Game exited with code 3 - see Console"
# More than the window has stops.
MOST_TABS = 60


def go_to(stage, role, name, shown_by=None):
    """Presses Tab until that control has the keyboard, and looks whether one can see it.

    A list shows it by its frame, while the keyboard is with one of its items.
    """
    shown_by = stage.control(*(shown_by or (role, name)))
    for _ in range(MOST_TABS):
        if stage.has_focus(role, name):
            check_focus_shows(stage, role, name, shown_by)
            return
        hands.press("Tab")
        stage.settle()
    raise StepFailed(f'Tab never came to the {role} "{name}"')


def check_focus_shows(stage, role, name, shown_by):
    """A control looks different once the keyboard has gone on to the next one."""
    with_focus = stage.pixels(shown_by)
    hands.press("Tab")
    wait_until(f"Tab leaves {shown_by}", lambda: not stage.has_focus(role, name))
    without_focus = stage.pixels(shown_by)
    hands.press("shift+Tab")
    wait_until(f"Tab comes back to {shown_by}", lambda: stage.has_focus(role, name))
    check(f"the focus shows on {shown_by}", with_focus != without_focus)


def push(stage, role, name, picture=None):
    go_to(stage, role, name)
    if picture:
        stage.photograph(picture)
    hands.press("space")


def enter(stage, role, name, text):
    go_to(stage, role, name)
    hands.replace_text(text)


def open_the_window(stage):
    """The launcher opens"""
    stage.open_launcher()
    stage.wait_status("2 versions available")
    stage.give_keyboard()


def register(stage):
    """A new account signs in at once"""
    enter(stage, "text", "Username", NAME)
    enter(stage, "password text", "Password", PASSWORD)
    push(stage, "push button", "Register", "register")
    stage.wait_status(f"Logged in as {NAME}")


def create_a_profile(stage):
    """A profile picks the older version, the memory and an option for the JVM"""
    push(stage, "check box", "Profiles", "profiles-button")
    push(stage, "push button", "New Profile", "new-profile")
    enter(stage, "text", "Name:", PROFILE)
    go_to(stage, "combo box", "Game version:")
    hands.press("Down")
    stage.control("combo box", OLDER_VERSION)
    stage.photograph("version")
    enter(stage, "spin button", "Xms", "128")
    enter(stage, "spin button", "Xmx", "512")
    stage.photograph("memory")
    enter(stage, "text", "Extra JVM args:", "-Dtessellan.exit=3")
    push(stage, "push button", "Save", "save-profile")
    stage.control("combo box", rf"{PROFILE}  \({OLDER_VERSION}\)")


def play(stage):
    """PLAY runs the game to its end"""
    push(stage, "push button", "PLAY", "play")
    stage.wait_status(EXITED, seconds=game.RUN_SECONDS)
    check("the keyboard came back to PLAY", stage.has_focus("push button", "PLAY"))
    output = game.output_of_run(stage, 0)
    game.check_session_arguments(output, NAME, stage.server)
    check("the profile's option reached the JVM", "-Dtessellan.exit=3" in output)
    stage.photograph("game-exited")


def read_the_news(stage):
    """Return opens the chosen news item"""
    push(stage, "check box", "News", "news-button")
    go_to(stage, "list item", "Version 0.2.0 is here .*", shown_by=("list", "News"))
    hands.press("Down")
    stage.photograph("news-list")
    hands.press("Return")
    stage.control("label", "Welcome to Tessellan")
    push(stage, "push button", "← Back", "news-item")


def change_a_setting(stage):
    """The Java path is set to the runtime's own java, and stored"""
    java = str(stage.game_dir / "runtime/jre-11/bin/java")
    push(stage, "check box", "Settings", "settings-button")
    enter(stage, "text", "Java path:", java)
    stage.photograph("java-path")
    push(stage, "push button", "Save", "save-settings")
    stage.control("list item", "Welcome to Tessellan .*")
    stored = Path(os.environ["XDG_CONFIG_HOME"], "Tessellan/Launcher.conf")
    wait_until("the setting is stored", lambda: f"javaPath={java}" in stored.read_text())


def sign_out(stage):
    """Logout brings the sign-in form back"""
    push(stage, "push button", "Logout", "logout")
    stage.wait_status("Logged out")
    stage.control("push button", "Login")
    stage.photograph("signed-out")
    stage.close_launcher()


STEPS = [
    open_the_window,
    register,
    create_a_profile,
    play,
    read_the_news,
    change_a_setting,
    sign_out,
]
