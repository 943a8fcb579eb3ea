"""A temporary folder and servers that are gone at the end, however the end comes."""
import ctypes
import os
import pathlib
import shutil
import signal
import tempfile
import time

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
PR_SET_CHILD_SUBREAPER = 36
# Seconds that what runs gets to end by itself: the slowest server takes five to stop. Who was
# interrupted, or has failed, waits less long.
PATIENCE = 15
IMPATIENCE = 2


class Interrupted(BaseException):
    """A signal asked this program to end."""

    def __init__(self, number):
        super().__init__(signal.Signals(number).name)
        self.number = number


# Whether a signal still interrupts: there is one interruption only, so that nothing cuts the end
# short. The handler stays: a signal under way while it changes is something that Python complains of.
_armed = False


def _interrupt(number, _frame):
    global _armed
    if _armed:
        _armed = False
        raise Interrupted(number)


def _arm():
    global _armed
    _armed = True
    for number in SIGNALS:
        signal.signal(number, _interrupt)


def _disarm():
    global _armed
    _armed = False


def _children(pid):
    try:
        return [int(word)
                for task in pathlib.Path(f"/proc/{pid}/task").iterdir()
                for word in (task / "children").read_text().split()]
    except OSError:  # it has ended
        return []


def descendants():
    """The processes that came of this one and still run."""
    found = []
    todo = [os.getpid()]
    while todo:
        new = _children(todo.pop())
        found += new
        todo += new
    return found


def end_descendants(patience):
    """Asks every process that came of this one to end, and after `patience` seconds makes it.
    \\return how many would not."""
    asked = set()
    begin = time.monotonic()
    while True:
        while True:  # those that have ended
            try:
                if os.waitpid(-1, os.WNOHANG)[0] == 0:
                    break
            except ChildProcessError:
                break
        running = descendants()
        late = time.monotonic() - begin
        if not running or late > patience + 5:
            return len(running)
        for pid in running:
            if pid not in asked or late > patience:
                asked.add(pid)
                try:
                    os.kill(pid, signal.SIGKILL if late > patience else signal.SIGTERM)
                except ProcessLookupError:
                    pass
        time.sleep(0.02)


def run_cleanly(prefix, body):
    """Calls `body` with a new folder that everybody may look into (Postfix has to find its way
    through), and answers what it does. Whether it returns, raises, or a SIGINT, SIGTERM or SIGHUP
    comes (then Interrupted is raised): at the end no process that came of this one runs, also none
    that made itself a daemon, and the folder is gone. Only a SIGKILL prevents that. To be called
    once, from the main thread; afterwards these signals are blocked, as the program is about to end."""
    folder = None
    patience = IMPATIENCE
    try:
        try:
            # Orphans of our children become our own.
            if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
                raise OSError(ctypes.get_errno(), "prctl")
            _arm()
            before = signal.pthread_sigmask(signal.SIG_BLOCK, SIGNALS)
            folder = pathlib.Path(tempfile.mkdtemp(prefix=prefix))
            signal.pthread_sigmask(signal.SIG_SETMASK, before)
            folder.chmod(0o755)
            result = body(folder)
            patience = PATIENCE
            return result
        finally:
            _disarm()
    finally:  # from here on nothing interrupts, also when something did in the line above
        _disarm()
        left = end_descendants(patience)
        if folder is not None:
            shutil.rmtree(folder)
        # Python takes its handlers away while it ends: a late signal would still change the status.
        signal.pthread_sigmask(signal.SIG_BLOCK, SIGNALS)
        if left:
            raise AssertionError(f"{left} processes would not end")
