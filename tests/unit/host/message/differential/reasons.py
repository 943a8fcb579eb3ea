"""Why this library's tree differs from another reader's, and why it is right.

A reason is either exact, a step that brings two trees to a common form (it must then have changed
one of them), or coarse, a property of the message under which trees may differ in any way. Coarse
reasons are asked only when the exact ones do not suffice.
"""

import re
from collections import namedtuple

# type, kind, content (bytes); depth in the tree. Nodes stand in document order.
Node = namedtuple("Node", "depth type kind content encoding fields types")

NO_HEADER, NAMELESS, MISSING_BLANK_LINE = 1, 2, 3
MISSING_BOUNDARY, MISSING_PARTS, UNCLOSED = 4, 5, 6

READ_MESSAGES = ("message/rfc822", "message/global", "message/news")


def without_descendants(nodes, condition):
    """The nodes, those below one that meets the condition left out and that one made a leaf."""
    result, cut = [], None
    for node in nodes:
        if cut is not None and node.depth > cut:
            continue
        cut = None
        if condition(node):
            cut = node.depth
            node = node._replace(kind="leaf", content=b"")
        result.append(node)
    return result


def has_children(nodes, index):
    return index + 1 < len(nodes) and nodes[index + 1].depth > nodes[index].depth


def opaque_is_leaf(ours, theirs, case):
    return [n._replace(kind="leaf") if n.kind == "opaque" else n for n in ours], theirs


def partless_multiparts(ours, theirs, case):
    def plain(nodes):
        return [
            n._replace(kind="leaf", content=b"")
            if n.type.startswith("multipart/") and not has_children(nodes, i)
            else n
            for i, n in enumerate(nodes)
        ]

    return plain(ours), plain(theirs)


def empty_parts(ours, theirs, case):
    """Parts without header and content are left out, and empty roots of nested messages."""

    def kept(nodes):
        return [n for n in nodes if n.content or n.kind != "leaf" or n.type != "text/plain"]

    return kept(ours), kept(theirs)


def header_only_parts(ours, theirs, case):
    if len(ours) <= len(theirs):
        return ours, theirs
    return [n for n in ours if n.content or n.kind != "leaf" or n.fields == 0], theirs


def undivided_text(ours, theirs, case):
    if MISSING_BLANK_LINE not in case.defects or len(ours) != len(theirs):
        return ours, theirs
    return (
        [o._replace(content=t.content) if not t.content else o for o, t in zip(ours, theirs)],
        theirs,
    )


def headless_nested(ours, theirs, case):
    if len(ours) != len(theirs):
        return ours, theirs
    result = []
    for i, (o, t) in enumerate(zip(ours, theirs)):
        headless = o.fields == 0 and i > 0 and ours[i - 1].kind == "message"
        shorter = o.content.endswith(t.content)
        result.append(o._replace(content=t.content) if headless and shorter else o)
    return result, theirs


def cr_at_end(ours, theirs, case):
    if len(ours) != len(theirs):
        return ours, [t._replace(content=b"") if t.content == b"\r" else t for t in theirs]
    return ours, [
        t._replace(content=o.content) if t.content == o.content + b"\r" else t
        for o, t in zip(ours, theirs)
    ]


def two_bytes_for_a_line_break(ours, theirs, case):
    mixed = b"\r\n" in case.bytes and re.search(rb"[^\r]\n", case.bytes)
    if not mixed or len(ours) != len(theirs):
        return ours, theirs
    return ours, [
        t._replace(content=o.content) if o.content[:-1] == t.content and o.content else t
        for o, t in zip(ours, theirs)
    ]


def base64_ends(ours, theirs, case):
    if len(ours) != len(theirs):
        return ours, theirs
    return ours, [
        t._replace(content=o.content)
        if o.encoding == "base64" and o.content.startswith(t.content)
        else t
        for o, t in zip(ours, theirs)
    ]


def no_root(ours, theirs, case):
    if ours or NO_HEADER not in case.defects or len(theirs) != 1:
        return ours, theirs
    return ours, []


def other_messages(ours, theirs, case):
    """Parts of type message/* that are not read as messages."""

    def is_other(node):
        return node.type.startswith("message/") and node.type not in READ_MESSAGES

    def is_encoded(node):
        return node.type in READ_MESSAGES and node.kind == "opaque"

    places = {i for i, n in enumerate(ours) if is_encoded(n)}
    ours_cut = without_descendants(ours, lambda n: is_other(n) or is_encoded(n))
    # The same entities in the other tree: encoded messages are told by their order.
    encoded = [ours[i].type for i in sorted(places)]
    seen = [n.type in READ_MESSAGES and n.kind == "opaque" for n in ours if n.type in READ_MESSAGES]
    position = iter(seen)

    def is_encoded_there(node):
        return bool(encoded) and node.type in READ_MESSAGES and next(position, False)

    return ours_cut, without_descendants(theirs, lambda n: is_other(n) or is_encoded_there(n))


def last_line_break(ours, theirs, case):
    if UNCLOSED not in case.defects or len(ours) != len(theirs):
        return ours, theirs
    return ours, [
        t._replace(content=o.content)
        if t.content != o.content and re.fullmatch(re.escape(t.content) + rb"\r?\n", o.content)
        else t
        for o, t in zip(ours, theirs)
    ]


def odd_types(ours, theirs, case):
    if len(ours) != len(theirs):
        return ours, theirs
    return ours, [
        t._replace(type=o.type) if not re.fullmatch(r"[!#-'*+.0-9A-Z^-~-]+/[!#-'*+.0-9A-Z^-~-]+",
                                                   t.type, re.I) or o.type == "text/plain" else t
        for o, t in zip(ours, theirs)
    ]


def undecoded(ours, theirs, case):
    if len(ours) != len(theirs):
        return ours, theirs
    return ours, [
        t._replace(content=o.content)
        if re.search(rb"content-transfer-encoding[ \t]*:[ \t]*" + re.escape(o.encoding.encode())
                     + rb"[^\r\n]+", case.bytes, re.I) or o.encoding in ("x-uuencode", "uuencode")
        else t
        for o, t in zip(ours, theirs)
    ]


Exact = namedtuple("Exact", "name reader step why")
Coarse = namedtuple("Coarse", "name reader holds why")

EXACT = [
    Exact("no root", "both", no_root,
          "Without a header there is nothing to hang fields on; the bytes pass as they came."),
    Exact("CR at the end", "library", cr_at_end,
          "The CR in front of a delimiter is part of its line break, also when the file ends without "
          "a last newline."),
    Exact("last line break", "python", last_line_break,
          "No delimiter follows the last part of an unclosed multipart, so its last line break is "
          "content."),
    Exact("other message types", "python", other_messages,
          "Delivery reports, external bodies, partial and encoded messages are no RFC 5322 messages "
          "as they stand; taking them for such invents parts out of their text."),
    Exact("opaque", "both", opaque_is_leaf,
          "The same content; the kind only tells that it is a message nobody took apart."),
    Exact("multipart without parts", "both", partless_multiparts,
          "A multipart in which no part begins is content: as a leaf it can be read and scanned, "
          "in a preamble nobody looks."),
    Exact("words behind an encoding", "both", undecoded,
          "A comment or a stray byte behind the encoding's name does not unname it; uuencoded lines "
          "decode wherever the begin line stands."),
    Exact("nested message without header", "both", headless_nested,
          "Text in a nested message without header is its body; the library drops it where no blank "
          "line stands before it, Python drops first lines that look folded."),
    Exact("empty parts", "both", empty_parts,
          "Every delimiter line opens a part and every nested message has a root, also when nothing "
          "stands in it; handles and positions stay those of the bytes."),
    Exact("parts of a header only", "library", header_only_parts,
          "A part whose header is followed by the last delimiter at once is a part; the library "
          "forgets it when no newline ends the file."),
    Exact("text without blank line", "library", undivided_text,
          "Text that no blank line divides from its header is shown by readers; the library drops "
          "it, and what it drops nobody scans."),
    Exact("line breaks of two kinds", "library", two_bytes_for_a_line_break,
          "The library takes two bytes off in front of a delimiter even where the break is one LF."),
    Exact("end of base64", "both", base64_ends,
          "Readers differ over missing padding and over what follows padding; nothing that one of "
          "them decodes may stay unseen."),
    Exact("malformed type", "both", odd_types,
          "A type that is none means text/plain (RFC 2045 section 5.2); bytes that are no token end "
          "a subtype."),
]

def repeated_boundary(data):
    found = re.findall(rb'boundary="?([^"\r\n;]+)', data)
    return len(found) != len(set(found))


COARSE = [
    Coarse("lines that are no fields", "both", lambda c: NAMELESS in c.defects,
           "Python ends a header at the first line that is no field, so that fields behind it, the "
           "boundary among them, are lost; the library leaves such lines out. A blank line ends a "
           "header."),
    Coarse("no blank line", "library", lambda c: MISSING_BLANK_LINE in c.defects,
           "The library goes on reading fields in the first part of a multipart whose header no "
           "blank line ends."),
    Coarse("two types", "both", lambda c: any(n.types > 1 for n in c.ours),
           "Of two Content-Type fields the first counts, as for most readers."),
    Coarse("space before the colon", "python",
           lambda c: re.search(rb"(?m)^[!-9;-~]+[ \t]+:", c.bytes),
           "White space before the colon is obsolete, not wrong (RFC 5322 section 4.5); Python ends "
           "the header there."),
    Coarse("same boundary inside", "both", lambda c: repeated_boundary(c.bytes),
           "Of two open multiparts with one boundary the inner one takes the delimiters until it is "
           "closed, as its bytes came later."),
    Coarse("doubled CR", "library", lambda c: b"\r\r\n" in c.bytes,
           "A line of CRs alone is blank: programs that double every CR write such mail, and what "
           "follows is its body, not header."),
    Coarse("bare CR", "python", lambda c: re.search(rb"\r(?!\n)", c.bytes),
           "A CR alone ends no line (RFC 5322 section 2.3); Python ends one there. It is reported "
           "as a defect when it stands in a header."),
]
