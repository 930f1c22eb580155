"""Queries of a client: statistics, the configuration, session walks, and what a model saves and restores."""

import asyncio
from ipaddress import ip_address

import pytest
from conftest import VALUE, failure, settled

from fwx_nat64 import Batch, Client, Error, Model, Sessions
from fwx_nat64._commands import FULLSESSION_ENTRIES


async def with_sessions(client, count):
    await client.pool_add(id=1, param=1, start_addr="192.0.2.1", end_addr="192.0.2.254")
    await client.dmapping_add(id=3, type="endpoint-independent")
    client.model.sessions_generate(count)


async def test_statistics_have_typed_entries_and_lists_are_whole(client):
    await with_sessions(client, 10)
    await client.interface_set(ifh=7, sful_prefix="2001:db8::/96", mtu=1500)
    await client.limit_add(type="sessions", value=99)
    assert await client.stats_pools() == [(1, 0, 254, 10)]
    assert await client.stats_mappings() == [(3, "dynamic", True, 10)]
    assert await client.stats_interfaces() == [(7, True, False, 1500, 1)]
    assert await client.stats_limits() == [("sessions", 99, 10)]
    assert (await client.stats_boot()) == client.model.boot()
    assert (await client.stats_counts()).clients == 1
    client.model.fail_next(VALUE)
    assert (await failure(client.stats_pools())).code == VALUE
    system = await client.stats_system()
    assert (system.sessions, system.refused_value) == (10, 1)
    batch = Batch()
    for i in range(2, 2501):
        batch.pool_add(id=i, param=1, start_addr=f"10.0.{i >> 8}.{i & 255}", end_addr=f"10.0.{i >> 8}.{i & 255}")
    await client.load(batch)
    client.model.reply_limit(24 * 64)
    assert [pool.id for pool in await client.stats_pools()] == list(range(1, 2501))


async def test_the_configuration_comes_as_the_commands_that_make_it(client):
    empty = await client.configuration()
    assert (empty.boot_id, empty.changes, empty.items) == (client.model.boot().boot_id, 0, [])
    await client.timeout_set(type="udp", value=7)
    await client.mapt_bmr_add(rule_id=3, domain_id=1, v6_prefix="2001:db8::/40", v4_prefix="192.0.2.0/24")
    held = await client.configuration()
    assert held.changes == 2
    timeout, rule = held.items
    assert timeout == (3, 14, bytes([1, 0, 0, 0, 7, 0, 0, 0]))
    assert (rule.number, rule.op_code, len(rule.payload)) == (13, 0, 52)
    assert rule.payload[8:16] == bytes([3, 0, 0, 0, 1, 0, 0, 0])
    assert rule.payload[48:] == bytes([1, 0, 0, 0])  # the server's index
    batch = Batch()
    for i in range(2500):
        batch.dmapping_add(id=i + 1, type="endpoint-independent")
    await client.load(batch)
    assert len((await client.configuration()).items) == 2502
    client.model.fail_next(VALUE)
    assert (await failure(client.configuration())).code == VALUE


async def test_a_walk_shows_each_session_once_with_both_sides(client):
    await with_sessions(client, 2500)
    sessions = [session async for session in client.sessions_full(page=300)]
    assert [session.src for session in sessions] == [ip_address("2001:db8:64::") + n for n in range(2500)]
    eighth = sessions[7]
    assert (eighth.protocol, eighth.state, eighth.dst) == ("udp", "active", ip_address("198.18.0.7"))
    assert (eighth.src_port, eighth.dst_port) == (1031, 443)
    short = [session async for session in client.sessions(src="2001:db8:64::7")]
    assert short == [(eighth.id, eighth.src, eighth.dst, 1031, 443, "udp", 3, 0)]
    assert (eighth.pool_addr, eighth.mapping_id, eighth.pool_id) == (ip_address("192.0.2.8"), 3, 1)
    await client.smapping_add(id=9, addr1="2001:db8::1", addr2="192.0.2.9")
    static = [session async for session in client.sessions(src="2001:db8::1")]
    assert [(session.mapping_id, session.protocol) for session in static] == [(9, 0)]  # it has no name


async def test_a_walk_that_gets_sessions_in_another_format_ends_with_an_error(client):
    await with_sessions(client, 10)
    walk = Sessions(client, bytes(88), 10, 1000, FULLSESSION_ENTRIES, 3)  # the server does not know format 3
    with pytest.raises(Error, match="the server sends its sessions in another format"):
        await walk.next_page()
    assert client.outstanding == 0


@pytest.mark.parametrize(
    "chosen, numbers",
    [
        (dict(protocol="tcp", port=1030), [6]),
        (dict(protocol=17, port=1030), []),
        (dict(src="2001:db8:64::5"), [5]),
        (dict(dst="198.18.0.9"), [9]),
        (dict(pool_addr="192.0.2.3"), [2]),
        (dict(), list(range(20))),
    ],
)
async def test_a_walk_and_a_clear_take_the_sessions_that_match(client, chosen, numbers):
    await with_sessions(client, 20)
    found = [session.src_port - 1024 async for session in client.sessions(**chosen)]
    assert found == numbers
    await client.session_clear(**chosen)
    assert client.model.totals().sessions == 20 - len(numbers)


async def test_a_walk_that_is_left_ends_and_takes_no_more_from_the_server(client):
    await with_sessions(client, 100_000)
    async for session in client.sessions(page=10):
        if session.src_port == 1024 + 15:
            break
    replies = client.model.counts().replies
    await settled()
    assert client.model.counts().replies == replies
    walk = client.sessions(page=7)
    assert len(await walk.next_page()) == 7
    client.model.hold()
    walk.close()
    assert await walk.next_page() == []
    client.model.release()
    await client.timeout_set(type=1, value=1)


async def test_a_query_that_is_being_answered_does_not_time_out(clock):
    async def ids():
        return [session.src_port - 1024 async for session in client.sessions()]

    async with Client(timeout=2) as client:
        await with_sessions(client, 4)
        client.model.reply_limit(1)  # one session in each reply
        client.model.delay(1.5)
        walk = asyncio.ensure_future(ids())
        for _ in range(4):
            await settled()
            clock(1.5)
        assert await walk == [0, 1, 2, 3]


async def test_a_model_is_restored_from_the_saved_state_of_another():
    async with Client() as client:
        await with_sessions(client, 0)
        await client.mapt_bmr_add(rule_id=1, domain_id=2, v6_prefix="2001:db8::/32", v4_prefix="192.0.2.0/24")
        saved = client.model.save()
    with pytest.raises(Error, match="invalid argument"):
        Model(listen="no/name")  # it does not stay
    with Model() as model:
        model.restore(saved)
        assert model.totals().pools == model.totals().dynamic_mappings == model.totals().rules == 1
        assert model.save() == saved
        with pytest.raises(Error, match="0x6004"):
            model.restore(saved)
    with pytest.raises(Error, match="the model is closed"):
        model.totals()
