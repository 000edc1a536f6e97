"""An SSH server on AsyncSSH as it comes: its host key and a client's public key are its arguments.

It prints "port NUMBER", and runs commands with a shell for any user with that key, or "sesame".
"""
import asyncio
import sys
from asyncio.subprocess import PIPE

import asyncssh


class Server(asyncssh.SSHServer):
    def connection_lost(self, exc):
        print("lost:", exc, flush=True)

    def password_auth_supported(self):
        return True

    def validate_password(self, user, password):
        return password == "sesame"


async def run(process):
    shell = await asyncio.create_subprocess_shell(process.command, stdin=PIPE, stdout=PIPE, stderr=PIPE)
    await process.redirect(shell.stdin, shell.stdout, shell.stderr)
    await process.stdout.drain()
    process.exit(await shell.wait())


async def main():
    server = await asyncssh.listen("127.0.0.1", 0, server_factory=Server, process_factory=run, encoding=None,
                                   server_host_keys=[sys.argv[1]], authorized_client_keys=sys.argv[2])
    print("port", server.sockets[0].getsockname()[1], flush=True)
    await asyncio.Event().wait()


asyncio.run(main())
