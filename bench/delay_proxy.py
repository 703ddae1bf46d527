#!/usr/bin/env python3
"""A loopback TCP proxy that holds every piece of data DELAY_MS in each direction: a phone's round trip on
one machine. Listens on 127.0.0.1 only and connects to 127.0.0.1 only; prints its port, then serves until
terminated or until it has run for --seconds (bounded, as every benchmark loop here).

    delay_proxy.py TARGET_PORT DELAY_MS [--seconds N]
"""
import argparse
import asyncio
import sys


async def pump(reader, writer, delay, first_extra=0.0):
    # Each piece goes out `delay` after it arrived, in order: a link with that one-way latency. The client's
    # first piece also waits `first_extra`: the TCP handshake's round trip, which a loopback connect skips.
    queue = asyncio.Queue()
    loop = asyncio.get_running_loop()

    async def send():
        while True:
            due, data = await queue.get()
            wait = due - loop.time()
            if wait > 0:
                await asyncio.sleep(wait)
            if data is None:
                try:
                    writer.write_eof()
                except OSError:
                    pass
                return
            writer.write(data)
            await writer.drain()

    sender = asyncio.create_task(send())
    try:
        while True:
            data = await reader.read(65536)
            await queue.put((loop.time() + delay + first_extra, data or None))
            first_extra = 0.0
            if not data:
                break
        await sender
    except (ConnectionError, OSError):
        sender.cancel()
    finally:
        writer.close()


async def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("target_port", type=int)
    parser.add_argument("delay_ms", type=float)
    parser.add_argument("--seconds", type=float, default=600)
    arguments = parser.parse_args()
    delay = arguments.delay_ms / 1000.0

    async def accept(client_reader, client_writer):
        try:
            server_reader, server_writer = await asyncio.open_connection("127.0.0.1", arguments.target_port)
        except OSError:
            client_writer.close()
            return
        await asyncio.gather(pump(client_reader, server_writer, delay, 2 * delay),
                             pump(server_reader, client_writer, delay), return_exceptions=True)

    server = await asyncio.start_server(accept, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    async with server:
        await asyncio.sleep(arguments.seconds)


if __name__ == "__main__":
    try:
        asyncio.run(main())
    except KeyboardInterrupt:
        sys.exit(0)
