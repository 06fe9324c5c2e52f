"""BIRD 2 as a lab speaker: `bird -f -c CONF -s SOCKET -P PIDFILE`, queried
with `birdc -s SOCKET`.

BIRD's filters add any extended community: route target and route origin
by name, the others as (generic, high 32 bits, low 32 bits). It honours
NO_ADVERTISE and NO_EXPORT on export (shown in `show route export`).
"""

import re

import richtable
from commnorm import ViewError, admin_ext, route_key, std_text
from speaker import Speaker, run

# BIRD's names of the route target / route origin sub-types [RFC 4360].
SUBTYPE = {"rt": 0x02, "ro": 0x03}


def bird_ext(token):
    """One "(kind, a, b)" of BIRD's BGP.ext_community line."""
    parts = [p.strip() for p in token.split(",")]
    if len(parts) != 3:
        raise ViewError(f"BIRD extended community not understood: ({token})")
    kind, a, b = parts
    if kind == "generic":
        return f"{int(a, 16):08x}{int(b, 16):08x}"
    m = re.fullmatch(r"unknown 0x([0-9a-f]+)", kind)
    if kind in SUBTYPE or m:
        code = int(m[1], 16) if m else SUBTYPE[kind]
        high, sub = (code >> 8) & ~0x03, code & 0xFF
        return admin_ext(high, sub, a, b)
    raise ViewError(f"BIRD extended community kind not understood: ({token})")


def bird_routes(text, proto=None):
    """{prefix: communities} from `birdc show route ... all`; with `proto`,
    only the paths that came from that protocol."""
    out, prefix, current = {}, None, None
    for line in text.splitlines():
        if not line.strip() or line.startswith(("BIRD ", "Table ")):
            continue
        if not line[0].isspace():
            prefix = route_key(line.split()[0])
        if not line.startswith("\t"):
            m = re.search(r"\[(\S+)", line)
            current = None
            if m and (proto is None or m[1] == proto):
                current = out[prefix] = {"standard": set(), "large": set(), "extended": set()}
            continue
        if current is None:
            continue
        name, _, value = line.strip().partition(": ")
        tuples = re.findall(r"\(([^)]*)\)", value)
        if name == "BGP.community":
            current["standard"] = {std_text(int(a) << 16 | int(b))
                                   for a, b in (t.split(",") for t in tuples)}
        elif name == "BGP.large_community":
            current["large"] = {":".join(p.strip() for p in t.split(",")) for t in tuples}
        elif name == "BGP.ext_community":
            current["extended"] = {bird_ext(t) for t in tuples}
    return out


def _ext_filter(e):
    if e[0] in ("rt", "soo"):
        return f"({'rt' if e[0] == 'rt' else 'ro'}, {e[1]}, {e[2]})"
    raw = richtable.ext_raw(e, None)
    return f"(generic, 0x{raw[:8]}, 0x{raw[8:]})"


class Bird(Speaker):
    kind = "bird"

    @staticmethod
    def can_express(ext):
        return ext[0] != "redirect6"

    def command(self):
        return ["bird", "-f", "-c", self.path("config"), "-s", self.path("bird.ctl"),
                "-P", self.path("bird.pid")]

    def config(self):
        lines = [f"router id {self.addr};", "log stderr all;", "protocol device {}"]
        if self.announced:
            for fam in ("ipv4", "ipv6"):
                lines += [f"protocol static st_{fam} {{", f"  {fam};"]
                for prefix, comms in richtable.ROUTES:
                    if (":" in prefix) == (fam == "ipv6"):
                        lines += [f"  route {prefix} blackhole {{"] + self._sets(comms) + ["  };"]
                lines += ["}"]
        for i, n in enumerate(self.neighbors):
            lines += [f"protocol bgp n{i} {{",
                      f"  local {self.addr} port {self.port} as {self.asn};",
                      f"  neighbor {n['addr']}" + ("" if n["passive"] else f" port {n['port']}")
                      + f" as {n['asn']};",
                      "  multihop; connect retry time 1; connect delay time 1;"]
            lines += ["  passive on;"] if n["passive"] else []
            lines += ["  ipv4 { import all; export all; next hop address 192.0.2.2; };",
                      "  ipv6 { import all; export all; next hop address 2001:db8::2; };", "}"]
        return "\n".join(lines) + "\n"

    def _sets(self, comms):
        asn, out = self.asn, []
        for c in comms.get("standard", []):
            v = richtable.std_value(c, asn)
            out.append(f"    bgp_community.add(({v >> 16},{v & 0xFFFF}));")
        for c in comms.get("large", []):
            out.append("    bgp_large_community.add((%d,%d,%d));" % richtable.bind(c, asn))
        for e in comms.get("extended", []):
            out.append(f"    bgp_ext_community.add({_ext_filter(richtable.bind(e, asn))});")
        return out

    def birdc(self, *words):
        return run(["birdc", "-s", self.path("bird.ctl"), *words]).stdout

    def shut_down(self, addr):
        self.birdc("disable", self.protocol(addr))

    def ready(self):
        self.alive()
        return run(["birdc", "-s", self.path("bird.ctl"), "show", "status"],
                   check=False).returncode == 0

    def protocol(self, addr):
        for i, n in enumerate(self.neighbors):
            if n["addr"] == addr:
                return f"n{i}"
        raise ValueError(f"no session with {addr}")

    def established(self, addr):
        return "Established" in self.birdc("show", "protocols", self.protocol(addr))

    def received(self, addr):
        proto = self.protocol(addr)
        return bird_routes(self.birdc("show", "route", "protocol", proto, "all"), proto)

    def sent(self, addr):
        """`show route export`, which shows the attributes before BIRD's
        last step: to an eBGP peer it leaves out the non-transitive extended
        communities (type bit 0x40, RFC 4360) on the wire, so they are left
        out here too."""
        routes = bird_routes(self.birdc("show", "route", "export", self.protocol(addr), "all"))
        if next(n for n in self.neighbors if n["addr"] == addr)["asn"] != self.asn:
            for comms in routes.values():
                comms["extended"] = {v for v in comms["extended"]
                                     if isinstance(v, tuple) or not int(v[:2], 16) & 0x40}
        return routes

