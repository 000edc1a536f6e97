"""Where everything is measured: a temporary home, keys, a user with /bin/sh, things to transfer."""
import os
import random
import secrets
import shutil
import socket
import subprocess
import tempfile
import time
from pathlib import Path

SIZE = 256_000_000  # of a large transfer, in bytes


def quiet(*words, **more):
    return subprocess.run(words, check=True, capture_output=True, **more)


def is_root():
    return os.geteuid() == 0


def csv_text():
    """As a table's dump looks."""
    draw = random.Random(1)
    lines = [f'{row},"{draw.choice(["open", "paid", "sent", "back"])}",{draw.random() * 1e4:.2f},'
             f'2026-{draw.randint(1, 12):02}-{draw.randint(1, 28):02},customer {draw.getrandbits(20)}\n'
             for row in range(80_000)]
    return "".join(lines).encode()


CONTENTS = {"zeros": lambda: bytes(1 << 20), "csv": csv_text, "noise": lambda: os.urandom(1 << 24)}


class Ground:
    """A context: all of it is gone when that ends."""

    def __init__(self):
        self.directory = Path(tempfile.mkdtemp(prefix="sshsession-bench-"))
        self.directory.chmod(0o755)  # the server's user reads here
        self.home = self.directory / "home"
        self.key = self.directory / "key"
        self.user = subprocess.check_output(["id", "-un"], text=True).strip()
        self.shell = os.path.basename(os.environ.get("SHELL", "unknown"))
        self.has_own_user = False
        self.password_file = self.directory / "password"
        self.environment = {"PATH": os.environ["PATH"] + ":/usr/sbin:/sbin", "LANG": "C.UTF-8",
                            "HOME": str(self.home)}

    def __enter__(self):
        try:
            (self.home / ".ssh").mkdir(mode=0o700, parents=True)
            quiet("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "", "-f", self.key)
            quiet("ssh-keygen", "-q", "-t", "ecdsa", "-N", "", "-C", "", "-f", self.host_key)
            if is_root():
                self.make_user()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.end_masters()
        if self.has_own_user:
            self.remove_user()
        shutil.rmtree(self.directory, ignore_errors=True)

    @property
    def host_key(self):
        return self.directory / "host_key"

    @property
    def sudoers(self):
        return Path("/etc/sudoers.d") / self.user

    def know(self, port):
        """The server answers on that port too. Sessions without options look for the bare name."""
        algorithm, key = Path(f"{self.host_key}.pub").read_text().split()[:2]
        with open(self.home / ".ssh" / "known_hosts", "a", encoding="ascii") as file:
            for name in (f"[127.0.0.1]:{port}", "127.0.0.1"):
                file.write(f"{name} {algorithm} {key}\n")

    def content(self, name, size):
        """The path of a file with so much of that."""
        path = self.directory / f"{name}-{size}"
        if not path.exists():
            block = CONTENTS[name]()
            with open(path, "wb") as file:
                for begin in range(0, size, len(block)):
                    file.write(block[:size - begin])
        return path

    def make_user(self):
        self.user, self.shell = f"sshbench{os.getpid()}", "/bin/sh"
        password = secrets.token_hex(12)
        quiet("useradd", "--no-create-home", "--home-dir", str(self.directory), "--shell", "/bin/sh",
              self.user)
        self.has_own_user = True
        quiet("chpasswd", input=f"{self.user}:{password}\n".encode())
        self.password_file.touch(mode=0o600)
        self.password_file.write_text(password + "\n")
        if self.can_sudo:
            self.sudoers.touch(mode=0o440)
            # Nothing of the user shall stay in sudo's own records.
            self.sudoers.write_text(f"Defaults:{self.user} timestamp_timeout=0, lecture=never\n"
                                    f"{self.user} ALL=(ALL) ALL\n")

    @property
    def can_sudo(self):
        return self.has_own_user and os.path.exists("/usr/bin/sudo")

    def remove_user(self):
        self.sudoers.unlink(missing_ok=True)
        (Path("/run/sudo/ts") / self.user).unlink(missing_ok=True)
        for _ in range(50):
            if subprocess.run(["userdel", self.user], capture_output=True).returncode == 0:
                return
            time.sleep(0.1)  # the last connection's process is still ending
        quiet("userdel", "--force", self.user)

    def end_masters(self):
        """Of ssh, where a benchmark program was ended itself."""
        for path in self.home.glob("master-*"):
            subprocess.run(["ssh", "-F", "none", "-S", path, "-O", "exit", "127.0.0.1"],
                           capture_output=True)


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]
