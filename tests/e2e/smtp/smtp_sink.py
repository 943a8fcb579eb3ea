#!/usr/bin/env python3
"""A mail server that takes everything, or misbehaves as it is told.

It listens on a free port of 127.0.0.1, or on that of --port, writes "port N" on its standard output
and serves until its standard input ends. What it saw goes into the folder of --out: "log.jsonl", one
line for each event, and "1.eml", "2.eml", ... , the accepted messages as they were on the wire with
the SMTP dots undone.

The script is JSON:
  {"offers": ["8BITMIME", "DSN"],          what EHLO offers; "STARTTLS" and "AUTH ..." work
   "tls": {"cert": FILE, "key": FILE},     for STARTTLS, or from the start with "implicit": true
   "auth": {"user": ..., "password": ...}, the login that AUTH PLAIN accepts
   "at": {STAGE: ACTION, ...}}
STAGE is connect, ehlo, starttls, auth, mail, rcpt1, rcpt2, ..., data, body (once the first bytes of
the message came), end (after the final dot), noop, rset or quit; ACTION is {"reply": "450 busy"} or
{"do": "hangup" | "reset" | "stall"}; "after": N lets it pass N times first, "times": M does it M
times only. At end, "keep": true takes the message all the same. A reply of several lines has them
parted by LF.
"""

import argparse
import base64
import json
import os
import select
import socket
import ssl
import struct
import sys
import threading

STALL_SECONDS = 60


class Gone(Exception):
    """The connection is over."""


class Recorder:
    """The event log and the message files; shared by all connections."""

    def __init__(self, folder):
        self.folder = folder
        self.lock = threading.Lock()
        self.messages = 0
        self.log = open(os.path.join(folder, "log.jsonl"), "a", encoding="utf-8")

    def event(self, connection, kind, text=""):
        with self.lock:
            line = {"connection": connection, "event": kind, "text": text}
            self.log.write(json.dumps(line) + "\n")
            self.log.flush()

    def message(self, connection, data):
        with self.lock:
            self.messages += 1
            name = f"{self.messages}.eml"
        path = os.path.join(self.folder, name)
        with open(path + ".part", "wb") as file:
            file.write(data)
        os.rename(path + ".part", path)
        self.event(connection, "message", name)
        return name


class Script:
    """What to do at which stage, counted over all connections."""

    def __init__(self, script):
        self.script = script
        self.seen = {}
        self.lock = threading.Lock()

    def action(self, stage):
        action = self.script.get("at", {}).get(stage)
        if action is None:
            return None
        with self.lock:
            count = self.seen[stage] = self.seen.get(stage, 0) + 1
        after = action.get("after", 0)
        if count <= after or count > after + action.get("times", 1 << 30):
            return None
        return action


class Session:
    """One connection."""

    def __init__(self, number, sock, script, recorder):
        self.number = number
        self.sock = sock
        self.script = script
        self.recorder = recorder
        self.pending = b""
        self.encrypted = False
        self.recipients = 0

    def note(self, kind, text=""):
        self.recorder.event(self.number, kind, text)

    def receive(self):
        try:
            data = self.sock.recv(65536)
        except (OSError, ssl.SSLError) as fault:
            raise Gone from fault
        if not data:
            raise Gone
        return data

    def line(self):
        while b"\n" not in self.pending:
            self.pending += self.receive()
        line, self.pending = self.pending.split(b"\n", 1)
        return line

    def reply(self, text):
        lines = text.split("\n")
        self.note("reply", lines[-1])
        try:
            self.sock.sendall("".join(line + "\r\n" for line in lines).encode("latin-1"))
        except (OSError, ssl.SSLError) as fault:
            raise Gone from fault

    def scripted(self, stage, message=b""):
        """Does what the script says for `stage`; answers whether it said something."""
        action = self.script.action(stage)
        if action is None:
            return False
        if action.get("keep"):
            self.recorder.message(self.number, message)
        if "reply" in action:
            self.reply(action["reply"])
            return True
        deed = action["do"]
        self.note("deed", f"{deed} at {stage}")
        if deed == "stall":
            # Nothing is read either: what the other side sends must get stuck.
            waiter = select.poll()
            waiter.register(self.sock, select.POLLRDHUP | select.POLLHUP | select.POLLERR)
            waiter.poll(1000 * STALL_SECONDS)
        if deed == "reset":
            self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        raise Gone

    def answer(self, stage, text):
        """\\return whether the answer was the friendly one."""
        if self.scripted(stage):
            return False
        self.reply(text)
        return True

    def start_tls(self):
        tls = self.script.script["tls"]
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(tls["cert"], tls["key"])
        try:
            self.sock = context.wrap_socket(self.sock, server_side=True)
        except (OSError, ssl.SSLError) as fault:
            self.note("tls", str(fault))
            raise Gone from fault
        self.encrypted = True
        self.pending = b""
        self.note("tls", "up")

    def serve(self):
        tls = self.script.script.get("tls", {})
        if tls.get("implicit"):
            self.start_tls()
        self.answer("connect", "220 sink.example ESMTP")
        while True:
            line = self.line()
            text = line.decode("latin-1").rstrip("\r")
            if not line.endswith(b"\r"):
                self.note("bare-lf", text)
            self.note("command", text)
            if not self.command(text):
                return

    def command(self, text):
        verb = text.split(" ", 1)[0].upper()
        handler = getattr(self, "on_" + verb.lower(), None)
        if handler is None:
            self.reply("502 5.5.2 unknown command")
            return True
        return handler(text) is not False

    def on_ehlo(self, _text):
        offers = ["sink.example"] + self.script.script.get("offers", [])
        if self.encrypted:
            offers = [offer for offer in offers if offer != "STARTTLS"]
        lines = [f"250-{offer}" for offer in offers[:-1]] + [f"250 {offers[-1]}"]
        self.answer("ehlo", "\n".join(lines))

    def on_helo(self, _text):
        self.answer("ehlo", "250 sink.example")

    def on_starttls(self, _text):
        if self.answer("starttls", "220 go on"):
            self.start_tls()

    def on_auth(self, text):
        if self.scripted("auth"):
            return
        words = text.split(" ")
        if len(words) == 2:
            self.reply("334 ")
            words.append(self.line().decode("latin-1").rstrip("\r"))
        want = self.script.script["auth"]
        login = base64.b64decode(words[2]).split(b"\0")
        good = login[1:] == [want["user"].encode(), want["password"].encode()]
        self.reply("235 2.7.0 welcome" if good else "535 5.7.8 bad login")

    def on_mail(self, _text):
        self.recipients = 0
        self.answer("mail", "250 2.1.0 sender ok")

    def on_rcpt(self, _text):
        self.recipients += 1
        self.answer(f"rcpt{self.recipients}", "250 2.1.5 recipient ok")

    def on_data(self, _text):
        if not self.answer("data", "354 end with a dot"):
            return
        data = bytearray(b"\r\n" + self.pending)
        self.pending = b""
        started = False
        searched = 0
        while True:
            end = data.find(b"\r\n.\r\n", searched)
            if end >= 0:
                break
            searched = max(0, len(data) - 4)
            data += self.receive()
            if not started:
                started = True
                self.scripted("body")
        self.pending = bytes(data[end + 5 :])
        data = bytes(data[2 : end + 2])
        lines = data.split(b"\r\n")
        unstuffed = b"\r\n".join(line[1:] if line.startswith(b".") else line for line in lines)
        if not self.scripted("end", unstuffed):
            name = self.recorder.message(self.number, unstuffed)
            self.reply(f"250 2.0.0 taken as {name}")

    def on_noop(self, _text):
        self.answer("noop", "250 2.0.0 ok")

    def on_rset(self, _text):
        self.answer("rset", "250 2.0.0 ok")

    def on_quit(self, _text):
        self.answer("quit", "221 2.0.0 bye")
        return False

    def run(self):
        self.note("connect")
        try:
            self.serve()
        except Gone:
            pass
        self.sock.close()
        self.note("closed")


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("--out", required=True)
    arguments.add_argument("--script", default="{}")
    arguments.add_argument("--port", type=int, default=0)
    options = arguments.parse_args()
    os.makedirs(options.out, exist_ok=True)
    recorder = Recorder(options.out)
    script = Script(json.loads(options.script))
    listener = socket.create_server(("127.0.0.1", options.port), backlog=64)
    # So that a stalled connection does not take in a large message all the same.
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 16)
    print(f"port {listener.getsockname()[1]}", flush=True)

    def accept():
        number = 0
        while True:
            sock, _ = listener.accept()
            sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            number += 1
            session = Session(number, sock, script, recorder)
            threading.Thread(target=session.run, daemon=True).start()

    threading.Thread(target=accept, daemon=True).start()
    sys.stdin.read()
    os._exit(0)


if __name__ == "__main__":
    main()
