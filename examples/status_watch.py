#!/usr/bin/env python3
"""A component in Python that has more to wait for than the service: shows what is published below /system/status, and
publishes what it reads.

    status_watch.py [INSTANCE]

A number on a line of its standard input is published as the system's temperature, in F. It ends with its input, or with
the service.
"""

import asyncio
import sys

from pushpull import Client, ComponentId, PushpullError, ServiceEnded


async def show(client: Client) -> None:
    try:
        async for notification in client.subscribe("/system/status"):
            print(notification.value, flush=True)
    except ServiceEnded:
        print("the service has ended")


async def publish_lines(client: Client) -> None:
    lines = asyncio.StreamReader()
    await asyncio.get_running_loop().connect_read_pipe(lambda: asyncio.StreamReaderProtocol(lines), sys.stdin)
    while line := await lines.readline():
        try:
            client.set("/system/status/systemTemperature", float(line))
        except ValueError:  # a number that JSON has not, too
            print(f"no number: {line!r}", file=sys.stderr)


async def attend(client: Client) -> None:
    tasks = [asyncio.create_task(show(client)), asyncio.create_task(publish_lines(client))]
    done, pending = await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
    for task in pending:
        task.cancel()
    for task in done:
        task.result()  # raises what ended it


def main() -> None:
    instance = sys.argv[1] if len(sys.argv) > 1 else ""
    try:
        with Client(ComponentId.HVAC_SYSCON_PUB, instance=instance) as client:
            asyncio.run(attend(client))
    except PushpullError as error:
        sys.exit(f"status_watch: {error}")


if __name__ == "__main__":
    main()
