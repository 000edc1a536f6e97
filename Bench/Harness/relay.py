"""A link that is far away: carries everything between its port and a server's port on loopback,
so many seconds later, and keeps account of it.

Run as a program, relay.py PORT DELAY prints its own port, lives until its standard input ends, and
then prints what it carried: for each piece the time at which it was sent, in seconds of the
machine's clock, and whether it went to the server. A connection counts as a piece of its own.
"""
import asyncio
import json
import os
import socket
import sys
import time

PIECE = 65536


class Relay:
    def __init__(self, target, delay):
        self.target, self.delay, self.pieces = target, delay, []

    async def accept(self, reader, writer):
        self.pieces.append([time.monotonic(), True])
        await asyncio.sleep(self.delay)
        far_reader, far_writer = await asyncio.open_connection("127.0.0.1", self.target)
        for end in (writer, far_writer):
            end.get_extra_info("socket").setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        await asyncio.gather(self.carry(reader, far_writer, True),
                             self.carry(far_reader, writer, False))

    async def carry(self, reader, writer, to_server):
        under_way = asyncio.Queue()
        delivery = asyncio.ensure_future(self.deliver(under_way, writer))
        piece = b"?"
        while piece:
            try:
                piece = await reader.read(PIECE)
            except ConnectionError:
                piece = b""
            now = time.monotonic()
            if piece:
                self.pieces.append([now, to_server])
            under_way.put_nowait((now + self.delay, piece))
        await delivery

    @staticmethod
    async def deliver(under_way, writer):
        while True:
            due, piece = await under_way.get()
            await asyncio.sleep(max(0, due - time.monotonic()))
            if not piece:
                break
            writer.write(piece)
        writer.close()


async def main(target, delay):
    relay = Relay(int(target), float(delay))
    server = await asyncio.start_server(relay.accept, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    await asyncio.get_running_loop().run_in_executor(None, sys.stdin.read)
    print(json.dumps(relay.pieces), flush=True)
    os._exit(0)  # whatever is still open is not waited for


if __name__ == "__main__":
    asyncio.run(main(*sys.argv[1:]))
