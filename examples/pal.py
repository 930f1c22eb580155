"""Sends 10,000 commands and accounts for each, even if the server restarts: pal.py [SERVER [COMMANDS]]"""
import asyncio
import collections
import sys

from fwx_nat64 import Client, Error, ServerGone, TimedOut, Unreachable


def command(client, i):
    pool, address, v6 = i // 4 + 1, f"10.{i >> 10 & 255}.{i >> 2 & 255}.0", f"2001:db8:{i // 4:x}::/48"
    if i % 4 == 0:
        return client.timeout_set(type=i % 7 + 1, value="5m")
    if i % 4 == 1:
        return client.pool_add(id=pool, param=1, start_addr=address, end_addr=address)
    if i % 4 == 2:
        return client.dmapping_add(id=pool, type="endpoint-independent")
    return client.mapt_bmr_add(rule_id=pool, domain_id=1, v6_prefix=v6, v4_prefix=f"{address}/24")


async def settle(client, i, window, verdicts):
    while True:
        async with window:
            await client.may_send()  # flow control: waits while the channel is full
            try:
                await command(client, i)
                return verdicts.update(["done"])
            except (Unreachable, ServerGone, TimedOut):  # retried; refused if the server had executed it
                verdicts.update(["sent again"])
            except Error as refusal:
                return verdicts.update([refusal.text])
        await asyncio.sleep(0.05)


async def main(server=None, count="10000"):  # without a name, the server is in this process
    verdicts, window = collections.Counter(), asyncio.Semaphore(256)
    async with Client(server) as client:
        await asyncio.gather(*(settle(client, i, window, verdicts) for i in range(int(count))))
    print(f"{verdicts.total() - verdicts['sent again']} of {count} commands settled: {dict(verdicts)}")

asyncio.run(main(*sys.argv[1:]))
