#!/usr/bin/env python3
"""Shows kavi-milter at work between a Postfix and a mail server that takes what arrives.

Usage: demo.py BIN_DIR

Starts them with snmptrapd in a temporary folder, on free ports of 127.0.0.1, sends the messages of
examples/mail with swaks, and shows what became of each. At the end nothing runs and no file is left.
Exit status: 0 when everything was seen that examples/policy.yaml promises, 1 when not.
"""
import email
import email.policy
import json
import os
import pathlib
import re
import subprocess
import sys
import textwrap
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "stack"))
from clean_end import Interrupted, run_cleanly  # noqa: E402
from mail_servers import (  # noqa: E402
    Milter, Postfix, Sink, TrapReceiver, wait_until, without_trace)

PATIENCE = 20  # seconds for anything that has to happen
EXAMPLES = ROOT / "examples"

REASONS = {"signed.eml": " (a stamp would break its signature)"}
# What the policy promises for each message: its fate, and for those that arrive, texts that are in
# the difference to what was sent. None is: there is no difference.
ARRIVES, REFUSED, QUARANTINED, POSTPONED = "arrives", "refused", "quarantined", "postponed"
PROMISES = {
    "plain.eml": (ARRIVES, None),
    "signed.eml": (ARRIVES, None),
    "japanese.eml": (ARRIVES, ["+Subject: [EXTERNAL] =?", "+X-Topic: quotation",
                               "+This message came from outside our company"]),
    "html-attachment.eml": (ARRIVES, ["+Subject: [EXTERNAL] New", "+X-Flag: program",
                                      '-Content-Disposition: attachment; filename="price-list',
                                      "+<div><br>--<br>This message came from outside"]),
    "macros.eml": (QUARANTINED, None),
    "forged.eml": (REFUSED, None),
    "broken.eml": (POSTPONED, None),
}
PICTURE = """\
swaks ──▶ Postfix ──▶ mailbox     all on free ports of 127.0.0.1, all files in
            │ ▲                   {folder}
            ▼ │                   (this machine's own mail is not touched)
        kavi-milter ──▶ snmptrapd"""
POSTPONED_UNTIL = "22:00"  # as the policy has it


class Disappointment(Exception):
    """Something was promised and could not be shown."""


def heading(text):
    bold, plain = ("\033[1m", "\033[0m") if sys.stdout.isatty() else ("", "")
    print(f"\n{bold}== {text} =={plain}\n", flush=True)


def indented(text, by="  "):
    print("".join(f"{by}{line}\n" for line in text.splitlines()), end="", flush=True)


class Mail:
    """One example: envelope and bytes as they are sent, and what was seen of it."""

    def __init__(self, path):
        self.name = path.name
        # The first two fields are the envelope that the file was kept with.
        sender, recipient, rest = path.read_bytes().replace(b"\r\n", b"\n").split(b"\n", 2)
        self.sender = sender.decode().removeprefix("Return-Path: ").strip("<>")
        self.recipient = recipient.decode().removeprefix("Delivered-To: ").strip("<>")
        lines = rest.removesuffix(b"\n").split(b"\n")
        self.sent = b"".join(line + b"\r\n" for line in lines)
        self.reply = ""
        self.queue_id = ""
        self.arrived = None

    def send(self, port, folder):
        """Sends it with swaks, and keeps the reply to its last line."""
        data = folder / self.name
        stuffed = re.sub(rb"(?m)^\.", b"..", self.sent)
        data.write_bytes(stuffed + b".")
        done = subprocess.run(
            ["swaks", "--server", "127.0.0.1", "--port", str(port), "--ehlo", "client.example.org",
             "--from", self.sender or "<>", "--to", self.recipient, "--data", f"@{data}",
             "--no-data-fixup"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            timeout=PATIENCE, check=False)
        transcript = done.stdout.decode("utf-8", errors="replace").splitlines()
        if " -> ." not in transcript:
            raise Disappointment(f"swaks could not send {self.name}:\n" + "\n".join(transcript))
        self.reply = transcript[transcript.index(" -> .") + 1][4:]
        queued = re.search(r"queued as (\w+)", self.reply)
        self.queue_id = queued.group(1) if queued else ""

    def difference(self, folder):
        """What diff says of the message as it was sent and as it arrived."""
        names = []
        for name, data in (("sent", self.sent), ("arrived", self.arrived)):
            path = folder / f"{self.name}.{name}"
            path.write_bytes(data.replace(b"\r\n", b"\n"))
            names.append(str(path))
        done = subprocess.run(["diff", "-a", "-U0", *names], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, timeout=PATIENCE, check=False)
        return done.stdout.decode("utf-8", errors="replace").splitlines()[2:]


class Demo:
    def __init__(self, bin_dir, folder):
        self.kavi = bin_dir / "kavi"
        self.folder = folder
        self.sink = Sink(folder / "sink")
        self.traps = TrapReceiver(folder / "traps")
        self.postfix = Postfix(folder, folder / "socket" / "milter", self.sink.port)
        self.store = f"sqlite:{folder}/policy.sqlite"
        self.milter = None  # comes once there is a policy
        self.quarantined = ""  # number of the message that is shown there
        self.mails = {name: Mail(EXAMPLES / "mail" / name) for name in PROMISES}

    def start_milter(self, bin_dir):
        self.milter = Milter(
            self.folder, None, program=bin_dir / "kavi-milter",
            settings="reinjection_listener = kavi-scan\n",
            delivery=f"scan_host = 127.0.0.1\nscan_port = {self.postfix.scan}\n"
                     f"plain_host = 127.0.0.1\nplain_port = {self.postfix.plain}\n",
            sections=f"[store]\nlocation = {self.store}\n"
                     f"[General-Notification]\nSNMPServer = 127.0.0.1:{self.traps.port}\n")

    def command(self, *words):
        """What a `kavi` command answers."""
        done = subprocess.run([str(self.kavi), *words],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=PATIENCE, check=False)
        text = done.stdout.decode("utf-8", errors="replace")
        if done.returncode != 0:
            raise Disappointment(f"kavi {' '.join(words)} failed:\n{text}")
        return text

    def filed(self, *words):
        """As command(), of the gateway that the settings file tells of."""
        return self.command(*words, "--config", str(self.milter.config))

    def show(self, command, *hidden, lines=None):
        """A `kavi` command and what it answers, or its last lines. \param hidden  more of its words"""
        print(f"  $ kavi {command}")
        text = self.command(*command.split(), *hidden).splitlines()
        indented("\n".join(text[-lines:] if lines else text), "    ")

    def verdicts(self):
        """What the milter's log says of each message: {queue id: words}."""
        found = {}
        for line in self.milter.lines(" message queue="):
            words = dict(re.findall(r'(\w+)=("[^"]*"|\S+)', line))
            found[words["queue"]] = words
        return found

    def wait_for(self, condition, what):
        """As wait_until, with a word about what is missing."""
        try:
            return wait_until(condition, what, PATIENCE)
        except AssertionError as fault:
            raise Disappointment(f"{fault}\nThe milter's log:\n{self.milter.log()[-3000:]}") from None

    def at_sink(self, word):
        """The message whose trace or text has the word, as it arrived, or None."""
        for _, _, data in self.sink.messages():
            if word.encode() in data:
                return data
        return None

    def fate_of(self, mail):
        """What became of it, once that is seen; Disappointment when it is not as promised."""
        fate, _ = PROMISES[mail.name]
        if fate == REFUSED:
            if not mail.reply.startswith("5"):
                raise Disappointment(f"{mail.name} should have been refused: {mail.reply}")
            return f"refused: {mail.reply}"
        if not mail.queue_id:
            raise Disappointment(f"{mail.name} should have been accepted: {mail.reply}")
        words = self.wait_for(lambda: self.verdicts().get(mail.queue_id), "the milter's verdict")
        rules = " and ".join(words.get("rules", "").split(","))
        if fate == QUARANTINED:
            self.stored(mail)
            return f"accepted, and put into quarantine (rule {rules.split(' ', maxsplit=1)[0]})"
        if fate == POSTPONED and self.is_held_back(mail):
            return f"accepted, and held back until {POSTPONED_UNTIL} (rule 20)"
        mark = f"id {mail.queue_id}" if fate == ARRIVES else "The page was scanned."
        mail.arrived = without_trace(self.wait_for(lambda: self.at_sink(mark), mail.name))
        if fate == POSTPONED:
            return f"arrived at once: it is past {POSTPONED_UNTIL} (rule 20)"
        if mail.arrived == mail.sent:
            return "arrived, byte for byte as it was sent" + REASONS.get(mail.name, "")
        return f"arrived, changed by rules {rules}"

    def stored(self, mail):
        """Its number in quarantine; Disappointment when file and index do not say the same."""
        rows = [row for row in json.loads(self.filed("quarantine", "list", "--json"))
                if pathlib.Path(row["path"]).exists() and mail.sent == re.sub(
                    rb"(?m)^X-kavi-reprocess-.*\n", b"", pathlib.Path(row["path"]).read_bytes())]
        if len(rows) != 1 or rows[0]["from"] != mail.sender or rows[0]["rcpt"] != [mail.recipient]:
            raise Disappointment(f"{mail.name} is not in quarantine once, with a line in the index")
        return str(rows[0]["number"])

    def is_held_back(self, mail):
        """Whether the message waits in the spool for its time."""
        entries = json.loads(self.filed("spool", "list", "--json"))
        return any(entry["kind"] == "postpone" and entry["state"] == "waiting" and
                   entry["rcpt"] == [mail.recipient] for entry in entries)

    # The chapters, in the order of the story.

    def set_up(self, bin_dir):
        heading("A gateway between a Postfix and a mailbox")
        indented(PICTURE.format(folder=self.folder))
        heading("Its policy, from a file into a store")
        indented(rules_of((EXAMPLES / "policy.yaml").read_text(encoding="utf-8")))
        print()
        self.show(f"store init {self.store}")
        self.show("policy apply examples/policy.yaml", "--store", self.store, lines=1)
        self.show("object list", "--store", self.store)
        self.start_milter(bin_dir)

    def send_all(self):
        heading(f"{len(self.mails)} messages, sent with swaks")
        for mail in self.mails.values():
            mail.send(self.postfix.port, self.folder)
            print(f"  {mail.name:20} {self.fate_of(mail)}", flush=True)

    def show_differences(self):
        heading("What changed on the way (diff of what was sent and what arrived)")
        for mail in self.mails.values():
            fate, texts = PROMISES[mail.name]
            if fate != ARRIVES:
                continue
            lines = mail.difference(self.folder)
            missing = [text for text in texts or []
                       if not any(line.startswith(text) for line in lines)]
            if missing or bool(lines) != bool(texts):
                raise Disappointment(f"{mail.name} did not change as it should (missing: {missing}):\n"
                                     + "\n".join(lines))
            if lines:
                print(f"  {mail.name}")
                indented("\n".join(printable(line) for line in shortened(lines)), "    ")

    def show_quarantine(self):
        heading("In quarantine")
        mail = self.mails["macros.eml"]
        number = self.stored(mail)
        self.show(f"quarantine show {number}", "--config", str(self.milter.config))
        self.quarantined = number

    def show_who_was_told(self):
        heading("Who was told of it")
        mark = "Subject: In quarantine: Overdue invoice"
        data = self.wait_for(lambda: self.at_sink(mark), "the notification")
        mail = email.message_from_bytes(data, policy=email.policy.default)
        trap = self.wait_for(self.traps.traps, "the trap")[0]
        text = mail.get_content()
        if "documents with macros" not in text or "invoice.docm" not in trap:
            raise Disappointment(f"notification and trap do not say what they should: {text}{trap}")
        print(f"  {mail['To']} got a mail from {mail['From']}:\n    {mail['Subject']}\n")
        indented(text, "      ")
        print("\n  snmptrapd got a trap:")
        indented(trap.replace(": ", ":\n  ", 1).replace(" = ", " =\n    ", 1), "    ")

    def release(self):
        heading("Released from there: rule 15 lets it pass, the others apply")
        self.show(f"quarantine release {self.quarantined}", "--config", str(self.milter.config))
        data = self.wait_for(lambda: self.at_sink('filename="invoice.docm"'), "the released message")
        if b"\nSubject: [EXTERNAL] Overdue invoice\r\n" not in data or b"X-kavi-" in data:
            raise Disappointment(f"the released message is not as it should be:\n{data.decode()}")
        print("\n  arrived: \"[EXTERNAL] Overdue invoice\", with invoice.docm", flush=True)

    def play(self, bin_dir):
        self.set_up(bin_dir)
        self.send_all()
        self.show_differences()
        self.show_quarantine()
        self.show_who_was_told()
        self.release()
        heading("What the gateway writes down (a line of its log)")
        [line] = self.milter.lines(f"message queue={self.mails['japanese.eml'].queue_id}")
        indented(textwrap.fill(re.sub(r"^.* L2 ", "", line), 96, break_long_words=False))


def rules_of(policy):
    """A line for each rule of a policy file that is laid out as the example is."""
    lines = []
    for rule in ("\n" + policy.split("\nrules:\n")[1]).split("\n  - id: ")[1:]:
        number, name = rule.split("\n")[0], re.search(r"name: (.*)", rule).group(1)
        does = re.findall(r"^      - (.*)$", rule, re.M) or re.findall(r"verdict: {(.*)}", rule)
        lines.append(f"{number:>3}  {name:22} {', '.join(does)}")
    return "\n".join(lines)


def shortened(lines):
    """A difference with the ends of long pieces left out, which it says."""
    out = []
    for piece in re.split(r"\n(?=@@)", "\n".join(lines)):
        piece = piece.split("\n")
        more = len(piece) - 7
        out += piece[:7] + ([f"  ({more} more lines)"] if more > 0 else [])
    return out


def printable(line):
    """A line whose control characters cannot reach the terminal."""
    return "".join(c if c.isprintable() else f"\\x{ord(c):02x}" for c in line)


def main():
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    begin = time.monotonic()
    bin_dir = pathlib.Path(sys.argv[1]).resolve()
    os.chdir(ROOT)
    try:
        run_cleanly("kavi-demo-", lambda folder: Demo(bin_dir, folder).play(bin_dir))
    except Interrupted as interruption:
        print(f"\ndemo: {interruption}: everything was stopped, nothing is left.", file=sys.stderr)
        return 128 + interruption.number
    except (Disappointment, AssertionError, OSError, subprocess.SubprocessError) as fault:
        print(f"\ndemo: FAILED: {fault}\nEverything was stopped, nothing is left.", file=sys.stderr)
        return 1
    print(f"\nAll seen as promised, in {time.monotonic() - begin:.0f} s. Everything was stopped, and "
          "no file is left.\n\n"
          "Next: a message of your own, in README.md; `examples/rehearsal.sh build/release/bin/kavi`"
          "\nshows the same policy without servers; docs/milter.md puts it behind your Postfix.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
