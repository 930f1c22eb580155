"""Commands of a client and their results, also when the server is slow, misbehaves, restarts or dies."""

import asyncio
import inspect
import math
import os
import signal
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from datetime import timedelta

import pytest
from conftest import EXISTS, NO_ENTRY, VALUE, failure, settled

from fwx_nat64 import Batch, Client, Error, LoadFailed, Model, ServerGone, TimedOut, Unreachable

RULE = dict(rule_id=1, domain_id=2, v6_prefix="2001:db8::/32", v4_prefix="192.0.2.0/24")
POOL = dict(id=1, param=1, start_addr="192.0.2.1", end_addr="192.0.2.254")
UDP = dict(type="udp", value=300)

CONFIGURATION = [
    ("timeout_set", UDP, None),
    ("limit_add", dict(type="sessions", value=9), "limit_del"),
    ("service_add", dict(type="alg", value=21), "service_del"),
    ("adj_set", dict(type="inside", address="192.0.2.1"), None),
    ("replication_set", dict(value=1), "replication_unset"),
    ("settings_set", dict(opaque=bytes(16)), None),
    ("interface_set", dict(ifh=1, sful_prefix="2001:db8::/96"), None),
    ("nvi_enable", dict(ifh=2), None),
    ("prefix_add", dict(prefix="2001:db8::/96", prefix_kind="stateful"), "prefix_del"),
    ("smapping_add", dict(id=1, addr1="2001:db8::1", addr2="192.0.2.9"), "smapping_del"),
    ("dmapping_add", dict(id=2, type="endpoint-independent"), "dmapping_del"),
    ("pool_add", POOL, "pool_del"),
    ("logging_add", dict(dest="192.0.2.9", dest_port=514), "logging_del"),
    ("mapt_bmr_add", RULE, "mapt_bmr_del"),
    ("mapt_dmr_add", dict(id=1, prefix="2001:db8:1::/64"), "mapt_dmr_del"),
]


async def test_every_command_reaches_the_server_and_can_be_taken_back(client):
    for method, values, _ in CONFIGURATION:
        await getattr(client, method)(**values)
    await client.range_add(id=1, start_addr="192.0.3.1", end_addr="192.0.3.2")
    await client.ipalias_upload()
    await client.prefix_mod(prefix="2001:db8::/96", prefix_kind="stateful")  # it is still there
    assert client.model.totals() == (2, 1, 1, 1, 1, 1, 1, 2, 1)
    assert await client.stats_totals() == client.model.totals()
    assert len(client.model.save()) == 16
    await client.range_del(id=1, start_addr="192.0.3.1", end_addr="192.0.3.2")
    for _, values, takes_back in CONFIGURATION:
        if takes_back:
            taken = inspect.signature(getattr(client, takes_back)).parameters
            await getattr(client, takes_back)(**{key: value for key, value in values.items() if key in taken})
    assert client.model.totals() == (2, 0, 0, 0, 0, 0, 0, 0, 0)


async def test_verdicts_reach_their_own_commands_in_whatever_order_they_come(client):
    client.model.hold()
    futures = [client.dmapping_add(id=i, type=0) for i in (1, 2, 1)]
    await settled()
    client.model.release("reverse")
    first, second, third = await asyncio.gather(*futures, return_exceptions=True)
    assert first is None and second is None
    assert (third.code, third.text) == (EXISTS, "the server has this entry already")
    assert str(third) == "the server has this entry already (0x6004)"
    client.model.duplicate(3)
    await client.timeout_set(**UDP)
    await client.timeout_set(**UDP)


async def test_a_refused_rule_is_an_error_and_in_no_lookup(client):
    client.model.fail_next(VALUE)
    assert (await failure(client.mapt_bmr_add(**RULE))).code == VALUE
    await client.mapt_bmr_add(**RULE)  # the table has forgotten it
    assert client.model.lookup("192.0.2.7")[1:] == (1, 2, 24)
    assert (await failure(client.mapt_bmr_add(**RULE))).code == EXISTS
    assert client.model.lookup("2001:db8:7::1")[1:] == (1, 2, 32)
    assert (client.model.lookups(1), client.model.lookups(9)) == (2, None)
    client.model.fail_next(VALUE)
    assert (await failure(client.mapt_dmr_add(id=1))).code == VALUE


async def test_a_rule_that_no_server_got_has_no_verdict_and_can_be_added_again():
    model = Model()
    async with Client() as client:
        model.fail_next(VALUE)
        assert (await failure(client.mapt_bmr_add(**RULE))).code == VALUE
        model.pause(True)
        rule = client.mapt_bmr_add(**RULE)
        await settled()
        model.close()
        assert type(await failure(rule)) is Unreachable
        with Model() as model:
            await client.mapt_bmr_add(**RULE)
            assert model.lookup("192.0.2.7")[1:] == (1, 2, 24)


async def test_a_rule_is_installed_again_when_a_new_server_has_it_under_another_index():
    with Model() as model:
        client = await Client().__aenter__()
        await client.mapt_bmr_add(**RULE)
    await settled()
    with Model() as model:
        await client.mapt_bmr_add(**RULE | dict(rule_id=7, v6_prefix="2001:db9::/32", v4_prefix="198.51.100.0/24"))
        await client.mapt_bmr_add(**RULE)
        assert model.lookup("192.0.2.7")[1:] == (1, 2, 24)
        client.close()


async def test_an_unanswered_command_times_out_and_its_late_answer_is_ignored(clock):
    async with Client(timeout=2) as client:
        client.model.hold()
        late, later = client.timeout_set(**UDP), client.timeout_set(**UDP, timeout=4)
        patient, endless = client.pool_add(**POOL, timeout=9), client.pool_del(id=9, timeout=math.inf)
        await settled()
        clock(1.9)
        client.model.notify_event()
        await settled()
        assert not late.done()
        clock(0.2)
        assert type(await failure(late)) is TimedOut
        clock(2)
        await settled()
        assert type(later.exception()) is TimedOut
        asks = asyncio.ensure_future(client.stats_pools(timeout=3))
        await settled()
        clock(3)
        assert type(await failure(asks)) is TimedOut
        unknown = [client.pool_del(id=9) for _ in range(3)]
        client.model.release()
        await patient
        for future in (endless, *unknown):
            assert (await failure(future)).code == NO_ENTRY
        with pytest.raises(ValueError, match="timeout 0"):
            client.timeout_set(**UDP, timeout=0)
        many = [client.timeout_set(**UDP) for _ in range(20_000)]
        clock(2.5)
        await asyncio.gather(*many)  # their answers come in time, but it takes several turns to process them


async def test_a_cancelled_command_disturbs_no_other(client):
    client.model.hold()
    cancelled, unknown = ([client.pool_del(id=9) for _ in range(5)] for _ in range(2))
    kept = client.pool_add(**POOL)
    walk = asyncio.ensure_future(client.stats_pools())
    await settled()
    for future in (*cancelled, walk):
        future.cancel()
    later = [client.timeout_set(**UDP) for _ in range(300)]
    await settled()
    client.model.release("shuffled")
    await asyncio.gather(kept, *later)
    assert [future.exception().code for future in unknown] == [NO_ENTRY] * 5
    assert [pool.id for pool in await client.stats_pools()] == [1]


async def test_the_slot_of_a_failed_command_is_used_again(client):
    slots = set()
    for _ in range(9):
        future = client.pool_del(id=9)
        slots.update(client._futures)
        assert (await failure(future)).code == NO_ENTRY
    assert len(slots) == 1


async def test_commands_end_with_the_server_that_had_them():
    model = Model()
    async with Client() as client:
        model.hold()
        taken = [client.timeout_set(**UDP), client.mapt_bmr_add(**RULE)]
        asks = asyncio.ensure_future(client.stats_pools())
        await settled()
        model.close()
        for end in await asyncio.gather(*taken, asks, return_exceptions=True):
            assert type(end) is ServerGone
        assert client.is_bound and not client.is_connected
        for nobody in (client.timeout_set(**UDP), client.mapt_bmr_add(**RULE), client.stats_pools()):
            assert type(await failure(nobody)) is Unreachable
        with Model() as model:
            await client.mapt_bmr_add(**RULE)
            model.pause(True)
            waits = client.timeout_set(**UDP)
            await settled()
        assert type(await failure(waits)) is Unreachable  # the server never took it
    assert type(await failure(Client("nobody").__aenter__())) is Unreachable


async def test_a_load_that_finds_a_new_server_ends_what_the_old_one_had():
    model = Model()
    async with Client() as client:
        model.silent(True)
        taken = client.timeout_set(**UDP)
        await settled()
        model.silent(False)
        model.hold()
        load = asyncio.ensure_future(client.load(batch_of(3), window=1))
        await settled()
        model.release()  # the next command of the load goes to the new server
        model.close()
        with Model() as model:
            await load
            assert model.totals().rules == 2
            assert type(await failure(taken)) is ServerGone


async def test_outstanding_commands_fail_as_not_bound_when_the_client_ends():
    async with Client() as client:
        client.model.hold()
        futures = [client.timeout_set(**UDP), asyncio.ensure_future(client.stats_pools())]
        futures += [asyncio.ensure_future(client.load(batch_of(5)))]
        await settled()
        for _ in range(2):  # they do not wait for the others; the first may end in a turn that was planned before
            assert type(await failure(client.timeout_set(**UDP, timeout=0.05))) is TimedOut
        with pytest.raises(RuntimeError, match="another client"):
            async with Client():
                pass
        with pytest.raises(RuntimeError, match="entered already"):
            await client.__aenter__()
    for end in await asyncio.gather(*futures, return_exceptions=True):
        assert end.text == "client not bound"
    assert not client.is_bound and not client.is_connected
    with pytest.raises(Error, match="client not bound"):
        client.timeout_set(**UDP)
    async with Client() as again:
        await again.timeout_set(**UDP)


@pytest.mark.parametrize("timeout", [0, -1, math.nan, "5", True, [5], timedelta(0)])
async def test_an_invalid_timeout_is_refused_with_the_allowed_values(timeout):
    with pytest.raises(ValueError, match="must be more than 0 seconds, a number or a timedelta"):
        Client(timeout=timeout)
    async with Client(timeout=timedelta(seconds=3)) as client:
        with pytest.raises(ValueError, match="must be more than 0 seconds"):
            client.timeout_set(**UDP, timeout=timeout)
        await client.timeout_set(**UDP, timeout=timedelta(milliseconds=1500))


async def test_another_thread_may_not_call_but_its_garbage_collector_may_end_a_query(client):
    client.model.hold()
    query = client.stats_pools()
    query.send(None)  # it waits for an answer
    assert client.outstanding == 1
    uses = [
        lambda: client.timeout_set(**UDP),
        lambda: asyncio.run(client.stats_pools()),
        lambda: asyncio.run(client.load(batch_of(1))),
        client.close,
        client.model.close,
        lambda: client.model.delay(1),
        Model,
        lambda: asyncio.run(Client().__aenter__()),
    ]

    def misuse():
        for use in uses:
            with pytest.raises(RuntimeError, match="another event loop|outside the event loop|no running event loop"):
                use()
        query.close()  # the garbage collector does the same, in any thread
        assert client.outstanding == 1

    with ThreadPoolExecutor() as threads:
        threads.submit(misuse).result()  # the event loop does not run meanwhile
    await settled()
    assert client.is_bound and client.outstanding == 0


def rule(i):
    return dict(rule_id=i, domain_id=1, v6_prefix=f"2001:0:{i:x}::/48", v4_prefix=f"10.{i >> 8}.{i & 255}.0/24")


def batch_of(count):
    batch = Batch()
    for i in range(1, count + 1):
        batch.mapt_bmr_add(**rule(i))
    return batch


async def test_a_batch_is_loaded_through_a_window(client):
    await client.load(Batch())
    await client.load(batch_of(3000), window=7)
    assert client.model.totals().rules == 3000
    assert client.model.lookup("10.11.184.1").rule_id == 3000
    again = Batch()
    again.timeout_set(**UDP)
    for i in (1, 2, 3001, 3002):
        again.mapt_bmr_del(**rule(i))
    said = "2 of 5 commands failed, the first at 3: the server has no such entry"
    failed = await failure(client.load(again))
    assert type(failed) is LoadFailed and said in str(failed)
    assert {place: error.code for place, error in failed.failures.items()} == {3: NO_ENTRY, 4: NO_ENTRY}
    client.model.hold()
    commands = client.model.counts().commands
    stopped = asyncio.ensure_future(client.load(again, window=2))
    await settled()
    assert client.model.counts().commands == commands + 2
    stopped.cancel()
    client.model.release()
    await client.timeout_set(**UDP)
    model, client.model = client.model, None
    model.close()
    failed = await failure(client.load(batch_of(4)))
    assert [type(error) for error in failed.failures.values()] == [Unreachable] * 4


async def test_the_client_knows_when_the_channel_is_full_and_when_it_has_room():
    batch = Batch()
    batch.interface_set(ifh=1)
    batch.commands *= 100_000

    async def fill():
        model.pause(True)
        load = asyncio.ensure_future(client.load(batch, window=len(batch)))
        await settled()
        assert client.is_throttled and client.outstanding == 100_000
        return load

    model = Model()
    async with Client(timeout=math.inf) as client:
        load = await fill()
        gone, drained = (asyncio.ensure_future(client.may_send()) for _ in range(2))
        await settled()
        assert not drained.done()
        gone.cancel()
        model.pause(False)
        await drained
        await load
        load = await fill()
        model.close()
        await client.may_send()
        failed = await failure(load)
        assert {type(error) for error in failed.failures.values()} == {Unreachable}


async def test_unsolicited_messages_reach_their_handlers():
    heard = []
    handlers = dict(on_record=lambda *told: heard.append(told), on_event=lambda: heard.append("event"))
    async with Client(**handlers, on_mapping=heard.append) as client:
        await settled()
        client.model.notify_record("add", 1, 2, 3)
        client.model.notify_record("del", 4, 5, 6)
        client.model.notify_event()
        client.model.notify_mapping(7, True, 8)
        await settled()
    assert heard == [("add", (1, 2, 3)), ("del", (4, 5, 6)), "event", (7, "unknown", True, 8)]


@pytest.mark.skipif("NATCTL" not in os.environ, reason="needs natctl")
async def test_a_server_in_another_process_may_be_killed_and_started_again(tmp_path, monkeypatch):
    monkeypatch.setenv("XDG_RUNTIME_DIR", str(tmp_path))
    pipes = dict(stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)

    async def serve():
        server = await asyncio.create_subprocess_exec(os.environ["NATCTL"], "serve", "alpha", **pipes)
        assert b"serving" in await server.stdout.readline()
        return server

    server = await serve()
    example = await asyncio.create_subprocess_exec(sys.executable, os.environ["PAL_EXAMPLE"], "alpha", **pipes)
    said = (await example.communicate())[0].decode()
    assert said == "10000 of 10000 commands settled: {'done': 10000}\n"
    async with Client("alpha") as client:
        assert (await client.stats_totals()).rules == 2500
        server.send_signal(signal.SIGSTOP)
        unanswered = [client.timeout_set(**UDP) for _ in range(100)]
        server.kill()
        await server.wait()
        for end in await asyncio.gather(*unanswered, return_exceptions=True):
            assert type(end) in (Unreachable, ServerGone)
        server = await serve()
        await client.mapt_bmr_add(**RULE)
        assert (await client.stats_totals()).rules == 1
        server.kill()
        await server.wait()
    with Model(listen="beta") as model:
        words = "--connect beta timeout set --type udp --value 5m".split()
        natctl = await asyncio.create_subprocess_exec(os.environ["NATCTL"], *words, **pipes)
        assert (await natctl.communicate())[0] == b"timeout set: ok\n"
        assert model.boot().changes == 1
