"""Waiting for something to be so, never for a time to pass."""

import time

POLL_SECONDS = 0.05
SECONDS = 60


class StepFailed(Exception):
    """Something that the tour waited for did not happen, or was not as it should be."""


def wait_until(what, condition, seconds=SECONDS):
    """Returns the condition's first true value; `what` completes "did not happen: ..."."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise StepFailed(f"did not happen within {seconds} s: {what}")
        time.sleep(POLL_SECONDS)


def check(what, holds):
    if not holds:
        raise StepFailed(f"not so: {what}")
