"""What the console says about the game's runs, and what must stand on the disk."""

import os
import re

from waiting import check, wait_until

RUN_SECONDS = 120


def console_text(stage):
    shown = stage.find("text", "Game console")
    return shown[0].text if shown else ""


def wait_for_line(stage, pattern, runs_before):
    """Waits for a line of the run that was started after `runs_before` had been started."""
    return wait_until(
        f'the console shows a line "{pattern}"',
        lambda: re.search(f"(?m)^{pattern}$", output_of_run(stage, runs_before)),
        RUN_SECONDS,
    )


def runs_started(stage):
    return len(re.findall(r"(?m)^> ", console_text(stage)))


def output_of_run(stage, index):
    runs = re.split(r"(?m)^(?=> )", console_text(stage))[1:]
    return runs[index] if index < len(runs) else ""


def arguments(output):
    return re.findall(r"(?m)^Argument \d+: (.*)$", output)


def value(output, name):
    found = re.search(rf"(?m)^{name}: (.*)$", output)
    return found[1] if found else None


def check_session_arguments(output, username, server):
    """The game was told who plays, in the order in which the launcher promises it."""
    seen = arguments(output)
    check(f"the game was given eight arguments: {seen}", len(seen) == 8)
    expected = ["--username", username, "--uuid", None, "--token", None, "--authserver", server]
    for given, wanted in zip(seen, expected):
        check(f'the game was given "{wanted}" as "{given}"', given == wanted if wanted else given)


def check_runtime(stage):
    """The runtime came out of its archive with the executables executable and the links links."""
    runtime = stage.game_dir / "runtime/jre-11"
    check("the runtime's java is executable", os.access(runtime / "bin/java", os.X_OK))
    link = runtime / "legal/java.management/LICENSE"
    check("a link in the runtime is still a link", link.is_symlink() and link.exists())
    leftovers = [each.name for each in runtime.parent.iterdir() if each != runtime]
    check(f"nothing is left beside the runtime: {leftovers}", not leftovers)


def installed_files(stage):
    """Identity and age of everything that PLAY may download: equal when nothing was."""
    files = [*stage.game_dir.glob("versions/*/*.jar"), stage.game_dir / "runtime/jre-11/bin/java"]
    return {
        str(file): (file.stat().st_ino, file.stat().st_mtime_ns, file.stat().st_ctime_ns)
        for file in files
    }
