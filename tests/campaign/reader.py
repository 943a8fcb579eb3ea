"""An independent reader: Python's own email parser, which also notes where each part stands.

The parser of the standard library decides what is a header, a part and a body; this module only
counts the characters that it takes in, so that every part is a slice of the bytes as they stand.
"""
import email.feedparser
import email.message
import email.policy
import re

MAX_NESTING = 150


class ReaderGaveUp(Exception):
    """The parser cannot follow the message; the text says why."""


class _CountedInput(email.feedparser.BufferedSubFile):
    """Lines, and how many characters of them were taken."""

    def __init__(self):
        super().__init__()
        self.taken = 0

    def push(self, data):
        # A CR alone ends no line of a mail (RFC 5322 section 2.3); the base class takes it for one.
        self.pushlines(re.findall(r"[^\n]*\n|[^\n]+\Z", data))

    def readline(self):
        line = super().readline()
        if isinstance(line, str):
            self.taken += len(line)
        return line

    def unreadline(self, line):
        super().unreadline(line)
        self.taken -= len(line)


class _Message(email.message.Message):
    """Reads a boundary that is folded, which the base class takes with its line break."""

    def get_boundary(self, failobj=None):
        boundary = super().get_boundary(failobj)
        return re.sub(r"\r?\n(?=[ \t])", "", boundary) if isinstance(boundary, str) else boundary


class Part:
    """One entity as the parser saw it; `start`, `body` and `end` are offsets in `data`."""

    def __init__(self, data, message, start):
        self.data = data
        self.message = message
        self.start = start
        self.body = start
        self.end = start
        self.found = []
        self.parent = None

    @property
    def type(self):
        """Without what no type may hold, as in "text/plain>"."""
        found = re.match(r"[\w!#$%&'*+^`{|}~.-]+/[\w!#$%&'*+^`{|}~.-]+",
                         self.message.get_content_type())
        return found.group() if found else "text/plain"

    @property
    def children(self):
        """The parts of a multipart, or the message in a message. Status blocks are no parts."""
        return [] if self.type == "message/delivery-status" else self.found

    @property
    def is_multipart(self):
        return self.type.startswith("multipart/") and bool(self.found)

    @property
    def header(self):
        return self.data[self.start:self.body]

    @property
    def content(self):
        """The body as it is transferred."""
        return self.data[self.body:self.end]

    def gaps(self):
        """What stands between the children: delimiter lines, preamble and epilogue."""
        edges = [self.body]
        for child in self.children:
            edges += [child.start, child.end]
        edges.append(self.end)
        return [self.data[edges[i]:edges[i + 1]] for i in range(0, len(edges), 2)]

    def fields(self):
        """The raw fields of the header, each with its folded lines, and what is none."""
        return _FIELDS.findall(self.header)

    def walk(self):
        stack = [self]
        while stack:
            part = stack.pop()
            yield part
            stack.extend(reversed(part.children))

    def path(self):
        numbers = []
        part = self
        while part.parent is not None:
            numbers.append(str(part.parent.children.index(part) + 1))
            part = part.parent
        return ".".join(["1", *reversed(numbers)])


_FIELDS = re.compile(rb"[^\n]*(?:\n[ \t][^\n]*)*\n|[^\n]+(?:\n[ \t][^\n]*)*\Z")


class _Parser(email.feedparser.FeedParser):
    """The standard parser with places."""

    def __init__(self, data):
        super().__init__(_Message, policy=email.policy.compat32)
        self._input = _CountedInput()
        self._data = data
        self._places = []
        self.root = None
        # The generator of the base class was made before the input was replaced, but it looks the
        # input up only when it runs.

    def _new_message(self):
        super()._new_message()
        part = Part(self._data, self._cur, self._input.taken)
        if self._places:
            if len(self._places) > MAX_NESTING:
                raise ReaderGaveUp(f"parts are nested more than {MAX_NESTING} deep")
            part.parent = self._places[-1]
            part.parent.found.append(part)
        else:
            self.root = part
        self._places.append(part)

    def _parse_headers(self, lines):
        super()._parse_headers(lines)
        self._places[-1].body = self._input.taken

    def _pop_message(self):
        self._places.pop().end = self._input.taken
        return super()._pop_message()


def read(data):
    """The root part of `data`."""
    parser = _Parser(data)
    try:
        parser.feed(data.decode("ascii", "surrogateescape"))
        parser.close()
    except RecursionError:
        raise ReaderGaveUp("parts are nested too deep") from None
    root = parser.root
    root.end = len(data)
    if root.body == 0 and _OLD_FIELD.match(data):
        raise ReaderGaveUp("it knows no blank between a field's name and the colon")
    return root


# RFC 5322 section 4.5 allows it.
_OLD_FIELD = re.compile(rb"[!-9;-~]+[ \t]+:")


def defects(root):
    """How often the parser found each kind of fault."""
    count = {}
    for part in root.walk():
        for defect in part.message.defects:
            name = type(defect).__name__
            count[name] = count.get(name, 0) + 1
    return count
