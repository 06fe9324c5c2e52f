#!/usr/bin/env python3
"""bgpcomm collect / replay against FRR's bgpd, BIRD 2 and gobgpd on loopback.

    interop.py LABDIR selfcheck SENDER RECEIVER   the lab checked without bgpcomm
    interop.py LABDIR collect SPEAKER BGPCOMM     1: SPEAKER announces to collect
    interop.py LABDIR replay SPEAKER BGPCOMM MRT  2: replay announces MRT to SPEAKER
    interop.py LABDIR malformed SPEAKER BGPCOMM   3: bad COMMUNITIES length beside SPEAKER
    interop.py LABDIR twopeers SPEAKER BGPCOMM    4: SPEAKER and gobgpd (FRR) into one collector

SPEAKER is frr, bird or gobgp. Every speaker runs in a folder of its own
under LABDIR on its own 127.0.0.x address; every port is picked free at run
time. Exit status: 0 pass, 1 fail (a diff or the reason is printed), 2
could not run.
"""

import os
import re
import signal
import socket
import subprocess
import sys

import bgpraw
import commnorm
from bgpcommproc import Bgpcomm
from daemons import SPEAKERS, LabError, wait_for

COLLECTOR = "127.0.0.1"  # bgpcomm's address; replay connects from it too
ADDR = {"frr": "127.0.0.2", "bird": "127.0.0.3", "gobgp": "127.0.0.4"}
# Not 65001: the sample table's routes come from AS 65001, and a speaker drops
# routes whose AS path holds its own AS.
ASN = {"frr": 65011, "bird": 65012, "gobgp": 65013}
RECEIVER_ADDR = "127.0.0.6"  # the second speaker of a self-check
RAW_PEER = ("127.0.0.5", 65010)
COLLECTOR_AS = 65000


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def speaker(labdir, kind, name=None, addr=None, asn=None):
    extra = {"api_port": free_port()} if kind == "gobgp" else {}
    return SPEAKERS[kind](labdir, name or kind, addr or ADDR[kind], free_port(),
                          asn or ASN[kind], **extra)


def log(text):
    print(text, flush=True)


def report(title, diff):
    if diff:
        log(f"MISMATCH {title}:")
        for line in diff:
            log("  " + line)
        return False
    return True


# NO_ADVERTISE; NO_EXPORT and NO_EXPORT_SUBCONFED keep a route from eBGP
# peers too [RFC 1997].
WITHHELD = {"iBGP": {"65535:65282"}, "eBGP": {"65535:65281", "65535:65282", "65535:65283"}}


def check_against_table(sp, sent, peer_sort):
    """What the speaker says it sent, against the rich table it was given:
    only routes that a well-known community keeps from this peer may be
    missing (FRR and BIRD honour them for their own routes, gobgpd does
    not), and to an eBGP peer non-transitive extended communities (BIRD
    leaves them out, FRR and gobgpd send them)."""
    expected, left_out = sp.table()
    if left_out:
        log(f"{sp.kind} cannot express: {', '.join(map(str, left_out))}")
    held = {p for p, c in expected.items() if p not in sent}
    if held:
        log(f"{sp.kind} did not send ({peer_sort}): {' '.join(sorted(held))}")
    wrongly = [f"{p}: not sent, though none of its communities keeps it from an "
               f"{peer_sort} peer" for p in sorted(held)
               if not expected[p]["standard"] & WITHHELD[peer_sort]]
    def optional(kind, value):
        return peer_sort == "eBGP" and kind in ("extended", "ipv6") and \
            int(value[:2], 16) & 0x40 != 0

    return report(f"between the table given to {sp.kind} and what it says it sent", wrongly +
                  commnorm.compare("given", {p: c for p, c in expected.items() if p in sent},
                                   sp.kind, sent, optional))


def converge(what, left_name, left, right_name, right, viewer=None, timeout=30):
    """Waits until the two views agree, leaving out the values `viewer`
    (the speaker whose view is `right`) cannot show; returns the last diff
    and counts."""
    last = {"diff": ["nothing compared"]}
    ignore = viewer.cannot_show if viewer else (lambda kind, value: False)

    def agree():
        a, b = left(), right()
        last["diff"] = commnorm.compare(left_name, a, right_name, b, ignore)
        last["counts"] = (len(a), commnorm.count(a))
        unshown = {v for c in a.values() for k in commnorm.KINDS for v in c.get(k, ())
                   if not isinstance(v, tuple) and ignore(k, v)}
        last["unshown"] = sorted(unshown)
        return bool(a) and not last["diff"]

    try:
        wait_for(what, agree, timeout, step=0.5)
    except LabError:
        pass
    if last.get("unshown"):
        log(f"{viewer.kind} cannot show, left out: {' '.join(last['unshown'])}")
    return last


def selfcheck(labdir, sender, receiver):
    s = speaker(labdir, sender).announce()
    r = speaker(labdir, receiver, name=f"{receiver}-receiver", addr=RECEIVER_ADDR, asn=s.asn)
    s.neighbor(r.addr, r.port, r.asn)
    r.neighbor(s.addr, s.port, s.asn, passive=True)
    try:
        r.start()
        s.start()
        s.wait_established(r.addr)
        sent = s.wait_stable(lambda: s.sent(r.addr))
        ok = check_against_table(s, sent, "iBGP")
        last = converge(f"{receiver} to hold what {sender} sent", sender, lambda: sent,
                        receiver, lambda: r.received(s.addr), r)
        ok = report(f"between {sender}'s sent view and {receiver}'s received view",
                    last["diff"]) and ok
        if ok:
            log(f"ok: {sender} -> {receiver}: {last['counts'][0]} routes, "
                f"{last['counts'][1]} community values agree")
        return ok
    finally:
        s.stop()
        r.stop()


def collect_argv(bgpcomm, port, local_as, peers, extra=()):
    argv = [bgpcomm, "collect", "--json", "--local-as", str(local_as), "--router-id", COLLECTOR,
            "--listen", f"{COLLECTOR}:{port}", "--exit-after-close"]
    for addr, asn in peers:
        argv += ["--peer", f"{addr},as={asn},passive"]
    return argv + list(extra)


def collected(col, peer):
    return commnorm.bgpcomm_stream(col.lines()[0], peer=peer).get(peer, {})


def finish_collect(col, speakers):
    """Shuts the speakers' sessions down (Cease / Administrative Shutdown);
    the collector must see every session close, exit by itself with status 0
    and report empty tables."""
    for sp in speakers:
        sp.shut_down(COLLECTOR)
    ok = True
    rc = col.wait_exit(30)
    log("the collector's events:\n  " + "\n  ".join(col.events()))
    exit_line = [e for e in col.events() if "interned at exit" in e]
    if rc != 0:
        ok = report("at the collector's exit", [f"exit status {rc}" + col.tail()])
    if not exit_line or not exit_line[-1].endswith(": 0 values, 0 lists"):
        ok = report("at the collector's exit",
                    [f"tables not empty: {exit_line[-1] if exit_line else 'no report'}"]) and ok
    else:
        log(f"ok: {exit_line[-1].split(': ', 1)[1]}")
    return ok


def collect(labdir, kind, bgpcomm):
    sp = speaker(labdir, kind).announce()
    port = free_port()
    # iBGP, so that the speaker sends NO_EXPORT routes and non-transitive
    # extended communities too.
    sp.neighbor(COLLECTOR, port, sp.asn)
    col = Bgpcomm(collect_argv(bgpcomm, port, sp.asn, [(sp.addr, sp.asn)]), "bgpcomm collect")
    try:
        col.wait_event(r"listening on", 10)
        sp.start()
        ok, _ = collect_from(col, sp, "iBGP")
        return finish_collect(col, [sp]) and ok
    finally:
        sp.stop()
        col.stop()


def mrt_table(bgpcomm, mrt, ebgp):
    """The routes of `mrt` as bgpcomm reads them, without path ids (the
    replayed session has no ADD-PATH), without the non-transitive extended
    communities (type bit 0x40, RFC 4360, RFC 5701) when the session is eBGP."""
    r = subprocess.run([bgpcomm, "mrt", "--json", mrt], capture_output=True, text=True,
                       timeout=60)
    if r.returncode != 0:
        raise LabError(f"bgpcomm mrt --json {mrt} failed: {r.stderr.strip()}")
    out = {}
    for routes in commnorm.bgpcomm_stream(r.stdout.splitlines()).values():
        for key, comms in routes.items():
            out[key.split(" path ")[0]] = comms
    if ebgp:
        for comms in out.values():
            for kind in ("extended", "ipv6"):
                comms[kind] = {v for v in comms[kind] if not int(v[:2], 16) & 0x40}
    return out


def replay(labdir, kind, bgpcomm, mrt):
    ok = True
    for sort in ("eBGP", "iBGP"):
        sp = speaker(labdir, kind, name=f"{kind}-{sort}")
        local_as = COLLECTOR_AS if sort == "eBGP" else sp.asn
        sp.neighbor(COLLECTOR, 0, local_as, passive=True)
        expected = mrt_table(bgpcomm, mrt, sort == "eBGP")
        rep = None
        try:
            sp.start()
            rep = Bgpcomm([bgpcomm, "replay", "--local-as", str(local_as), "--router-id",
                           COLLECTOR, "--peer", f"{sp.addr}:{sp.port},as={sp.asn}",
                           "--next-hop", "192.0.2.1", "--next-hop", "2001:db8::1",
                           "--hold-open", "60", mrt], "bgpcomm replay")
            rep.wait_event(r"end-of-rib sent", 30)
            last = converge(f"{kind} to hold what replay sent over {sort}", "bgpcomm replay",
                            lambda: expected, kind, lambda: sp.received(COLLECTOR), sp)
            if report(f"between bgpcomm replay's table and {kind}'s view over {sort}",
                      last["diff"]):
                log(f"ok: bgpcomm replay -> {kind} over {sort}: {len(expected)} routes, "
                    f"{commnorm.count(expected)} community values agree")
            else:
                ok = False
            rc = rep.stop()
            if rc not in (0, -signal.SIGTERM):
                ok = report(f"bgpcomm replay's exit over {sort}", [f"status {rc}" + rep.tail()])
        finally:
            if rep:
                rep.stop()
            sp.stop()
    return ok


def collect_from(col, sp, peer_sort="eBGP"):
    """Waits for the collector to hold what `sp` says it sent; whether it
    did, and what `sp` sent."""
    col.wait_event(rf"peer {sp.addr} \S+: established", 30)
    sent = sp.wait_stable(lambda: sp.sent(COLLECTOR))
    agreed = check_against_table(sp, sent, peer_sort)
    last = converge(f"collect to hold what {sp.kind} sent", sp.kind, lambda: sent,
                    "bgpcomm collect", lambda: collected(col, sp.addr))
    ok = report(f"between {sp.kind}'s sent view and bgpcomm collect", last["diff"])
    if ok:
        log(f"ok: {sp.kind} -> bgpcomm collect: {last['counts'][0]} routes, "
            f"{last['counts'][1]} community values agree")
    return ok and agreed, sent


def malformed(labdir, kind, bgpcomm):
    """A raw peer's UPDATE with a COMMUNITIES length of 7 next to a real
    speaker's session: the raw peer's route is withdrawn, its session stays
    up, the speaker's routes stay as they were."""
    addr, asn = RAW_PEER
    port = free_port()
    sp = speaker(labdir, kind).announce()
    sp.neighbor(COLLECTOR, port, COLLECTOR_AS)
    col = Bgpcomm(collect_argv(bgpcomm, port, COLLECTOR_AS, [(addr, asn), (sp.addr, sp.asn)],
                               ["--stats"]), "bgpcomm collect")
    try:
        col.wait_event(r"listening on", 10)
        sp.start()
        ok, sent = collect_from(col, sp)
        s = bgpraw.Session(addr, COLLECTOR, port, asn)
        s.establish(addr)
        col.wait_event(rf"peer {addr} \S+: established", 10)
        comm = bytes.fromhex("fdea0001fdea0002")  # 65002:1 65002:2
        s.send(bgpraw.update(["203.0.113.0/24"], asn, "192.0.2.5", comm))
        wait_for("the raw peer's first route",
                 lambda: "203.0.113.0/24" in collected(col, addr), 10)
        # Seven octets: not a multiple of four, treat-as-withdraw (RFC 7606 7.8).
        s.send(bgpraw.update(["203.0.113.0/24"], asn, "192.0.2.5", comm, communities_length=7))
        col.wait_event(rf"peer {addr} .*COMMUNITIES.*length 7.*treat-as-withdraw", 10)
        wait_for("the route to be withdrawn",
                 lambda: "203.0.113.0/24" not in collected(col, addr), 10)
        notes = s.notifications(2)
        s.send(bgpraw.update(["203.0.113.128/25"], asn, "192.0.2.5", comm[:4]))
        wait_for("a route sent after the bad one",
                 lambda: "203.0.113.128/25" in collected(col, addr), 10)
        diff = [f"the raw peer received NOTIFICATION {n}" for n in notes]
        diff += commnorm.compare(kind, sent, "bgpcomm collect", collected(col, sp.addr))
        if report("after the malformed UPDATE", diff):
            log("ok: malformed COMMUNITIES withdrew the route, the session stayed up, "
                f"{kind}'s routes unchanged")
        else:
            ok = False
        s.cease()
        # The raw peer's Adj-RIB-In held one route at the end, not two.
        ok = finish_collect(col, [sp]) and ok
        return check_totals(col, {addr: 1, sp.addr: len(sent)}) and ok
    finally:
        sp.stop()
        col.stop()


def check_totals(col, sent):
    """The collector's own counts: each closed session released as many
    routes as its peer sent, and the `--stats` report at exit holds no route
    and no interned list or value."""
    diff, events = [], col.events()
    for addr, n in sent.items():
        released = [int(m[1]) for e in events
                    for m in [re.search(rf"peer {addr} \S+: (\d+) routes released", e)] if m]
        if released != [n]:
            diff.append(f"peer {addr} left {n} routes in the collector, which released {released}")
    final = [e for e in events if "stats: " in e][-len(sent) - 2:]
    numbers = [int(n) for e in final if "stats: peer" in e or "stats: interned:" in e
               for n in re.findall(r"\b(\d+) (?:routes|[\w ]*lists|[\w ]*values)", e)]
    if not final or any(numbers):
        diff.append("the --stats report at exit is not all zero:\n    " + "\n    ".join(final))
    if report("in the collector's counts", diff):
        log(f"ok: the collector released {sum(sent.values())} routes "
            f"({' + '.join(map(str, sent.values()))}); all zero at exit")
        return True
    return False


def check_eor_stats(col, sent):
    """Every peer sends End-of-RIB for IPv4 and IPv6 unicast (RFC 4724);
    the `--stats` report after the last of them gives each peer the routes it
    sent."""
    for addr in sent:
        col.wait_event(rf"peer {addr} \S+: end-of-rib", 10, count=2)
    events = col.events()
    last = max(i for i, e in enumerate(events) if "end-of-rib" in e)
    held = {}
    for e in events[last + 1:]:
        m = re.search(r"stats: peer (\S+) \S+: (\d+) routes", e)
        if m and m[1] not in held:
            held[m[1]] = int(m[2])
    if report("in the collector's --stats at End-of-RIB",
              [f"peer {a}: sent {n} routes, the report says {held.get(a)}"
               for a, n in sent.items() if held.get(a) != n]):
        log(f"ok: --stats at End-of-RIB: {' + '.join(map(str, held.values()))} routes")
        return True
    return False


def twopeers(labdir, kind, bgpcomm):
    """`kind` and a second speaker (gobgpd, or FRR beside gobgpd) into one
    collector over eBGP: each peer's table as it says it sent, the total
    the sum of both, empty tables after both sessions closed."""
    port = free_port()
    sps = [speaker(labdir, k).announce() for k in (kind, "frr" if kind == "gobgp" else "gobgp")]
    for sp in sps:
        sp.neighbor(COLLECTOR, port, COLLECTOR_AS)
    col = Bgpcomm(collect_argv(bgpcomm, port, COLLECTOR_AS, [(s.addr, s.asn) for s in sps],
                               ["--stats"]), "bgpcomm collect")
    try:
        col.wait_event(r"listening on", 10)
        for sp in sps:
            sp.start()
        ok, counts = True, []
        for sp in sps:
            agreed, sent = collect_from(col, sp)
            ok = ok and agreed
            counts.append(len(sent))
        total = sum(counts)
        ok = check_eor_stats(col, {sp.addr: n for sp, n in zip(sps, counts)}) and ok
        held = sum(len(t) for t in commnorm.bgpcomm_stream(col.lines()[0]).values())
        if held != total:
            ok = report("totals", [f"the speakers sent {total} routes, the collector "
                                   f"holds {held}"])
        elif ok:
            log(f"ok: {total} routes from two peers at once agree")
        ok = finish_collect(col, sps) and ok
        return check_totals(col, {sp.addr: n for sp, n in zip(sps, counts)}) and ok
    finally:
        for sp in sps:
            sp.stop()
        col.stop()


def main(argv):
    if len(argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    labdir, mode, args = argv[1], argv[2], argv[3:]
    os.makedirs(labdir, exist_ok=True)
    # A test timeout's SIGTERM becomes a normal exit, so the speakers stop.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    modes = {"selfcheck": (selfcheck, 2), "collect": (collect, 2), "replay": (replay, 3),
             "malformed": (malformed, 2), "twopeers": (twopeers, 2)}
    if mode not in modes or len(args) != modes[mode][1]:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        return 0 if modes[mode][0](labdir, *args) else 1
    except (LabError, commnorm.ViewError, OSError, subprocess.SubprocessError) as e:
        print(f"interop {mode}: {type(e).__name__}: {e}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv))
