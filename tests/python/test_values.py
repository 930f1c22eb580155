"""The records that commands pack, byte by byte, and the values that they refuse before anything is sent."""

from datetime import timedelta
from ipaddress import ip_address, ip_network

import pytest

from fwx_nat64 import Batch

HOST_A = "010200c0"  # 192.0.2.1 in host order
IP4 = "00000000" + HOST_A + "00" * 12
IP6 = "01000000" + "20010db8000000000000000000000001"
PREFIX = "20010db8" + "00" * 8 + "000000" + "60"
INTERFACE = "09000000" "00000000" + "00" * 24 + "01000000" + PREFIX + "00" * 28 + "01000000" "dc05" "0000"
SMAPPING = "0500000000000000" + IP6 + "00" * 16 + IP4 + "00" * 20
DMAPPING = "05000000" + "00" * 8 + "01000000" + "01" * 24 + "06000000" + "00" * 8
LOGGING = "01000000" "01000000" "11000000" + IP4 + "0202" "0a00"
BMR = "01000000" "02000000" "20010db800000000" "28" "c0000200" "18" "1000" "0600" "0800" "0300" "0000"
RANGE = dict(start_addr="192.0.2.1", end_addr="192.0.2.1")
RULE = dict(rule_id=1, domain_id=2, v6_prefix="2001:db8::/40", v4_prefix=ip_network("192.0.2.0/24"))

RECORDS = [
    ("timeout_set", dict(type="tcp-est", value="2h4m"), 1, "03000000" "101d0000"),
    ("timeout_set", dict(type=7, value=timedelta(minutes=5)), 1, "07000000" "2c010000"),
    ("limit_mod", dict(type="sessions", value="0x10"), 2, "01000000" "10000000"),
    ("service_del", dict(type="alg"), 3, "01000000" "00000000"),
    ("adj_set", dict(type="outside", address="2001:db8::1"), 1, "02000000" + IP6),
    ("adj_set", dict(type=13, address=ip_address("192.0.2.1")), 1, "0d000000" + IP4),
    ("replication_unset", dict(), 3, "00" * 12),
    ("settings_set", dict(opaque=bytes(range(16))), 1, bytes(range(16)).hex()),
    ("interface_set", dict(ifh=9), 1, "09000000" "01000000" + "00" * 80),
    ("interface_set", dict(ifh=9, enable=0, sful_prefix="2001:db8::/96", mtu=1500), 1, INTERFACE),
    ("nvi_enable", dict(ifh=7), 1, "07000000"),
    ("prefix_del", dict(prefix=ip_network("2001:db8::/96"), prefix_kind="dns64"), 3, PREFIX + "04000000"),
    ("smapping_add", dict(id=5, addr1="2001:db8::1", addr2="192.0.2.1"), 1, SMAPPING),
    ("dmapping_mod", dict(id=5, type="address-dependent", ext=b"\x01" * 24, ext_arg=6), 2, DMAPPING),
    ("pool_add", RANGE | dict(id=8, param=5, hsl_id=6), 1, "08000000" "00000000" "05000000" + IP4 + IP4 + "06000000"),
    ("range_del", RANGE | dict(id=8), 3, "08000000" + IP4 + IP4),
    ("logging_add", dict(dest="192.0.2.1", dest_port=514, param="udp", param2="bib"), 1, LOGGING),
    ("mapt_bmr_add", RULE | dict(ea_len=16, psid_offset=6, psid_len=8, psid=3), 1, BMR),
    ("mapt_bmr_del", dict(rule_id=1, domain_id=2), 3, "01000000" "02000000" + "00" * 24),
    ("mapt_dmr_add", dict(id=4, prefix="2001:db8::/64"), 1, "04000000" "20010db8" + "00" * 12 + "40" + "00" * 7),
]


@pytest.mark.parametrize("method, values, operation, record", RECORDS)
def test_a_command_packs_its_record(method, values, operation, record):
    batch = Batch()
    getattr(batch, method)(**values)
    assert batch.commands[0][2:].hex() == f"{operation:02x}00" + record


@pytest.mark.parametrize(
    "method, values, error",
    [
        ("timeout_set", dict(type="udo", value=1), "type 'udo': must be 1 to 7, or udp, tcp-trans"),
        ("timeout_set", dict(type=8, value=1), "type 8: must be 1 to 7"),
        ("timeout_set", dict(type=1, value="5 m"), "value '5 m': must be 0 to 4294967295 seconds"),
        ("timeout_set", dict(type=1, value=timedelta(seconds=0.5)), "value .*: must be"),
        ("pool_del", dict(id=0), "id 0: must be 1 to 4294967295"),
        ("pool_del", dict(id=1.5), "id 1.5: must be"),
        ("pool_del", dict(id=True), "id True: must be"),
        ("timeout_set", dict(type=[1], value=1), "type .*: must be 1 to 7, or udp"),
        ("range_add", RANGE | dict(id=1, start_addr="::1"), "start_addr '::1': must be an IPv4"),
        ("adj_set", dict(type=1, address="192.0.2"), "address '192.0.2': must be an address"),
        ("prefix_add", dict(prefix="2001:db8::1/96", prefix_kind=1), "no bits set behind"),
        ("prefix_add", dict(prefix="2001:db8::/97", prefix_kind=1), "at most 96 bits"),
        ("prefix_add", dict(prefix="2001:db8::", prefix_kind=1), "prefix '2001:db8::': must be an IPv6 prefix"),
        ("settings_set", dict(opaque=b"short"), "opaque b'short': must be 16 bytes"),
    ],
)
def test_an_invalid_value_is_named_with_the_allowed_values(method, values, error):
    batch = Batch()
    with pytest.raises(ValueError, match=error):
        getattr(batch, method)(**values)
    assert len(batch) == 0
