"""
Measures commands from Python: the rate of asyncio.gather over a window of futures, and the time to make and load a
batch of MAP-T rules. The server is the model, in this or in another process.
"""

import argparse
import asyncio
import time

from fwx_nat64 import Batch, Client


async def commands(client: Client, count: int, window: int) -> float:
    """Returns commands per second."""
    start = time.perf_counter()
    for _ in range(count // window):
        await asyncio.gather(*[client.timeout_set(type="udp", value=300) for _ in range(window)])
    return count / (time.perf_counter() - start)


async def load(client: Client, count: int) -> tuple[float, float]:
    """Returns the seconds that it takes to make the batch, and to load it."""
    start = time.perf_counter()
    batch = Batch()
    for i in range(1, count + 1):
        batch.mapt_bmr_add(
            rule_id=i,
            domain_id=1,
            v6_prefix=f"2001:{i >> 16:x}:{i & 0xFFFF:x}::/48",
            v4_prefix=f"10.{i >> 12}.{i >> 4 & 255}.{i % 16 * 16}/28",
        )
    made = time.perf_counter()
    await client.load(batch)
    return made - start, time.perf_counter() - made


async def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("server", nargs="?", help="name of a server in another process")
    parser.add_argument("--commands", type=int, default=400_000)
    parser.add_argument("--rules", type=int, default=100_000)
    options = parser.parse_args()
    async with Client(options.server) as client:
        for window in (1, 64, 1024):
            rate = await commands(client, options.commands if window > 1 else options.commands // 20, window)
            print(f"commands, {window} at a time\t{rate / 1000:.0f} k/s")
        batch = Batch()
        for _ in range(options.commands):
            batch.timeout_set(type="udp", value=300)
        start = time.perf_counter()
        await client.load(batch)
        print(f"commands, as a batch\t{options.commands / (time.perf_counter() - start) / 1000:.0f} k/s")
        making, loading = await load(client, options.rules)
        print(f"a batch of {options.rules} MAP-T rules\t{making:.2f} s to make, {loading:.2f} s to load")


asyncio.run(main())
