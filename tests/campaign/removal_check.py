"""Whether all attachments are gone, and everything else is there."""
import re

import facts
import trees


class RemovalCheck:
    """Checks one message without its attachments."""

    def run(self, before, after):
        self.notes = []
        self.faults = [f"part {part.path()} ({part.type}, {facts.file_name(part)!r}) is still there"
                       for part in after.walk() if facts.is_attachment(part)]
        remaining = {id(before)}
        self._mark(before, remaining)
        if not self._remains(before, remaining):
            self._check_emptied(before, after)
        else:
            self._compare(before, after, remaining)
        return self.faults

    @staticmethod
    def _mark(root, remaining):
        """Notes every part that is to stay: no attachment, and no multipart without a part."""
        order = []
        stack = [root]
        while stack:
            part = stack.pop()
            order.append(part)
            if not facts.is_attachment(part):
                stack.extend(part.children)
        for part in reversed(order):
            if facts.is_attachment(part):
                remaining.discard(id(part))
            elif not part.children or any(id(child) in remaining for child in part.children):
                remaining.add(id(part))
            else:
                remaining.discard(id(part))

    @staticmethod
    def _remains(part, remaining):
        return id(part) in remaining

    def _check_emptied(self, before, after):
        if after.children or after.type != "text/plain" or after.content.strip():
            self.faults.append(f"nothing was to stay, but the mail is {after.type} with "
                               f"{len(after.content)} bytes")
        kept = [field for field in before.fields() if field.strip(b"\r\n") and
                not field.lower().startswith((b"content-", b"mime-version"))]
        now = [field for field in after.fields() if field.strip(b"\r\n") and
               not field.lower().startswith((b"content-", b"mime-version"))]
        if kept != now:
            self.faults.append("fields changed that are not about the content")
        self.notes.append("nothing of the content stays")

    def _compare(self, before, after, remaining):
        pairs = [(before, after)]
        while pairs:
            was, now = pairs.pop()
            if was.header != now.header:
                self._fault(was, "its header changed")
            if not was.children and not now.children:
                if not trees.same(was.content, now.content):
                    self._fault(was, "its content changed")
                continue
            children = [part for part in was.children if id(part) in remaining]
            if len(now.children) == len(children) + 1 and self._is_doubled(was):
                empty = [part for part in now.children if not part.header.strip(b"\r\n") and
                         not part.content.strip(b"\r\n")]
                if len(empty) == 1:
                    self.notes.append("an empty part between two delimiter lines stays")
                    continue
            if len(children) != len(now.children):
                self._fault(was, f"{len(children)} of its parts were to stay, it has "
                                 f"{len(now.children)}")
                continue
            self._compare_gaps(was, now, children)
            pairs += zip(children, now.children)

    @staticmethod
    def _is_doubled(part):
        return any(re.search(rb"(?m)^(--[^\r\n]+)\r?\n\1", gap) for gap in part.gaps())

    def _compare_gaps(self, was, now, children):
        expected = was.gaps()
        stays = [was.children.index(part) for part in children]
        kept = [expected[index] for index in stays]
        if stays[0] != 0:
            boundary = str(was.message.get_boundary() or "").encode("ascii", "surrogateescape")
            delimiter = re.search(rb"(?m)^--" + re.escape(boundary), expected[0])
            preamble = expected[0][:delimiter.start()] if delimiter else b""
            kept[0] = preamble + kept[0].lstrip(b"\r\n")
        kept.append(expected[-1])
        for number, (old, new) in enumerate(zip(kept, now.gaps())):
            if not trees.same(old, new):
                self._fault(was, f"what stands before its part {number + 1} changed: "
                                 f"{old[:60]!r} is {new[:60]!r}")

    def _fault(self, part, text):
        self.faults.append(f"part {part.path()} ({part.type}): {text}")
