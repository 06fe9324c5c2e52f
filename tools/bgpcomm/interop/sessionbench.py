#!/usr/bin/env python3
"""Speed of the live speaker against FRR's bgpd and gobgpd, side by side on
loopback (bench/session-bench.sh builds bgpcomm, writes the table and calls
this; not a test: it prints figures and fails only when a run cannot finish).

    sessionbench.py LABDIR BGPCOMM MRT [ROUNDS]

Environment: POLL seconds between two looks at a daemon's view (default
0.25); ONLY=collect,frr,gobgp,inject,inject-best runs only those (and prints
no summary).

Runs, one after the other, each in a fresh receiver:
  1. `bgpcomm replay MRT` into `bgpcomm collect`, FRR's bgpd and gobgpd:
     seconds from the replayer's Established to the receiver holding every
     route and having End-of-RIB, and the receiver's VmRSS / VmHWM
     (/proc/PID/status) at that moment;
  2. `gobgp mrt inject global MRT` into a gobgpd that announces to FRR,
     against `bgpcomm replay MRT` to FRR: seconds from the command's start
     to FRR holding every prefix;
  3. collect's `--stats` interned state at End-of-RIB next to `bgpcomm mrt
     --stats` on what collect received (its --write-updates file, in a run of
     its own, untimed) and on MRT itself.

The time a receiver takes is observed from outside: bgpcomm's event lines
are timestamped as they arrive on the pipe; FRR's JSON view is polled every
POLL seconds (its times are late by up to POLL); gobgpd, which slows down
when asked, is done when its CPU time stops growing and it then holds every
route (late by up to 0.1 s). Every daemon runs in a folder of its own
under LABDIR on its own 127.0.0.x address, is stopped by its process id,
and every wait is bounded.
"""

import json
import os
import re
import signal
import socket
import statistics
import subprocess
import sys
import time

from bgpcommproc import Bgpcomm
from daemons import SPEAKERS, LabError
from speaker import die_with_parent, run

POLL = float(os.environ.get("POLL", 0.25))
SETTLE = 5  # seconds a count must stay put to be final
IDLE_WINDOW = 2.0  # seconds of a quiet gobgpd that mean it has done its work
LIMIT = 300  # seconds any one receiver may take
INJECT_LIMIT = 900  # gobgp mrt inject: about 3,000 paths/s here
REPLAY = ("127.0.0.1", 64499)  # replay's address and AS; no AS of the synth table
COLLECT_AS = 64496
FRR = ("127.0.0.12", 64497)  # not the interop tests' addresses: both may run at once
GOBGP = ("127.0.0.14", 64498)
NEXT_HOP = "192.0.2.1"  # gobgpd treats loopback next hops as withdrawn


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def log(text):
    print(text, flush=True)


def memory(pid):
    """VmRSS and VmHWM of `pid`, in MiB."""
    out = {}
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            key, _, value = line.partition(":")
            if key in ("VmRSS", "VmHWM"):
                out[key] = int(value.split()[0]) / 1024
    return out


class Timed(Bgpcomm):
    """bgpcomm with each stderr line's arrival time."""

    def __init__(self, argv, name):
        self.stamps = []
        super().__init__(argv, name)

    def _read(self, stream, into):
        for line in stream:
            now = time.monotonic()
            with self.lock:
                into.append(line.rstrip("\n"))
                if into is self.err:
                    self.stamps.append((now, line.rstrip("\n")))

    def when(self, pattern, timeout):
        """Arrival time and text of the first stderr line matching `pattern`."""
        self.wait_event(pattern, timeout)
        with self.lock:
            return next((t, l) for t, l in self.stamps if re.search(pattern, l))


def replay_argv(bgpcomm, mrt, addr, port, asn, hold=LIMIT):
    return [bgpcomm, "replay", "--local-as", str(REPLAY[1]), "--router-id", REPLAY[0],
            "--peer", f"{addr}:{port},as={asn}", "--next-hop", NEXT_HOP,
            "--hold-open", str(hold), "--stats", mrt]


def poll(what, predicate, timeout=LIMIT):
    """The first time `predicate` holds (its value and when), polled every POLL s."""
    deadline = time.monotonic() + timeout
    while True:
        value = predicate()
        if value:
            return time.monotonic(), value
        if time.monotonic() > deadline:
            raise LabError(f"timed out after {timeout} s waiting for {what}")
        time.sleep(POLL)


def frr_state(sp, addr):
    """(accepted prefixes, End-of-RIB received for IPv4 unicast) of FRR's neighbor."""
    n = json.loads(sp.vtysh(f"show bgp neighbors {addr} json") or "{}").get(addr, {})
    count = n.get("addressFamilyInfo", {}).get("ipv4Unicast", {}).get("acceptedPrefixCounter", 0)
    eor = n.get("gracefulRestartInfo", {}).get("endOfRibRecv", {}).get("ipv4Unicast", False)
    return count, bool(eor)


def cpu_seconds(pid):
    """User + system CPU time of `pid` (/proc/PID/stat fields 14 and 15)."""
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def idle_since(pid, timeout=LIMIT, window=IDLE_WINDOW, busy=0.05):
    """When `pid` went idle: the start of the first `window` seconds in which
    it used less than `busy` of a core, sampled every 0.1 s."""
    samples, deadline = [], time.monotonic() + timeout
    while True:
        now = time.monotonic()
        samples.append((now, cpu_seconds(pid)))
        old = [s for s in samples if now - s[0] >= window]
        if old and samples[-1][1] - old[-1][1] < busy * window:
            return old[-1][0]
        if now > deadline:
            raise LabError(f"process {pid} still busy after {timeout} s")
        time.sleep(0.1)


def gobgp_state(sp, addr):
    """(received IPv4 unicast paths, End-of-RIB received or None when gobgpd
    does not tell) of gobgpd's neighbor."""
    try:
        n = json.loads(sp.cli("-j", "neighbor", addr, check=False).stdout or "{}")
    except ValueError:
        return 0, False
    for af in n.get("afi_safis", []) if isinstance(n, dict) else []:
        family = af.get("state", {}).get("family", {})
        if family.get("afi") in (1, "AFI_IP") and family.get("safi") in (1, "SAFI_UNICAST"):
            gr = af.get("mp_graceful_restart", {}).get("state", {})
            eor = gr.get("end_of_rib_received") if gr.get("enabled") else None
            return af.get("state", {}).get("received", 0), eor
    return 0, False


def routes_to_send(bgpcomm, mrt):
    """How many prefixes replay announces (the last entry of each prefix)."""
    r = run([bgpcomm, "replay", "--local-as", "1", "--router-id", "127.0.0.1", "--peer",
             "127.0.0.1:1,as=2", mrt], timeout=120, check=False)
    m = re.search(r"(\d+) routes, (\d+) attribute sets to announce", r.stderr)
    if not m:
        raise LabError(f"bgpcomm replay did not load {mrt}: {r.stderr.strip()}")
    return int(m[1])


def into_collect(labdir, bgpcomm, mrt, n, extra=()):
    port = free_port()
    col = Timed([bgpcomm, "collect", "--local-as", str(COLLECT_AS), "--router-id", "127.0.0.9",
                 "--listen", f"127.0.0.1:{port}", "--peer", f"{REPLAY[0]},as={REPLAY[1]}",
                 "--count", "--stats", "--exit-after-close", *extra], "bgpcomm collect")
    rep = None
    try:
        col.wait_event(r"listening on", 20)
        rep = Timed(replay_argv(bgpcomm, mrt, "127.0.0.1", port, COLLECT_AS), "bgpcomm replay")
        est, _ = rep.when(r": established", LIMIT)
        eor, line = col.when(r"end-of-rib ipv4-unicast", LIMIT)
        mem = memory(col.proc.pid)
        got = int(re.search(r"\((\d+) routes", line)[1])
        own = float(re.search(r"([\d.]+) s from OPEN", line)[1])
        stats = col.wait_event(r"stats: interned state", 20)[0]
        rep.stop()
        rc = col.wait_exit(60)
        if got != n or rc != 0:
            raise LabError(f"collect held {got} of {n} routes, exit status {rc}" + col.tail())
        per_route = float(re.search(r"\(([\d.]+) per route", stats)[1])
        held = int(re.search(r"interned state (\d+) bytes", stats)[1])
        return {"seconds": eor - est, "own": own, "mem": mem, "held": held,
                "per_route": per_route, "events": col.events()}
    finally:
        if rep:
            rep.stop()
        col.stop()


def daemon(labdir, kind, name, peers):
    addr, asn = FRR if kind == "frr" else GOBGP
    extra = {"api_port": free_port()} if kind == "gobgp" else {}
    sp = SPEAKERS[kind](labdir, name, addr, free_port(), asn, **extra)
    for p in peers:
        sp.neighbor(*p)
    return sp


def into_daemon(labdir, kind, bgpcomm, mrt, n, name):
    """replay into a fresh `kind`: (Established to End-of-RIB and every route,
    command start to every route, memory then)."""
    sp = daemon(labdir, kind, name, [(REPLAY[0], 0, REPLAY[1], True)])
    rep = None
    try:
        sp.start()
        start = time.monotonic()
        rep = Timed(replay_argv(bgpcomm, mrt, sp.addr, sp.port, sp.asn), "bgpcomm replay")
        est, _ = rep.when(r": established", LIMIT)

        if kind == "frr":
            # FRR keeps its counts: asking costs it little.
            def done():
                count, eor = frr_state(sp, REPLAY[0])
                return count >= n and eor and (count, eor)
            end, (count, eor) = poll(f"{kind} to hold {n} routes", done)
        else:
            # gobgpd counts its Adj-RIB-In route by route at every question
            # (asking 4 times a second doubled its time here), and without
            # per-family graceful restart it does not tell of End-of-RIB.
            # So its CPU time is watched instead: done when it has gone
            # quiet after replay's End-of-RIB, and then holds every route.
            rep.when(r"end-of-rib sent", LIMIT)
            while True:
                end = idle_since(sp.proc.pid)
                count, eor = gobgp_state(sp, REPLAY[0])
                if count >= n:
                    break
                if time.monotonic() - start > LIMIT:
                    raise LabError(f"gobgpd holds {count} of {n} routes after {LIMIT} s")
        mem = memory(sp.proc.pid)
        sent_at, _ = rep.when(r"end-of-rib sent", 10)
        return {"seconds": end - est, "from_start": end - start, "mem": mem, "count": count,
                "eor": eor, "sent": sent_at - est}
    finally:
        if rep:
            rep.stop()
        sp.stop()


def gobgpd_destinations(gb):
    m = re.search(r"Destination: (\d+)", gb.cli("global", "rib", "summary").stdout)
    return int(m[1]) if m else -1


def inject_to_frr(labdir, mrt, n, name, only_best):
    """gobgpd announcing to FRR over eBGP what `gobgp mrt inject` gives it:
    seconds from the inject command's start to FRR holding `n` prefixes."""
    fr = daemon(labdir, "frr", f"{name}-frr", [(GOBGP[0], 0, GOBGP[1], True)])
    gb = daemon(labdir, "gobgp", f"{name}-gobgp", [])
    inject = None
    try:
        fr.start()
        gb.neighbor(FRR[0], fr.port, FRR[1])
        gb.start()
        fr.wait_established(GOBGP[0], 60)
        argv = ["gobgp", "-p", str(gb.api_port), "mrt", "inject", "global",
                *(["--only-best"] if only_best else []), mrt]
        start = time.monotonic()
        out = open(os.path.join(gb.dir, "inject.log"), "w")
        inject = subprocess.Popen(argv, stdout=out, stderr=subprocess.STDOUT,
                                  stdin=subprocess.DEVNULL, preexec_fn=die_with_parent)

        # gobgp 3.10's inject exits before gobgpd has taken the last paths
        # it queued (a tail of the file, up to --queue-size paths, is lost,
        # a different number each run), so "every prefix" is what FRR holds
        # once the command has ended, its count has not moved for SETTLE s
        # and equals the prefixes gobgpd holds.
        history, deadline, exited = [], start + INJECT_LIMIT, None
        while True:
            if exited is None and inject.poll() is not None:
                exited = time.monotonic()
            if inject.poll() not in (None, 0):
                raise LabError(f"{' '.join(argv)} exited {inject.returncode}: "
                               + open(out.name).read()[-2000:])
            now = time.monotonic()
            count, _ = frr_state(fr, GOBGP[0])
            if not history or count != history[-1][1]:
                history.append((now, count))
            if count >= n:
                break
            if inject.poll() == 0 and now - history[-1][0] > SETTLE and \
                    count == gobgpd_destinations(gb):
                break
            if now > deadline:
                raise LabError(f"timed out after {INJECT_LIMIT} s waiting for FRR to hold the "
                               f"prefixes from gobgpd ({count} of {n})")
            time.sleep(POLL)
        end, count = history[-1]
        try:
            inject.wait(timeout=LIMIT)
        except subprocess.TimeoutExpired:
            raise LabError("gobgp mrt inject still running after FRR had every prefix")
        injected = (exited or time.monotonic()) - start
        took = gobgpd_destinations(gb)
        return {"from_start": end - start, "inject_exit": injected, "count": count,
                "gobgpd_took": took, "gobgpd_mem": memory(gb.proc.pid)}
    finally:
        if inject and inject.poll() is None:
            inject.terminate()
            inject.wait(timeout=10)
        gb.stop()
        fr.stop()


def mrt_stats(bgpcomm, path):
    r = run([bgpcomm, "mrt", "--stats", "--no-progress", path], timeout=300)
    held = int(re.search(r"interned state .*\((\d+) bytes", r.stdout)[1])
    routes = int(re.search(r"routes read\s+(\d+)", r.stdout)[1])
    return held, routes


def median(values):
    return statistics.median(values)


def main(argv):
    if len(argv) not in (4, 5):
        print(__doc__, file=sys.stderr)
        return 2
    labdir, bgpcomm, mrt = argv[1:4]
    rounds = int(argv[4]) if len(argv) == 5 else 1
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    n = routes_to_send(bgpcomm, mrt)
    log(f"table: {mrt}, {n} prefixes to announce; load {open('/proc/loadavg').read().strip()}")
    res = {k: [] for k in ("collect", "frr", "gobgp", "inject", "inject-best")}
    for r in range(rounds):
        runs = {
            "collect": lambda: into_collect(labdir, bgpcomm, mrt, n),
            "frr": lambda: into_daemon(labdir, "frr", bgpcomm, mrt, n, f"frr{r}"),
            "gobgp": lambda: into_daemon(labdir, "gobgp", bgpcomm, mrt, n, f"gobgp{r}"),
            "inject": lambda: inject_to_frr(labdir, mrt, n, f"inj{r}", False),
            "inject-best": lambda: inject_to_frr(labdir, mrt, n, f"injb{r}", True),
        }
        only = os.environ.get("ONLY", "").split(",") if os.environ.get("ONLY") else runs
        for kind, measure in runs.items():
            if kind not in only:
                continue
            res[kind].append(measure())
            shown = {k: v for k, v in res[kind][-1].items() if k != "events"}
            log(f"round {r + 1} {kind}: {json.dumps(shown)}; "
                f"load {open('/proc/loadavg').read().split()[0]}")
    log(f"load after: {open('/proc/loadavg').read().strip()}")
    if any(not v for v in res.values()):
        return 0  # a partial run (ONLY): the figures above are all there is

    def med(kind, field):
        return median([x[field] for x in res[kind]])

    def mem(kind, field):
        return median([x["mem"][field] for x in res[kind]])

    log(f"\nmedian of {rounds} round(s); receiver times from the replayer's Established to "
        f"End-of-RIB with all {n} routes held")
    log(f"{'receiver':10} {'seconds':>8} {'ratio':>6} {'VmRSS MiB':>10} {'VmHWM MiB':>10}")
    for kind in ("collect", "frr", "gobgp"):
        log(f"{kind:10} {med(kind, 'seconds'):8.2f} "
            f"{med(kind, 'seconds') / med('collect', 'seconds'):6.1f} "
            f"{mem(kind, 'VmRSS'):10.0f} {mem(kind, 'VmHWM'):10.0f}")
    log(f"collect's own OPEN-to-End-of-RIB: {med('collect', 'own'):.2f} s")
    for kind in ("frr", "gobgp"):
        ratio = med("collect", "seconds") / med(kind, "seconds")
        log(f"collect / {kind}: {ratio:.3f} (target at most 0.333: "
            f"{'met' if ratio <= 1 / 3 else 'NOT met'})")

    rep = med("frr", "from_start")
    log(f"\ninto FRR, command start to every prefix held by FRR:")
    log(f"  bgpcomm replay MRT:                  {rep:8.2f} s "
        f"(Established to all held {med('frr', 'seconds'):.2f} s)")
    for kind, label in (("inject", "gobgp mrt inject global MRT"),
                        ("inject-best", "gobgp mrt inject --only-best")):
        t = med(kind, "from_start")
        log(f"  {label:36} {t:8.2f} s (inject exits at {med(kind, 'inject_exit'):.2f} s); "
            f"replay / inject {rep / t:.3f} "
            f"({'met' if rep <= t else 'NOT met'}: replay at least as fast); FRR holds "
            f"{min(x['count'] for x in res[kind])} to {max(x['count'] for x in res[kind])} "
            f"of {n} prefixes")

    # Interned state of the table collect received, read back from its own
    # MRT file of the UPDATEs (a run of its own: writing costs time).
    updates = os.path.join(labdir, "received.mrt")
    c = into_collect(labdir, bgpcomm, mrt, n, ["--write-updates", updates])
    held, routes = mrt_stats(bgpcomm, updates)
    held_all, routes_all = mrt_stats(bgpcomm, mrt)
    log(f"\ninterned state at End-of-RIB, collect --stats: {c['held']} bytes, "
        f"{c['held'] / n:.1f} per route ({n} routes)")
    log(f"bgpcomm mrt --stats on what collect received: {held} bytes, "
        f"{held / routes:.1f} per route ({routes} routes)")
    log(f"bgpcomm mrt --stats on {os.path.basename(mrt)}: {held_all} bytes, "
        f"{held_all / routes_all:.1f} per route ({routes_all} RIB entries)")
    log("collect's events:\n  " + "\n  ".join(e for e in c["events"] if "stats" in e))
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv))
    except (LabError, OSError, subprocess.SubprocessError, ValueError) as e:
        print(f"sessionbench: {type(e).__name__}: {e}", file=sys.stderr)
        sys.exit(1)
