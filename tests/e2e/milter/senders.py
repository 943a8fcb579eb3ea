"""Sessions that send numbered messages at once, each until it was accepted."""
import queue
import threading
import time

from mail_stack import PATIENCE, SmtpClient, SmtpReply

SESSIONS = 20
LONGEST_PAUSE = 2  # seconds between two attempts of a sender


class Senders:
    """Sends the messages of `make`, which answers (message, envelope) for each number below
    `total`. What is refused for now is tried again, for `patience` seconds. The last `held` messages
    are not sent before `release`."""

    def __init__(self, port, total, make, patience=PATIENCE, held=0):
        self.port = port
        self.make = make
        self.patience = patience
        self.todo = queue.SimpleQueue()
        self.held = range(total - held, total)
        for number in range(total - held):
            self.todo.put(number)
        self.accepted = {}  # number: the reply, which names the mail system's queue id
        self.refusals = []
        self.faults = []
        self.lock = threading.Lock()
        self.threads = [threading.Thread(target=self.run, daemon=True) for _ in range(SESSIONS)]
        if not held:
            self.release()
        for thread in self.threads:
            thread.start()

    def release(self):
        for number in (*self.held, *(None for _ in self.threads)):
            self.todo.put(number)

    def run(self):
        client = None
        while (number := self.todo.get()) is not None:
            client = self.deliver(client, number)
        if client is not None:
            client.close()

    def deliver(self, client, number):
        """Sends one message; answers the connection, if there still is one."""
        message, envelope = self.make(number)
        end = time.monotonic() + self.patience
        pause = 0.1
        while True:
            try:
                client = client or SmtpClient(self.port, patience=self.patience)
                reply = client.send(message, **envelope)
                with self.lock:
                    self.accepted[number] = reply
                return client
            except (OSError, SmtpReply) as fault:
                if client is not None:
                    client.close()
                    client = None
                text = str(fault)
                with self.lock:
                    self.refusals.append(text)
                    # What is refused for good, or for ever, is a fault of the test.
                    if text[:1] == "5" or time.monotonic() > end:
                        self.faults.append((number, text))
                        return None
                time.sleep(pause)  # as a mail system would before it tries again
                pause = min(2 * pause, LONGEST_PAUSE)

    def done(self):
        return len(self.accepted)

    def wait(self):
        for thread in self.threads:
            thread.join()
