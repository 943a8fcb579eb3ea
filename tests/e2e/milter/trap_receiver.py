"""A receiver of SNMP traps on a free loopback port, started and ended by a test."""
import pathlib
import shutil
import socket
import subprocess

from mail_servers import PATIENCE, end_process, wait_until

SNMPTRAPD = shutil.which("snmptrapd") or "/usr/sbin/snmptrapd"


class TrapReceiver:
    """snmptrapd, which writes a line for each trap."""

    def __init__(self, folder):
        folder.mkdir()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        (folder / "conf").write_text("disableAuthorization yes\n")
        self.log_path = folder / "traps"
        with open(self.log_path, "wb") as log:
            # The specific type, then the variables; texts in hexadecimal are one line.
            self.process = subprocess.Popen(
                [SNMPTRAPD, "-f", "-Lo", "-n", "-C", "-c", str(folder / "conf"), "-On", "-Ox",
                 "-F", "TRAP %q %v\n", f"udp:127.0.0.1:{self.port}"],
                stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.DEVNULL,
                env={"MIBS": "", "SNMP_PERSISTENT_DIR": str(folder)})
        wait_until(self.listens, "snmptrapd")

    def listens(self):
        if self.process.poll() is not None:
            raise AssertionError("snmptrapd ended: " + self.log_path.read_text(errors="replace"))
        # Local addresses, in hexadecimal, stand in the second column.
        sockets = pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]
        return any(line.split()[1].endswith(f":{self.port:04X}") for line in sockets)

    def stop(self):
        end_process(self.process, PATIENCE)

    def texts(self):
        """What the traps say, in the order of their arrival."""
        whole = self.log_path.read_bytes().decode("latin-1")
        found = []
        for trap in whole.split("TRAP ")[1:]:
            digits = trap.rsplit("Hex-STRING: ", 1)[-1].split()
            found.append(bytes.fromhex("".join(digits)))
        return found
