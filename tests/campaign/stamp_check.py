"""Whether a stamp is where it belongs, once, and nothing else changed."""
import re

import facts
import texts
import trees

MAX_LINE = 998
_OF_CONTENT = {b"content-type", b"content-transfer-encoding", b"content-md5", b"mime-version"}
_CHARSET = re.compile(r"(?i)((?:charset|encoding)\s*=\s*[\"']?\s*)[a-z0-9_.:+-]+")


def shown(part, text):
    return texts.shown_html(text) if part.type == "text/html" else text


def _is_insertion(before, after):
    """Whether one insertion turns `before` into `after`."""
    if len(after) < len(before):
        return False
    ahead = 0
    step = len(before)
    while step:  # the longest common beginning, by halves
        if ahead + step <= len(before) and before[ahead:ahead + step] == after[ahead:ahead + step]:
            ahead += step
        else:
            step //= 2
    return before[ahead:] == after[len(after) - (len(before) - ahead):]


class StampCheck:
    """Checks one stamped message. `faults` is empty when all is as it should be; `notes` says what
    is allowed but worth a look."""

    def __init__(self, lines, at_end, as_attachment=False):
        self.lines = lines
        self.at_end = at_end
        self.as_attachment = as_attachment

    def is_stamp(self, part):
        return (part.type == "text/plain" and not part.children and
                texts.lines_of(texts.readable(part)) == self.lines)

    def run(self, before, after):
        self.faults = []
        self.notes = []
        difference = trees.Comparison(before, after, self.is_stamp)
        self.faults += difference.faults
        self.doubled = difference.doubled
        if self.doubled:
            self.notes.append("two delimiter lines in a row: an empty part, which the reader skips")
        wanted = [] if self.as_attachment else facts.body_texts(before, self.at_end)
        touched = {id(was): (was, now) for was, now in difference.touched}
        beside = []
        for part in wanted:
            if id(part) in touched:
                self._check_text(*touched.pop(id(part)))
            else:
                beside.append(part)
        for was, _ in touched.values():
            self._fault(was, "was changed though the stamp does not belong there")
        self._check_added(difference.added, wanted, beside)
        return self.faults

    def _fault(self, part, text):
        self.faults.append(f"part {part.path()} ({part.type}): {text}")

    def _check_added(self, added, wanted, beside):
        expected = len(beside) if wanted else 1
        if len(added) != expected:
            what = ("; ".join(f"{part.path()} ({part.type}) has none" for part in beside)
                    or "no text of the body")
            self.faults.append(f"{len(added)} parts were added for the stamp, expected {expected} "
                               f"({what})")
        for part in beside:
            reason = self._why_beside(part)
            if reason:
                self.notes.append(f"stamp beside part {part.path()}: {reason}")
            else:
                if not self.doubled:
                    self._fault(part, "the stamp is not in it, and it is readable")
        if not wanted and not self.as_attachment:
            self.notes.append("stamp in a part of its own: the mail has no text")
        for part in added:
            if (facts.disposition(part) == "attachment") != self.as_attachment:
                self._fault(part, f"disposition {facts.disposition(part)!r}")
            self._check_form(part)

    @staticmethod
    def _why_beside(part):
        encoding = texts.transfer_encoding(part)
        if encoding not in ("7bit", "8bit", "binary", "quoted-printable", "base64", ""):
            return f"transfer encoding {encoding!r}"
        if encoding == "base64" and not re.fullmatch(
                rb"[A-Za-z0-9+/=\s]*", part.content):
            return "base64 with other bytes"
        if "\0" in texts.readable(part):
            return "it holds NUL bytes"
        if texts.decoded(part) is None:
            return f"its bytes do not read as {texts.charset_of(part) or 'what it declares'}"
        return ""

    def _check_form(self, part):
        longest = max(map(len, re.split(rb"\r?\n", part.content)), default=0)
        if longest > MAX_LINE:
            self._fault(part, f"a line of {longest} bytes")
        encoding = texts.transfer_encoding(part)
        if encoding in ("7bit", "base64", "quoted-printable") and not part.content.isascii():
            self._fault(part, f"bytes above 127 under {encoding}")

    def _check_text(self, before, after):
        self._check_form(after)
        if trees.fields_but(before, _OF_CONTENT) != trees.fields_but(after, _OF_CONTENT):
            self._fault(before, "fields changed that do not declare the text")
        if self._parameters(before) != self._parameters(after):
            self._fault(before, "another type or other parameters than the charset")
        was, now = texts.readable(before), texts.readable(after)
        if texts.decoded(before) is not None and texts.decoded(after) is None:
            self._fault(before, "its bytes do not read as declared any more")
            return
        count = texts.count_lines(shown(after, now), self.lines)
        if count != 1:
            self._fault(before, f"the stamp is in it {count} times")
            return
        self._check_rest(before, after, was, now)

    def _check_rest(self, before, after, was, now):
        if texts.decoded(before) is None:
            # No reader knows the characters: either the bytes stay, or they were UTF-8 all along.
            was, now = texts.content_of(before), texts.content_of(after)
            if texts.charset_of(after) != texts.charset_of(before):
                was, now = (text.decode("utf-8", "replace") for text in (was, now))
        elif before.type == "text/html":
            was, now = (_CHARSET.sub(r"\1x", text) for text in (was, now))
        if isinstance(was, str) and before.header != after.header:
            # Lines that ended differently end alike under another transfer encoding.
            was, now = (text.replace("\r\n", "\n") for text in (was, now))
        if not _is_insertion(was, now):
            self._fault(before, "the text around the stamp changed")
            return
        self._note_place(before, texts.lines_of(shown(after, texts.readable(after))))
        same_form = (before.header == after.header and
                     texts.transfer_encoding(before) != "base64")
        if same_form and not _is_insertion(*self._comparable(before, after)):
            self._fault(before, "the transferred bytes around the stamp changed")

    def _note_place(self, part, lines):
        size = len(self.lines)
        at = next(i for i in range(len(lines)) if lines[i:i + size] == self.lines)
        rest = lines[at + size:] if self.at_end else lines[:at]
        if rest:
            side = "behind" if self.at_end else "ahead of"
            self.notes.append(f"part {part.path()} ({part.type}): shown {side} the stamp: "
                              f"{' / '.join(rest)[:100]!r}")

    @staticmethod
    def _comparable(before, after):
        return before.content.rstrip(b"\r\n"), after.content.rstrip(b"\r\n")

    @staticmethod
    def _parameters(part):
        return part.type, sorted((name.lower(), str(value))
                                 for name, value in part.message.get_params([])[1:]
                                 if name and name.lower() != "charset")
