"""Commands and what queries bring, printed from the tables of the library's tree."""

from __future__ import annotations

from ipaddress import IPv4Address, IPv6Address
from typing import Generic, NamedTuple, TypeVar

from ._values import (
    Address, Address4, Entries, Named, Prefix4, Prefix6, Seconds,
    address, command, named, names_of, number, octets, prefix, read_address, seconds,
)

Sent = TypeVar("Sent")

TIMEOUT_TYPE_NAMES = {
    "udp": 1, "tcp-trans": 2, "tcp-est": 3, "tcp-in-syn": 4, "fragment-min": 5, "icmp": 6, "udp-min": 7,
}
_TIMEOUT_TYPE = named("type", 1, 7, TIMEOUT_TYPE_NAMES)
_TIMEOUT_VALUE = seconds("value", 0, 4294967295)
LIMIT_TYPE_NAMES = {
    "sessions": 1,
}
_LIMIT_TYPE = named("type", 1, 1, LIMIT_TYPE_NAMES)
_LIMIT_VALUE = number("value", 0, 4294967295)
SERVICE_TYPE_NAMES = {
    "alg": 1,
}
_SERVICE_TYPE = named("type", 1, 1, SERVICE_TYPE_NAMES)
_SERVICE_VALUE = number("value", 0, 4294967295)
ADJ_TYPE_NAMES = {
    "inside": 1, "outside": 2, "logging": 3, "replication": 4,
}
_ADJ_TYPE = named("type", 1, 13, ADJ_TYPE_NAMES)
_ADJ_ADDRESS = address("address", 4, 6)
_REPLICATION_VALUE = number("value", 0, 4294967295)
_REPLICATION_VALUE2 = number("value2", 0, 4294967295)
_SETTINGS_OPAQUE = octets("opaque", 16)
_INTERFACE_IFH = number("ifh", 0, 4294967295)
_INTERFACE_ENABLE = number("enable", 0, 1)
_INTERFACE_SLESS_PREFIX = prefix("sless_prefix", 6, 96, 12, 16)
_INTERFACE_SFUL_PREFIX = prefix("sful_prefix", 6, 96, 12, 16)
_INTERFACE_SLESS_PREFIX_V6V4 = prefix("sless_prefix_v6v4", 6, 96, 12, 16)
_INTERFACE_MTU = number("mtu", 0, 65535)
_NVI_IFH = number("ifh", 0, 4294967295)
_PREFIX_PREFIX = prefix("prefix", 6, 96, 12, 16)
PREFIX_PREFIX_KIND_NAMES = {
    "stateful": 1, "stateless": 2, "stateless-v6v4": 3, "dns64": 4,
}
_PREFIX_PREFIX_KIND = named("prefix_kind", 1, 4, PREFIX_PREFIX_KIND_NAMES)
_SMAPPING_ID = number("id", 0, 4294967295)
_SMAPPING_ADDR1 = address("addr1", 4, 6)
_SMAPPING_ADDR2 = address("addr2", 4, 6)
_DMAPPING_ID = number("id", 1, 4294967295)
DMAPPING_TYPE_NAMES = {
    "endpoint-independent": 0, "address-dependent": 1, "address-and-port-dependent": 2,
}
_DMAPPING_TYPE = named("type", 0, 7, DMAPPING_TYPE_NAMES)
_DMAPPING_EXT = octets("ext", 24)
_DMAPPING_EXT_ARG = number("ext_arg", 0, 4294967295)
_POOL_ID = number("id", 1, 4294967295)
_POOL_PARAM = number("param", 1, 4294967295)
_POOL_START_ADDR = address("start_addr", 4)
_POOL_END_ADDR = address("end_addr", 4)
_POOL_HSL_ID = number("hsl_id", 0, 4294967295)
_RANGE_ID = number("id", 1, 4294967295)
_RANGE_START_ADDR = address("start_addr", 4)
_RANGE_END_ADDR = address("end_addr", 4)
_LOGGING_DEST = address("dest", 4)
_LOGGING_DEST_PORT = number("dest_port", 1, 65535)
LOGGING_PARAM_NAMES = {
    "udp": 17, "tcp": 6, "sctp": 132,
}
_LOGGING_PARAM = named("param", 0, 255, LOGGING_PARAM_NAMES)
LOGGING_PARAM2_NAMES = {
    "all": 0, "session": 6, "bib": 10, "port-block": 16,
}
_LOGGING_PARAM2 = named("param2", 0, 65535, LOGGING_PARAM2_NAMES)
_MAPT_BMR_RULE_ID = number("rule_id", 1, 4294967295)
_MAPT_BMR_DOMAIN_ID = number("domain_id", 0, 4294967295)
_MAPT_BMR_V6_PREFIX = prefix("v6_prefix", 6, 64, 8, 9)
_MAPT_BMR_V4_PREFIX = prefix("v4_prefix", 4, 32, 4, 5)
_MAPT_BMR_EA_LEN = number("ea_len", 0, 65535)
_MAPT_BMR_PSID_OFFSET = number("psid_offset", 0, 65535)
_MAPT_BMR_PSID_LEN = number("psid_len", 0, 65535)
_MAPT_BMR_PSID = number("psid", 0, 65535)
_MAPT_DMR_ID = number("id", 1, 4294967295)
_MAPT_DMR_PREFIX = prefix("prefix", 6, 128, 16, 17)
_TIMEOUT_SET = command("timeout", 1, "II")
_LIMIT_ADD = command("limit", 1, "II")
_LIMIT_MOD = command("limit", 2, "II")
_LIMIT_DEL = command("limit", 3, "II")
_SERVICE_ADD = command("service", 1, "II")
_SERVICE_DEL = command("service", 3, "II")
_ADJ_SET = command("adj", 1, "I20s")
_REPLICATION_SET = command("replication", 1, "I4xI")
_REPLICATION_UNSET = command("replication", 3, "I4xI")
_SETTINGS_SET = command("settings", 1, "16s")
_INTERFACE_SET = command("interface", 1, "III16s4xI16s4xI16s4xIH2x")
_NVI_ENABLE = command("nvi", 1, "I")
_PREFIX_ADD = command("prefix", 1, "16sI")
_PREFIX_MOD = command("prefix", 2, "16sI")
_PREFIX_DEL = command("prefix", 3, "16sI")
_SMAPPING_ADD = command("smapping", 1, "I4x20s16x20s20x")
_SMAPPING_DEL = command("smapping", 3, "I80x")
_DMAPPING_ADD = command("dmapping", 1, "I8xI24sI8x")
_DMAPPING_MOD = command("dmapping", 2, "I8xI24sI8x")
_DMAPPING_DEL = command("dmapping", 3, "I48x")
_POOL_ADD = command("pool", 1, "I4xI20s20sI")
_POOL_MOD = command("pool", 2, "I4xI20s20sI")
_POOL_DEL = command("pool", 3, "I52x")
_RANGE_ADD = command("range", 1, "I20s20s")
_RANGE_DEL = command("range", 3, "I20s20s")
_LOGGING_ADD = command("logging", 1, "IIB3x20sHH")
_LOGGING_MOD = command("logging", 2, "IIB3x20sHH")
_LOGGING_DEL = command("logging", 3, "IIB3x20sHH")
_MAPT_BMR_ADD = command("mapt_bmr", 1, "II9s5sHHHH2x")
_MAPT_BMR_DEL = command("mapt_bmr", 3, "II9s5sHHHH2x")
_MAPT_DMR_ADD = command("mapt_dmr", 1, "I17s7x")
_MAPT_DMR_DEL = command("mapt_dmr", 3, "I17s7x")


class Commands(Generic[Sent]):
    """Every command that configures the service. What a method returns depends on where it sends to."""

    def _send(self, command: bytes, timeout: float | None) -> Sent:
        raise NotImplementedError

    def timeout_set(
        self, *, type: Named, value: Seconds, timeout: float | None = None,
    ) -> Sent:
        """Sets a timeout.

        type: kind of timeout (1 to 7, or udp, tcp-trans, tcp-est, tcp-in-syn, fragment-min, icmp, udp-min)
        value: the timeout (0 to 4294967295 seconds, or a time such as 2h4m)
        """
        return self._send(
            _TIMEOUT_SET(
                _TIMEOUT_TYPE(type), _TIMEOUT_VALUE(value),
            ),
            timeout,
        )

    def limit_add(
        self, *, type: Named, value: int, timeout: float | None = None,
    ) -> Sent:
        """Adds a limit.

        type: kind (1, or sessions)
        value: most that is allowed (0 to 4294967295)
        """
        return self._send(
            _LIMIT_ADD(
                _LIMIT_TYPE(type), _LIMIT_VALUE(value),
            ),
            timeout,
        )

    def limit_mod(
        self, *, type: Named, value: int, timeout: float | None = None,
    ) -> Sent:
        """Modifies a limit.

        type: kind (1, or sessions)
        value: most that is allowed (0 to 4294967295)
        """
        return self._send(
            _LIMIT_MOD(
                _LIMIT_TYPE(type), _LIMIT_VALUE(value),
            ),
            timeout,
        )

    def limit_del(
        self, *, type: Named, value: int = 0, timeout: float | None = None,
    ) -> Sent:
        """Deletes a limit.

        type: kind (1, or sessions)
        value: most that is allowed (0 to 4294967295)
        """
        return self._send(
            _LIMIT_DEL(
                _LIMIT_TYPE(type), _LIMIT_VALUE(value),
            ),
            timeout,
        )

    def service_add(
        self, *, type: Named, value: int, timeout: float | None = None,
    ) -> Sent:
        """Adds a service.

        type: kind (1, or alg)
        value: port of its protocol (0 to 4294967295)
        """
        return self._send(
            _SERVICE_ADD(
                _SERVICE_TYPE(type), _SERVICE_VALUE(value),
            ),
            timeout,
        )

    def service_del(
        self, *, type: Named, value: int = 0, timeout: float | None = None,
    ) -> Sent:
        """Deletes a service.

        type: kind (1, or alg)
        value: port of its protocol (0 to 4294967295)
        """
        return self._send(
            _SERVICE_DEL(
                _SERVICE_TYPE(type), _SERVICE_VALUE(value),
            ),
            timeout,
        )

    def adj_set(
        self, *, type: Named, address: Address, timeout: float | None = None,
    ) -> Sent:
        """Sets an adjacency.

        type: kind of adjacency (1 to 13, or inside, outside, logging, replication)
        address: its address
        """
        return self._send(
            _ADJ_SET(
                _ADJ_TYPE(type), _ADJ_ADDRESS(address),
            ),
            timeout,
        )

    def replication_set(
        self, *, value: int = 0, value2: int = 0, timeout: float | None = None,
    ) -> Sent:
        """Sets the replication.

        value: first word, passed to the server (0 to 4294967295)
        value2: second word, passed to the server (0 to 4294967295)
        """
        return self._send(
            _REPLICATION_SET(
                _REPLICATION_VALUE(value), _REPLICATION_VALUE2(value2),
            ),
            timeout,
        )

    def replication_unset(
        self, *, value: int = 0, value2: int = 0, timeout: float | None = None,
    ) -> Sent:
        """Takes back the replication.

        value: first word, passed to the server (0 to 4294967295)
        value2: second word, passed to the server (0 to 4294967295)
        """
        return self._send(
            _REPLICATION_UNSET(
                _REPLICATION_VALUE(value), _REPLICATION_VALUE2(value2),
            ),
            timeout,
        )

    def settings_set(
        self, *, opaque: bytes, timeout: float | None = None,
    ) -> Sent:
        """Sets the global settings.

        opaque: the settings, passed to the server
        """
        return self._send(
            _SETTINGS_SET(
                _SETTINGS_OPAQUE(opaque),
            ),
            timeout,
        )

    def interface_set(
        self, *, ifh: int, enable: int = 1, sless_prefix: Prefix6 | None = None, sful_prefix: Prefix6 | None = None,
        sless_prefix_v6v4: Prefix6 | None = None, mtu: int | None = None, timeout: float | None = None,
    ) -> Sent:
        """Sets an interface's prefixes and MTU; those that are not given are dropped.

        ifh: interface handle (0 to 4294967295)
        enable: whether it translates, 1 without it (0 to 1)
        sless_prefix: stateless prefix
        sful_prefix: stateful prefix
        sless_prefix_v6v4: stateless prefix from IPv6 to IPv4
        mtu: MTU in bytes (0 to 65535)
        """
        return self._send(
            _INTERFACE_SET(
                _INTERFACE_IFH(ifh), _INTERFACE_ENABLE(enable), sless_prefix is not None,
                b"" if sless_prefix is None else _INTERFACE_SLESS_PREFIX(sless_prefix), sful_prefix is not None,
                b"" if sful_prefix is None else _INTERFACE_SFUL_PREFIX(sful_prefix), sless_prefix_v6v4 is not None,
                b"" if sless_prefix_v6v4 is None else _INTERFACE_SLESS_PREFIX_V6V4(sless_prefix_v6v4), mtu is not None,
                0 if mtu is None else _INTERFACE_MTU(mtu),
            ),
            timeout,
        )

    def nvi_enable(
        self, *, ifh: int, timeout: float | None = None,
    ) -> Sent:
        """Enables an interface.

        ifh: interface handle (0 to 4294967295)
        """
        return self._send(
            _NVI_ENABLE(
                _NVI_IFH(ifh),
            ),
            timeout,
        )

    def prefix_add(
        self, *, prefix: Prefix6, prefix_kind: Named, timeout: float | None = None,
    ) -> Sent:
        """Adds a global prefix.

        prefix: the prefix
        prefix_kind: what it is for (1 to 4, or stateful, stateless, stateless-v6v4, dns64)
        """
        return self._send(
            _PREFIX_ADD(
                _PREFIX_PREFIX(prefix), _PREFIX_PREFIX_KIND(prefix_kind),
            ),
            timeout,
        )

    def prefix_mod(
        self, *, prefix: Prefix6, prefix_kind: Named, timeout: float | None = None,
    ) -> Sent:
        """Modifies a global prefix.

        prefix: the prefix
        prefix_kind: what it is for (1 to 4, or stateful, stateless, stateless-v6v4, dns64)
        """
        return self._send(
            _PREFIX_MOD(
                _PREFIX_PREFIX(prefix), _PREFIX_PREFIX_KIND(prefix_kind),
            ),
            timeout,
        )

    def prefix_del(
        self, *, prefix: Prefix6, prefix_kind: Named, timeout: float | None = None,
    ) -> Sent:
        """Deletes a global prefix.

        prefix: the prefix
        prefix_kind: what it is for (1 to 4, or stateful, stateless, stateless-v6v4, dns64)
        """
        return self._send(
            _PREFIX_DEL(
                _PREFIX_PREFIX(prefix), _PREFIX_PREFIX_KIND(prefix_kind),
            ),
            timeout,
        )

    def smapping_add(
        self, *, id: int, addr1: Address, addr2: Address, timeout: float | None = None,
    ) -> Sent:
        """Adds a static mapping.

        id: identifier of the mapping (0 to 4294967295)
        addr1: first address
        addr2: second address
        """
        return self._send(
            _SMAPPING_ADD(
                _SMAPPING_ID(id), _SMAPPING_ADDR1(addr1), _SMAPPING_ADDR2(addr2),
            ),
            timeout,
        )

    def smapping_del(
        self, *, id: int, timeout: float | None = None,
    ) -> Sent:
        """Deletes a static mapping.

        id: identifier of the mapping (0 to 4294967295)
        """
        return self._send(
            _SMAPPING_DEL(
                _SMAPPING_ID(id),
            ),
            timeout,
        )

    def dmapping_add(
        self, *, id: int, type: Named, ext: bytes | None = None, ext_arg: int = 0, timeout: float | None = None,
    ) -> Sent:
        """Adds a dynamic mapping.

        id: identifier of the mapping (1 to 4294967295)
        type: how it maps (0 to 7, or endpoint-independent, address-dependent, address-and-port-dependent)
        ext: second part, passed to the server
        ext_arg: argument of the second part (0 to 4294967295)
        """
        return self._send(
            _DMAPPING_ADD(
                _DMAPPING_ID(id), _DMAPPING_TYPE(type), b"" if ext is None else _DMAPPING_EXT(ext),
                _DMAPPING_EXT_ARG(ext_arg),
            ),
            timeout,
        )

    def dmapping_mod(
        self, *, id: int, type: Named, ext: bytes | None = None, ext_arg: int = 0, timeout: float | None = None,
    ) -> Sent:
        """Modifies a dynamic mapping.

        id: identifier of the mapping (1 to 4294967295)
        type: how it maps (0 to 7, or endpoint-independent, address-dependent, address-and-port-dependent)
        ext: second part, passed to the server
        ext_arg: argument of the second part (0 to 4294967295)
        """
        return self._send(
            _DMAPPING_MOD(
                _DMAPPING_ID(id), _DMAPPING_TYPE(type), b"" if ext is None else _DMAPPING_EXT(ext),
                _DMAPPING_EXT_ARG(ext_arg),
            ),
            timeout,
        )

    def dmapping_del(
        self, *, id: int, timeout: float | None = None,
    ) -> Sent:
        """Deletes a dynamic mapping.

        id: identifier of the mapping (1 to 4294967295)
        """
        return self._send(
            _DMAPPING_DEL(
                _DMAPPING_ID(id),
            ),
            timeout,
        )

    def pool_add(
        self, *, id: int, param: int, start_addr: Address4, end_addr: Address4, hsl_id: int = 0,
        timeout: float | None = None,
    ) -> Sent:
        """Adds an address pool.

        id: identifier of the pool (1 to 4294967295)
        param: parameter, passed to the server (1 to 4294967295)
        start_addr: first address
        end_addr: last address
        hsl_id: identifier of its logging (0 to 4294967295)
        """
        return self._send(
            _POOL_ADD(
                _POOL_ID(id), _POOL_PARAM(param), _POOL_START_ADDR(start_addr), _POOL_END_ADDR(end_addr),
                _POOL_HSL_ID(hsl_id),
            ),
            timeout,
        )

    def pool_mod(
        self, *, id: int, param: int, start_addr: Address4, end_addr: Address4, hsl_id: int = 0,
        timeout: float | None = None,
    ) -> Sent:
        """Modifies an address pool.

        id: identifier of the pool (1 to 4294967295)
        param: parameter, passed to the server (1 to 4294967295)
        start_addr: first address
        end_addr: last address
        hsl_id: identifier of its logging (0 to 4294967295)
        """
        return self._send(
            _POOL_MOD(
                _POOL_ID(id), _POOL_PARAM(param), _POOL_START_ADDR(start_addr), _POOL_END_ADDR(end_addr),
                _POOL_HSL_ID(hsl_id),
            ),
            timeout,
        )

    def pool_del(
        self, *, id: int, timeout: float | None = None,
    ) -> Sent:
        """Deletes an address pool.

        id: identifier of the pool (1 to 4294967295)
        """
        return self._send(
            _POOL_DEL(
                _POOL_ID(id),
            ),
            timeout,
        )

    def range_add(
        self, *, id: int, start_addr: Address4, end_addr: Address4, timeout: float | None = None,
    ) -> Sent:
        """Adds a range of a pool.

        id: identifier of the pool (1 to 4294967295)
        start_addr: first address
        end_addr: last address
        """
        return self._send(
            _RANGE_ADD(
                _RANGE_ID(id), _RANGE_START_ADDR(start_addr), _RANGE_END_ADDR(end_addr),
            ),
            timeout,
        )

    def range_del(
        self, *, id: int, start_addr: Address4, end_addr: Address4, timeout: float | None = None,
    ) -> Sent:
        """Deletes a range of a pool.

        id: identifier of the pool (1 to 4294967295)
        start_addr: first address
        end_addr: last address
        """
        return self._send(
            _RANGE_DEL(
                _RANGE_ID(id), _RANGE_START_ADDR(start_addr), _RANGE_END_ADDR(end_addr),
            ),
            timeout,
        )

    def logging_add(
        self, *, dest: Address4, dest_port: int, param: Named = 0, param2: Named = 0, timeout: float | None = None,
    ) -> Sent:
        """Adds a logging destination.

        dest: address that the records go to
        dest_port: its port (1 to 65535)
        param: protocol that they travel by, the server's choice without it (0 to 255, or udp, tcp, sctp)
        param2: what is logged, all without it (0 to 65535, or all, session, bib, port-block)
        """
        return self._send(
            _LOGGING_ADD(
                1, 1, _LOGGING_PARAM(param), _LOGGING_DEST(dest), _LOGGING_DEST_PORT(dest_port),
                _LOGGING_PARAM2(param2),
            ),
            timeout,
        )

    def logging_mod(
        self, *, dest: Address4, dest_port: int, param: Named = 0, param2: Named = 0, timeout: float | None = None,
    ) -> Sent:
        """Modifies a logging destination.

        dest: address that the records go to
        dest_port: its port (1 to 65535)
        param: protocol that they travel by, the server's choice without it (0 to 255, or udp, tcp, sctp)
        param2: what is logged, all without it (0 to 65535, or all, session, bib, port-block)
        """
        return self._send(
            _LOGGING_MOD(
                1, 1, _LOGGING_PARAM(param), _LOGGING_DEST(dest), _LOGGING_DEST_PORT(dest_port),
                _LOGGING_PARAM2(param2),
            ),
            timeout,
        )

    def logging_del(
        self, *, dest: Address4, dest_port: int, param: Named = 0, param2: Named = 0, timeout: float | None = None,
    ) -> Sent:
        """Deletes a logging destination.

        dest: address that the records go to
        dest_port: its port (1 to 65535)
        param: protocol that they travel by, the server's choice without it (0 to 255, or udp, tcp, sctp)
        param2: what is logged, all without it (0 to 65535, or all, session, bib, port-block)
        """
        return self._send(
            _LOGGING_DEL(
                1, 1, _LOGGING_PARAM(param), _LOGGING_DEST(dest), _LOGGING_DEST_PORT(dest_port),
                _LOGGING_PARAM2(param2),
            ),
            timeout,
        )

    def mapt_bmr_add(
        self, *, rule_id: int, domain_id: int, v6_prefix: Prefix6, v4_prefix: Prefix4, ea_len: int = 0,
        psid_offset: int = 0, psid_len: int = 0, psid: int = 0, timeout: float | None = None,
    ) -> Sent:
        """Adds a basic mapping rule.

        rule_id: identifier of the rule (1 to 4294967295)
        domain_id: its mapping domain (0 to 4294967295)
        v6_prefix: its IPv6 prefix
        v4_prefix: its IPv4 prefix
        ea_len: bits that embed an address (0 to 65535)
        psid_offset: bits in front of the port-set identifier (0 to 65535)
        psid_len: bits of the port-set identifier (0 to 65535)
        psid: the port-set identifier where the EA bits hold none (0 to 65535)
        """
        return self._send(
            _MAPT_BMR_ADD(
                _MAPT_BMR_RULE_ID(rule_id), _MAPT_BMR_DOMAIN_ID(domain_id), _MAPT_BMR_V6_PREFIX(v6_prefix),
                _MAPT_BMR_V4_PREFIX(v4_prefix), _MAPT_BMR_EA_LEN(ea_len), _MAPT_BMR_PSID_OFFSET(psid_offset),
                _MAPT_BMR_PSID_LEN(psid_len), _MAPT_BMR_PSID(psid),
            ),
            timeout,
        )

    def mapt_bmr_del(
        self, *, rule_id: int, domain_id: int, v6_prefix: Prefix6 | None = None, v4_prefix: Prefix4 | None = None,
        ea_len: int = 0, psid_offset: int = 0, psid_len: int = 0, psid: int = 0, timeout: float | None = None,
    ) -> Sent:
        """Deletes a basic mapping rule.

        rule_id: identifier of the rule (1 to 4294967295)
        domain_id: its mapping domain (0 to 4294967295)
        v6_prefix: its IPv6 prefix
        v4_prefix: its IPv4 prefix
        ea_len: bits that embed an address (0 to 65535)
        psid_offset: bits in front of the port-set identifier (0 to 65535)
        psid_len: bits of the port-set identifier (0 to 65535)
        psid: the port-set identifier where the EA bits hold none (0 to 65535)
        """
        return self._send(
            _MAPT_BMR_DEL(
                _MAPT_BMR_RULE_ID(rule_id), _MAPT_BMR_DOMAIN_ID(domain_id),
                b"" if v6_prefix is None else _MAPT_BMR_V6_PREFIX(v6_prefix),
                b"" if v4_prefix is None else _MAPT_BMR_V4_PREFIX(v4_prefix), _MAPT_BMR_EA_LEN(ea_len),
                _MAPT_BMR_PSID_OFFSET(psid_offset), _MAPT_BMR_PSID_LEN(psid_len), _MAPT_BMR_PSID(psid),
            ),
            timeout,
        )

    def mapt_dmr_add(
        self, *, id: int, prefix: Prefix6 | None = None, timeout: float | None = None,
    ) -> Sent:
        """Adds a default mapping rule.

        id: identifier of the rule (1 to 4294967295)
        prefix: IPv6 prefix that stands for all other IPv4 addresses
        """
        return self._send(
            _MAPT_DMR_ADD(
                _MAPT_DMR_ID(id), b"" if prefix is None else _MAPT_DMR_PREFIX(prefix),
            ),
            timeout,
        )

    def mapt_dmr_del(
        self, *, id: int, prefix: Prefix6 | None = None, timeout: float | None = None,
    ) -> Sent:
        """Deletes a default mapping rule.

        id: identifier of the rule (1 to 4294967295)
        prefix: IPv6 prefix that stands for all other IPv4 addresses
        """
        return self._send(
            _MAPT_DMR_DEL(
                _MAPT_DMR_ID(id), b"" if prefix is None else _MAPT_DMR_PREFIX(prefix),
            ),
            timeout,
        )




class Totals(NamedTuple):
    """How many the server holds of each kind."""

    interfaces: int
    prefixes: int
    static_mappings: int
    dynamic_mappings: int
    pools: int
    pool_ranges: int
    loggings: int
    rules: int
    sessions: int


TOTALS_ENTRIES = Entries(
    Totals,
    "QQQQQQQQQ",
    {},
)


class Counts(NamedTuple):
    """What the server has counted."""

    commands: int
    malformed: int
    refused: int
    replies: int
    held: int
    clients: int
    queued_bytes: int
    dropped: int
    turned_away: int


COUNTS_ENTRIES = Entries(
    Counts,
    "QQQQQQQQQ",
    {},
)


class Boot(NamedTuple):
    """Which run of the server it is, and how often its configuration has changed."""

    boot_id: int
    changes: int


BOOT_ENTRIES = Entries(
    Boot,
    "QQ56x",
    {},
)


class System(NamedTuple):
    """How many the server holds of each kind, and what it has refused."""

    interfaces: int
    prefixes: int
    static_mappings: int
    dynamic_mappings: int
    pools: int
    pool_ranges: int
    loggings: int
    rules: int
    sessions: int
    refused_malformed: int
    refused_unknown: int
    refused_no_entry: int
    refused_exists: int
    refused_no_pool: int
    refused_value: int
    refused_overlap: int
    refused_has_ranges: int
    refused_prefix_len: int
    refused_too_many: int
    refused_not_saved: int
    refused_ordered: int


SYSTEM_ENTRIES = Entries(
    System,
    "QQQQQQQQQQQQQQQQQQQQQ",
    {},
)


class Interface(NamedTuple):
    """An interface."""

    ifh: int
    enabled: bool
    nvi: bool
    mtu: int
    prefixes: int


INTERFACE_ENTRIES = Entries(
    Interface,
    "IIIII4x",
    {
        1: bool, 2: bool,
    },
)


class Pool(NamedTuple):
    """An address pool and its use."""

    id: int
    ranges: int
    addresses: int
    sessions: int


POOL_ENTRIES = Entries(
    Pool,
    "IIQQ",
    {},
)
KIND_NAMES = {
    "unknown": 0, "static": 1, "dynamic": 2,
}


class Mapping(NamedTuple):
    """A mapping and its use."""

    id: int
    kind: int | str
    active: bool
    sessions: int


MAPPING_ENTRIES = Entries(
    Mapping,
    "III4xQ",
    {
        1: names_of(KIND_NAMES), 2: bool,
    },
)
TYPE_NAMES = {
    "sessions": 1,
}


class Limit(NamedTuple):
    """A limit and its use."""

    type: int | str
    value: int
    in_use: int


LIMIT_ENTRIES = Entries(
    Limit,
    "IIQ",
    {
        0: names_of(TYPE_NAMES),
    },
)
PROTOCOL_NAMES = {
    "icmp": 1, "tcp": 6, "udp": 17, "icmpv6": 58,
}
STATE_NAMES = {
    "active": 1, "v6-init": 2, "v4-init": 3, "established": 4, "v6-fin": 5, "v4-fin": 6, "fin": 7, "trans": 8,
}


class FullSession(NamedTuple):
    """A session with both sides of its translation."""

    id: int
    protocol: int | str
    state: int | str
    src: IPv4Address | IPv6Address
    dst_ipv6: IPv4Address | IPv6Address
    pool_addr: IPv4Address | IPv6Address
    dst: IPv4Address | IPv6Address
    src_port: int
    pool_port: int
    dst_port: int
    mapping_id: int
    pool_id: int
    age_s: int
    remaining_s: int
    packets_out: int
    bytes_out: int
    packets_in: int
    bytes_in: int


FULLSESSION_ENTRIES = Entries(
    FullSession,
    "QII20s20s20s20sHHH2xIIIIQQQQ",
    {
        1: names_of(PROTOCOL_NAMES), 2: names_of(STATE_NAMES), 3: read_address, 4: read_address, 5: read_address,
        6: read_address,
    },
)


class Session(NamedTuple):
    """A session."""

    id: int
    src: IPv4Address | IPv6Address
    dst: IPv4Address | IPv6Address
    src_port: int
    dst_port: int
    protocol: int | str
    mapping_id: int
    age_s: int


SESSION_ENTRIES = Entries(
    Session,
    "Q20s20sHHIII",
    {
        1: read_address, 2: read_address, 5: names_of(PROTOCOL_NAMES),
    },
)
