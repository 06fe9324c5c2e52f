#include "bgpcomm/Synth.h"

#include <bzlib.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <tuple>
#include <unordered_set>

#include "bgpcomm/Attrs.h"
#include "bgpcomm/Mrt.h"

namespace Bgpcomm {

char const* const synthHelp =
    "Usage: bgpcomm synth [--routes N] [--seed S] [--compress gzip|bzip2] -o FILE\n"
    "Writes a TABLE_DUMP_V2 file: a PEER_INDEX_TABLE of 8 peers, then\n"
    "RIB_IPV4_UNICAST records of 1 to 4 peers' routes each. The same seed gives\n"
    "the same octets everywhere.\n"
    "\n"
    "  --routes N     routes (RIB entries) to write (default 1000)\n"
    "  --seed S       seed of the generator (default 1)\n"
    "  --compress C   gzip or bzip2 the output\n"
    "  -o FILE        output file\n"
    "\n"
    "Community mix (Zipf reuse of values and of lists):\n"
    "  standard   0 to 12 per route, about 20,000 distinct values forming\n"
    "             about 60,000 distinct lists\n"
    "  extended   on about 30% of routes, 1 to 6 each, about 5,000 distinct\n"
    "             values (route targets of all three forms, route origins, link\n"
    "             bandwidth, color) forming about 20,000 distinct lists\n"
    "  large      on about 10% of routes, 1 to 4 each, about 2,000 distinct\n"
    "             values forming about 5,000 distinct lists\n";

namespace {

// splitmix64 (Steele, Lea, Flood 2014): small, fast, fully specified.
class Rng {
  public:
    explicit Rng(U64 seed) : state_(seed) {}
    U64 next() {
        U64 z = (state_ += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, n).
    U32 below(U32 n) { return static_cast<U32>(((next() >> 32) * n) >> 32); }
    // Uniform in [0, 1), 53 bits.
    double unit() { return double(next() >> 11) * 0x1p-53; }

  private:
    U64 state_;
};

// Zipf with exponent 1 over n items: item k drawn with weight 1/(k+1).
class Zipf {
  public:
    explicit Zipf(U32 n) : cdf_(n) {
        double sum = 0;
        for (U32 k = 0; k < n; ++k)
            cdf_[k] = sum += 1.0 / double(k + 1);
    }
    U32 draw(Rng& rng) const {
        double u = rng.unit() * cdf_.back();
        auto it = std::upper_bound(cdf_.begin(), cdf_.end(), u);
        return static_cast<U32>(std::min<std::size_t>(it - cdf_.begin(), cdf_.size() - 1));
    }

  private:
    std::vector<double> cdf_;
};

// A pool of distinct lists, each of 1..maxLength values drawn (Zipf) from a
// pool of `values`; lists are kept distinct as sets (by a 64-bit digest of
// their sorted values: a collision only costs one list).
template <class Value>
std::vector<std::vector<Value>> makeLists(Rng& rng, std::vector<Value> const& values, U32 count,
                                          U32 maxLength) {
    Zipf pick(static_cast<U32>(values.size()));
    std::unordered_set<U64> seen;
    std::vector<std::vector<Value>> lists;
    lists.reserve(count);
    std::vector<U32> indexes;
    for (U32 tries = 0; lists.size() < count && tries < count * 4; ++tries) {
        indexes.resize(1 + rng.below(maxLength));
        for (U32& index : indexes)
            index = pick.draw(rng);
        std::vector<Value> list;
        for (U32 index : indexes)
            list.push_back(values[index]);
        std::sort(indexes.begin(), indexes.end());
        indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
        U64 key = 0xcbf29ce484222325ull;
        for (U32 index : indexes)
            key = (key ^ index) * 0x100000001b3ull;
        if (seen.insert(key).second)
            lists.push_back(std::move(list));
    }
    return lists;
}

template <class Value, class Make>
std::vector<Value> makeValues(Rng& rng, U32 count, Make&& make) {
    std::set<Value> seen;
    std::vector<Value> values;
    values.reserve(count);
    for (U32 tries = 0; values.size() < count && tries < count * 8; ++tries) {
        Value value = make(rng, static_cast<U32>(values.size()));
        if (seen.insert(value).second)
            values.push_back(value);
    }
    return values;
}

constexpr U32 transitAsns[] = {174, 701, 1299, 2914, 3257, 3356, 3491, 6453, 6461, 6762, 6939};

struct Large {
    U32 a, b, c;
    friend bool operator<(Large const& x, Large const& y) {
        return std::tie(x.a, x.b, x.c) < std::tie(y.a, y.b, y.c);
    }
};

U32 standardValue(Rng& rng, U32 index) {
    // The first few are the popular well-known ones (RFC 1997, RFC 7999, RFC 8326).
    static constexpr U32 wellKnown[] = {0xFFFFFF01, 0xFFFF029A, 0xFFFFFF02, 0xFFFF0000};
    if (index < std::size(wellKnown))
        return wellKnown[index];
    U32 asn =
        index % 3 == 0 ? transitAsns[rng.below(std::size(transitAsns))] : 64512 + rng.below(1000);
    return asn << 16 | rng.below(index % 2 ? 1000 : 65536);
}

U64 extendedValue(Rng& rng, U32) {
    U32 kind = rng.below(100);
    U64 asn2 = 64512 + rng.below(1000);
    U64 asn4 = 4200000000ull + rng.below(1000);
    U64 ipv4 = 0xC0000200ull | rng.below(256);  // 192.0.2.x
    // Subtype 0x02 route target, 0x03 route origin (RFC 4360 section 4,
    // RFC 5668); the three transitive forms: 0x00 two-octet AS, 0x01 IPv4
    // address, 0x02 four-octet AS.
    if (kind < 75) {
        U64 subtype = kind < 60 ? 0x02 : 0x03;
        switch (rng.below(3)) {
            case 0:
                return 0x0000ull << 56 | subtype << 48 | asn2 << 32 | rng.below(5000);
            case 1:
                return 0x01ull << 56 | subtype << 48 | ipv4 << 16 | rng.below(5000);
            default:
                return 0x02ull << 56 | subtype << 48 | asn4 << 16 | rng.below(5000);
        }
    }
    if (kind < 85) {
        // Link bandwidth: type 0x40, subtype 0x04, two-octet AS, IEEE float
        // octets per second (draft-ietf-idr-link-bandwidth).
        static constexpr float bandwidths[] = {1.25e8f, 1.25e9f, 3.125e9f, 1.25e10f, 5e10f};
        float bw = bandwidths[rng.below(std::size(bandwidths))];
        U32 bits = 0;
        std::memcpy(&bits, &bw, 4);
        return 0x40ull << 56 | 0x04ull << 48 | asn2 << 32 | bits;
    }
    // Color: type 0x03, subtype 0x0b, two flag octets, four-octet color (RFC 9012).
    return 0x03ull << 56 | 0x0Bull << 48 | (1 + rng.below(500));
}

Large largeValue(Rng& rng, U32) {
    U32 admin = rng.below(2) ? 4200000000u + rng.below(300) : 64512 + rng.below(300);
    return {admin, 1 + rng.below(4), rng.below(2000)};
}

class Writer {
  public:
    explicit Writer(SynthSink& sink) : sink_(sink) { buffer_.reserve(blockSize + 4096); }
    ~Writer() { flush(); }
    void u8(U32 v) { buffer_.push_back(static_cast<U8>(v)); }
    void u16(U32 v) {
        u8(v >> 8);
        u8(v);
    }
    void u32(U32 v) {
        u16(v >> 16);
        u16(v);
    }
    void u64(U64 v) {
        u32(static_cast<U32>(v >> 32));
        u32(static_cast<U32>(v));
    }
    std::size_t size() const { return buffer_.size(); }
    // Patches a 16- or 32-bit length written earlier at `at`.
    void put16(std::size_t at, U32 v) {
        buffer_[at] = static_cast<U8>(v >> 8);
        buffer_[at + 1] = static_cast<U8>(v);
    }
    void put32(std::size_t at, U32 v) {
        put16(at, v >> 16);
        put16(at + 2, v);
    }
    // Between records only.
    void maybeFlush() {
        if (buffer_.size() >= blockSize)
            flush();
    }
    void flush() {
        if (!buffer_.empty())
            sink_.write(buffer_.data(), buffer_.size());
        buffer_.clear();
    }

  private:
    static constexpr std::size_t blockSize = 1 << 20;
    SynthSink& sink_;
    std::vector<U8> buffer_;
};

// An attribute header (RFC 4271 section 4.3): flags, type, length; the
// extended-length form when the value needs it.
void attrHeader(Writer& out, U8 flags, U8 type, std::size_t length) {
    if (length > 255) {
        out.u8(flags | attrFlagExtendedLength);
        out.u8(type);
        out.u16(static_cast<U32>(length));
    } else {
        out.u8(flags);
        out.u8(type);
        out.u8(static_cast<U32>(length));
    }
}

constexpr U32 dumpTime = 1700000000;
constexpr U8 flagsTransitive = 0x40;          // well-known attributes
constexpr U8 flagsOptionalTransitive = 0xC0;  // the community attributes

}  // namespace

void synthesize(SynthOptions const& options, SynthSink& sink) {
    Rng rng(options.seed);
    auto standardValues = makeValues<U32>(rng, options.standardValues, standardValue);
    auto extendedValues = makeValues<U64>(rng, options.extendedValues, extendedValue);
    auto largeValues = makeValues<Large>(rng, options.largeValues, largeValue);
    auto standardLists = makeLists(rng, standardValues, options.standardLists, 12);
    auto extendedLists = makeLists(rng, extendedValues, options.extendedLists, 6);
    auto largeLists = makeLists(rng, largeValues, options.largeLists, 4);
    Zipf pickStandard(U32(standardLists.size())), pickExtended(U32(extendedLists.size())),
        pickLarge(U32(largeLists.size()));

    Writer out(sink);
    // MRT common header (RFC 6396 section 2); the length is patched in.
    auto header = [&](U16 subtype) {
        out.u32(dumpTime);
        out.u16(mrtTableDumpV2);
        out.u16(subtype);
        std::size_t at = out.size();
        out.u32(0);
        return at;
    };
    // PEER_INDEX_TABLE (subtype 1, RFC 6396 section 4.3.1): collector id,
    // empty view name, peers with four-octet AS numbers (type bit 0x02).
    std::size_t lengthAt = header(1);
    out.u32(0xC0000201);
    out.u16(0);
    out.u16(options.peers);
    for (U32 i = 0; i < options.peers; ++i) {
        out.u8(0x02);
        out.u32(0xC0000201 + i);
        out.u32(0xC0000201 + i);  // 192.0.2.1 + i
        out.u32(i % 2 ? 4200000000u + i : 64500 + i);
    }
    out.put32(lengthAt, static_cast<U32>(out.size() - lengthAt - 4));

    U64 written = 0;
    for (U32 sequence = 0; written < options.routes; ++sequence) {
        out.maybeFlush();
        // RIB_IPV4_UNICAST (subtype 2, RFC 6396 section 4.3.2): distinct
        // prefixes on a /24 grid, every 4th a /22, every 16th a /20.
        lengthAt = header(2);
        out.u32(sequence);
        U32 length = sequence % 16 == 0 ? 20 : sequence % 4 == 0 ? 22 : 24;
        U32 address = 0x01000000u + (sequence << 8);
        out.u8(length);
        for (U32 i = 0; i < (length + 7) / 8; ++i)
            out.u8(address >> (24 - 8 * i));
        U32 entries = static_cast<U32>(std::min<U64>(1 + rng.below(4), options.routes - written));
        entries = std::min(entries, options.peers);
        out.u16(entries);
        U32 firstPeer = rng.below(options.peers);
        U32 origin = rng.below(8) ? 64512 + rng.below(1000) : 4200001000u + rng.below(1000);
        for (U32 e = 0; e < entries; ++e) {
            U32 peer = (firstPeer + e) % options.peers;
            out.u16(peer);
            out.u32(dumpTime - rng.below(86400 * 30));
            std::size_t attrsAt = out.size();
            out.u16(0);
            attrHeader(out, flagsTransitive, attrOrigin, 1);
            out.u8(0);  // IGP
            U32 transit = rng.below(4);
            attrHeader(out, flagsTransitive, attrAsPath, 2 + 4 * (2 + transit));
            out.u8(2);  // AS_SEQUENCE
            out.u8(2 + transit);
            out.u32(peer % 2 ? 4200000000u + peer : 64500 + peer);
            for (U32 t = 0; t < transit; ++t)
                out.u32(transitAsns[rng.below(std::size(transitAsns))]);
            out.u32(origin);
            attrHeader(out, flagsTransitive, attrNextHop, 4);
            out.u32(0xC0000201 + peer);
            if (rng.below(13) != 0) {
                auto const& list = standardLists[pickStandard.draw(rng)];
                attrHeader(out, flagsOptionalTransitive, attrCommunities, 4 * list.size());
                for (U32 value : list)
                    out.u32(value);
            }
            if (rng.below(100) < options.extendedPercent) {
                auto const& list = extendedLists[pickExtended.draw(rng)];
                attrHeader(out, flagsOptionalTransitive, attrExtCommunities, 8 * list.size());
                for (U64 value : list)
                    out.u64(value);
            }
            if (rng.below(100) < options.largePercent) {
                auto const& list = largeLists[pickLarge.draw(rng)];
                attrHeader(out, flagsOptionalTransitive, attrLargeCommunity, 12 * list.size());
                for (Large const& value : list) {
                    out.u32(value.a);
                    out.u32(value.b);
                    out.u32(value.c);
                }
            }
            out.put16(attrsAt, static_cast<U32>(out.size() - attrsAt - 2));
        }
        out.put32(lengthAt, static_cast<U32>(out.size() - lengthAt - 4));
        written += entries;
    }
}

namespace {

class MemorySink final : public SynthSink {
  public:
    std::vector<U8> data;
    bool write(U8 const* p, std::size_t n) override {
        data.insert(data.end(), p, p + n);
        return true;
    }
};

class FileSink final : public SynthSink {
  public:
    FileSink(std::string const& path, Compression compression) {
        if (compression == Compression::gzip) {
            gz_ = gzopen(path.c_str(), "wb6");
            ok_ = gz_ != nullptr;
            return;
        }
        file_ = std::fopen(path.c_str(), "wb");
        if (!file_)
            return;
        if (compression == Compression::bzip2) {
            int error = BZ_OK;
            bz_ = BZ2_bzWriteOpen(&error, file_, 9, 0, 0);
            ok_ = error == BZ_OK;
        } else {
            ok_ = true;
        }
    }
    bool write(U8 const* p, std::size_t n) override {
        if (!ok_)
            return false;
        if (gz_) {
            ok_ = gzwrite(gz_, p, static_cast<unsigned>(n)) == int(n);
        } else if (bz_) {
            int error = BZ_OK;
            BZ2_bzWrite(&error, bz_, const_cast<U8*>(p), static_cast<int>(n));
            ok_ = error == BZ_OK;
        } else {
            ok_ = std::fwrite(p, 1, n, file_) == n;
        }
        return ok_;
    }
    // Flushes and closes; false when anything failed.
    bool close() {
        if (gz_)
            ok_ = gzclose(gz_) == Z_OK && ok_;
        if (bz_) {
            int error = BZ_OK;
            BZ2_bzWriteClose(&error, bz_, 0, nullptr, nullptr);
            ok_ = ok_ && error == BZ_OK;
        }
        gz_ = nullptr;
        bz_ = nullptr;
        if (file_)
            ok_ = std::fclose(file_) == 0 && ok_;
        file_ = nullptr;
        return ok_;
    }
    ~FileSink() override { close(); }

  private:
    std::FILE* file_ = nullptr;
    gzFile gz_ = nullptr;
    BZFILE* bz_ = nullptr;
    bool ok_ = false;
};

}  // namespace

std::vector<U8> synthesizeToMemory(SynthOptions const& options) {
    MemorySink sink;
    synthesize(options, sink);
    return std::move(sink.data);
}

std::string synthesizeToFile(SynthOptions const& options) {
    FileSink sink(options.output, options.compression);
    synthesize(options, sink);
    if (!sink.close())
        return "cannot write '" + options.output + "': " + std::strerror(errno);
    return {};
}

}  // namespace Bgpcomm

namespace Bgpcomm {

int synthCommand(std::vector<std::string> const& args) {
    SynthOptions options;
    auto usage = [](std::string const& problem) {
        std::fprintf(stderr, "bgpcomm synth: %s\nTry 'bgpcomm synth --help'.\n", problem.c_str());
        return 2;
    };
    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string const& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(synthHelp, stdout);
            return 0;
        }
        if (arg != "--routes" && arg != "--seed" && arg != "--compress" && arg != "-o")
            return usage("unknown argument '" + arg + "'");
        if (i + 1 >= args.size())
            return usage("option '" + arg + "' needs a value");
        std::string const& value = args[++i];
        if (arg == "-o") {
            options.output = value;
        } else if (arg == "--compress") {
            if (value == "gzip")
                options.compression = Compression::gzip;
            else if (value == "bzip2")
                options.compression = Compression::bzip2;
            else
                return usage("unknown compression '" + value + "' (gzip or bzip2)");
        } else {
            char* end = nullptr;
            errno = 0;
            unsigned long long number = std::strtoull(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || errno != 0 || value[0] == '-')
                return usage("bad number '" + value + "' for " + arg);
            (arg == "--routes" ? options.routes : options.seed) = number;
        }
    }
    if (options.output.empty())
        return usage("no output file (-o FILE)");
    std::string problem = synthesizeToFile(options);
    if (!problem.empty()) {
        std::fprintf(stderr, "bgpcomm synth: %s\n", problem.c_str());
        return 1;
    }
    return 0;
}

}  // namespace Bgpcomm
