"""The road from nothing to the running game, with pointer and keys."""

import appearance
import game
import hands
from waiting import check, wait_until

NAME = "Mira"
PASSWORD = "seven green cubes"
PROFILE = "Workshop"
OLDER_VERSION = "0.1.0"
SELECTED = rf"{PROFILE}  \({OLDER_VERSION}\)"
EXITED = "Game exited with code 3 - see Console"


def click(stage, role, name):
    hands.click(stage.control(role, name))


def fill(stage, role, name, text):
    hands.fill(stage.control(role, name), text)


def open_the_window(stage):
    """The launcher opens, lists the versions and offers to sign in"""
    stage.open_launcher()
    stage.wait_status("2 versions available")
    stage.control("push button", "Register")
    check("PLAY is hidden before anyone signed in", not stage.has("push button", "PLAY"))
    stage.photograph("news")


def register(stage):
    """A new account signs in at once"""
    fill(stage, "text", "Username", NAME)
    fill(stage, "password text", "Password", PASSWORD)
    stage.photograph("sign-in-form")
    click(stage, "push button", "Register")
    stage.wait_status(f"Logged in as {NAME}")
    stage.control("push button", "Logout")
    stage.control("push button", "PLAY")
    stage.photograph("registered")


def create_a_profile(stage):
    """A profile picks the older version, the memory and an option for the JVM"""
    click(stage, "check box", "Profiles")
    click(stage, "push button", "New Profile")
    fill(stage, "text", "Name:", PROFILE)
    click(stage, "combo box", "Game version:")
    click(stage, "list item", OLDER_VERSION)
    fill(stage, "spin button", ".*Xms.*", "128")
    fill(stage, "spin button", ".*Xmx.*", "512")
    fill(stage, "text", "Extra JVM args:", "-Dtessellan.exit=3")
    stage.photograph("profile-editor")
    click(stage, "push button", "Save")
    stage.control("combo box", SELECTED)
    click(stage, "check box", "Profiles")
    stage.control("list item", f"{PROFILE}  -  {OLDER_VERSION}  Xmx 512 MB  -Dtessellan.exit=3")
    stage.photograph("profiles")


def play(stage):
    """One PLAY press brings the runtime and the game, and runs it"""
    check("no runtime is there yet", not (stage.game_dir / "runtime").exists())
    click(stage, "push button", "PLAY")
    launching = rf"{OLDER_VERSION} installed - launching\.\.\."
    downloading = r"Downloading Java runtime \(one-time\)\.\.\."
    # On a busy machine the short game is over before one looks again.
    launched = f"{launching}|{EXITED}"
    seen = stage.wait_status(f"{downloading}|{launched}")
    # On loopback the runtime may be there before one looks.
    if seen.startswith("Downloading"):
        stage.photograph("runtime-arrives", paint_seconds=0.02)
    stage.wait_status(launched, seconds=120)
    game.check_runtime(stage)
    game.wait_for_line(stage, "Tower: ##+.*", 0)
    stage.photograph("game-runs")
    stage.wait_status(EXITED, seconds=game.RUN_SECONDS)
    game.wait_for_line(stage, r"process exited \(code 3\)", 0)
    check_what_the_game_saw(stage)
    stage.photograph("game-exited")


def check_what_the_game_saw(stage):
    output = game.output_of_run(stage, 0)
    game.check_session_arguments(output, NAME, stage.server)
    runtime = stage.game_dir / "runtime/jre-11"
    for name, wanted in {
        "Initial heap": "128 MB",
        "Maximum heap": "512 MB",
        "JVM options": "-Xms128m -Xmx512m -Dtessellan.exit=3",
        "Java": str(runtime),
        "Working directory": str(stage.game_dir),
    }.items():
        seen = game.value(output, name)
        check(f'the game saw {name} "{seen}", meant was "{wanted}"', seen == wanted)


def play_again(stage):
    """The second PLAY downloads nothing"""
    before = game.installed_files(stage)
    with stage.backend_asleep():
        click(stage, "push button", "PLAY")
        stage.wait_status(f"Launched {OLDER_VERSION}")
        stage.photograph("second-play")
        stage.wait_status(EXITED, seconds=game.RUN_SECONDS)
    check("jar and runtime are the same files", game.installed_files(stage) == before)
    click(stage, "push button", "Console")
    wait_until("the console is hidden", lambda: not stage.has("text", "Game console"))


def read_the_news(stage):
    """A click on a headline opens the item"""
    click(stage, "check box", "News")
    click(stage, "list item", "Version 0.2.0 is here .*")
    stage.control("label", "Version 0.2.0 is here")
    stage.photograph("news-item")
    click(stage, "push button", "← Back")
    stage.control("list item", "Version 0.2.0 is here .*")


def look_at_the_settings(stage):
    """The settings show where the launcher looks and where it puts things"""
    click(stage, "check box", "Settings")
    for name, wanted in {
        "Manifest URL:": stage.server + "/manifest.json",
        "Auth server:": stage.server,
        "Java path:": "java",
        "Game directory:": str(stage.game_dir),
    }.items():
        seen = stage.control("text", name).text
        check(f'"{name}" shows "{seen}", meant was "{wanted}"', seen == wanted)
    stage.photograph("settings")
    click(stage, "push button", "Cancel")


def change_the_looks(stage):
    """A skin and a block model are uploaded and shown on the character"""
    click(stage, "check box", "Profile")
    stage.control("label", r"No skin uploaded \(default look\)\.")
    stage.control("label", r"No custom model \(default character\)\.")
    check("the page is painted", stage.is_painted(stage.control("label", stage.preview_says)))
    stage.photograph("account")
    hands.scroll_down(stage.control("label", stage.preview_says), notches=10)
    appearance.write_skin(stage.files / "skin.png")
    upload(stage, "Change skin...", stage.files / "skin.png")
    stage.control("label", r"Skin active\.")
    stage.photograph("account-with-skin")
    cubes = appearance.write_model(stage.files / "figure.bbmodel")
    upload(stage, "Change model...", stage.files / "figure.bbmodel")
    stage.control("label", rf"Custom model active \({cubes} cubes\)\.")
    stage.photograph("account-with-model")


def upload(stage, button, file):
    click(stage, "push button", button)
    stage.control("text", "File name:")
    hands.type_text(str(file))
    hands.press("Return")


def open_again(stage):
    """Opened again, the launcher still knows who plays"""
    stage.close_launcher()
    stage.open_launcher()
    stage.wait_status("2 versions available")
    stage.control("label", f".*{NAME}.*")
    stage.control("combo box", SELECTED)
    stage.photograph("opened-again")


def sign_out_and_in(stage):
    """Signing out hides PLAY; Return in the password field signs in"""
    click(stage, "push button", "Logout")
    stage.wait_status("Logged out")
    check("PLAY is hidden after signing out", not stage.has("push button", "PLAY"))
    stage.photograph("signed-out")
    fill(stage, "text", "Username", NAME)
    fill(stage, "password text", "Password", PASSWORD)
    hands.press("Return")
    stage.wait_status(f"Logged in as {NAME}")
    stage.control("push button", "PLAY")


def play_without_the_server(stage):
    """The server goes away; PLAY still starts what is installed"""
    stage.stop_backend()
    click(stage, "push button", "PLAY")
    stage.wait_status(f"Launched {OLDER_VERSION}")
    stage.wait_status(EXITED, seconds=game.RUN_SECONDS)


def open_offline(stage):
    """Opened without the server: cached versions and news, and the installed version plays"""
    stage.close_launcher()
    stage.open_launcher()
    stage.wait_status("Offline - using cached version list")
    stage.control("list item", "Version 0.2.0 is here .*")
    # A session that cannot be confirmed is dropped.
    stage.control("push button", "Login")
    stage.photograph("offline")
    click(stage, "check box", "Profiles")
    click(stage, "list item", f"{PROFILE}  -  .*")
    click(stage, "push button", "Play")
    stage.wait_status(EXITED, seconds=game.RUN_SECONDS)
    check("nobody is signed in", game.arguments(game.output_of_run(stage, 0)) == [])
    stage.photograph("offline-game-exited")
    stage.close_launcher()


STEPS = [
    open_the_window,
    register,
    create_a_profile,
    play,
    play_again,
    read_the_news,
    look_at_the_settings,
    change_the_looks,
    open_again,
    sign_out_and_in,
    play_without_the_server,
    open_offline,
]
