#!/usr/bin/env python3
"""Writes the committed seed inputs under fuzz/corpus/<target>/.

Each seed is a well-formed input in the target's layout (see the comment at
the top of fuzz/<target>.cpp), so that fuzzing starts from values the
parsers accept. Run from the repository root; the MRT seeds also take the
committed sample dump.
"""
import os
import struct

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")


def seed(target, name, data):
    os.makedirs(os.path.join(ROOT, target), exist_ok=True)
    with open(os.path.join(ROOT, target, name), "wb") as f:
        f.write(data if isinstance(data, bytes) else data.encode("latin-1"))


def be(value, octets):
    return value.to_bytes(octets, "big")


# 2001:db8::1 (RFC 3849)
IP6 = bytes.fromhex("20010db8000000000000000000000001")

# extcomm: selector (bit 0: opt-in plug-ins), then 1 + 8 octets or 0 + 20 octets.
ext = [0x0002FDE800000064, 0x030B00000000002A, 0x4004FDE849989680, 0x0102C0000201000A,
       0x0205000100000064, 0x4300000000000002, 0x030C000000000008, 0x0600010000000005,
       0x0800000000000000, 0x8108FDE800000000]
seed("extcomm", "default", bytes([0]) + b"".join(b"\x01" + be(v, 8) for v in ext)
     + b"\x00" + bytes([0x00, 0x02]) + IP6 + be(7, 2))
seed("extcomm", "optin", bytes([3]) + b"".join(b"\x01" + be(v, 8) for v in ext))
seed("extcomm", "ip6", bytes([0]) + b"\x00" + bytes([0x40, 0x0B]) + IP6 + be(300, 2))

# lists: selector (kind), pattern, NUL, values.
seed("lists", "standard", b"\x00^65000:.* no-export$\x00" + be(0xFDE80064, 4) + be(0xFFFFFF01, 4)
     + be(0xFDE80064, 4))
seed("lists", "large", b"\x01(^| )65536:1:[0-9]+\x00" + be(65536, 4) + be(1, 4) + be(2, 4)
     + be(1, 4) * 3)
seed("lists", "extended", b"\x02RT:65000:100\x00" + b"".join(be(v, 8) for v in ext))
seed("lists", "extended-long", b"\x02[0-9]+\x00" + b"".join(be(0x0002FDE800000000 + i, 8)
                                                          for i in range(40)))
seed("lists", "ip6", b"\x032001\x00" + bytes([0x00, 0x02]) + IP6 + be(7, 2))


# stash: selector (bit 0: fix the checksum), image length, image, overlay.
def image(records):
    body = b""
    offsets = []
    for kind, words, elements in records:
        offsets.append(32 + len(body))
        body += struct.pack("<III", kind, words, len(elements))
        for element in elements:
            body += struct.pack("<%dI" % words, *element)
    directory = 32 + len(body)
    size = directory + 4 * len(offsets)
    header = b"KIVSTASH" + struct.pack("<HHIII", 1, 32, size, len(offsets), directory)
    out = header + b"\0" * 8 + body + struct.pack("<%dI" % len(offsets), *offsets)
    h = 0xcbf29ce484222325
    for octet in out:
        h = ((h ^ octet) * 0x100000001b3) & 0xFFFFFFFFFFFFFFFF
    return out[:24] + struct.pack("<Q", h) + out[32:]


img = image([(1, 1, [(1,), (3,), (0xFFFFFF01,)]), (2, 3, [(1, 2, 3), (65536, 1, 2)]),
             (3, 3, [(0x0002FDE8, 0x64, 1)]), (4, 6, [(0x00022001, 0x0db80000, 0, 0, 0x00010007, 0)]),
             (5, 2, [(0x0002FDE8, 0x64), (0x030B0000, 0x2A)]),
             (6, 5, [(0x00022001, 0x0db80000, 0, 0, 0x00010007)]), (1, 1, [])])
seed("stash", "image", bytes([0]) + be(len(img), 2) + img)
seed("stash", "image-rewritten", bytes([1]) + be(len(img), 2) + img + b"\xff" * 24)

# text: selector (index into the target's parser table), text.
texts = [(0, "12345"), (0, "-"), (2, "7"), (3, "Value('Routing::Bgp::BgpDenseU32Attr', ** {'value': 5})"),
         (4, "0x0002fde800000064"),
         (5, "Value('Routing::Bgp::ExtComm::StrepFormat', ** {'strepFormatDefault': True, "
             "'strepFormatClassification': False, 'strepFormatUI': False, 'strepFormatJson': False, "
             "'strepFormatAsdot': False, 'strepFormatLinkBwWeighted': False})"),
         (10, "Value('Acl::CommunityValue', ** {'globalAdmin': 1, 'localData1': 2, 'localData2': 3})"),
         (11, "2001:db8::1"), (11, "::ffff:192.0.2.1"), (16, "community"), (20, "7"),
         (22, "type=0;subtype=2;addr=2001:db8::1;localAdmin=300"), (23, "fe80::1"),
         (24, "18446744073709551615"), (25, "-9223372036854775808"), (26, "0x7fff0000")]
for i, (selector, text) in enumerate(texts):
    seed("text", "t%02d" % i, bytes([selector]) + text.encode())

# mrt: selector (format, asdot, statistics, parser), stream.
sample = os.path.join(ROOT, "..", "..", "tools", "bgpcomm", "sample", "gobgp-rib.mrt")
with open(sample, "rb") as f:
    dump = f.read()
seed("mrt", "gobgp-rib-text", bytes([0]) + dump)
seed("mrt", "gobgp-rib-json-stats", bytes([1 | 4 | 8]) + dump)
# The same dump with the third record's length one octet longer: the reader
# searches for the next record from there.
third = 0
for _ in range(2):
    third += 12 + int.from_bytes(dump[third + 8:third + 12], "big")
damaged = bytearray(dump)
damaged[third + 8:third + 12] = be(int.from_bytes(dump[third + 8:third + 12], "big") + 1, 4)
seed("mrt", "gobgp-rib-damaged-length", bytes([0]) + bytes(damaged))
