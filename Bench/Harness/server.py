"""A throwaway sshd on loopback, and programs that end with the one that started them."""
import os
import subprocess
import time

from Harness.ground import free_port, is_root

CONFIGURATION = """
Port {port}
ListenAddress 127.0.0.1
HostKey {ground.host_key}
AuthorizedKeysFile {ground.key}.pub
Compression yes
MaxStartups 2000
MaxSessions 2000
LogLevel ERROR
PidFile none
StrictModes no
UsePAM no
UseDNS no
PermitUserRC no
PrintLastLog no
PrintMotd no
"""


def dependent(words, **more):
    return subprocess.Popen(["setpriv", "--pdeathsig", "TERM", *words], **more)


class Server:
    """A context. `within` is put before its command line."""

    def __init__(self, ground, within=()):
        self.ground, self.within = ground, list(within)

    def __enter__(self):
        if is_root():
            os.makedirs("/run/sshd", exist_ok=True)  # sshd as root insists on it
        for _ in range(20):  # another program may take the port first
            self.port = free_port()
            if self.start():
                self.ground.know(self.port)
                return self
        raise RuntimeError("sshd does not start: " + self.log.read_text())

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()

    def start(self):
        directory = self.ground.directory
        self.log = directory / f"log-{self.port}"
        configuration = directory / f"sshd_config-{self.port}"
        configuration.write_text(CONFIGURATION.format(port=self.port, ground=self.ground))
        with open(self.log, "wb") as log:
            self.process = dependent([*self.within, "/usr/sbin/sshd", "-D", "-e", "-f", configuration],
                                     stdin=subprocess.DEVNULL, stderr=log)
        return self.is_listening()

    def is_listening(self):
        # Looked for where it is, which may be a network of its own.
        probe = f"exec 3<>/dev/tcp/127.0.0.1/{self.port} && read -r line <&3 && echo $line"
        while self.process.poll() is None:
            greeting = subprocess.run([*self.within, "bash", "-c", probe], capture_output=True,
                                      text=True)
            if greeting.stdout.startswith("SSH-"):
                self.version = greeting.stdout.strip()
                return True
            time.sleep(0.02)
        return False
