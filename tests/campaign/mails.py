"""Mails of many forms, made here, for runs without a folder of real ones."""
import base64
import itertools
import quopri

_HEAD = (b"From: sender@example.com\r\nTo: reader@example.com\r\nSubject: %s\r\n"
         b"Date: Mon, 10 Mar 2025 09:30:00 +0100\r\nMIME-Version: 1.0\r\n")
_HTML = ("<html><head><title>t</title></head><body class=x><p>Grüße</p></body></html>\r\n")
_PDF = (b"Content-Type: application/pdf; name=\"a.pdf\"\r\nContent-Disposition: attachment;\r\n"
        b" filename=\"a.pdf\"\r\nContent-Transfer-Encoding: base64\r\n\r\nJVBERi0xLjQK\r\n")


def _encoded(content, encoding):
    if encoding == "base64":
        return base64.encodebytes(content).replace(b"\n", b"\r\n")
    if encoding == "quoted-printable":
        return quopri.encodestring(content.replace(b"\r\n", b"\n")).replace(b"\n", b"\r\n")
    return content


def leaf(kind, text, charset, encoding, more=b""):
    """A text part with its header."""
    return (f"Content-Type: {kind}; charset={charset}\r\n"
            f"Content-Transfer-Encoding: {encoding}\r\n").encode() + more + b"\r\n" + _encoded(
                text.encode(charset), encoding)


def multipart(kind, parts, boundary, more=b""):
    """A multipart with its header."""
    lines = [b"Content-Type: multipart/" + kind + b'; boundary="' + boundary + b'"\r\n' + more +
             b"\r\npreamble\r\n"]
    lines += [b"--" + boundary + b"\r\n" + part + b"\r\n" for part in parts]
    return b"".join(lines) + b"--" + boundary + b"--\r\nepilogue\r\n"


def _singles():
    japanese = "こんにちは。\r\nお元気ですか。\r\n"
    texts = [("us-ascii", "one\r\ntwo\r\n", "7bit"), ("iso-8859-1", "Grüße\r\n", "8bit"),
             ("iso-8859-1", "Grüße = gut\r\n", "quoted-printable"), ("utf-8", japanese, "base64"),
             ("utf-8", japanese, "8bit"), ("iso-2022-jp", japanese, "7bit"),
             ("shift_jis", japanese, "base64"), ("euc-kr", "안녕\r\n", "8bit"),
             ("koi8-r", "Привет\r\n", "quoted-printable"), ("utf-16", japanese, "base64"),
             ("utf-8", "", "7bit"), ("utf-8", "no line break", "quoted-printable")]
    for charset, text, encoding in texts:
        yield f"text-{charset}-{encoding}-{len(text)}", leaf("text/plain", text, charset, encoding)
    for encoding in ("8bit", "quoted-printable", "base64"):
        yield f"html-{encoding}", leaf("text/html", _HTML, "iso-8859-1", encoding)
    yield "flowed", leaf("text/plain", "a paragraph \r\nthat flows \r\n-- \r\nname\r\n", "us-ascii",
                         "7bit").replace(b"us-ascii", b"us-ascii; format=flowed")
    yield "long-line", leaf("text/plain", "x" * 2000 + "\r\n", "us-ascii", "7bit")
    yield "broken-base64", (b"Content-Type: text/plain; charset=utf-8\r\n"
                            b"Content-Transfer-Encoding: base64\r\n\r\nSGVs*bG8\r\n=\r\nrest\r\n")
    yield "broken-quoted-printable", (
        b"Content-Type: text/plain; charset=utf-8\r\n"
        b"Content-Transfer-Encoding: quoted-printable\r\n\r\na =ZZ =4 b=\r\nc = \r\n=")
    for charset in ("x-nobody-knows", "utf-8", "us-ascii"):
        yield f"wrong-{charset}", (f"Content-Type: text/plain; charset={charset}\r\n\r\n".encode() +
                                   b"caf\xe9 \xff\r\n")
    yield "unknown-encoding", b"Content-Type: text/plain\r\nContent-Transfer-Encoding: zip\r\n\r\nx\r\n"
    yield "attachment-only", _PDF
    yield "no-type", b"\r\nbody\r\n"


def _multiparts():
    plain = leaf("text/plain", "Grüße\r\n", "iso-8859-1", "quoted-printable")
    page = leaf("text/html", _HTML, "utf-8", "base64")
    picture = (b"Content-Type: image/gif\r\nContent-ID: <i@example.com>\r\n"
               b"Content-Transfer-Encoding: base64\r\n\r\nR0lGODlhAQABAAAAACw=\r\n")
    inner = b"Content-Type: message/rfc822\r\n\r\n" + _HEAD % b"inner" + plain
    alternative = multipart(b"alternative", [plain, page], b"alt")
    related = multipart(b"related", [page, picture], b"rel")
    yield "alternative", alternative
    yield "related", related
    yield "alternative-related", multipart(b"alternative", [plain, related], b"out")
    yield "mixed", multipart(b"mixed", [plain, _PDF, leaf("text/plain", "last\r\n", "utf-8", "7bit")],
                             b"mix")
    yield "mixed-nested", multipart(b"mixed", [alternative, _PDF, inner], b"mix")
    yield "only-attachments", multipart(b"mixed", [_PDF, multipart(b"mixed", [_PDF], b"in")], b"mix")
    yield "digest", multipart(b"digest", [b"\r\n" + _HEAD % b"d" + plain] * 2, b"dig")
    yield "unclosed", multipart(b"mixed", [plain, _PDF], b"mix").partition(b"--mix--")[0]
    yield "no-boundary", b"Content-Type: multipart/mixed\r\n\r\n--x\r\n\r\ntext\r\n--x--\r\n"
    yield "no-part", b"Content-Type: multipart/mixed; boundary=x\r\n\r\nnothing\r\n"
    yield "signed-pgp", multipart(b"signed", [plain, b"Content-Type: application/pgp-signature\r\n\r\n"
                                                     b"-----BEGIN\r\n"], b"sig").replace(
        b"/signed;", b"/signed; protocol=\"application/pgp-signature\";")
    yield "tnef", multipart(b"mixed", [plain, b"Content-Type: application/ms-tnef\r\n\r\nx\r\n"],
                            b"mix")
    yield "named-body", leaf("text/html", _HTML, "utf-8", "8bit",
                             b"Content-Disposition: inline; filename=\"mail.html\"\r\n")
    yield "many-parts", multipart(b"mixed", [plain, _PDF] * 200, b"mix")
    deep = plain
    for level in range(60):
        deep = multipart(b"mixed", [deep], b"deep%d" % level)
    yield "deep", deep


_SUBJECTS = [b"plain", b"=?utf-8?B?44GT44KT44Gr44Gh44Gv?=", b"=?iso-8859-1?Q?Gr=FC=DFe?= an alle",
             b"=?iso-2022-jp?B?GyRCJUYlOSVIGyhC?=", b"folded\r\n subject", b"",
             b"=?utf-16?B?TwBmAGYAZQByAA==?="]


def mails():
    """Pairs of a name and a message."""
    subjects = itertools.cycle(_SUBJECTS)
    for name, body in itertools.chain(_singles(), _multiparts()):
        message = _HEAD % next(subjects) + body
        yield name, message
        if body.isascii():
            yield name + "-lf", message.replace(b"\r\n", b"\n")
    yield "no-subject", b"From: a@example.com\r\n\r\nbody\r\n"
    yield "two-subjects", b"Subject: one\r\nSubject: two\r\n\r\nbody\r\n"
    yield "empty", b""
    yield "no-header", b"\r\nbody\r\n"
    yield "header-only", b"From: a@example.com\r\nSubject: x"
