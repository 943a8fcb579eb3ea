"""What a message is, as the checks see it: its body, its signatures, its attachments."""
import re

from texts import decoded

_PGP = re.compile(r"(?m)^-----BEGIN PGP SIGNED MESSAGE-----[^\n]*\n(?:.*\n)*?"
                  r"-----BEGIN PGP SIGNATURE-----")
# A text in there belongs to what is signed or encrypted, or is part of one attachment.
_CLOSED = {"multipart/signed", "multipart/encrypted", "multipart/digest", "multipart/appledouble",
           "multipart/form-data", "multipart/header-set", "multipart/voice-message"}


def parameter(part, name):
    value = part.message.get_param(name)
    if isinstance(value, tuple):
        value = value[2]
    return str(value or "").strip().lower()


def disposition(part):
    return part.message.get_content_disposition() or ""


def file_name(part):
    try:
        return part.message.get_filename()
    except (LookupError, UnicodeError, ValueError):
        return "(unreadable)"


def own_parts(root):
    """The parts of the mail itself: nested messages count, what they hold does not."""
    stack = [root]
    while stack:
        part = stack.pop()
        yield part
        if part.type.startswith("multipart/"):
            stack.extend(reversed(part.children))


def signature(root):
    """Which signature the mail carries; empty for none."""
    for part in own_parts(root):
        if part.type == "multipart/signed":
            protocol = parameter(part, "protocol")
            if not protocol and len(part.children) > 1:
                protocol = part.children[1].type
            if "pgp" in protocol or "pkcs7" in protocol:
                return f"signed (multipart/signed, {protocol})"
        elif part.type in ("application/pkcs7-mime", "application/x-pkcs7-mime"):
            if parameter(part, "smime-type") == "signed-data":
                return "signed (S/MIME, opaque)"
        elif part.type.startswith("text/") and not part.children:
            text = decoded(part)
            if text is None:
                text = part.content.decode("latin-1")
            if _PGP.search(text.replace("\r\n", "\n")):
                return "signed (PGP within the text)"
    return ""


def tnef(root):
    if any(part.type.endswith("/ms-tnef") for part in root.walk()):
        return "TNEF part"
    return ""


# A fragment of a message counts as one: what it holds cannot be looked into.
_MESSAGES = {"message/rfc822", "message/partial", "message/global"}


def _is_shown(part):
    """Named or not: the text that is the whole mail, or one of its alternatives."""
    return (part.type in ("text/plain", "text/html") and disposition(part) != "attachment" and
            (part.parent is None or part.parent.type == "multipart/alternative"))


def is_attachment(part):
    return (file_name(part) is not None and not _is_shown(part) or
            disposition(part) == "attachment" or part.type in _MESSAGES)


def _is_body(part):
    if part.type not in ("text/plain", "text/html") or disposition(part) == "attachment":
        return False
    around = part.parent.type if part.parent is not None else "multipart/alternative"
    return (file_name(part) is None or
            around in ("multipart/alternative", "multipart/related"))


def _root_of_related(part):
    start = part.message.get_param("start")
    wanted = str(start or "").strip(" <>")
    for child in part.children:
        if wanted and str(child.message.get("content-id", "")).strip(" \r\n\t<>") == wanted:
            return child
    first = part.children[0]
    if not wanted and not first.type.startswith(("text/", "multipart/")):
        # Some put the pictures first and say the root's type only.
        named = parameter(part, "type")
        return next((child for child in part.children if child.type == named), first)
    return first


def body_texts(part, at_end):
    """The texts that a stamp belongs into."""
    if not part.is_multipart:
        return [part] if _is_body(part) else []
    if part.type in _CLOSED or disposition(part) == "attachment":
        return []
    if part.type == "multipart/alternative":
        return [text for child in part.children for text in body_texts(child, at_end)]
    if part.type == "multipart/related":
        return body_texts(_root_of_related(part), at_end)
    if part.type == "multipart/report":
        return body_texts(part.children[0], at_end)
    for child in reversed(part.children) if at_end else part.children:
        found = body_texts(child, at_end)
        if found:
            return found
    return []
