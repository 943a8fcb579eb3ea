"""Two trees of parts side by side: which parts differ, and whether all that stands around them,
headers, delimiter lines, preambles and epilogues, is the same to the byte."""

_ENDS = (b"", b"\r\n", b"\n", b"\r")


def same(before, after):
    """Equal, but for a line break that a delimiter behind it brings or takes."""
    if before == after:
        return True
    longer, shorter = (before, after) if len(before) > len(after) else (after, before)
    return longer.startswith(shorter) and longer[len(shorter):] in _ENDS or (
        longer.endswith(shorter) and longer[:len(longer) - len(shorter)] in _ENDS)


def fields_named(part, names):
    return [field for field in part.fields()
            if field.partition(b":")[0].strip().lower() in names]


def fields_but(part, names):
    """The fields in order without those of `names`, and without the blank line."""
    return [field.rstrip(b"\r\n") for field in part.fields()
            if field.strip(b"\r\n") and field.partition(b":")[0].strip().lower() not in names]


class Comparison:
    """What became of a tree.

    touched: pairs of leaves that differ. added: new parts. faults: texts. doubled: whether a new
    part stands where two delimiter lines followed each other; the reader skips the empty part there.
    """

    def __init__(self, before, after, is_new):
        self.touched = []
        self.added = []
        self.faults = []
        self.doubled = False
        self._is_new = is_new
        self._pairs = [(before, after, True)]
        while self._pairs:
            self._compare(*self._pairs.pop())

    def _fault(self, part, text):
        self.faults.append(f"part {part.path()} ({part.type}): {text}")

    def _compare(self, before, after, with_header):
        if with_header and self._is_wrapper(before, after):
            self._unwrap(before, after)
            return
        # A part that ends in its header gets the blank line that it lacks.
        header_differs = (with_header and
                          before.header.rstrip(b"\r\n") != after.header.rstrip(b"\r\n"))
        if before.children and after.children:
            if header_differs:
                self._fault(before, "its header changed")
            self._compare_children(before, after)
        elif bool(before.children) != bool(after.children):
            self._fault(before, f"has other parts now ({after.type})")
        elif header_differs or not same(before.content, after.content):
            self.touched.append((before, after))

    def _is_wrapper(self, before, after):
        boundary = str(after.message.get_boundary() or "")
        return (after.type == "multipart/mixed" and len(after.children) == 2 and
                boundary.startswith("=_") and before.message.get_boundary() != boundary and
                sum(map(self._is_new, after.children)) == 1)

    def _unwrap(self, before, after):
        inner = next(part for part in after.children if not self._is_new(part))
        self.added += [part for part in after.children if self._is_new(part)]
        content = [field for field in fields_but(before, ())
                   if field.lower().startswith(b"content-")]
        inner_fields = fields_but(inner, ())
        if inner_fields != content and not (
                not content and [field.lower().split(b":")[0] for field in inner_fields] ==
                [b"content-type"]):
            self._fault(before, "its fields changed when it was wrapped")
        ours = {b"content-type", b"content-transfer-encoding", b"mime-version"}
        about_content = {field.partition(b":")[0].strip().lower() for field in content}
        if fields_but(before, ours | about_content) != fields_but(after, ours | about_content):
            self._fault(before, "fields changed when it was wrapped")
        self._compare(before, inner, False)

    def _compare_children(self, before, after):
        gaps, children = after.gaps(), list(after.children)
        new = [i for i, part in enumerate(children) if self._is_new(part)]
        if len(children) == len(before.children) + 1 and len(new) == 1:
            at = new[0]
            self.added.append(children.pop(at))
            delimiter = gaps.pop(1 if at == 0 else at)
            was = before.gaps()[at]
            if was.endswith(delimiter * 2) or was.endswith(delimiter + gaps[at]):
                self.doubled = True
                gaps[at] = was
        if len(children) != len(before.children):
            self._fault(before, f"had {len(before.children)} parts, has {len(children)}")
            return
        for number, (was, now) in enumerate(zip(before.gaps(), gaps)):
            closes = number == len(children) and not was.strip() and now.rstrip().endswith(b"--")
            if not same(was, now) and not closes:
                self._fault(before, f"what stands before its part {number + 1} changed: "
                                    f"{was[:60]!r} is {now[:60]!r}")
        self._pairs += [(was, now, True) for was, now in zip(before.children, children)]
