"""A receiver of SNMP traps that tells their texts byte for byte."""
import re

import mail_servers


class TrapReceiver(mail_servers.TrapReceiver):
    def __init__(self, folder):
        super().__init__(folder, output="nx")  # texts in hexadecimal, whatever they hold

    def texts(self):
        """What the traps say, in the order of their arrival."""
        whole = self.log_path.read_bytes().decode("latin-1")
        found = []
        for trap in whole.split("TRAP ")[1:]:
            values = re.findall(r"Hex-STRING: ((?:[0-9A-F]{2}\s+)+)", trap)
            found.append(bytes.fromhex("".join(values[-1].split())))
        return found
