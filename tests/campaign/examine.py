"""One message and what an action made of it: a verdict."""
import quopri
import re

import reader

CHANGED = "changed"
BY_LINES = "by lines only"  # changed, and the reader could not follow
UNCHANGED = "unchanged"
FAILED = "failed"
WRONG = "check failed"
VERDICTS = (CHANGED, BY_LINES, UNCHANGED, FAILED, WRONG)
MAX_LINE = 998


class Finding:
    """What became of one message under one action."""

    def __init__(self, verdict, reason="", notes=()):
        self.verdict = verdict
        self.reason = reason
        self.notes = list(notes)


def long_lines(data):
    return {line for line in re.split(rb"\r?\n", data) if len(line) > MAX_LINE}


# What an action says at the lowest level when it leaves a message alone.
_LEFT_ALONE = re.compile("Ignore subject tagging due to error.*")


def _left_alone(report):
    if any("has no header" in defect["text"] for defect in report.get("defects", [])):
        return "no header"
    return "; ".join(match.group() for rule in report.get("rules", [])
                     for action in rule["actions"] for line in action.get("log", [])
                     if (match := _LEFT_ALONE.search(line["text"])))


def _reason_in(report):
    """Why the program says that it changed nothing."""
    texts = [report.get("failure") or report.get("error") or ""]
    for rule in report.get("rules", []):
        for action in rule["actions"]:
            texts += [action.get("failure", "")]
            texts += [line["text"] for line in action.get("log", []) if line["level"] <= 2]
    return "; ".join(dict.fromkeys(filter(None, texts)))


def examine(action, before, after, report):
    """Judges `after`, what `action` made of `before`.

    after: the bytes that came out; None when nothing did.
    """
    verdict = report.get("verdict")
    if after is None:
        return Finding(WRONG, f"nothing came out ({verdict}): {_reason_in(report)}")
    if verdict not in ("changed", "unchanged", "failed"):
        return Finding(WRONG, f"verdict {verdict!r}: {_reason_in(report)}")
    if (verdict != "changed") != (before == after):
        return Finding(WRONG, f"verdict {verdict!r}, but the bytes say otherwise")
    if verdict == "failed":
        reason = _reason_in(report)
        return Finding(FAILED, reason) if reason else Finding(WRONG, "failed without a reason")
    return _judge(action, before, after, report)


def _judge(action, before, after, report):
    try:
        root = reader.read(before)
        stays = action.reason_to_stay(root)
        if before == after:
            stays = stays or _left_alone(report)
            return (Finding(UNCHANGED, stays) if stays else
                    Finding(WRONG, f"unchanged without a reason; {_reason_in(report)}"))
        if stays:
            return _unless_opinion(action, root, after, f"changed although: {stays}")
        result = reader.read(after)
        faults = list(action.check.run(root, result))
        faults += _form_faults(root, result)
    except reader.ReaderGaveUp as error:
        return _judge_lines(action, before, after, str(error))
    if faults:
        return _unless_opinion(action, root, after, "; ".join(faults[:6]))
    return Finding(CHANGED, "", action.check.notes)


def _unless_opinion(action, root, after, fault):
    """A fault, unless readers differ in where a header of the message ends."""
    if "MissingHeaderBodySeparatorDefect" in reader.defects(root):
        return _judge_lines(action, root.data, after, "a header has no blank line behind it, so "
                                                      "that where it ends is a matter of opinion")
    return Finding(WRONG, fault)


def _form_faults(before, after):
    faults = []
    was, now = reader.defects(before), reader.defects(after)
    for name, count in now.items():
        # What the content of a part is like is not its form, and noted only when it is decoded.
        if count > was.get(name, 0) and not name.startswith("InvalidBase64"):
            faults.append(f"a new defect: {name}")
    known = long_lines(before.data)
    # A delimiter with the boundary that the message came with has to be as long as that.
    if any(line not in known and not any(line.startswith(old) or line == old[:-2] for old in known)
           for line in long_lines(after.data)):
        faults.append(f"a new line over {MAX_LINE} bytes")
    return faults


# Fields that an action may write anew; what follows on folded lines goes with them.
_REWRITTEN = re.compile(rb"(?im)^(?:content-[a-z-]+|subject)[ \t]*:.*\n?(?:[ \t].*\n?)*")


def _judge_lines(action, before, after, why):
    """For what the reader cannot follow: every line that came is there, as it was or in
    quoted-printable; of a removal, every line that is there came."""
    source, target = (after, before) if action.removes else (before, after)
    there = set(re.split(rb"\r?\n", target))
    there.update(re.split(rb"\r?\n", quopri.decodestring(target)))
    missing = [line for line in re.split(rb"\r?\n", _REWRITTEN.sub(b"", source))
               if line not in there]
    if missing:
        return Finding(WRONG, f"the reader cannot follow ({why}), and the line {missing[0][:80]!r} "
                              f"is {'new' if action.removes else 'not there any more'}")
    return Finding(BY_LINES, "", [f"compared line by line only: {why}"])
