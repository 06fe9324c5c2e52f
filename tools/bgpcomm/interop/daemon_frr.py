"""FRR's bgpd as a lab speaker: no zebra, its vty socket in its folder,
queried with `vtysh --vty_socket DIR -d bgpd`.

FRR 8.4's route-map can set communities, large communities and, of the
extended kinds, route target, route origin and link bandwidth (the AS being
its own); it has no way to set color or encapsulation. Its link bandwidth
goes out non-transitive (type 0x40) with or without the `non-transitive`
keyword, so a transitive one cannot be expressed either.
"""

import json
import os
import re
import struct

from commnorm import admin_ext, ext_hex, route_key, std_parse
import richtable
from speaker import Speaker, run

FRR_BGPD = "/usr/lib/frr/bgpd"
FAMILIES = ("ipv4", "ipv6")


def frr_shows(raw):
    """Whether FRR 8.4 prints the extended community `raw` in a form that
    tells its value: route target and route origin in the three
    administrator layouts [RFC 4360, RFC 5668], link bandwidth
    [draft-ietf-idr-link-bandwidth], encapsulation [RFC 9012], flow-spec
    redirect [RFC 8955, RFC 7674], origin validation state [RFC 8097]. It
    prints others (color among them) as "UNK:type, sub-type", or in words
    that do not give every octet."""
    t, s = int(raw[:2], 16), int(raw[2:4], 16)
    return (t in (0x00, 0x01, 0x02) and s in (0x02, 0x03)) or (t in (0x00, 0x40) and s == 0x04) \
        or (t, s) in ((0x03, 0x0C), (0x43, 0x00)) or (t in (0x80, 0x81, 0x82) and s == 0x08)


# Where one community ends in FRR's string: its words are separated by
# spaces too ("FS:redirect VRF RT:65001:5", "UNK:3, 0", "Default Gateway").
FRR_TOKEN_START = re.compile(
    r"(?<!VRF) (?=RT:|SoO:|LB:|ET:|UNK:|FS:|OVS:|MM:|ND:|DF:|ESI-label|Rmac:|Default G)")


OVS_STATES = {"OVS:valid": 0, "OVS:not-found": 1, "OVS:invalid": 2}


def _frr_ext_token(token):
    """One token of FRR's extended community string, as commnorm values;
    what FRR does not spell out comes back as "?TOKEN"."""
    m = re.fullmatch(r"FS:redirect VRF RT:(.+):(\d+)", token)
    if m:
        # Flow-spec redirect: 0x80 / 0x81 / 0x82 for the three layouts, sub-type 0x08.
        return admin_ext(0x80, 0x08, m[1], m[2])
    if token in OVS_STATES:
        # Origin validation state 0x43/0x00: the state in the last octet [RFC 8097].
        return ext_hex(0x43, 0x00, bytes(5) + bytes([OVS_STATES[token]]))
    if re.fullmatch(r"ET:\d+", token):
        # Encapsulation 0x03/0x0c: 4 reserved octets, the tunnel type [RFC 9012].
        return ext_hex(0x03, 0x0C, struct.pack("!IH", 0, int(token[3:])))
    m = re.fullmatch(r"(RT|SoO|LB):(.+):(\d+)", token)
    if not m:
        return "?" + token
    if m[1] == "LB":
        # "LB:AS:BYTES" [ecommunity.c]: AS in 2 octets, bytes/s as a float;
        # transitive (0x00) or not (0x40) is not shown.
        six = struct.pack("!Hf", int(m[2]), float(m[3]))
        return (ext_hex(0x40, 0x04, six), ext_hex(0x00, 0x04, six))
    return admin_ext(0x00, 0x02 if m[1] == "RT" else 0x03, m[2], m[3])


def frr_comms(path):
    """The communities of one path of FRR's `json detail` output."""
    ext_text = path.get("extendedCommunity", {}).get("string", "").strip()
    # Drop the "(1.000 Gbps)" FRR prints after a link bandwidth.
    ext_text = re.sub(r"\s*\([^)]*\)", "", ext_text)
    return {
        "standard": {std_parse(t) for t in path.get("community", {}).get("string", "").split()},
        "large": set(path.get("largeCommunity", {}).get("list", [])),
        "extended": {_frr_ext_token(t) for t in FRR_TOKEN_START.split(ext_text) if t},
    }


class Frr(Speaker):
    kind = "bgpd"

    @staticmethod
    def cannot_show(kind, value):
        return kind == "ipv6" or \
            (kind == "extended" and (value.startswith("?") or not frr_shows(value)))

    @staticmethod
    def can_express(ext):
        return ext[0] in ("rt", "soo") or (ext[0] == "lb" and not ext[3])

    def command(self):
        return [FRR_BGPD, "-Z", "-S", "-n", "-l", self.addr, "-p", str(self.port), "-P", "0",
                "-f", self.path("config"), "-i", self.path("bgpd.pid"),
                "--vty_socket", self.dir, "-u", "root", "-g", "root",
                "--log", f"file:{self.log}"]

    def config(self):
        lines = ["frr defaults traditional", f"hostname {self.name}", "!"]
        nets = {f: [] for f in FAMILIES}
        if self.announced:
            for i, (prefix, comms) in enumerate(richtable.ROUTES):
                rm = f"R{i}"
                fam = "ipv6" if ":" in prefix else "ipv4"
                nets[fam].append(f"  network {prefix} route-map {rm}")
                lines += [f"route-map {rm} permit 10"] + self._sets(fam, comms) + ["!"]
        lines += [f"router bgp {self.asn}", f" bgp router-id {self.addr}",
                  " no bgp ebgp-requires-policy", " no bgp network import-check",
                  " no bgp default ipv4-unicast"]
        for n in self.neighbors:
            a = n["addr"]
            lines += [f" neighbor {a} remote-as {n['asn']}",
                      f" neighbor {a} update-source {self.addr}", f" neighbor {a} timers connect 1"]
            lines += [f" neighbor {a} passive" if n["passive"] else
                      f" neighbor {a} port {n['port']}"]
        for fam in FAMILIES:
            lines += [f" address-family {fam} unicast"]
            lines += [f"  neighbor {n['addr']} activate" for n in self.neighbors] + nets[fam]
            lines += [" exit-address-family"]
        return "\n".join(lines + ["!", ""])

    def _sets(self, fam, comms):
        asn = self.asn
        out = [" set ipv6 next-hop global 2001:db8::1" if fam == "ipv6" else
               " set ip next-hop 192.0.2.1"]
        std = [richtable.std_value(c, asn) for c in comms.get("standard", [])]
        if std:
            out.append(" set community " + " ".join(f"{v >> 16}:{v & 0xFFFF}" for v in std))
        large = ["%d:%d:%d" % richtable.bind(c, asn) for c in comms.get("large", [])]
        if large:
            out.append(" set large-community " + " ".join(large))
        ext = [e for e in (richtable.bind(e, asn) for e in comms.get("extended", []))
               if self.can_express(e)]
        for kind in ("rt", "soo"):
            values = [f"{e[1]}:{e[2]}" for e in ext if e[0] == kind]
            if values:
                out.append(f" set extcommunity {kind} " + " ".join(values))
        for e in ext:
            if e[0] == "lb":
                # FRR sets bandwidth in Mbit/s, the community holds bytes/s.
                mbps = e[2] * 8 // 1000000
                out.append(f" set extcommunity bandwidth {mbps}" +
                           ("" if e[3] else " non-transitive"))
        return out

    def vtysh(self, *commands):
        args = ["vtysh", "--vty_socket", self.dir, "-d", "bgpd"]
        for c in commands:
            args += ["-c", c]
        return run(args).stdout

    def shut_down(self, addr):
        self.vtysh("configure terminal", f"router bgp {self.asn}", f"neighbor {addr} shutdown")

    def ready(self):
        self.alive()
        return os.path.exists(self.path("bgpd.vty")) and \
            run(["vtysh", "--vty_socket", self.dir, "-d", "bgpd", "-c", "show version"],
                check=False).returncode == 0

    def established(self, addr):
        state = json.loads(self.vtysh(f"show bgp neighbors {addr} json") or "{}")
        return state.get(addr, {}).get("bgpState") == "Established"

    def _paths(self, fam):
        """(prefix, path) of FRR's whole table of `fam`."""
        data = json.loads(self.vtysh(f"show bgp {fam} unicast json detail") or "{}")
        for prefix, entries in data.get("routes", {}).items():
            # 8.4 puts the prefix's own object first, then one object per path.
            for p in entries:
                if "prefix" in p and "version" in p and "aspath" not in p:
                    continue
                yield route_key(prefix), p

    def received(self, addr):
        out = {}
        for fam in FAMILIES:
            for prefix, p in self._paths(fam):
                if p.get("peer", {}).get("peerId") == addr:
                    out[prefix] = frr_comms(p)
        return out

    def sent(self, addr):
        """FRR's advertised-routes list to `addr`, each with the communities
        of FRR's best path for it: FRR changes none of them on the way out
        (with no outbound route-map), not even on eBGP, where it still sends
        the non-transitive link bandwidth."""
        best = {}
        for fam in FAMILIES:
            for prefix, p in self._paths(fam):
                if p.get("bestpath", {}).get("overall"):
                    best[prefix] = frr_comms(p)
        out = {}
        for fam in FAMILIES:
            adv = json.loads(self.vtysh(f"show bgp {fam} unicast neighbors {addr} "
                                        "advertised-routes json") or "{}")
            for prefix in adv.get("advertisedRoutes", {}):
                out[route_key(prefix)] = best.get(route_key(prefix), {})
        return out

