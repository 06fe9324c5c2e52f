"""Just enough BGP-4 (RFC 4271) to open a session and send hand-made
UPDATEs: the malformed-attribute test's peer. Every read has a deadline."""

import socket
import struct
import time

MARKER = b"\xff" * 16
OPEN, UPDATE, NOTIFICATION, KEEPALIVE = 1, 2, 3, 4  # RFC 4271 message types

# Path attribute type codes [IANA "BGP Path Attributes"].
ORIGIN, AS_PATH, NEXT_HOP, COMMUNITIES = 1, 2, 3, 8
# Attribute flags [RFC 4271 4.3].
OPTIONAL, TRANSITIVE, EXTENDED_LENGTH = 0x80, 0x40, 0x10


def message(mtype, body):
    return MARKER + struct.pack("!HB", 19 + len(body), mtype) + body


def attribute(flags, code, value):
    if len(value) > 255:
        return struct.pack("!BBH", flags | EXTENDED_LENGTH, code, len(value)) + value
    return struct.pack("!BBB", flags, code, len(value)) + value


def prefix(text):
    addr, length = text.split("/")
    length = int(length)
    return bytes([length]) + socket.inet_aton(addr)[:(length + 7) // 8]


def update(prefixes, asn, next_hop, communities=b"", communities_length=None):
    """An IPv4 UPDATE announcing `prefixes` from `asn`. `communities` are the
    COMMUNITIES value octets; `communities_length` overrides the length the
    attribute header claims (the rest of the attribute is sized to match)."""
    attrs = attribute(TRANSITIVE, ORIGIN, b"\x00")
    # AS_SEQUENCE (2) of one 4-octet AS: both ends offered 4-octet AS (RFC 6793).
    attrs += attribute(TRANSITIVE, AS_PATH, struct.pack("!BBI", 2, 1, asn))
    attrs += attribute(TRANSITIVE, NEXT_HOP, socket.inet_aton(next_hop))
    if communities or communities_length is not None:
        if communities_length is not None:
            communities = communities[:communities_length].ljust(communities_length, b"\x00")
        attrs += attribute(OPTIONAL | TRANSITIVE, COMMUNITIES, communities)
    nlri = b"".join(prefix(p) for p in prefixes)
    return message(UPDATE, struct.pack("!H", 0) + struct.pack("!H", len(attrs)) + attrs + nlri)


def open_message(asn, router_id, hold=90):
    # Capabilities [RFC 5492]: multiprotocol IPv4 unicast (1, RFC 4760) and
    # 4-octet AS (65, RFC 6793).
    caps = bytes([1, 4, 0, 1, 0, 1]) + bytes([65, 4]) + struct.pack("!I", asn)
    params = bytes([2, len(caps)]) + caps
    my_as = asn if asn <= 0xFFFF else 23456  # AS_TRANS [RFC 6793]
    return message(OPEN, struct.pack("!BHH4sB", 4, my_as, hold, socket.inet_aton(router_id),
                                     len(params)) + params)


class Session:
    def __init__(self, local, remote, port, asn, timeout=10):
        self.asn = asn
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self.sock.bind((local, 0))
        self.sock.settimeout(timeout)
        self.sock.connect((remote, port))
        self.buf = b""

    def send(self, data):
        self.sock.sendall(data)

    def read(self, timeout):
        """The next message as (type, body), or None when none came in time.
        Raises ConnectionError when the other end closed."""
        deadline = time.monotonic() + timeout
        while True:
            if len(self.buf) >= 19:
                length, mtype = struct.unpack_from("!HB", self.buf, 16)
                if len(self.buf) >= length:
                    body, self.buf = self.buf[19:length], self.buf[length:]
                    return mtype, body
            left = deadline - time.monotonic()
            if left <= 0:
                return None
            self.sock.settimeout(left)
            try:
                chunk = self.sock.recv(65536)
            except socket.timeout:
                return None
            if not chunk:
                raise ConnectionError("the collector closed the connection")
            self.buf += chunk

    def establish(self, router_id, timeout=10):
        """OPEN both ways, then KEEPALIVE both ways (RFC 4271 8.2.2)."""
        self.send(open_message(self.asn, router_id))
        got_open = got_keepalive = False
        deadline = time.monotonic() + timeout
        while not (got_open and got_keepalive):
            m = self.read(max(0.0, deadline - time.monotonic()))
            if m is None:
                raise TimeoutError("no OPEN and KEEPALIVE from the collector in time")
            if m[0] == NOTIFICATION:
                raise ConnectionError(f"NOTIFICATION {m[1][:2].hex()} instead of OPEN")
            if m[0] == OPEN:
                got_open = True
                self.send(message(KEEPALIVE, b""))
            elif m[0] == KEEPALIVE:
                got_keepalive = got_open

    def notifications(self, timeout):
        """NOTIFICATIONs received within `timeout` (KEEPALIVEs answered)."""
        out, deadline = [], time.monotonic() + timeout
        while time.monotonic() < deadline:
            m = self.read(deadline - time.monotonic())
            if m is None:
                break
            if m[0] == NOTIFICATION:
                out.append(m[1][:2].hex())
            elif m[0] == KEEPALIVE:
                self.send(message(KEEPALIVE, b""))
        return out

    def cease(self):
        """Cease / Administrative Shutdown (6/2, RFC 4486), then close."""
        try:
            self.send(message(NOTIFICATION, bytes([6, 2])))
        finally:
            self.sock.close()
