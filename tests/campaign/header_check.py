"""Whether only the fields of a header changed that were to change."""
import email.errors
import email.header
import re

import trees

MAX_WORD_LINE = 76


def decoded_value(field, strictly=False):
    """The value of a raw field as the reader decodes it; None where it does not read.

    strictly: bytes above 127 outside encoded words, which declare no charset, have to be UTF-8."""
    value = field.partition(b":")[2]
    text = re.sub(rb"\r?\n(?=[ \t])", b"", value).strip(b" \t\r\n")
    try:
        pieces = email.header.decode_header(text.decode("ascii", "surrogateescape"))
    except (email.errors.HeaderParseError, ValueError):
        return None
    result = ""
    for piece, charset in pieces:
        raw = piece if isinstance(piece, bytes) else piece.encode("utf-8", "surrogateescape")
        plain = ["utf-8"] if strictly else ["utf-8", "latin-1"]
        for name in [charset, *_WIDER.get(charset, [])] if charset else plain:
            try:
                result += raw.decode(name)
                break
            except (LookupError, UnicodeError, ValueError):
                continue
        else:
            return None
    return result.replace("\0", "")


_WIDER = {"shift_jis": ["cp932"], "iso-2022-jp": ["iso2022_jp_ext"], "gb2312": ["gb18030"],
          "euc-kr": ["cp949"], "ks_c_5601-1987": ["cp949"], "big5": ["big5hkscs"],
          "iso-8859-1": ["cp1252"], "x-gbk": ["gb18030"]}


def without(root, name):
    """All bytes but those of the fields `name` of the root."""
    fields = [field for field in root.fields()
              if field.partition(b":")[0].strip().lower() != name]
    return b"".join(fields).rstrip(b"\r\n"), root.data[root.body:]


class TagCheck:
    """Checks one message with a tagged subject."""

    def __init__(self, tag, directly=False):
        self.tag = tag
        self.directly = directly

    def run(self, before, after):
        self.notes = []
        was = trees.fields_named(before, {b"subject"})
        now = trees.fields_named(after, {b"subject"})
        faults = []
        if len(now) != max(len(was), 1):
            return [f"{len(was)} subjects became {len(now)}"]
        if without(before, b"subject") != without(after, b"subject"):
            faults.append("more than the subject changed")
        for number, field in enumerate(now):
            faults += self._check_field(was[number] if was else b"Subject:", field, bool(was))
        return faults

    def _check_field(self, was, now, existed):
        if self.directly and existed:
            return self._check_direct(was, now)
        value = decoded_value(now)
        if value is None:
            return ["the tagged subject cannot be decoded"]
        faults = []
        if not value.startswith(self.tag if existed and value != self.tag.strip()
                                else self.tag.strip()):
            faults.append(f"the subject begins with {value[:40]!r}")
        old = decoded_value(was, True)
        if old is None:
            self.notes.append("the received subject does not say how it is to be decoded")
        elif existed and value[len(self.tag):].strip() != old.strip():
            if self._squeezed(value[len(self.tag):]) != self._squeezed(old):
                faults.append(f"the rest of the subject is {value[len(self.tag):]!r}, "
                              f"was {old!r}")
            else:
                self.notes.append("blanks in the subject differ")
        if b"=?" in now:
            faults += self._check_words(now)
        return faults

    def _check_direct(self, was, now):
        expected = self.tag.encode() + was.partition(b":")[2].rstrip(b"\r\n")
        value = now.partition(b":")[2].rstrip(b"\r\n")
        if value == expected:
            return []
        # A NUL ends a C string, a line of blanks the header for some readers.
        if b"".join(value.split()) == b"".join(expected.replace(b"\0", b"").split()):
            self.notes.append("blanks in the subject differ")
            return []
        return [f"the subject is {value!r}, not {expected!r}"]

    @staticmethod
    def _squeezed(text):
        return re.sub(r"\s+", "", text)

    @staticmethod
    def _check_words(field):
        faults = []
        for line in re.split(rb"\r?\n", field):
            if b"=?" in line and len(line) > MAX_WORD_LINE:
                faults.append(f"a line of {len(line)} bytes with encoded words")
        for word in re.findall(rb"=\?[^?\s]+\?[bBqQ]\?[^?\s]*\?=", field):
            if len(word) > 75:
                faults.append(f"an encoded word of {len(word)} bytes")
        return faults


class FieldCheck:
    """Checks that one field was set, and nothing else changed."""

    def __init__(self, name, value):
        self.name = name.lower().encode()
        self.value = value.encode()

    def run(self, before, after):
        self.notes = []
        now = trees.fields_named(after, {self.name})
        faults = []
        if not now or now[0].partition(b":")[2].strip() != self.value:
            faults.append(f"the field is {now!r}")
        if len(now) != max(1, len(trees.fields_named(before, {self.name}))):
            faults.append(f"there are {len(now)} fields of that name")
        if without(before, self.name) != without(after, self.name):
            faults.append("more than that field changed")
        return faults
