#!/usr/bin/env python3
"""Checks `bgpcomm mrt --json --verify` on a gobgpd RIB dump against gobgp's
own JSON view of the same RIB.

    gobgpview.py BGPCOMM DUMP.mrt VIEW.json

VIEW.json is {"ipv4": ..., "ipv6": ...}, each the output
of `gobgp -j global rib -a FAMILY` (gobgplab.py writes it beside the dump).
gobgp prints extended communities as typed objects ({"type":0,"subtype":2,
"value":"65000:100"}, {"type":64,"subtype":4,"asn":65000,"bandwidth":1000},
...); EXT_VALUE below turns each back into its eight octets, laid out as the
registry of its type says, so it can be compared with bgpcomm's raw hex.

Route by route (matched on prefix), the raw standard, large, extended and
IPv6-address-specific extended communities must be the same values in the
same order; every route on one side must be on the other; --verify must
exit 0. Exit status: 0 agreed, 1 disagreed (a diff is printed), 2 could not
run.
"""

import ipaddress
import json
import struct
import subprocess
import sys


class ViewError(Exception):
    pass


def admin_as2(text):
    """"AS:N" of the two-octet-AS-specific layout: AS in 2 octets, N in 4."""
    asn, local = text.rsplit(":", 1)
    return struct.pack("!HI", int(asn), int(local))


def admin_ipv4(text):
    """"A.B.C.D:N" of the IPv4-address-specific layout: address, N in 2."""
    addr, local = text.rsplit(":", 1)
    return ipaddress.IPv4Address(addr).packed + struct.pack("!H", int(local))


def admin_as4(text):
    """"AS:N" of the four-octet-AS-specific layout: AS in 4 octets, N in 2.
    gobgp writes the AS in asdot ("64086.59904") when it is above 65535."""
    asn, local = text.rsplit(":", 1)
    high, _, low = asn.rpartition(".")
    value = (int(high) << 16 | int(low)) if high else int(low)
    return struct.pack("!IH", value, int(local))


def last_octet(value):
    return bytes(5) + struct.pack("!B", value)


# (type, sub-type) -> the six value octets from gobgp's object.
EXT_VALUE = {
    # Route target (sub-type 0x02) and route origin (0x03) in their three
    # forms: types 0x00 two-octet AS, 0x01 IPv4 [RFC 4360], 0x02 four-octet AS
    # [RFC 5668].
    (0x00, 0x02): lambda e: admin_as2(e["value"]),
    (0x01, 0x02): lambda e: admin_ipv4(e["value"]),
    (0x02, 0x02): lambda e: admin_as4(e["value"]),
    (0x00, 0x03): lambda e: admin_as2(e["value"]),
    (0x01, 0x03): lambda e: admin_ipv4(e["value"]),
    (0x02, 0x03): lambda e: admin_as4(e["value"]),
    # Flow-spec redirect, the same three layouts: 0x80 / 0x81 / 0x82 sub-type
    # 0x08 [RFC 8955, RFC 7674].
    (0x80, 0x08): lambda e: admin_as2(e["value"]),
    (0x81, 0x08): lambda e: admin_ipv4(e["value"]),
    (0x82, 0x08): lambda e: admin_as4(e["value"]),
    # Flow-spec traffic-rate 0x80/0x06: AS in 2 octets, rate as an IEEE
    # float [RFC 8955]; "discard" is rate 0.
    (0x80, 0x06): lambda e: struct.pack("!Hf", e.get("as", 0), e.get("rate", 0)),
    # Flow-spec traffic-action 0x80/0x07: sample bit 46, terminal bit 47 [RFC 8955].
    (0x80, 0x07): lambda e: last_octet(e.get("sample", False) << 1 | e.get("terminal", False)),
    # Flow-spec traffic-marking 0x80/0x09: DSCP in the last octet [RFC 8955].
    (0x80, 0x09): lambda e: last_octet(e["value"]),
    # Color 0x03/0x0b: 2 flag octets, 4 color octets [RFC 9012].
    (0x03, 0x0B): lambda e: struct.pack("!HI", 0, e["color"]),
    # Encapsulation 0x03/0x0c: 4 reserved octets, tunnel type [RFC 9012].
    (0x03, 0x0C): lambda e: struct.pack("!IH", 0, e["tunnel_type"]),
    # Default gateway 0x03/0x0d: no value [RFC 7432].
    (0x03, 0x0D): lambda e: bytes(6),
    # Link bandwidth 0x40/0x04: AS in 2 octets, bytes per second as an IEEE
    # float [draft-ietf-idr-link-bandwidth].
    (0x40, 0x04): lambda e: struct.pack("!Hf", e.get("asn", 0), e.get("bandwidth", 0)),
    # Origin validation state 0x43/0x00: state in the last octet [RFC 8097].
    (0x43, 0x00): lambda e: last_octet(e.get("value", 0)),
    # EVPN ESI label 0x06/0x01: flags (bit 0 single-active), 2 reserved
    # octets, 3 label octets [RFC 7432].
    (0x06, 0x01): lambda e: (struct.pack("!BH", 1 if e.get("is_single_active") else 0, 0) +
                             e.get("label", 0).to_bytes(3, "big")),
    # EVPN router's MAC 0x06/0x03: the MAC address [RFC 9135].
    (0x06, 0x03): lambda e: bytes.fromhex(e["mac"].replace(":", "")),
    # MUP direct segment 0x0c/0x00: two-octet-AS layout
    # [draft-ietf-bess-mup-safi]; gobgp spells the key "segmend_id".
    (0x0C, 0x00): lambda e: admin_as2(e["segmend_id"]),
}


def ext_raw(e):
    make = EXT_VALUE.get((e.get("type"), e.get("subtype")))
    if make is None:
        raise ViewError(f"no mapping for gobgp's extended community {json.dumps(e)}")
    value = make(e)
    if len(value) != 6:
        raise ViewError(f"{json.dumps(e)} maps to {len(value)} octets, not 6")
    return "0x" + bytes([e["type"], e["subtype"]]).hex() + value.hex()


def ipv6_ext_raw(e):
    """Attribute 25 [RFC 5701]: type, sub-type, IPv6 global administrator,
    2-octet local administrator. gobgp prints the last two as "ADDR:N"."""
    addr, local = e["value"].rsplit(":", 1)
    value = ipaddress.IPv6Address(addr).packed + struct.pack("!H", int(local))
    return "0x" + bytes([e["type"], e["subtype"]]).hex() + value.hex()


KINDS = ("communities_raw", "large_communities_raw", "ext_communities_raw",
         "ipv6_ext_communities_raw")

# Path attribute type codes in gobgp's "attrs": COMMUNITIES 8 [RFC 1997],
# EXTENDED COMMUNITIES 16 [RFC 4360], IPv6 ADDRESS SPECIFIC EXTENDED
# COMMUNITY 25 [RFC 5701], LARGE_COMMUNITY 32 [RFC 8092].
ATTR_KIND = {
    8: ("communities_raw", lambda a: list(a["communities"])),
    32: ("large_communities_raw",
         lambda a: [[c["ASN"], c["LocalData1"], c["LocalData2"]] for c in a["value"]]),
    16: ("ext_communities_raw", lambda a: [ext_raw(e) for e in a["value"]]),
    25: ("ipv6_ext_communities_raw", lambda a: [ipv6_ext_raw(e) for e in a["value"]]),
}


def route_key(text):
    """Prefixes in one spelling ("2001:db8:1::/48"); other NLRI as printed."""
    try:
        return str(ipaddress.ip_network(text, strict=False))
    except ValueError:
        return text


def gobgp_routes(view):
    """{key: [communities of each path]} from gobgp's JSON."""
    routes = {}
    for rib in view.values():
        for printed, paths in rib.items():
            for path in paths:
                key = route_key(path.get("nlri", {}).get("prefix", printed))
                comms = {k: [] for k in KINDS}
                for attr in path.get("attrs", []):
                    if attr.get("type") in ATTR_KIND:
                        kind, values = ATTR_KIND[attr["type"]]
                        comms[kind] = values(attr)
                routes.setdefault(key, []).append(comms)
    return routes


def bgpcomm_routes(lines):
    routes = {}
    for n, line in enumerate(lines, 1):
        if not line.strip():
            continue
        try:
            rec = json.loads(line)
        except ValueError as e:
            raise ViewError(f"bgpcomm output line {n} is not JSON ({e}): {line[:200]}")
        if rec.get("type") != "rib":
            raise ViewError(f"bgpcomm output line {n}: a table dump holds only rib "
                            f"records, got type {rec.get('type')!r}")
        missing = [k for k in KINDS + ("prefix",) if k not in rec]
        if missing:
            raise ViewError(f"bgpcomm output line {n} lacks {', '.join(missing)}")
        comms = {k: rec[k] for k in KINDS}
        routes.setdefault(route_key(rec["prefix"]), []).append(comms)
    return routes


def fmt(values):
    return json.dumps(values, separators=(",", ":"))


def order_or_count(a, b):
    if [v for v in a if v not in b] or [v for v in b if v not in a]:
        return ""
    if sorted(a, key=fmt) == sorted(b, key=fmt):
        return "  (same values in another order)"
    return "  (same values, repeated differently)"


def compare(ours, theirs):
    """Returns (diff lines, values compared per kind)."""
    diff, counted = [], {k: 0 for k in KINDS}
    for key in sorted(set(ours) | set(theirs)):
        if key not in ours:
            diff.append(f"{key}: in gobgp's RIB, not in bgpcomm's output")
            continue
        if key not in theirs:
            diff.append(f"{key}: in bgpcomm's output, not in gobgp's RIB")
            continue
        a, b = ours[key], theirs[key]
        if len(a) != len(b):
            diff.append(f"{key}: {len(b)} paths in gobgp's RIB, {len(a)} in bgpcomm's output")
            continue
        # Several paths of one prefix: pair them in a stable order.
        a = sorted(a, key=fmt)
        b = sorted(b, key=fmt)
        for mine, gobgp in zip(a, b):
            for kind in KINDS:
                counted[kind] += len(gobgp[kind])
                if mine[kind] == gobgp[kind]:
                    continue
                only_g = [v for v in gobgp[kind] if v not in mine[kind]]
                only_b = [v for v in mine[kind] if v not in gobgp[kind]]
                diff.append(f"{key}: {kind} differ ({len(gobgp[kind])} from gobgp, "
                            f"{len(mine[kind])} from bgpcomm)\n"
                            f"    gobgp:   {fmt(gobgp[kind])}\n"
                            f"    bgpcomm: {fmt(mine[kind])}\n"
                            f"    only in gobgp: {fmt(only_g)}  only in bgpcomm: {fmt(only_b)}"
                            + order_or_count(gobgp[kind], mine[kind]))
    return diff, counted


def main(argv):
    if len(argv) != 4:
        print(__doc__, file=sys.stderr)
        return 2
    bgpcomm, dump, view_file = argv[1:]
    try:
        with open(view_file) as f:
            theirs = gobgp_routes(json.load(f))
        run = subprocess.run([bgpcomm, "mrt", "--json", "--verify", dump],
                             capture_output=True, text=True, timeout=120)
        ours = bgpcomm_routes(run.stdout.splitlines())
    except (OSError, ValueError, KeyError, ViewError, subprocess.TimeoutExpired) as e:
        print(f"gobgpview: {type(e).__name__}: {e}", file=sys.stderr)
        return 2
    diff, counted = compare(ours, theirs)
    if run.returncode != 0:
        diff.append(f"bgpcomm mrt --json --verify exited {run.returncode}; its stderr:\n"
                    + run.stderr.rstrip())
    elif run.stderr.strip():
        print(f"bgpcomm stderr:\n{run.stderr.rstrip()}", file=sys.stderr)
    summary = ", ".join(f"{n} {k[:-4]}" for k, n in counted.items())
    if diff:
        print(f"MISMATCH between bgpcomm and gobgp on {dump}:", file=sys.stderr)
        for line in diff:
            print("  " + line, file=sys.stderr)
        return 1
    print(f"ok: {len(theirs)} routes agree with gobgp ({summary}); --verify clean")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
