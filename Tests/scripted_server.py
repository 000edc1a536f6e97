"""An SSH server, with the host key of its one argument, that does what its client tells it to.

It prints "port NUMBER", then a line for everything that a client sends. Words are quoted as in a
shell; \\xHH and \\n in them stand for bytes. A user's name tells the methods that are offered, then
what happens when one is tried; by itself every answer is taken but an empty one and "wrong".
    password,keyboard-interactive      publickey,password disconnect 2 bye en
    keyboard-interactive 0 1 2         rounds with so many prompts
    keyboard-interactive 'Name|Instruction|-Hidden: |+Shown~9: '
                                       a round with these, where ~9 stands for so many letters
    keyboard-interactive 1 endless     the last round again and again
    password>keyboard-interactive 1    one factor after the other
    password expired                   a new password is demanded
    password banner 'Hello!'           a text for the user comes with the answer
    password silent                    no answer, ever; also of publickey
    disconnect 11                      before any method is named
    none                               the user is let in without being asked
A client's version may have "reset" in it, to be hung up on when the first keys are agreed on, or
"repeat", to be told each signature algorithm many times. A command is steps that are separated by
"; ", see Channel.run, or "refused", which runs nothing; one that runs through sudo may have the steps "prompt" and "success" as well.
"""
import asyncio
import os
import re
import shlex
import sys

import asyncssh
from asyncssh import constants as ssh
from asyncssh.packet import Boolean, Byte, NameList, SSHPacket, String, UInt32

SUDO = re.compile(r"""/usr/bin/sudo -S -p '(.*?)' /bin/sh -c "echo '(.*?)'; (.*)"$""", re.DOTALL)

REFUSED = {"", "wrong"}
# Passwords are to arrive here as they were sent.
asyncssh.auth.saslprep = lambda text: text


def log(*words):
    print(*words, flush=True)


def packet(payload):
    """Lets pass what AsyncSSH takes for an offence: a keepalive before authentication. One that asks
    for an answer comes later, and gets it."""
    if payload.startswith(Byte(ssh.MSG_GLOBAL_REQUEST)):
        log("keepalive")
        if payload.endswith(Boolean(False)):
            payload = Byte(ssh.MSG_IGNORE) + String("")
    return SSHPacket(payload)


asyncssh.connection.SSHPacket = packet

handlers = asyncssh.channel.SSHChannel._packet_handlers
first_eof = handlers[ssh.MSG_CHANNEL_EOF]
# Lets pass another one: a command whose input has ended is told so again and again.
handlers[ssh.MSG_CHANNEL_EOF] = lambda channel, *rest: (channel._recv_state == "open" and
                                                    first_eof(channel, *rest))
first_newkeys = asyncssh.connection.SSHConnection.send_newkeys


def send_newkeys(connection, key, key_hash):
    if b"repeat" in connection._client_version:
        connection._sig_algs = [name for name in connection._sig_algs for _ in range(20)]
    if b"reset" in connection._client_version:
        connection._transport.close()
    else:
        first_newkeys(connection, key, key_hash)


asyncssh.connection.SSHConnection.send_newkeys = send_newkeys


def raw(word):
    return word.encode("latin-1", "backslashreplace").decode("unicode_escape").encode("latin-1")


def words(text):
    return re.sub(b"~([0-9]+)", lambda match: b"x" * int(match[1]), raw(text))


def disconnect(connection, reason, *texts):
    """Leaves out of the message what is not given, its strings' lengths included."""
    fields = [String(raw(text)) for text in texts]
    connection.send_packet(ssh.MSG_DISCONNECT, UInt32(int(reason)), *fields)
    connection._transport.close()


class Server(asyncssh.SSHServer):
    refusal = None

    def connection_made(self, connection):
        self.connection = connection
        connection.send_userauth_failure = self.send_failure
        self.send_success = connection.send_userauth_success
        connection.send_userauth_success = self.factor_succeeded

    def factor_succeeded(self):
        if not self.factors:
            self.send_success()
            return
        self.methods = self.factors.pop(0).split(",")
        self.send_failure(True)

    def send_failure(self, partial):
        methods = NameList([method.encode() for method in self.methods])
        self.connection._auth = None
        self.connection.send_packet(ssh.MSG_USERAUTH_FAILURE, methods, Boolean(partial))

    def begin_auth(self, user):
        first, *self.steps = shlex.split(user)
        first, *self.factors = first.split(">")
        self.methods = [method for method in first.split(",") if method != "nothing"]
        if first == "disconnect":
            disconnect(self.connection, *self.steps)
        return first != "none"

    def attempt(self):
        if self.steps[:1] == ["disconnect"]:
            disconnect(self.connection, *self.steps[1:])
        if self.steps[:1] == ["banner"]:
            self.connection.send_auth_banner(raw(self.steps[1] + "\\n").decode())
        if self.steps == ["expired"]:
            raise asyncssh.PasswordChangeRequired("Choose another one")

    def public_key_auth_supported(self):
        return "publickey" in self.methods

    async def validate_public_key(self, user, key):
        log("key", key.get_algorithm())
        return await self.may_answer()

    def password_auth_supported(self):
        return "password" in self.methods

    async def validate_password(self, user, password):
        log("password", password.encode())
        self.attempt()
        return await self.may_answer() and password not in REFUSED

    async def may_answer(self):
        if self.steps == ["silent"]:
            await asyncio.Event().wait()
        return True

    def kbdint_auth_supported(self):
        return "keyboard-interactive" in self.methods

    def get_kbdint_challenge(self, user, language, submethods):
        self.attempt()
        return self.next_round()

    def next_round(self):
        if not self.steps:
            return True
        step = self.steps[0]
        if self.steps[1:] != ["endless"]:
            self.steps.pop(0)
        if "|" in step:
            name, instruction, *prompts = [words(part) for part in step.split("|")]
            return (name, instruction, "", [(text[1:], text[:1] == b"+") for text in prompts])
        prompts = [(f"Question {n}: ", False) for n in range(int(step))]
        return ("", "Instruction", "en", prompts)  # libssh2 1.10 trips over a long list and a name

    def validate_kbdint_response(self, user, answers):
        log("answers", [answer.encode() for answer in answers])
        return not REFUSED.intersection(answers) and self.next_round()

    def session_requested(self):
        if self.refusal:
            raise asyncssh.ChannelOpenError(int(self.refusal[0]), self.refusal[1])
        return Channel(self)


class Channel(asyncssh.SSHServerSession):
    """Sends its packets past the library's channel, which would keep them in good order."""

    def __init__(self, server):
        self.server = server
        self.input = asyncio.StreamReader()
        self.closed = asyncio.Event()

    def connection_made(self, channel):
        self.number = UInt32(channel._send_chan)
        channel._close_send = self.closed.set  # to answer is for the script to do

    def exec_requested(self, command):
        self.markers = {}
        sudo = SUDO.match(command)
        if sudo:
            self.markers = {"prompt": ("err", sudo[1]), "success": ("out", sudo[2] + "\\n")}
            command = sudo[3].replace('\\"', '"')
        if command == "refused":
            return False
        self.steps = [shlex.split(step) for step in command.split("; ")]
        return True

    def session_started(self):
        self.task = asyncio.create_task(self.run())

    def data_received(self, data, datatype):
        self.input.feed_data(data)

    def eof_received(self):
        self.input.feed_data(b"<end>\n")
        return True

    async def read(self):
        line = (await self.input.readline())[:-1]
        log("line", line)
        return line

    def send(self, kind, *fields):
        self.server.connection.send_packet(kind, self.number, *fields)

    async def junk(self):
        while self.server.connection._transport:
            self.server.connection.send_packet(ssh.MSG_IGNORE, String(os.urandom(30000)))
            await asyncio.sleep(0)

    async def refuse_password(self, *words):
        while await self.read() != b"<end>":
            pass
        self.finish(1)

    def finish(self, code):
        self.request("exit-status", UInt32(code))
        self.send(ssh.MSG_CHANNEL_EOF)
        self.send(ssh.MSG_CHANNEL_CLOSE)

    def request(self, name, *fields):
        self.send(ssh.MSG_CHANNEL_REQUEST, String(name), Boolean(False), *fields)

    async def run(self):
        kinds = {
            "out": lambda word: self.send(ssh.MSG_CHANNEL_DATA, String(raw(word))),
            "err": lambda word: self.send(ssh.MSG_CHANNEL_EXTENDED_DATA, UInt32(1),
                                          String(raw(word))),
            "read": self.read,  # one line, or the end of the input
            "closed": self.closed.wait,  # by the client
            "ask": lambda: self.server.connection._make_global_request(b"ask@example.com"),
            "wait": lambda seconds: asyncio.sleep(float(seconds)),
            "status": lambda code: self.request("exit-status", UInt32(int(code))),
            "signal": lambda name: self.request("exit-signal", String(name), bytes(9)),
            # Longer than it is, by its own word.
            "long-signal": lambda n, name: self.request("exit-signal", UInt32(int(n)), raw(name)),
            "eof": lambda: self.send(ssh.MSG_CHANNEL_EOF),
            "close": lambda: self.send(ssh.MSG_CHANNEL_CLOSE),
            "disconnect": lambda *words: disconnect(self.server.connection, *words),
            "junk": self.junk,  # without end
            "true": lambda: self.finish(0),
            "/usr/bin/sudo": self.refuse_password,
            "refuse": lambda *words: setattr(self.server, "refusal", words)}  # the next channels
        for name, *words in self.steps:
            name, *marker = self.markers.get(name, (name,))
            waiting = kinds[name](*marker, *words)
            if waiting:
                await waiting
        log("done")


async def main():
    server = await asyncssh.create_server(Server, "127.0.0.1", 0, encoding=None, line_editor=False,
                                          server_host_keys=[sys.argv[1]])
    log("port", server.sockets[0].getsockname()[1])
    await asyncio.Event().wait()


asyncio.run(main())
