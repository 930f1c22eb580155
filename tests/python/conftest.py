"""Runs each test, a coroutine, on its own event loop, and checks that it leaves nothing on the platform."""

import asyncio
import inspect
from contextlib import nullcontext

import pytest

from fwx_nat64 import Client, Error
from fwx_nat64._driver import driver
from fwx_nat64._native import ffi, lib

NO_ENTRY, EXISTS, VALUE = 0x6003, 0x6004, 0x6006


@pytest.hookimpl(tryfirst=True)
def pytest_pyfunc_call(pyfuncitem):
    if not inspect.iscoroutinefunction(pyfuncitem.obj):
        return None
    arguments = {name: pyfuncitem.funcargs[name] for name in pyfuncitem._fixtureinfo.argnames}

    async def run():
        async with arguments.get("client", nullcontext()):
            await pyfuncitem.obj(**arguments)

    asyncio.run(asyncio.wait_for(run(), 60))
    return True


@pytest.fixture
def client():
    """Is bound while the test runs."""
    return Client()


@pytest.fixture(autouse=True)
def nothing_stays():
    yield
    live = ffi.new("fwx_host_live_t *")
    lib.fwx_host_live_get(live)
    kinds = [name for name, _ in ffi.typeof("fwx_host_live_t").fields]
    assert {kind: getattr(live, kind) for kind in kinds} == dict.fromkeys(kinds, 0)


@pytest.fixture
def clock():
    """A function that advances the platform's clock by seconds. Otherwise the clock stands still."""

    def turn(seconds):
        lib.fwx_host_clock_turn(round(seconds * 1000))
        driver.wake()

    turn(0)
    yield turn
    lib.fwx_host_clock_run()


async def failure(awaitable):
    """What a command, query or load ends with, which must be an error."""
    with pytest.raises(Error) as failed:
        await awaitable
    return failed.value


async def settled():
    """Runs enough turns of the event loop to complete everything that does not wait for time or another process."""
    for _ in range(20):
        await asyncio.sleep(0)
