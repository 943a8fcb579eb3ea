#!/usr/bin/env python3
"""kavi-milter that is stopped while a mail server keeps it waiting: it ends in bounded time, no
message is taken for done, and what may be doubled is named."""
import threading
import time
import unittest

from mail_stack import MailTest, Sink, SmtpReply, wait_until

MAIL = b"From: from@example.org\r\nSubject: stop\r\n\r\nbody\r\n"
# libmilter looks for the end every five seconds; then the deadline of the message, and the time to
# break off. Nothing else ends the sessions of these tests before a minute is over.
LONGEST = 5 + 1 + 10 + 4


class StopTest(MailTest):
    def waiting_at(self, stage):
        """A server that takes everything, but never answers at this stage."""
        server = Sink(self.base / self.id(), {"at": {stage: {"do": "stall"}}})
        self.addCleanup(server.stop)
        return server

    def wait_for(self, server, command):
        wait_until(lambda: [event for event in server.events() if event["event"] == "command"
                            and event["text"].upper().startswith(command)], f"{command} there")

    def stop(self, milter):
        begin = time.monotonic()
        milter.process.terminate()
        type(self).running = None
        self.assertEqual(milter.process.wait(LONGEST), 0, milter.log())
        self.assertTrue(milter.lines("L1 stopping, and at work for 1 seconds"), milter.log())
        self.assertTrue(milter.lines("L2 stopped"))
        return time.monotonic() - begin

    def hand_off_to(self, server):
        milter = self.milter("rules: [{id: 1, when: always, on_failure: accept, actions: "
                             f"[{{handoff: '127.0.0.1:{server.port}'}}]}}]\n",
                             settings="deadline_seconds = 1")
        replies = []

        def send():
            try:
                replies.append(self.send(MAIL))
            except (SmtpReply, OSError) as refused:
                replies.append(str(refused))

        sender = threading.Thread(target=send)
        sender.start()
        self.wait_for(server, "DATA")
        self.stop(milter)
        sender.join(LONGEST)
        self.assertEqual([reply[:1] for reply in replies], ["4"], replies)
        self.assert_nothing_arrives()
        self.assertFalse(milter.lines("accepted queue="), milter.log())
        self.assertTrue(milter.lines("broken off, as the gateway was being stopped"))
        return milter

    def test_a_hand_off_that_may_have_been_taken_is_possibly_doubled(self):
        self.assertTrue(self.hand_off_to(self.waiting_at("end")).lines("possibly doubled"))

    def test_a_hand_off_before_its_end_is_not(self):
        self.assertFalse(self.hand_off_to(self.waiting_at("data")).lines("possibly doubled"))

    def test_the_sender_of_the_spool_leaves_its_message_there(self):
        server = self.waiting_at("data")
        milter = self.milter(
            "rules: [{id: 1, when: always, actions: [{readdress: other@example.com}]}]\n",
            settings="deadline_seconds = 1",
            delivery=f"scan_host = 127.0.0.1\nscan_port = {server.port}\n")
        self.send(MAIL)
        self.wait_for(server, "DATA")
        self.stop(milter)
        self.assertEqual(len(list((milter.state / "spool").glob("*.msg"))), 1)
        self.assertTrue(milter.lines("waits 60 seconds", "broken off"), milter.log())


if __name__ == "__main__":
    unittest.main()
