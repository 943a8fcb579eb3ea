"""Signs a message, or verifies one, with a key of the test. To be run by Debian's own Python, which
has the DKIM library.

dkim_tool.py sign PRIVATE-KEY      message on standard input, signature field on standard output
dkim_tool.py verify PUBLIC-KEY     message on standard input; status 0 when the signature holds
PUBLIC-KEY is the key in base64, as a DNS record would hold it.
"""
import sys

import dkim


def main():
    message = sys.stdin.buffer.read()
    if sys.argv[1] == "sign":
        with open(sys.argv[2], "rb") as file:
            key = file.read()
        sys.stdout.buffer.write(dkim.sign(message, b"test", b"example.org", key,
                                          include_headers=[b"From", b"To", b"Subject"]))
        return 0
    record = b"v=DKIM1; k=rsa; p=" + sys.argv[2].encode()
    return 0 if dkim.verify(message, dnsfunc=lambda *_, **__: record) else 1


if __name__ == "__main__":
    sys.exit(main())
