#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Two tasks of one event loop: one asks for the operator now and then, one prints reports: two_tasks.py [ROUNDS]"""

import asyncio
import sys

import mdxclient


async def ask(modem: mdxclient.AsyncModem, rounds: int) -> None:
    while True:
        answer = await modem.send("AT+COPS?", wait=30)
        print(f"answer after {answer.seconds:.3f} s: {answer.text}", flush=True)
        rounds -= 1
        if rounds == 0:
            return
        await asyncio.sleep(1)


async def listen() -> None:
    async with mdxclient.async_reports(last=True) as reports:
        async for report in reports:
            print(f"report: {report.name}", flush=True)


async def main(rounds: int) -> None:
    async with mdxclient.AsyncModem() as modem:
        tasks = {asyncio.ensure_future(ask(modem, rounds)), asyncio.ensure_future(listen())}
        done, pending = await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
        # A task that is cancelled while its command waits for its turn takes the command back.
        for task in pending:
            task.cancel()
        await asyncio.wait(pending)
        for task in done:
            task.result()


if __name__ == "__main__":
    try:
        asyncio.run(main(int(sys.argv[1]) if len(sys.argv) > 1 else 0))
    except mdxclient.Error as error:
        sys.exit(str(error))
    except KeyboardInterrupt:
        pass
