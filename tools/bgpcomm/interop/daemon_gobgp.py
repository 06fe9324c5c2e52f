"""gobgpd as a lab speaker, driven by `gobgp` over its API port.

The 3.10 CLI puts communities, large communities, route targets, color and
encapsulation on a route (`gobgp global rib add`); route origin and the
non-transitive link bandwidth come from an export policy. It has no way to
send a transitive link bandwidth.
"""

import json

import richtable
from commnorm import route_key, std_text
from gobgpview import ext_raw, ipv6_ext_raw
from speaker import Speaker, run

FAMILIES = ("ipv4", "ipv6")
TUNNELS = {8: "vxlan", 19: "geneve"}  # RFC 9012 tunnel types, by gobgp's names


def asdot(admin):
    """gobgp writes and reads an AS above 65535 as high.low."""
    if isinstance(admin, int) and admin > 0xFFFF:
        return f"{admin >> 16}.{admin & 0xFFFF}"
    return str(admin)


def gobgp_comms(path):
    comms = {"standard": set(), "large": set(), "extended": set(), "ipv6": set()}
    for attr in path.get("attrs", []):
        t = attr.get("type")
        if t == 8:  # COMMUNITIES [RFC 1997]
            comms["standard"] = {std_text(v) for v in attr["communities"]}
        elif t == 32:  # LARGE_COMMUNITY [RFC 8092]
            comms["large"] = {f"{c['ASN']}:{c['LocalData1']}:{c['LocalData2']}"
                              for c in attr["value"]}
        elif t == 16:  # EXTENDED COMMUNITIES [RFC 4360]
            comms["extended"] = {_ext(e) for e in attr["value"]}
        elif t == 25:  # IPv6 ADDRESS SPECIFIC EXTENDED COMMUNITY [RFC 5701]
            comms["ipv6"] = {ipv6_ext_raw(e)[2:] for e in attr["value"]}
    return comms


def _ext(e):
    raw = ext_raw(e)[2:]
    # gobgp reports a link bandwidth as type 64 (0x40, non-transitive)
    # whichever type it came with.
    return (raw, "00" + raw[2:]) if raw.startswith("4004") else raw


class Gobgp(Speaker):
    kind = "gobgpd"

    def __init__(self, *args, api_port, **kw):
        super().__init__(*args, **kw)
        self.api_port = api_port

    @staticmethod
    def cannot_show(kind, value):
        return False

    @staticmethod
    def can_express(ext):
        return not (ext[0] == "lb" and ext[3])

    def command(self):
        return ["gobgpd", "-f", self.path("config"), "-p", "--pprof-disable",
                "--api-hosts", f"127.0.0.1:{self.api_port}"]

    def _policy(self):
        """Export policy adding route origin and link bandwidth per prefix."""
        text, stmts = "", ""
        for i, (prefix, comms) in enumerate(richtable.ROUTES):
            ext = [richtable.bind(e, self.asn) for e in comms.get("extended", [])]
            add = [f"soo:{asdot(e[1])}:{e[2]}" for e in ext if e[0] == "soo"]
            add += [f"lb:{e[1]}:{e[2]}" for e in ext if e[0] == "lb" and not e[3]]
            if not add:
                continue
            text += (f'[[defined-sets.prefix-sets]]\n  prefix-set-name = "p{i}"\n'
                     f'  [[defined-sets.prefix-sets.prefix-list]]\n    ip-prefix = "{prefix}"\n')
            stmts += ('  [[policy-definitions.statements]]\n'
                      f'    name = "s{i}"\n'
                      '    [policy-definitions.statements.conditions.match-prefix-set]\n'
                      f'      prefix-set = "p{i}"\n'
                      '    [policy-definitions.statements.actions]\n'
                      '      route-disposition = "accept-route"\n'
                      '    [policy-definitions.statements.actions.bgp-actions.set-ext-community]\n'
                      '      options = "add"\n'
                      '      [policy-definitions.statements.actions.bgp-actions.'
                      'set-ext-community.set-ext-community-method]\n'
                      f'        communities-list = {json.dumps(add)}\n')
        return text + '[[policy-definitions]]\n  name = "rich"\n' + stmts

    def config(self):
        text = ('[global.config]\n'
                f'  as = {self.asn}\n'
                f'  router-id = "{self.addr}"\n'
                f'  port = {self.port}\n'
                f'  local-address-list = ["{self.addr}"]\n')
        if self.announced:
            text += ('[global.apply-policy.config]\n  export-policy-list = ["rich"]\n'
                     '  default-export-policy = "accept-route"\n')
        for n in self.neighbors:
            text += ('[[neighbors]]\n  [neighbors.config]\n'
                     f'    neighbor-address = "{n["addr"]}"\n    peer-as = {n["asn"]}\n'
                     '  [neighbors.transport.config]\n'
                     f'    local-address = "{self.addr}"\n' +
                     ('' if n["passive"] else f'    remote-port = {n["port"]}\n') +
                     f'    passive-mode = {"true" if n["passive"] else "false"}\n'
                     '  [neighbors.timers.config]\n    connect-retry = 1\n'
                     # Graceful restart, so that gobgpd sends End-of-RIB (RFC 4724).
                     '  [neighbors.graceful-restart.config]\n    enabled = true\n' +
                     "".join('  [[neighbors.afi-safis]]\n    [neighbors.afi-safis.config]\n'
                             f'      afi-safi-name = "{f}-unicast"\n' for f in FAMILIES))
        return text + (self._policy() if self.announced else "")

    def cli(self, *args, check=True):
        self.alive()
        return run(["gobgp", "-p", str(self.api_port), *args], check=check)

    def shut_down(self, addr):
        self.cli("neighbor", addr, "disable")

    def ready(self):
        self.alive()
        return self.cli("global", check=False).returncode == 0

    def start(self):
        super().start()
        if self.announced:
            for prefix, comms in richtable.ROUTES:
                self.cli("global", "rib", "add", "-a", "ipv6" if ":" in prefix else "ipv4",
                         *self._route_args(prefix, comms))
        return self

    def _route_args(self, prefix, comms):
        asn = self.asn
        args = [prefix, "nexthop", "2001:db8::3" if ":" in prefix else "192.0.2.3"]
        std = [std_text(richtable.std_value(c, asn)) for c in comms.get("standard", [])]
        if std:
            args += ["community", ",".join(std)]
        if comms.get("large"):
            args += ["large-community",
                     ",".join("%d:%d:%d" % richtable.bind(c, asn) for c in comms["large"])]
        for e in (richtable.bind(e, asn) for e in comms.get("ipv6", [])):
            args += ["redirect", f"{e[1]}:{e[2]}"]
        for e in (richtable.bind(e, asn) for e in comms.get("extended", [])):
            if e[0] == "rt":
                args += ["rt", f"{asdot(e[1])}:{e[2]}"]
            elif e[0] == "color":
                args += ["color", str(e[1])]
            elif e[0] == "encap":
                args += ["encap", TUNNELS[e[1]]]
        return args

    def established(self, addr):
        r = self.cli("-j", "neighbor", check=False)
        try:
            peers = json.loads(r.stdout or "[]")
        except ValueError:
            return False
        return any(p.get("conf", {}).get("neighbor_address") == addr and
                   p.get("state", {}).get("session_state") in ("established", 6) for p in peers)

    def _rib(self, *args):
        out = {}
        for fam in FAMILIES:
            data = json.loads(self.cli("-j", *args, "-a", fam).stdout or "{}")
            for prefix, paths in (data.items() if isinstance(data, dict) else []):
                for p in paths:
                    out[route_key(p.get("nlri", {}).get("prefix", prefix))] = gobgp_comms(p)
        return out

    def received(self, addr):
        return self._rib("neighbor", addr, "adj-in")

    def sent(self, addr):
        return self._rib("neighbor", addr, "adj-out")
