"""Somebody who releases mail from quarantine while it flows."""
import json
import os
import re
import subprocess
import threading

from mail_stack import wait_until

PAUSE = 0.3  # seconds between two looks


class Administrator:
    """Releases what comes into an area of `milter`, and tries again what fails. Nobody does anything
    inside `with administrator.absent:`."""

    def __init__(self, milter, area):
        self.milter = milter
        self.area = area
        self.absent = threading.Lock()
        self.faults = []
        self.left = set()  # numbers of what was released and could not be taken out
        self.found_nothing = 0  # looks, since the last one that found something
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()

    def run(self):
        while not self.ended.wait(PAUSE):
            with self.absent:
                self.look()

    def look(self):
        for number in list(self.left):
            if self.command("delete", "--yes", number) is not None:
                self.left.remove(number)
        listed = self.command("list", "--area", self.area, "--json")
        if listed is None:
            return
        numbers = {str(entry["number"]) for entry in json.loads(listed)}
        self.found_nothing = 0 if numbers else self.found_nothing + 1
        if numbers - self.left:
            self.command("release", *sorted(numbers - self.left))

    def command(self, *words):
        """What it answers, or None when it fails."""
        done = subprocess.run([os.environ["KAVI"], "quarantine", words[0], "--config",
                               str(self.milter.config), *words[1:]], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=120, check=False)
        if done.returncode == 0:
            return done.stdout
        self.faults.append(done.stderr)
        self.left |= set(re.findall(r"take it away with kavi quarantine delete (\d+)", done.stderr))
        return None

    def finish(self, patience):
        """Waits until all is released, and ends. Does nothing the second time."""
        if self.ended.is_set():
            return
        self.found_nothing = 0
        try:
            wait_until(lambda: self.found_nothing > 1, f"area {self.area} to become empty",
                       patience)
        except AssertionError as fault:
            raise AssertionError(f"{fault}: {self.faults[-3:]}") from None
        finally:
            self.stop()

    def stop(self):
        self.ended.set()
        self.thread.join()
