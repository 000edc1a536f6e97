"""What is measured, the same for every program in Python; Measures.cpp has it in C++."""
import json
import os
import signal
import sys
import time


class Peer:
    """A command fails when its exit status is not 0; what fails raises."""

    def __init__(self, port, user, key):
        self.port, self.user, self.key = port, user, key
        self.known_hosts = os.path.join(os.environ["HOME"], ".ssh", "known_hosts")

    def version(self):
        raise NotImplementedError

    def connect(self):
        """From the TCP connection to the end of authentication, the host key checked."""
        raise NotImplementedError

    def disconnect(self):
        raise NotImplementedError

    def run(self, command, data=b""):
        """Runs a command with that input; answers its standard output."""
        raise NotImplementedError

    def stream(self, command, sink):
        """Gives the standard output away as it comes."""
        raise NotImplementedError

    def feed(self, command, file):
        """Takes the input from an open file."""
        raise NotImplementedError


def require(condition, what):
    if not condition:
        raise RuntimeError(what)


def duration(work):
    begin = time.monotonic()
    work()
    return time.monotonic() - begin


def latencies(count, work):
    return {"ms": [duration(work) * 1e3 for _ in range(int(count))]}


def connecting(peer, count):
    times = []
    for _ in range(int(count)):
        times.append(duration(peer.connect) * 1e3)
        peer.disconnect()
    return {"ms": times}


def warm(peer, work):
    peer.connect()
    try:
        peer.run("true")
        return work()
    finally:
        peer.disconnect()


def short_command(peer, count):
    return warm(peer, lambda: latencies(count, lambda: peer.run("true")))


def short_input(peer, count):
    def there_and_back():
        require(peer.run("cat", b"input") == b"input", "the input did not come back")
    return warm(peer, lambda: latencies(count, there_and_back))


def streamed(peer, size, path):
    arrived = 0

    def take(piece):
        nonlocal arrived
        arrived += len(piece)
    seconds = warm(peer, lambda: duration(lambda: peer.stream("cat " + path, take)))
    require(arrived == int(size), "output is missing")
    return {"bytes": arrived, "seconds": seconds}


def fed_input(peer, size, path):
    with open(path, "rb") as file:
        command = f'test "$(wc -c)" -eq {size}'
        seconds = warm(peer, lambda: duration(lambda: peer.feed(command, file)))
    return {"bytes": int(size), "seconds": seconds}


def spans(peer, count):
    begin = time.monotonic()
    peer.connect()
    connected = time.monotonic()
    commands = []
    try:
        for _ in range(1 + int(count)):
            time.sleep(0.4)
            start = time.monotonic()
            peer.run("true")
            commands.append([start, time.monotonic()])
    finally:
        peer.disconnect()
    return {"connect": [begin, connected], "commands": commands[1:]}


def version(peer):
    return {"version": peer.version()}


MEASURES = {"version": version, "connect": connecting, "true": short_command, "cat": short_input,
            "streamed": streamed, "fedinput": fed_input, "spans": spans}


def main(make):
    """Does what the command line says: PORT USER KEYFILE MEASURE [ARGUMENT]..."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))
    port, user, key, measure, *arguments = sys.argv[1:]
    print(json.dumps(MEASURES[measure](make(int(port), user, key), *arguments)))
