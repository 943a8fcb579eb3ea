#!/usr/bin/env python3
"""Compares this library's trees with those of the MIME library and of Python's parser.

    differential.py MESSAGE_TREE [--seed N] [--count N] [--list]

On generated structures, on the committed hard cases and, when KAVI_MAIL_DIR names a folder, on the
mails in it. Every difference must have a reason in reasons.py; one without is a failure.
"""

import argparse
import collections
import email
import json
import os
import pathlib
import random
import subprocess
import sys
import tempfile

import reasons
from reasons import Node

Case = collections.namedtuple("Case", "name bytes ours library defects")


def trees(program, mode, files):
    result = {}
    for start in range(0, len(files), 200):
        run = subprocess.run([program, mode, *files[start:start + 200]], check=True,
                             stdout=subprocess.PIPE)
        for line in run.stdout.splitlines():
            tree = json.loads(line)
            nodes = [
                Node(n["depth"], n["type"], n["kind"], bytes.fromhex(n["content"]),
                     n.get("encoding", ""), n.get("fields", 0), n.get("types", 0))
                for n in tree["nodes"]
            ]
            result[tree["file"]] = (nodes, tree.get("defects", []))
    return result


def python_tree(data):
    nodes = []

    def add(message, depth):
        kind = message.get_content_type().lower()
        if message.is_multipart():
            is_message = message.get_content_maintype() == "message"
            nodes.append(Node(depth, kind, "message" if is_message else "multipart", b"", "", 0, 0))
            for part in message.get_payload():
                add(part, depth + 1)
        else:
            content = message.get_payload(decode=True) or b""
            nodes.append(Node(depth, kind, "leaf", content, "", 0, 0))

    add(email.message_from_bytes(data), 0)
    return nodes


def same(ours, theirs):
    return [n[:4] for n in ours] == [n[:4] for n in theirs]


def explain(case, reader, theirs):
    """The names of the reasons for the differences; None when they do not suffice."""
    ours, used = case.ours, []
    # Twice: what one step leaves may be what an earlier one waits for.
    for reason in reasons.EXACT * 2:
        if same(ours, theirs):
            return used
        if reason.reader not in ("both", reader):
            continue
        next_ours, next_theirs = reason.step(ours, theirs, case)
        if not same(ours, next_ours) or not same(theirs, next_theirs):
            used += [reason.name] if reason.name not in used else []
        ours, theirs = next_ours, next_theirs
    if same(ours, theirs):
        return used
    for reason in reasons.COARSE:
        if reason.reader in ("both", reader) and reason.holds(case):
            return used + [reason.name]
    return None


class Generator:
    """Random structures, most of them sound, some broken in one of the usual ways."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.number = 0

    def pick(self, *choices):
        return self.random.choice(choices)

    def boundary(self):
        self.number += 1
        return self.pick("b%d", "=_Part_%d", "--x-%d", "part %d", "a.b-%d'+_,./:=?") % self.number

    def content(self):
        lines = [self.pick("", "text", "--", "-- ", "--b", "From x", "a: b", " x", "caf\u00e9", "=20")
                 for _ in range(self.random.randrange(5))]
        return "\n".join(lines)

    def entity(self, depth, extra=""):
        choice = self.random.random()
        if depth < 4 and choice < 0.4:
            return self.multipart(depth, extra)
        if depth < 4 and choice < 0.5:
            return extra + "Content-Type: message/rfc822\n\n" + self.entity(
                depth + 1, "Subject: nested\n")
        return self.leaf(extra)

    def leaf(self, extra):
        header = extra + self.pick("", "Content-Type: text/plain\n", "Content-Type: text/html\n",
                                   "Content-Type: image/png; name=\"x.png\"\n",
                                   "Content-Type: TEXT/PLAIN;\n\tcharset=utf-8\n")
        encoding = self.pick("", "", "quoted-printable", "base64", "7bit", "8bit")
        if encoding:
            header += "Content-Transfer-Encoding: %s\n" % encoding
        content = self.content()
        if encoding == "base64":
            import base64
            content = base64.encodebytes(content.encode()).decode()
        return header + "\n" + content

    def multipart(self, depth, extra):
        boundary = self.boundary()
        subtype = self.pick("mixed", "alternative", "related", "digest", "mixed")
        text = extra + "Content-Type: multipart/%s;%sboundary=\"%s\"\n\n" % (
            subtype, self.pick(" ", "\n\t"), boundary)
        text += self.pick("", "", "preamble\n", "\n")
        for _ in range(self.random.randrange(1, 4)):
            part = self.entity(depth + 1)
            text += "--%s%s\n%s\n" % (boundary, self.pick("", "", " ", "\t "), part)
        if self.random.random() < 0.9:
            text += "--%s--%s" % (boundary, self.pick("", "\n", " \n", "\nepilogue\n", "\n\n"))
        return text

    def message(self):
        text = self.entity(0, "From: a@example.com\nSubject: generated\nMIME-Version: 1.0\n")
        text += self.pick("", "\n")
        data = text.encode("utf-8")
        return data.replace(b"\n", b"\r\n") if self.random.random() < 0.5 else data


def cases(args, folder):
    files = []
    generator = Generator(args.seed)
    for number in range(args.count):
        path = folder / ("generated-%06d.eml" % number)
        path.write_bytes(generator.message())
        files.append(path)
    torture = folder / "tortures"
    torture.mkdir()
    subprocess.run([args.program, "tortures", str(torture)], check=True)
    files += sorted(torture.iterdir())
    mails = os.environ.get("KAVI_MAIL_DIR")
    if mails:
        files += sorted(pathlib.Path(mails).rglob("*.eml"))
    names = [str(f) for f in files]
    ours = trees(args.program, "ours", names)
    library = trees(args.program, "library", names)
    for name in names:
        yield Case(name, pathlib.Path(name).read_bytes(), ours[name][0], library[name][0],
                   ours[name][1])


def show(label, nodes):
    print("  " + label)
    for node in nodes[:12]:
        print("   %s%s %s %r" % ("  " * node.depth, node.kind, node.type, node.content[-40:]))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=1000)
    parser.add_argument("--list", action="store_true", help="list every difference, not only sums")
    args = parser.parse_args()
    counts, unexplained, total, equal = collections.Counter(), 0, 0, 0
    with tempfile.TemporaryDirectory() as folder:
        for case in cases(args, pathlib.Path(folder)):
            for reader, theirs in (("library", case.library), ("python", python_tree(case.bytes))):
                total += 1
                if same(case.ours, theirs):
                    equal += 1
                    continue
                found = explain(case, reader, theirs)
                if found is None:
                    unexplained += 1
                    print("UNEXPLAINED, %s: %s" % (reader, case.name))
                    show("ours", case.ours)
                    show(reader, theirs)
                    continue
                for name in found:
                    counts[reader, name] += 1
                if args.list:
                    print("%s, %s: %s" % (case.name, reader, ", ".join(found)))
    why = {r.name: r.why for r in reasons.EXACT + reasons.COARSE}
    print("%d comparisons, %d without a difference, %d unexplained" % (total, equal, unexplained))
    for (reader, name), count in sorted(counts.items()):
        print("%6d  %-8s %s: %s" % (count, reader, name, why[name]))
    return 1 if unexplained else 0


if __name__ == "__main__":
    sys.exit(main())
