"""Messages that are hard on a parser, each with and without its last line break."""


def _multipart(parts, boundary=b"b", line=b"\r\n"):
    head = b"From: a@example.com" + line + b"Content-Type: multipart/mixed; boundary=" + boundary
    return head + line * 2 + parts + b"--" + boundary + b"--" + line


def _deep_messages(depth):
    return b"Content-Type: message/rfc822\r\n\r\n" * depth + b"Subject: innermost\r\n\r\nx\r\n"


def _nested_multiparts(count, filler):
    opening = b"".join(
        b"Content-Type: multipart/mixed; boundary=b%d\r\n\r\n%s--b%d\r\n" % (i, filler, i)
        for i in range(count))
    closing = b"".join(b"--b%d--\r\n" % i for i in reversed(range(count)))
    return opening + b"\r\ninnermost\r\n" + closing


def _with_endings():
    simple = b"From: a@example.com\nSubject: x\n\none\ntwo\n"
    yield "lf", simple
    yield "crlf", simple.replace(b"\n", b"\r\n")
    yield "mixed", b"From: a@example.com\r\nSubject: x\nX: y\r\n\none\r\ntwo\nthree\r\n"
    yield "bare_cr", b"From: a@example.com\r\nSubject: x\ry\r\n\r\none\rtwo\r\r\nthree\r\n"
    yield "only_cr", b"From: a@example.com\rSubject: x\r\rbody\r"
    yield "nul", b"From: a@example.com\nSubject: a\0b\n\nx\0y\n"
    yield "eight_bit", b"From: \xff\xfe\nSubject: \x80\x81\n\n\x00\xff\n"
    yield "garbage_first", b"no field here\nFrom: a@example.com\n\nbody\n"
    yield "folded_first", b" folded\nFrom: a@example.com\n\nbody\n"
    yield "blank_first", b"\nFrom: a@example.com\n\nbody\n"
    yield "mbox_line", b"From a@example.com Mon Mar  3 09:12:44 2025\nFrom: a@example.com\n\nx\n"
    yield "no_blank_line", b"From: a@example.com\nSubject: x\nbody without blank line\n"
    yield "header_only", b"From: a@example.com\nSubject: x\n"
    yield "long_line", b"Subject: " + b"x" * 1000000 + b"\n\n" + b"y" * 1000000 + b"\n"
    yield "thousand_headers", b"".join(b"X-%d: v\r\n" % i for i in range(1000)) + b"\r\nbody\r\n"
    yield "many_folds", b"Subject: x\n" + b" y\n" * 100000 + b"\nbody\n"
    yield "ends_in_boundary", _multipart(b"--b\r\n\r\npart\r\n--b\r\n\r\nlast\r\n")
    yield "unclosed", _multipart(b"--b\r\n\r\npart\r\n")[:-7]
    yield "prefix_boundary", _multipart(b"--b\r\n\r\n--bx\r\n--b \t\r\n\r\n--b-\r\n")
    yield "empty_parts", _multipart(b"--b\r\n" * 5)
    yield "deep_messages", _deep_messages(20000)
    yield "deep_multiparts", _nested_multiparts(1000, b"x" * 11000 + b"\r\n")
    yield "million_parts", _multipart(b"--b\n\n\n" * 1000000, line=b"\n")
    yield "large", b"From: a@example.com\r\n\r\n" + (b"z" * 76 + b"\r\n") * (50 * 1024 * 1024 // 78)


def messages():
    """Pairs of a name and a message."""
    yield "empty", b""
    yield "one_newline", b"\n"
    yield "one_byte", b"x"
    for name, message in _with_endings():
        yield name, message
        bare = message
        while bare.endswith((b"\r", b"\n")):
            bare = bare[:-1]
        yield name + "_without_end", bare
