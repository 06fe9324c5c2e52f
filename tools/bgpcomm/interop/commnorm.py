"""Communities of a table, as each BGP speaker prints them, in one form.

A table is {prefix: {kind: set of value texts}}, kind one of "standard",
"large", "extended". Every reader below turns a speaker's own view into the
value texts of the wire value, so that two views compare as sets:

  standard  "A:B", the two 16-bit halves in decimal (well-known names are
            turned back into their numbers)
  large     "A:B:C" in decimal
  extended  16 lower-case hex digits, type octet first
  ipv6      IPv6-address-specific extended communities: 40 hex digits

Where a speaker's text does not tell two wire values apart (FRR prints link
bandwidth alike whether or not it is transitive; an AS number below 65536
may be in the two- or four-octet-AS layout), the reader gives a tuple of the
candidates and compare() takes the one the other side holds.
"""

import ipaddress
import json
import re
import struct

KINDS = ("standard", "large", "extended", "ipv6")

# Well-known communities [IANA "BGP Well-known Communities"], by the names
# FRR prints and gobgp accepts.
WELL_KNOWN = {
    "internet": 0x00000000,
    "graceful-shutdown": 0xFFFF0000,  # RFC 8326
    "planned-shut": 0xFFFF0000,
    "accept-own": 0xFFFF0001,  # RFC 7611
    "route-filter-translated-v4": 0xFFFF0002,
    "route-filter-v4": 0xFFFF0003,
    "route-filter-translated-v6": 0xFFFF0004,
    "route-filter-v6": 0xFFFF0005,
    "llgr-stale": 0xFFFF0006,  # RFC 9494
    "no-llgr": 0xFFFF0007,
    "accept-own-nexthop": 0xFFFF0008,
    "blackhole": 0xFFFF029A,  # RFC 7999
    "no-export": 0xFFFFFF01,  # RFC 1997
    "no-advertise": 0xFFFFFF02,
    "local-as": 0xFFFFFF03,  # NO_EXPORT_SUBCONFED, RFC 1997
    "no-export-subconfed": 0xFFFFFF03,
    "no-peer": 0xFFFFFF04,  # RFC 3765
}


class ViewError(Exception):
    pass


def std_text(value):
    return f"{value >> 16}:{value & 0xFFFF}"


def std_parse(token):
    """"A:B" or a well-known name (any case)."""
    name = token.lower()
    if name in WELL_KNOWN:
        return std_text(WELL_KNOWN[name])
    m = re.fullmatch(r"(\d+):(\d+)", token)
    if not m or int(m[1]) > 0xFFFF or int(m[2]) > 0xFFFF:
        raise ViewError(f"not a standard community: {token!r}")
    return f"{int(m[1])}:{int(m[2])}"


def ext_hex(type_octet, sub, six):
    if len(six) != 6:
        raise ViewError(f"extended community value of {len(six)} octets")
    return bytes([type_octet, sub]).hex() + six.hex()


def admin_layouts(admin, local):
    """The six value octets of an AS-specific or IPv4-specific extended
    community (RFC 4360 types 0x00 / 0x01, RFC 5668 type 0x02), as
    (type octet low bits, octets) candidates for an administrator text."""
    admin, local = str(admin), int(local)
    if "." in admin and not re.fullmatch(r"\d+\.\d+", admin):
        return [(0x01, ipaddress.IPv4Address(admin).packed + struct.pack("!H", local))]
    if "." in admin:  # asdot
        high, low = admin.split(".")
        return [(0x02, struct.pack("!IH", int(high) << 16 | int(low), local))]
    asn = int(admin)
    if asn > 0xFFFF:
        return [(0x02, struct.pack("!IH", asn, local))]
    out = []
    if local <= 0xFFFFFFFF:
        out.append((0x00, struct.pack("!HI", asn, local)))
    if local <= 0xFFFF:
        out.append((0x02, struct.pack("!IH", asn, local)))
    return out


def admin_ext(high_bits, sub, admin, local):
    """Candidates for a route target (sub 0x02), route origin (0x03) or any
    sub-type of the three administrator layouts."""
    c = tuple(ext_hex(high_bits | t, sub, six) for t, six in admin_layouts(admin, local))
    return c[0] if len(c) == 1 else c


# --- bgpcomm ---------------------------------------------------------------


def bgpcomm_comms(rec):
    """The communities of one `bgpcomm --json` route line."""
    return {
        "standard": {std_text(v) for v in rec.get("communities_raw", [])},
        "large": {f"{a}:{b}:{c}" for a, b, c in rec.get("large_communities_raw", [])},
        "extended": {v[2:] if v.startswith("0x") else v
                     for v in rec.get("ext_communities_raw", [])},
        "ipv6": {v[2:] if v.startswith("0x") else v
                 for v in rec.get("ipv6_ext_communities_raw", [])},
    }


def bgpcomm_stream(lines, peer=None):
    """Folds `bgpcomm` JSON route lines (rib, announce, withdraw), in order,
    into the table they leave: {peer_ip: {prefix: communities}}; a withdraw
    removes the prefix, an announce replaces it. `peer` keeps one peer."""
    tables = {}
    for n, line in enumerate(lines, 1):
        line = line.strip()
        if not line.startswith("{"):
            continue
        try:
            rec = json.loads(line)
        except ValueError as e:
            raise ViewError(f"bgpcomm output line {n} is not JSON ({e}): {line[:200]}")
        if "prefix" not in rec:
            continue
        ip = rec.get("peer_ip", "")
        if peer is not None and ip != peer:
            continue
        key = route_key(rec["prefix"])
        if rec.get("path_id"):
            key += f" path {rec['path_id']}"
        table = tables.setdefault(ip, {})
        if rec.get("type") == "withdraw":
            table.pop(key, None)
        else:
            table[key] = bgpcomm_comms(rec)
    return tables


def route_key(text):
    try:
        return str(ipaddress.ip_network(text, strict=False))
    except ValueError:
        return text


# --- comparing -------------------------------------------------------------


def _resolve(values, other):
    out = set()
    for v in values:
        if isinstance(v, tuple):
            v = next((c for c in v if c in other), v[0])
        out.add(v)
    return out


def compare(left_name, left, right_name, right, ignore=lambda kind, value: False):
    """Diff lines between two tables (empty when they agree). `ignore` drops
    values a speaker cannot show, from both sides."""
    diff = []
    for key in sorted(set(left) | set(right)):
        if key not in left or key not in right:
            has, lacks = (right_name, left_name) if key not in left else (left_name, right_name)
            diff.append(f"{key}: in {has}'s table, not in {lacks}'s")
            continue
        for kind in KINDS:
            a = left[key].get(kind, set())
            b = right[key].get(kind, set())
            a, b = _resolve(a, _flat(b)), _resolve(b, _flat(a))
            a = {v for v in a if not ignore(kind, v)}
            b = {v for v in b if not ignore(kind, v)}
            if a != b:
                diff.append(f"{key}: {kind} differ\n"
                            f"    only in {left_name}: {' '.join(sorted(a - b)) or '-'}\n"
                            f"    only in {right_name}: {' '.join(sorted(b - a)) or '-'}")
    return diff


def _flat(values):
    out = set()
    for v in values:
        out.update(v if isinstance(v, tuple) else (v,))
    return out


def count(table):
    return sum(len(c.get(k, ())) for c in table.values() for k in KINDS)
