"""The messages of a folder: every file, those of an mbox one by one."""
import os
import re
import stat

_MBOX_PART = re.compile(rb"(?m)^From [^\n]*\d{4}[^\n]*\r?\n(?=[!-9;-~]+[ \t]*:)")


class Mail:
    """A message in a file of its own."""

    def __init__(self, name, path):
        self.name = name  # relative to the folder, with "#n" for the n-th of an mbox
        self.path = path


def files(folder, unreadable):
    """Paths of all files below `folder` in order; what is none, or cannot be listed, goes into
    `unreadable` as (path, reason)."""
    def cannot_list(error):
        unreadable.append((error.filename, error.strerror))
    for root, folders, names in os.walk(folder, onerror=cannot_list):
        folders.sort()
        for name in folders:
            if os.path.islink(os.path.join(root, name)):
                unreadable.append((os.path.join(root, name), "a link to a folder, not followed"))
        for name in sorted(names):
            path = os.path.join(root, name)
            try:
                regular = stat.S_ISREG(os.stat(path).st_mode)
            except OSError as error:
                unreadable.append((path, error.strerror))
                continue
            if regular:
                yield path
            else:
                unreadable.append((path, "not a regular file"))


def pieces(data):
    """The messages of an mbox; of any other file, the file."""
    if not data.startswith(b"From "):
        return [data]
    starts = [0] + [match.start() for match in _MBOX_PART.finditer(data)
                    if match.start() and re.search(rb"\n\r?\n\Z", data[:match.start()][-4:])]
    return [data[start:end] for start, end in zip(starts, [*starts[1:], len(data)])]


def mails(folder, staging, unreadable):
    """Every message of `folder`. Those that share a file with others are written to `staging`,
    where they stand until the caller removes them."""
    number = 0
    for path in files(folder, unreadable):
        name = os.path.relpath(path, folder)
        try:
            with open(path, "rb") as file:
                data = file.read() if file.read(5) == b"From " else b""
                if data:
                    data = b"From " + data
        except OSError as error:
            unreadable.append((path, error.strerror))
            continue
        divided = pieces(data) if data else []
        if len(divided) < 2:
            yield Mail(name, path)
            continue
        for index, piece in enumerate(divided, 1):
            number += 1
            staged = os.path.join(staging, f"{number}.eml")
            with open(staged, "wb") as file:
                file.write(piece)
            yield Mail(f"{name}#{index}", staged)
