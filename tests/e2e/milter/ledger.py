"""Numbered messages of every kind of fate, and where each of them is in the end.

The number stands in the sender, so that every place a message can get to tells which one it is, and
in the subject, which tells the kind, too.
"""
import collections
import json
import re

KINDS = ("pass", "quarantine", "archive", "readdress", "notify", "handoff", "delete", "postpone",
         "blind", "release", "accept")
BODY = b"".join(b"%03d some text that fills a line of this message\r\n" % n for n in range(40))
POLICY = """
quarantine_areas: [{name: virus}, {name: held}]
archive_areas: [{name: journal}]
stamps: [{name: note, text: stamped}]
notifications:
- {name: tell, sender: kavi@gw.example, recipients: [admin@a.example],
   subject: "note %%SUBJECT%%", body: "%%RULENAME%%", trap: "%%SUBJECT%%"}
rules:
- {id: 1, when: {subject: {matches: "pass"}},
   actions: [stamp: note, tag_subject: "[t] ", x_header: "X-Seen: yes"]}
- {id: 2, when: {subject: {matches: "quarantine"}}, actions: [quarantine: virus]}
- {id: 3, when: {subject: {matches: "archive"}}, actions: [archive: journal]}
- {id: 4, when: {subject: {matches: "readdress"}}, actions: [readdress: other@example.com]}
- {id: 5, when: {subject: {matches: "notify"}}, actions: [notify: tell]}
- {id: 6, when: {subject: {matches: "handoff"}}, actions: [handoff: "127.0.0.1:%(handoff)d"]}
- {id: 7, when: {subject: {matches: "delete"}}, actions: [delete]}
- {id: 8, when: {subject: {matches: "postpone"}}, actions: [postpone: "00:00"]}
- {id: 9, when: {subject: {matches: "blind"}}, actions: [bcc: blind@example.com]}
- {id: 10, when: {subject: {matches: "release"}}, actions: [quarantine: held]}
- {id: 11, on_failure: accept, when: {subject: {matches: "accept"}},
   actions: [bcc: lost@example.com, handoff: "127.0.0.1:%(nobody)d"]}
"""
# Where a message of each kind has to be in the end, and nowhere else.
PLACES = {
    "pass": {"recipient"},
    "quarantine": {"quarantine"},
    "archive": {"recipient", "archive"},
    "readdress": {"other"},
    "notify": {"recipient", "note"},
    "handoff": {"handoff"},
    "delete": {"decision"},
    "postpone": {"recipient"},
    "blind": {"recipient", "blind"},
    "release": {"recipient"},  # by an administrator
    "accept": {"recipient"},  # without the blind copy that the rule added before it failed
}


def kind_of(number):
    return KINDS[number % len(KINDS)]


def numbered(number):
    """The message of a number, and its envelope."""
    sender = "n%05d@example.org" % number
    return (b"From: %s\r\nTo: to@example.net\r\nSubject: %s of %05d\r\n"
            b"Message-ID: <%d@example.org>\r\nMIME-Version: 1.0\r\n"
            b"Content-Type: text/plain; charset=utf-8\r\n\r\n"
            % (sender.encode(), kind_of(number).encode(), number, number)
            ) + BODY, {"sender": sender}


class Ledger:
    """Every copy of every message, found where copies can be."""

    def __init__(self, milter, sink, handoff, listener=None):
        """\\param sink      what Postfix gives mail to
        \\param handoff   what is handed mail directly
        \\param listener  what gets mail from the spool, when it is not Postfix"""
        self.milter = milter
        self.copies = collections.defaultdict(list)  # (number, place): what each copy was taken as
        places = {"to@example.net": "recipient", "other@example.com": "other",
                  "admin@a.example": "note", "blind@example.com": "blind",
                  "lost@example.com": "lost"}
        for _, recipients, data in sink.messages():
            trace = re.findall(rb"\r?\n?\tby \S+ \(Postfix\) with E?SMTP id (\w+)", data)
            for recipient in recipients:
                self.add(data, places[recipient], [name.decode() for name in trace])
        for _, recipients, data in handoff.messages():
            self.add(data, "handoff")
        for number, (_, recipients, data) in enumerate(listener.messages() if listener else ()):
            for recipient in recipients:
                self.add(data, places[recipient], [f"{number + 1}.eml"])
        for place, pattern in (("quarantine", "quarantine/**/*.DF"), ("archive", "archive/**/*.eml")):
            for path in milter.folder.glob(pattern):
                self.add(path.read_bytes(), place)
        decisions = milter.state / "decisions.jsonl"
        lines = decisions.read_text().splitlines() if decisions.exists() else []
        for line in lines:
            sender = json.loads(line)["envelope"]["sender"]
            self.copies[int(sender[1:6]), "decision"].append(None)

    def add(self, data, place, taken_as=()):
        # A note has the number of the message that it is about.
        number = int(re.search(rb"\r\nSubject: .* of (\d{5})\r\n", data).group(1))
        self.copies[number, place].append(set(taken_as))

    def doubled(self):
        """The messages of which the log says "possibly doubled", by the gateway's names."""
        return set(re.findall(r"Message (\w+) is possibly doubled", self.milter.log()))

    def excused(self):
        """What these were taken as by whoever got them from the spool, and the numbers of those that
        were handed off."""
        log = self.milter.log()
        doubled = self.doubled()
        doubled |= set(re.findall(r"possibly doubled: .* in the spool as (\w+)", log))
        sent = re.findall(r"Message (\w+) sent: .* as (\S+?)\.?$", log, re.M)
        names = {name for spool_id, name in sent if spool_id in doubled}
        numbers = {int(number) for message_id, number in
                   re.findall(r"message queue=\w+ id=(\S+) .*from=<n(\d{5})@", log)
                   if message_id in doubled}
        return names, numbers

    def account(self, total):
        """\\return what is wrong: lost, in a place that is none of its own, or doubled though the
        log does not say that it may be."""
        wrong = []
        names, numbers = self.excused()
        for number in range(total):
            for place in PLACES[kind_of(number)]:
                copies = self.copies.pop((number, place), [])
                if not copies:
                    wrong.append(f"{number} is lost: not at {place}")
                elif len(copies) > 1 and place != "decision":  # a line more is no message more
                    told = number in numbers or any(copy & names for copy in copies)
                    if not told:
                        wrong.append(f"{number} is {len(copies)} times at {place}, untold: {copies}")
        wrong += [f"{number} is at {place}" for number, place in self.copies]
        return wrong
