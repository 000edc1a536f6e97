"""Who is measured, and why one is missing."""
import json
import os
import subprocess
from dataclasses import dataclass

SCRIPTS = os.path.join(os.path.dirname(os.path.dirname(__file__)), "Peers")


@dataclass(frozen=True)
class Peer:
    title: str
    program: str         # built, or a script in Peers
    options: tuple = ()  # before the words that every program takes
    package: str = ""    # Debian's, that it comes with
    tells_version: bool = True


PEERS = {
    "ours": Peer("SSHSession", "bench_ours"),
    "plain": Peer("SSHSession, no options", "bench_ours", ("--plain",)),
    "libssh2": Peer("bare libssh2", "bench_libssh2"),
    "libssh": Peer("libssh", "bench_libssh", package="libssh-dev"),
    "master": Peer("ssh, control master", "OpenSSH", package="openssh-client"),
    "cold": Peer("ssh, cold", "OpenSSH", ("--cold",), package="openssh-client"),
    "asyncssh": Peer("AsyncSSH", "AsyncSSH", package="python3-asyncssh"),
    "paramiko": Peer("Paramiko", "Paramiko", package="python3-paramiko"),
    "many": Peer("SSHSession", "bench_scale", tells_version=False),
    "manyplain": Peer("SSHSession, no options", "bench_scale", tells_version=False),
    "manybare": Peer("bare libssh2", "bench_scale", tells_version=False),
}


class Programs:
    """Where they are, and which versions they are of."""

    def __init__(self, directory, environment):
        self.directory, self.environment = directory, environment
        self.versions, self.missing = {}, {}

    def path(self, peer):
        script = os.path.join(SCRIPTS, peer.program)
        return script if os.path.exists(script) else os.path.join(self.directory, peer.program)

    def words(self, peer, port, user, key, measure, arguments):
        return [self.path(peer), *peer.options, str(port), user, str(key), measure,
                *map(str, arguments)]

    def examine(self, name):
        """Asks one for its version, once."""
        if name in self.versions or name in self.missing:
            return
        peer = PEERS[name]
        if not os.path.exists(self.path(peer)):
            self.missing[name] = f"{peer.program} was not built" + (
                f", for want of {peer.package}" if peer.package else "")
            return
        if not peer.tells_version:
            return
        answer = subprocess.run(self.words(peer, 0, "nobody", os.devnull, "version", ()),
                                env=self.environment, capture_output=True, text=True)
        try:
            self.versions[name] = json.loads(answer.stdout)["version"]
        except ValueError:
            words = answer.stderr.strip().splitlines() or ["it does not run"]
            self.missing[name] = words[-1] + (f" ({peer.package})" if peer.package else "")
