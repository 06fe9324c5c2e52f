"""The table every lab speaker announces: routes with a rich set of
communities, written once as values, then spelt in each speaker's own
configuration language by daemons.py.

Each extended community is a tuple:
  ("rt", ADMIN, N) / ("soo", ADMIN, N)  route target / route origin; ADMIN
        an AS below 65536 (two-octet-AS layout), an IPv4 address, or an AS
        above 65535 (four-octet-AS layout) [RFC 4360, RFC 5668]
  ("lb", AS, BYTES_PER_S, TRANSITIVE)    link bandwidth [draft-ietf-idr-link-bandwidth]
  ("color", N)                           color [RFC 9012]
  ("encap", TUNNEL_TYPE)                 encapsulation [RFC 9012]
and each IPv6-address-specific one ("ipv6" list):
  ("redirect6", IPV6, N)                 flow-spec redirect to an IPv6
        address, type 0x80 sub-type 0x0b, the only kind gobgp sets
`AS` stands for the announcing speaker's own AS number.
"""

import ipaddress
import struct

from commnorm import WELL_KNOWN, admin_layouts, ext_hex, std_text

AS = "AS"  # replaced by the speaker's AS number

# The routes. A route carrying NO_ADVERTISE is sent by no speaker that
# honours it (FRR, BIRD); the speaker's own view of what it sent says so.
ROUTES = [
    ("198.51.100.0/24", {
        "standard": [(AS, 100), "no-export", "blackhole", "graceful-shutdown", "no-peer",
                     "accept-own"],
        "large": [(AS, 1, 2), (4200000000, 4294967295, 0)],
        "extended": [("rt", AS, 100), ("rt", "192.0.2.10", 200), ("rt", 4200000000, 300)],
    }),
    ("198.51.101.0/24", {
        "standard": [(AS, 7), "local-as"],
        "large": [(0, 0, 0)],
        "extended": [("soo", AS, 5), ("soo", "192.0.2.9", 3), ("soo", 4200000000, 5),
                     ("lb", AS, 125000000, False)],
    }),
    ("198.51.102.0/24", {
        "standard": [(AS, 9)],
        "extended": [("rt", AS, 9), ("lb", AS, 12500000, True), ("color", 100), ("encap", 8)],
    }),
    ("198.51.103.0/24", {"standard": ["no-advertise", (AS, 10)]}),
    ("198.51.104.0/24", {}),
    ("2001:db8:1::/48", {
        "standard": [(AS, 600), "no-export"],
        "large": [(AS, 6, 6)],
        "extended": [("rt", AS, 600), ("rt", "192.0.2.10", 601), ("rt", 4200000000, 602)],
    }),
    ("2001:db8:2::/48", {
        "standard": [(AS, 601)],
        "extended": [("color", 4294967295), ("encap", 19), ("soo", AS, 601)],
        "ipv6": [("redirect6", "2001:db8::1", 100), ("redirect6", "2001:db8::2", 65535)],
    }),
]


def bind(value, asn):
    """`value` with AS replaced by `asn`."""
    if isinstance(value, tuple):
        return tuple(asn if v == AS else v for v in value)
    return value


def std_value(c, asn):
    if isinstance(c, str):
        return WELL_KNOWN[c]
    a, b = bind(c, asn)
    return a << 16 | b


def ext_raw(e, asn):
    e = bind(e, asn)
    if e[0] in ("rt", "soo"):
        t, six = admin_layouts(e[1], e[2])[0]
        return ext_hex(t, 0x02 if e[0] == "rt" else 0x03, six)
    if e[0] == "lb":
        return ext_hex(0x00 if e[3] else 0x40, 0x04, struct.pack("!Hf", e[1], e[2]))
    if e[0] == "color":
        return ext_hex(0x03, 0x0B, struct.pack("!HI", 0, e[1]))
    if e[0] == "encap":
        return ext_hex(0x03, 0x0C, struct.pack("!IH", 0, e[1]))
    if e[0] == "redirect6":
        # IPv6-address-specific layout [RFC 5701]: address, 2-octet local part.
        return "800b" + (ipaddress.IPv6Address(e[1]).packed + struct.pack("!H", e[2])).hex()
    raise ValueError(f"unknown extended community {e}")


def table(asn, can=lambda ext: True, routes=ROUTES):
    """The routes in commnorm's form, keeping only the extended communities
    `can` accepts; and the list of those it left out."""
    out, left_out = {}, []
    for prefix, comms in routes:
        ext = [e for k in ("extended", "ipv6") for e in comms.get(k, []) if can(bind(e, asn))]
        left_out += [bind(e, asn) for k in ("extended", "ipv6") for e in comms.get(k, [])
                     if not can(bind(e, asn))]
        out[prefix] = {
            "standard": {std_text(std_value(c, asn)) for c in comms.get("standard", [])},
            "large": {"%d:%d:%d" % bind(c, asn) for c in comms.get("large", [])},
            "extended": {ext_raw(e, asn) for e in ext if e[0] != "redirect6"},
            "ipv6": {ext_raw(e, asn) for e in ext if e[0] == "redirect6"},
        }
    return out, left_out
