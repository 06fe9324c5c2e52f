#!/usr/bin/env python3
"""A two-speaker gobgpd lab on loopback that leaves a real RIB dump behind.

Speaker "origin" (AS 65001) announces routes carrying every community kind the
gobgp 3.10 CLI can put on a route; speaker "collector" (AS 65000) learns them
over an eBGP session on 127.0.0.1, adds route-origin and link-bandwidth
extended communities with an import policy (the 3.10 CLI cannot set those on
a route: it has no route-origin keyword and its "lb" parser is broken), and
writes its RIB as an MRT TABLE_DUMPv2 file. The collector originates no route:
gobgpd 3.10 dumps its own routes with a peer index one past the end of its
PEER_INDEX_TABLE.

`run OUTDIR` leaves in OUTDIR:
  gobgp-rib.mrt        the collector's first complete table dump taken after
                       every route had arrived (RIB_IPV4_UNICAST records, and
                       RIB_IPV6_UNICAST_ADDPATH as ADD-PATH is on for IPv6)
  gobgp-rib.view.json  gobgp's own JSON view of that RIB
                       ({"ipv4": ..., "ipv6": ...},
                       each the output of `gobgp -j global rib -a FAMILY`)

Every socket is on 127.0.0.1 with free ports picked at run time. The daemons
are stopped by process id when the run ends, and die with this process if it
is killed first (parent-death signal). Every wait has a deadline; gobgpd's
table dump interval cannot go below 60 s, so a run takes a little over a
minute.
"""

import argparse
import ctypes
import json
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time

ORIGIN_AS = 65001
COLLECTOR_AS = 65000
FAMILIES = ("ipv4", "ipv6")

# (speaker, family, `gobgp global rib add` arguments). Well-known community
# names are gobgp's: planned-shut is GRACEFUL_SHUTDOWN 0xFFFF0000 (RFC 8326),
# no-export-subconfed is NO_EXPORT_SUBCONFED / local-as 0xFFFFFF03 (RFC 1997).
ROUTES = [
    # Standard well-knowns, large communities, route targets in their three forms.
    ("origin", "ipv4", "198.51.100.0/24"
     " community 65001:100,no-export,no-advertise,no-export-subconfed,planned-shut,"
     "blackhole,no-peer,internet"
     " large-community 65001:1:2,4200000000:4294967295:0"
     " rt 65001:100 192.0.2.10:200 64086.59904:300"),
    # Most remaining well-knowns, a well-known given by number, a repeated value.
    ("origin", "ipv4", "198.51.101.0/24"
     " community accept-own,route-filter-translated-v4,route-filter-v4,"
     "route-filter-translated-v6,route-filter-v6,65535:65281,65001:7,65001:7"
     " encap vxlan color 100"),
    # Flow-spec actions (traffic rate, redirect in three forms, marking, action).
    ("origin", "ipv4", "198.51.102.0/24"
     " rate-limit 1000 as 65001 redirect 65001:5 redirect 192.0.2.1:6"
     " redirect 64086.59904:7 mark 46 action terminal-sample"),
    # EVPN, origin validation, MUP and tunnel kinds.
    ("origin", "ipv4", "198.51.103.0/24"
     " large-community 0:0:0"
     " esi-label 100 single-active router-mac 02:00:5e:00:53:01 default-gateway"
     " not-found mup 65001:9 encap mpls-in-gre discard"),
    # No communities at all: every list empty.
    ("origin", "ipv4", "198.51.104.0/24"),
    ("origin", "ipv6", "2001:db8:1::/48"
     " community 65001:600,no-export,planned-shut"
     " large-community 65001:6:6"
     " rt 65001:600 192.0.2.10:601 64086.59904:602"),
    ("origin", "ipv6", "2001:db8:2::/48 encap geneve color 4294967295 invalid"),
    # IPv6-address-specific extended communities (attribute 25): gobgp's only
    # kind of them is the flow-spec redirect to an IPv6 address.
    ("origin", "ipv6", "2001:db8:3::/48 redirect 2001:db8::1:100 redirect 2001:db8::2:65535"
     " rt 65001:3"),
    ("origin", "ipv4", "198.51.105.0/24 community 65001:5 redirect 2001:db8::5:5"),
    # Long-lived graceful restart communities, and origin validation "valid".
    ("origin", "ipv4", "203.0.113.0/24 community llgr-stale,no-llgr,65001:8"
     " rt 65001:8 valid"),
    ("origin", "ipv6", "2001:db8:ff::/48 large-community 65001:0:1"),
]

# The collector's import policy adds these to the routes it learns for the
# listed prefixes: route origin in its three forms and link bandwidth
# (1 Gbit/s, in bytes per second).
POLICY_EXT = ["soo:65000:1", "soo:192.0.2.9:3", "soo:64086.59904:5", "lb:65000:125000000"]
POLICY_PREFIXES = {"ipv4": "198.51.100.0/24", "ipv6": "2001:db8:1::/48"}

MRT_TABLE_DUMP_V2 = 13  # RFC 6396
MRT_PEER_INDEX_TABLE = 1  # RFC 6396 TABLE_DUMP_V2 subtype


class LabError(Exception):
    pass


class PortTaken(LabError):
    """A port picked as free was taken before gobgpd bound it; worth a retry."""


def free_ports(count):
    socks = []
    try:
        for _ in range(count):
            s = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
            s.bind(("127.0.0.1", 0))
            socks.append(s)
        return [s.getsockname()[1] for s in socks]
    finally:
        for s in socks:
            s.close()


def die_with_parent():
    # PR_SET_PDEATHSIG (1): the daemon gets SIGTERM if this process dies.
    ctypes.CDLL(None, use_errno=True).prctl(1, signal.SIGTERM)


def neighbor_toml(port, peer_as, passive, add_paths):
    """The session on 127.0.0.1. Long-lived graceful restart is negotiated
    because gobgp sends no route carrying LLGR_STALE to a peer without it.
    ADD-PATH (`add_paths`, e.g. "send-max = 8") is on for IPv6 only, so the
    dump holds both RIB_IPV4_UNICAST and RIB_IPV6_UNICAST_ADDPATH records."""
    afis = "".join('  [[neighbors.afi-safis]]\n'
                   '    [neighbors.afi-safis.config]\n'
                   f'      afi-safi-name = "{f}-unicast"\n'
                   '    [neighbors.afi-safis.long-lived-graceful-restart.config]\n'
                   '      enabled = true\n'
                   '      restart-time = 3600\n' +
                   ('    [neighbors.afi-safis.add-paths.config]\n'
                    f'      {add_paths}\n' if f == "ipv6" else "")
                   for f in FAMILIES)
    return ('[[neighbors]]\n'
            '  [neighbors.config]\n'
            '    neighbor-address = "127.0.0.1"\n'
            f'    peer-as = {peer_as}\n'
            '  [neighbors.transport.config]\n'
            '    local-address = "127.0.0.1"\n'
            f'    remote-port = {port}\n'
            f'    passive-mode = {"true" if passive else "false"}\n'
            '  [neighbors.timers.config]\n'
            '    connect-retry = 1\n'
            '  [neighbors.graceful-restart.config]\n'
            '    enabled = true\n'
            '    long-lived-enabled = true\n' + afis)


def prefix_set(name, prefix, lengths=None):
    return ('[[defined-sets.prefix-sets]]\n'
            f'  prefix-set-name = "{name}"\n'
            '  [[defined-sets.prefix-sets.prefix-list]]\n'
            f'    ip-prefix = "{prefix}"\n' +
            (f'    masklength-range = "{lengths}"\n' if lengths else ''))


def statement(prefix_set_name, actions):
    return ('  [[policy-definitions.statements]]\n'
            f'    name = "{prefix_set_name}"\n'
            '    [policy-definitions.statements.conditions.match-prefix-set]\n'
            f'      prefix-set = "{prefix_set_name}"\n'
            '    [policy-definitions.statements.actions]\n'
            '      route-disposition = "accept-route"\n' + actions)


def collector_policy_toml():
    """Import policy adding POLICY_EXT to the routes for POLICY_PREFIXES."""
    add = ('    [policy-definitions.statements.actions.bgp-actions.set-ext-community]\n'
           '      options = "add"\n'
           '      [policy-definitions.statements.actions.bgp-actions.'
           'set-ext-community.set-ext-community-method]\n'
           f'        communities-list = {json.dumps(POLICY_EXT)}\n')
    sets = "".join(prefix_set(f"add-{f}", p) for f, p in POLICY_PREFIXES.items())
    stmts = "".join(statement(f"add-{f}", add) for f in POLICY_PREFIXES)
    return sets + '[[policy-definitions]]\n  name = "add-ext"\n' + stmts


def origin_policy_toml():
    """Export policy giving the learned routes a usable next hop: gobgp sets
    the session's local address (127.0.0.1) on eBGP, and a loopback next hop
    makes the receiver treat the update as a withdrawal."""
    hop = '    [policy-definitions.statements.actions.bgp-actions]\n      set-next-hop = "{}"\n'
    return (prefix_set("all-ipv4", "0.0.0.0/0", "0..32") +
            prefix_set("all-ipv6", "::/0", "0..128") +
            '[[policy-definitions]]\n  name = "next-hop"\n' +
            statement("all-ipv4", hop.format("192.0.2.1")) +
            statement("all-ipv6", hop.format("2001:db8::1")))


class Speaker:
    def __init__(self, name, workdir, asn, router_id, bgp_port, api_port):
        self.name, self.workdir, self.api_port = name, workdir, api_port
        self.config = os.path.join(workdir, f"{name}.toml")
        self.log = os.path.join(workdir, f"{name}.log")
        self.pidfile = os.path.join(workdir, f"{name}.pid")
        self.text = ('[global.config]\n'
                     f'  as = {asn}\n'
                     f'  router-id = "{router_id}"\n'
                     f'  port = {bgp_port}\n'
                     '  local-address-list = ["127.0.0.1"]\n')
        self.proc = None

    def start(self):
        with open(self.config, "w") as f:
            f.write(self.text)
        with open(self.log, "w") as log:
            self.proc = subprocess.Popen(
                ["gobgpd", "-f", self.config, "-p", "--pprof-disable",
                 "--api-hosts", f"127.0.0.1:{self.api_port}"],
                stdout=log, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                preexec_fn=die_with_parent)
        with open(self.pidfile, "w") as f:
            f.write(f"{self.proc.pid}\n")

    def stop(self):
        if self.proc is None or self.proc.poll() is not None:
            return
        self.proc.terminate()
        try:
            self.proc.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait(timeout=10)

    def cli(self, *args, check=True):
        if self.proc.poll() is not None:
            raise LabError(f"gobgpd {self.name} exited with status {self.proc.returncode}")
        r = subprocess.run(["gobgp", "-p", str(self.api_port), *args],
                           capture_output=True, text=True, timeout=20)
        if check and r.returncode != 0:
            raise LabError(f"gobgp {' '.join(args)} failed on {self.name}: "
                           f"{(r.stdout + r.stderr).strip()}")
        return r

    def rib(self, family):
        return json.loads(self.cli("-j", "global", "rib", "-a", family).stdout or "{}")

    def log_tail(self):
        try:
            with open(self.log) as f:
                return "".join(f.readlines()[-15:])
        except OSError:
            return ""


def wait_for(what, predicate, timeout, step=0.5, detail=lambda: ""):
    deadline = time.monotonic() + timeout
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() > deadline:
            raise LabError(f"timed out after {timeout} s waiting for {what}{detail()}")
        time.sleep(step)


def established(speaker):
    r = speaker.cli("-j", "neighbor", check=False)
    if r.returncode != 0:
        return False
    try:
        peers = json.loads(r.stdout or "[]")
    except ValueError:
        return False
    return any(p.get("state", {}).get("session_state") in ("established", 6) for p in peers)


def table_dumps(data):
    """Splits an MRT file into (timestamp, bytes) per table dump, each dump
    starting at a PEER_INDEX_TABLE record. A torn last record ends the list."""
    dumps, off = [], 0
    while off + 12 <= len(data):
        ts, mtype, sub, length = struct.unpack_from("!IHHI", data, off)
        end = off + 12 + length
        if end > len(data):
            break
        if mtype == MRT_TABLE_DUMP_V2 and sub == MRT_PEER_INDEX_TABLE:
            dumps.append([ts, off, end])
        elif dumps:
            dumps[-1][2] = end
        off = end
    return [(ts, data[b:e]) for ts, b, e in dumps]


def write_view(path, view):
    """gobgp's JSON, one route a line, without "age" (it changes each second)."""
    families = []
    for family in FAMILIES:
        routes = []
        for prefix in sorted(view[family]):
            paths = [{k: v for k, v in p.items() if k != "age"} for p in view[family][prefix]]
            routes.append(f"  {json.dumps(prefix)}: {json.dumps(paths, separators=(',', ':'))}")
        families.append(f"{json.dumps(family)}: {{\n" + ",\n".join(routes) + "\n }")
    with open(path, "w") as f:
        f.write("{" + ",\n".join(families) + "}\n")


def run(outdir, log=print):
    os.makedirs(outdir, exist_ok=True)
    bgp_o, api_o, bgp_c, api_c = free_ports(4)
    mrt = os.path.join(outdir, "collector-table.mrt")
    if os.path.exists(mrt):
        os.remove(mrt)
    origin = Speaker("origin", outdir, ORIGIN_AS, "192.0.2.1", bgp_o, api_o)
    origin.text += ('[global.apply-policy.config]\n'
                    '  export-policy-list = ["next-hop"]\n'
                    '  default-export-policy = "accept-route"\n'
                    + neighbor_toml(bgp_c, COLLECTOR_AS, passive=False, add_paths="send-max = 8") + origin_policy_toml())
    collector = Speaker("collector", outdir, COLLECTOR_AS, "192.0.2.2", bgp_c, api_c)
    collector.text += (
        '[global.apply-policy.config]\n'
        '  import-policy-list = ["add-ext"]\n'
        '  default-import-policy = "accept-route"\n'
        '  default-export-policy = "reject-route"\n'
        + neighbor_toml(bgp_o, ORIGIN_AS, passive=True, add_paths="receive = true") + collector_policy_toml() +
        '[[mrt-dump]]\n'
        '  [mrt-dump.config]\n'
        '    dump-type = "table"\n'
        f'    file-name = "{mrt}"\n'
        '    dump-interval = 60\n')
    speakers = {"origin": origin, "collector": collector}
    try:
        collector.start()
        origin.start()
        for s in speakers.values():
            wait_for(f"gobgpd {s.name} API on 127.0.0.1:{s.api_port}",
                     lambda s=s: s.cli("global", check=False).returncode == 0, 20)
        log(f"gobgpd {origin.proc.pid} (origin, bgp {bgp_o}) and {collector.proc.pid} "
            f"(collector, bgp {bgp_c}) up on 127.0.0.1")
        wait_for("the loopback BGP session", lambda: established(collector), 30)
        for who, family, args in ROUTES:
            speakers[who].cli("global", "rib", "-a", family, "add", *args.split())
        want = {f: sum(1 for _, fam, _ in ROUTES if fam == f) for f in FAMILIES}
        have = lambda: {f: sorted(collector.rib(f)) for f in FAMILIES}
        wait_for("every route in the collector's RIB",
                 lambda: all(len(collector.rib(f)) == n for f, n in want.items()), 30,
                 detail=lambda: f"; expected per family {want}, it has {have()}")
        settled = int(time.time()) + 1
        log(f"{len(ROUTES)} routes in the collector's RIB; waiting for its table dump")

        def dump_after_settle():
            try:
                with open(mrt, "rb") as f:
                    data = f.read()
            except OSError:
                return None
            for ts, dump in table_dumps(data):
                if ts >= settled:
                    time.sleep(1)  # gobgpd writes a small dump in one go; be sure
                    with open(mrt, "rb") as f:
                        again = [d for t, d in table_dumps(f.read()) if t == ts]
                    return again[0] if again and again[0] == dump else None
            return None

        dump = wait_for("the collector's MRT table dump", dump_after_settle, 150, step=1)
        view = {f: collector.rib(f) for f in FAMILIES}
    except LabError as e:
        logs = "".join(f"\n--- {s.name} log ---\n{s.log_tail()}"
                       for s in speakers.values() if s.proc is not None)
        if "address already in use" in logs:
            raise PortTaken(e.args[0] + logs) from None
        raise LabError(e.args[0] + logs) from None
    finally:
        for s in speakers.values():
            s.stop()
    with open(os.path.join(outdir, "gobgp-rib.mrt"), "wb") as f:
        f.write(dump)
    write_view(os.path.join(outdir, "gobgp-rib.view.json"), view)
    version = subprocess.run(["gobgpd", "--version"], capture_output=True, text=True,
                             timeout=10).stdout.strip()
    log(f"dump of {len(dump)} bytes written by {version}")
    return version


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    sub = ap.add_subparsers(dest="cmd", required=True)
    r = sub.add_parser("run", help="run the lab, leave the dump and gobgp's view in OUTDIR")
    r.add_argument("outdir")
    args = ap.parse_args()
    if shutil.which("gobgpd") is None or shutil.which("gobgp") is None:
        print("gobgplab: gobgpd/gobgp not found", file=sys.stderr)
        return 2
    # Turn SIGTERM (e.g. a test timeout) into a normal exit so the daemons are stopped.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    for attempt in range(1, 4):
        try:
            run(args.outdir)
            return 0
        except PortTaken as e:
            print(f"gobgplab: attempt {attempt}: {e}", file=sys.stderr)
        except LabError as e:
            print(f"gobgplab: {e}", file=sys.stderr)
            return 1
    return 1


if __name__ == "__main__":
    sys.exit(main())
