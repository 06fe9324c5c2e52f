#!/usr/bin/env python3
"""bgpcomm replay -> bgpcomm collect over loopback, no daemons needed.

  loopback.py BGPCOMM

1. eBGP and iBGP: a synth table replayed into the collector; every route's
   communities as received equal the table's (extended ones without the
   non-transitive over eBGP, with them over iBGP); what --write-updates and
   --dump-rib wrote reads back through `bgpcomm mrt` as the same routes; the
   tables are empty at exit.
2. A raw UPDATE whose COMMUNITIES length is 7: its route is withdrawn, the
   session stays up (the next UPDATE is taken, End-of-RIB ends the run).
3. --strip / --add change what is sent. A peer without 4-octet AS numbers gets AS_TRANS and AS4_PATH; --max-prefixes
   ends a session with Cease 6/1; two peers collected at once add up.
4. Bad input: a config typo, a port in use, an unreachable peer, a peer that
   closes mid-OPEN: a clear message and a non-zero exit each.
"""
import json
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time

BGPCOMM = sys.argv[1]
WORK = tempfile.mkdtemp(prefix="bgpcomm-loopback.")
PORT = 20000 + os.getpid() % 20000
failures = []


def check(ok, what):
    print(("ok   " if ok else "FAIL ") + what)
    if not ok:
        failures.append(what)


def start_collect(*extra, port=PORT):
    err = open(os.path.join(WORK, "collect.err"), "w+")
    out = open(os.path.join(WORK, "collect.out"), "w+")
    proc = subprocess.Popen([BGPCOMM, "collect", "--local-as", "65000", "--router-id", "10.0.0.1",
                             "--listen", "127.0.0.1:%d" % port, *extra], stdout=out, stderr=err)
    for _ in range(100):  # until it listens
        err.seek(0)
        if "listening on" in err.read() or proc.poll() is not None:
            break
        time.sleep(0.05)
    return proc, out, err


def finish(proc, out, err, limit=60):
    try:
        rc = proc.wait(timeout=limit)
    except subprocess.TimeoutExpired:
        proc.kill()
        rc = proc.wait()
    out.seek(0)
    err.seek(0)
    return rc, out.read(), err.read()


def routes(json_lines):
    """prefix -> (standard, large, extended raw, ipv6 raw) of the last announcement."""
    table = {}
    for line in json_lines.splitlines():
        r = json.loads(line)
        if r["type"] == "withdraw":
            table.pop(r["prefix"], None)
        else:
            # As sets: a list holds each value once.
            table[r["prefix"]] = (sorted(set(r["communities_raw"])),
                                  sorted(set(map(tuple, r["large_communities_raw"]))),
                                  sorted(set(r["ext_communities_raw"])),
                                  sorted(set(r["ipv6_ext_communities_raw"])))
    return table


def mrt_json(path):
    return subprocess.run([BGPCOMM, "mrt", "--json", path], capture_output=True, text=True).stdout


def replay_round(peer_as, label):
    synth = os.path.join(WORK, "synth.mrt")
    subprocess.run([BGPCOMM, "synth", "--routes", "3000", "--seed", "7", "-o", synth], check=True)
    updates, rib = os.path.join(WORK, "up.mrt"), os.path.join(WORK, "rib.mrt")
    proc, out, err = start_collect("--peer", "127.0.0.1,as=%d" % peer_as, "--json",
                                   "--exit-after-eor", "--write-updates", updates,
                                   "--dump-rib", rib)
    replay = subprocess.run([BGPCOMM, "replay", "--local-as", str(peer_as), "--router-id",
                             "10.0.0.2", "--peer", "127.0.0.1:%d,as=65000" % PORT, synth,
                             "--hold-open", "0"], capture_output=True, text=True, timeout=60)
    rc, seen, log = finish(proc, out, err)
    check(rc == 0 and replay.returncode == 0, label + ": both exit 0")
    check("interned at exit: 0 values, 0 lists" in log, label + ": tables empty at exit")
    got = routes(seen)
    sent = routes(mrt_json(synth))
    ibgp = peer_as == 65000
    # Non-transitive extended communities (type octet bit 0x40, RFC 4360)
    # stay home over eBGP.
    want = {p: (s, l, [e for e in x if ibgp or not int(e[2:4], 16) & 0x40], v)
            for p, (s, l, x, v) in sent.items()}
    check(len(got) == len(want) > 1000, label + ": %d routes received of %d" % (len(got), len(want)))
    check(got == want, label + ": communities as the table has them")
    dropped = sum(len(x) for _, _, x, _ in sent.values()) - sum(len(x) for _, _, x, _ in got.values())
    check((dropped == 0) == ibgp, label + ": %d non-transitive extended dropped" % dropped)
    check(routes(mrt_json(updates)) == got, label + ": --write-updates reads back the same")
    check(routes(mrt_json(rib)) == got, label + ": --dump-rib reads back the same")


def policy_round():
    """--strip and --add through the library: no-export and every large
    community removed, 65535:1 and a route target added to every route."""
    proc, out, err = start_collect("--peer", "127.0.0.1,as=65001", "--json", "--exit-after-eor")
    subprocess.run([BGPCOMM, "replay", "--local-as", "65001", "--router-id", "10.0.0.2", "--peer",
                    "127.0.0.1:%d,as=65000" % PORT, "--synth", "500", "--hold-open", "0",
                    "--strip", "^no-export$", "--kind", "large", "--strip", ".", "--add",
                    "65535:1", "--add", "0x0002fde800000064"], capture_output=True, timeout=60)
    rc, seen, _ = finish(proc, out, err)
    got = routes(seen).values()
    check(rc == 0 and len(got) > 100 and all(
        0xFFFFFF01 not in s and 0xFFFF0001 in s and not l and "0x0002fde800000064" in x
        for s, l, x, _ in got), "policy: --strip and --add applied to every route")


def message(kind, body):
    return b"\xff" * 16 + struct.pack("!HB", 19 + len(body), kind) + body


def update(attrs, nlri):
    return message(2, struct.pack("!HH", 0, len(attrs)) + attrs + nlri)


def raw_peer(port, steps):
    """Talks BGP by hand: OPEN (AS 65001, 4-octet AS capability), KEEPALIVE,
    then `steps`; returns the NOTIFICATION (code, subcode) received last."""
    s = socket.create_connection(("127.0.0.1", port), timeout=10)
    caps = bytes([2, 6, 65, 4]) + struct.pack("!I", 65001)
    s.sendall(message(1, struct.pack("!BHHIB", 4, 65001, 30, 0x0A000002, len(caps)) + caps))
    s.sendall(message(4, b""))
    for step in steps:
        s.sendall(step)
    s.settimeout(10)
    data = b""
    try:
        while True:
            chunk = s.recv(65536)
            if not chunk:
                break
            data += chunk
    except socket.timeout:
        pass
    s.close()
    notes, at = [], 0
    while at + 19 <= len(data):
        length, kind = struct.unpack("!HB", data[at + 16:at + 19])
        if kind == 3:
            notes.append((data[at + 19], data[at + 20]))
        at += length
    return notes[-1] if notes else None


def malformed_communities():
    proc, out, err = start_collect("--peer", "127.0.0.1,as=65001", "--json", "--exit-after-eor")
    base = bytes([0x40, 1, 1, 0, 0x40, 2, 6, 2, 1, 0, 0, 0xFD, 0xE9, 0x40, 3, 4, 127, 0, 0, 1])
    good = base + bytes([0xC0, 8, 4]) + struct.pack("!I", 65001 << 16 | 7)
    bad = base + bytes([0xC0, 8, 7]) + bytes(7)
    note = raw_peer(PORT, [update(good, bytes([16, 10, 1])), update(bad, bytes([16, 10, 1])),
                           update(good, bytes([16, 10, 2])), update(b"", b"")])
    rc, seen, log = finish(proc, out, err)
    lines = [(r["type"], r["prefix"]) for r in map(json.loads, seen.splitlines())]
    check(lines == [("announce", "10.1.0.0/16"), ("withdraw", "10.1.0.0/16"),
                    ("announce", "10.2.0.0/16")], "malformed COMMUNITIES: route withdrawn, next taken")
    check("peer 127.0.0.1 AS65001: UPDATE COMMUNITIES attribute length 7 is not a multiple of 4;"
          " treat-as-withdraw" in log, "malformed COMMUNITIES: the message names peer, attribute, length")
    check(note == (6, 2) and rc == 0, "malformed COMMUNITIES: session stays up until our Cease")


def read_messages(s, until):
    """Messages (type, body) from socket `s` until `until(type, body)`."""
    data, out = b"", []
    while True:
        while len(data) >= 19 and len(data) >= struct.unpack("!H", data[16:18])[0]:
            length, kind = struct.unpack("!HB", data[16:19])
            out.append((kind, data[19:length]))
            data = data[length:]
            if until(*out[-1]):
                return out
        chunk = s.recv(65536)
        if not chunk:
            return out
        data += chunk


def two_octet_peer():
    """replay towards a peer without the 4-octet AS capability: AS_TRANS in
    AS_PATH, the real path in AS4_PATH (RFC 6793)."""
    server = socket.socket()
    server.bind(("127.0.0.1", 0))
    server.listen(1)
    port = server.getsockname()[1]
    replay = subprocess.Popen([BGPCOMM, "replay", "--local-as", "65000", "--router-id", "10.0.0.2",
                               "--peer", "127.0.0.1:%d,as=65001" % port, "--synth", "50",
                               "--hold-open", "0"], stderr=subprocess.DEVNULL)
    server.settimeout(30)
    s, _ = server.accept()
    s.settimeout(30)
    s.sendall(message(1, struct.pack("!BHHIB", 4, 65001, 30, 0x0A000003, 0)) + message(4, b""))
    got = read_messages(s, lambda kind, body: kind == 2 and body == bytes(4))
    s.close()
    server.close()
    replay.wait(timeout=30)
    paths = []
    for kind, body in got:
        if kind != 2 or body == bytes(4):
            continue
        at, end, attrs = 4, 4 + struct.unpack("!H", body[2:4])[0], {}
        while at < end:
            flags, code = body[at], body[at + 1]
            size = struct.unpack("!H", body[at + 2:at + 4])[0] if flags & 0x10 else body[at + 2]
            at += 4 if flags & 0x10 else 3
            attrs[code] = body[at:at + size]
            at += size
        def ases(value, width):
            out, i = [], 0
            while i < len(value):
                count = value[i + 1]
                out += [int.from_bytes(value[i + 2 + width * k:i + 2 + width * (k + 1)], "big")
                        for k in range(count)]
                i += 2 + width * count
            return out
        paths.append((ases(attrs[2], 2), ases(attrs.get(17, b""), 4)))
    wide = [(p2, p4) for p2, p4 in paths if p4]
    check(len(paths) > 10 and wide and all(
        len(p2) == len(p4) and all(a == b or (a == 23456 and b > 65535) for a, b in zip(p2, p4))
        for p2, p4 in wide) and all(p2[0] == 65000 for p2, _ in paths),
        "2-octet AS peer: AS_TRANS in AS_PATH, the path in AS4_PATH (%d of %d)" % (len(wide), len(paths)))


def max_prefixes():
    proc, out, err = start_collect("--peer", "127.0.0.1,as=65001", "--count", "--max-prefixes",
                                   "100", "--exit-after-close")
    r = subprocess.run([BGPCOMM, "replay", "--local-as", "65001", "--router-id", "10.0.0.2",
                        "--peer", "127.0.0.1:%d,as=65000" % PORT, "--synth", "1000",
                        "--hold-open", "5"], capture_output=True, text=True, timeout=60)
    rc, _, log = finish(proc, out, err)
    check(r.returncode == 1 and "received NOTIFICATION 6/1" in r.stderr and
          "more than 100 prefixes" in log and "interned at exit: 0 values, 0 lists" in log,
          "--max-prefixes: Cease / Maximum Number of Prefixes Reached, tables empty")


def two_peers():
    """Two replayers (passive, on their own ports) collected at once into one
    set of tables: the totals add up, the tables are empty at exit."""
    replays = [subprocess.Popen([BGPCOMM, "replay", "--local-as", str(65000 + n), "--router-id",
                                 "10.0.0.1%d" % n, "--listen", "127.0.0.1:%d" % (PORT + n),
                                 "--peer", "127.0.0.1,as=65000,passive", "--synth", "2000",
                                 "--seed", str(n), "--hold-open", "2"], stderr=subprocess.PIPE,
                                text=True) for n in (1, 2)]
    time.sleep(0.5)
    proc, out, err = start_collect(*sum((["--peer", "127.0.0.1:%d,as=%d,active" % (PORT + n, 65000 + n)]
                                         for n in (1, 2)), []), "--count", "--exit-after-eor")
    rc, count, log = finish(proc, out, err)
    sent = [int(r.communicate(timeout=30)[1].split(" routes,")[0].split()[-1]) for r in replays]
    check(rc == 0 and int(count) == sum(sent) and "interned at exit: 0 values, 0 lists" in log,
          "two peers at once: %s routes of %s, tables empty at exit" % (count.strip(), sent))


def bad_input():
    conf = os.path.join(WORK, "bad.conf")
    with open(conf, "w") as f:
        f.write("local-as 65000\nrouter-id 10.0.0.1\npeer 127.0.0.1,as=65001\nmax-prefix 10\n")
    r = subprocess.run([BGPCOMM, "collect", "--config", conf], capture_output=True, text=True)
    check(r.returncode == 2 and "bad.conf:4: unknown option 'max-prefix'" in r.stderr,
          "config typo: named with its line, exit 2")

    holder = socket.socket()
    holder.bind(("127.0.0.1", 0))
    holder.listen(1)
    busy = holder.getsockname()[1]
    r = subprocess.run([BGPCOMM, "collect", "--local-as", "65000", "--router-id", "10.0.0.1",
                        "--listen", "127.0.0.1:%d" % busy, "--peer", "127.0.0.1,as=65001"],
                       capture_output=True, text=True, timeout=10)
    check(r.returncode == 2 and "Address already in use" in r.stderr, "port in use: exit 2")
    holder.close()  # now nobody listens there
    r = subprocess.run([BGPCOMM, "replay", "--local-as", "65001", "--router-id", "10.0.0.2",
                        "--peer", "127.0.0.1:%d,as=65000" % busy, "--synth", "10"],
                       capture_output=True, text=True, timeout=30)
    check(r.returncode == 1 and "Connection refused" in r.stderr, "unreachable peer: exit 1")

    proc, out, err = start_collect("--peer", "127.0.0.1,as=65001", "--duration", "2")
    s = socket.create_connection(("127.0.0.1", PORT))
    s.sendall(message(1, struct.pack("!BHHIB", 4, 65001, 30, 0x0A000002, 0))[:20])
    s.close()
    rc, _, log = finish(proc, out, err)
    check(rc == 1 and "closed by the peer before its OPEN" in log and "never established" in log,
          "peer closing mid-OPEN: reported, exit 1")


replay_round(65001, "eBGP")
replay_round(65000, "iBGP")
policy_round()
malformed_communities()
two_octet_peer()
max_prefixes()
two_peers()
bad_input()
if not failures:
    shutil.rmtree(WORK)
sys.exit(1 if failures else 0)
