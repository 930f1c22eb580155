"""
Client of a NAT64 service for asyncio.

    async with Client("alpha") as client:  # a server in another process; Client() makes one in this process
        await client.pool_add(id=1, param=1, start_addr="192.0.2.1", end_addr="192.0.2.254")
        async for session in client.sessions(protocol="udp"):
            ...
"""

from ._commands import (
    Boot,
    Commands,
    Counts,
    FullSession,
    Interface,
    Limit,
    Mapping,
    Pool,
    Session,
    System,
    Totals,
)
from ._queries import Configuration, Item
from ._sessions import Sessions
from .client import Batch, Client
from .errors import Error, LoadFailed, ServerGone, TimedOut, Unreachable
from .model import Match, Model

__all__ = [
    "Batch",
    "Boot",
    "Client",
    "Commands",
    "Configuration",
    "Counts",
    "Error",
    "FullSession",
    "Interface",
    "Item",
    "Limit",
    "LoadFailed",
    "Mapping",
    "Match",
    "Model",
    "Pool",
    "ServerGone",
    "Session",
    "Sessions",
    "System",
    "TimedOut",
    "Totals",
    "Unreachable",
]
