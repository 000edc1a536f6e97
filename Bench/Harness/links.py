"""What lies between a benchmark program and the server."""
import contextlib
import json
import os
import subprocess
import sys

from Harness.ground import is_root
from Harness.server import Server, dependent

FAR = 0.025  # seconds each way
RELAY = os.path.join(os.path.dirname(__file__), "relay.py")


class Link:
    """A context with a port; through a relay if there is a delay."""

    def __init__(self, server, delay=0, within=()):
        self.server, self.delay, self.within = server, delay, list(within)
        self.port, self.pieces = server.port, []

    def __enter__(self):
        if self.delay:
            self.relay = dependent([*self.within, sys.executable, RELAY, str(self.server.port),
                                    str(self.delay)],
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
            self.port = int(self.relay.stdout.readline())
            self.server.ground.know(self.port)
        return self

    def __exit__(self, *_):
        if self.delay:
            self.pieces = json.loads(self.relay.communicate(timeout=20)[0] or b"[]")


class LossyNetwork:
    """A context: a network of its own, in which a hundredth of what goes to or from a port is lost."""

    def __init__(self, ground):
        self.ground = ground

    @staticmethod
    def missing():
        if not is_root():
            return "a network namespace takes root"
        for words in (["ip", "-V"], ["iptables", "-V"], ["unshare", "-n", "true"]):
            try:
                if subprocess.run(words, capture_output=True).returncode != 0:
                    return f"{words[0]} does not work here"
            except FileNotFoundError:
                return f"{words[0]} is not installed"
        return None

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            self.holder = dependent(["unshare", "-n", "sh", "-c", "echo; exec sleep infinity"],
                                    stdout=subprocess.PIPE)
            stack.callback(self.end)
            self.holder.stdout.readline()
            self.within = ["nsenter", f"--net=/proc/{self.holder.pid}/ns/net"]
            self.do("ip", "link", "set", "lo", "mtu", "1500", "up")
            self.server = stack.enter_context(Server(self.ground, self.within))
            self.stack = stack.pop_all()
        return self

    def __exit__(self, *_):
        self.stack.close()

    def end(self):
        self.holder.terminate()
        self.holder.wait()

    def do(self, *words):
        subprocess.run([*self.within, *words], check=True, capture_output=True)

    def lose(self, port):
        for side in ("--dport", "--sport"):
            self.do("iptables", "-A", "INPUT", "-p", "tcp", side, str(port), "-m", "statistic",
                    "--mode", "random", "--probability", "0.01", "-j", "DROP")
