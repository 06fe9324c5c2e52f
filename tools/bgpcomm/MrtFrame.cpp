#include "bgpcomm/MrtFrame.h"

#include <cstdint>
#include <string>

namespace Bgpcomm {

namespace {

// No real record comes near this; a larger length means a damaged header.
constexpr U32 maxRecordLength = 64u << 20;
// A BGP message of up to 65535 octets (RFC 8654) after the longest BGP4MP
// header: AS numbers 8, interface 2, AFI 2, two IPv6 addresses 32 (RFC 6396
// section 4.4), and the microseconds of BGP4MP_ET (section 3).
constexpr U32 maxBgp4mpLength = 65535 + 44 + 4;
// Records of one dump are written within seconds (a RIB dump carries one
// time, updates follow each other): a day apart is not "near".
constexpr U32 nearSeconds = 86400;
constexpr std::size_t none = SIZE_MAX;

MrtHeader parseHeader(U8 const* p) {
    Cursor in(p, mrtHeaderSize, 0);
    MrtHeader h;
    in.u32(&h.timestamp);
    in.u16(&h.type);
    in.u16(&h.subtype);
    in.u32(&h.length);
    return h;
}

// The longest record of an MRT type and subtype (RFC 6396 section 4); 0 for
// others.
U32 longestRecord(U16 type, U16 subtype) {
    switch (type) {
        case mrtTableDumpV2:
            return subtype >= td2PeerIndexTable && subtype <= td2RibGenericAddPath ? maxRecordLength
                                                                                   : 0;
        case mrtBgp4mp:
        case mrtBgp4mpEt:
            return subtype == bgp4mpStateChange || subtype == bgp4mpMessage ||
                           (subtype >= bgp4mpMessageAs4 && subtype <= bgp4mpMessageAs4LocalAddPath)
                       ? maxBgp4mpLength
                       : 0;
        // Passed over by the reader, but records of a clean file all the
        // same: OSPFv2 11, TABLE_DUMP 12 (subtype: AFI 1 or 2), ISIS 32,
        // ISIS_ET 33, OSPFv3 48, OSPFv3_ET 49.
        case 11:
        case 12:
        case 32:
        case 33:
        case 48:
        case 49:
            return subtype <= 2 ? maxRecordLength : 0;
        default:
            return 0;
    }
}

}  // namespace

bool MrtFramer::plausible(std::size_t at, U32 const* near) const {
    MrtHeader const h = parseHeader(in_.data() + at);
    U32 const longest = longestRecord(h.type, h.subtype);
    if (longest == 0 || h.length > longest)
        return false;
    return !near ||
           (h.timestamp > *near ? h.timestamp - *near : *near - h.timestamp) <= nearSeconds;
}

std::size_t MrtFramer::search(std::size_t from, std::size_t limit, bool consumeBehind) {
    for (std::size_t q = from; q < limit; ++q) {
        // Far from the damaged header: drop what lies behind, so that a long
        // search holds only the candidate it looks at.
        if (consumeBehind && q >= (1u << 20)) {
            in_.consume(q);
            q = 0;
        }
        if (in_.ensure(q + mrtHeaderSize) < q + mrtHeaderSize)
            return none;
        if (!plausible(q, haveTimestamp_ ? &lastTimestamp_ : nullptr))
            continue;
        MrtHeader const h = parseHeader(in_.data() + q);
        std::size_t const end = q + mrtHeaderSize + h.length;
        std::size_t const got = in_.ensure(end + mrtHeaderSize);
        if (got < end)
            continue;
        if (got < end + mrtHeaderSize || plausible(end, &h.timestamp))
            return q;
    }
    return none;
}

bool MrtFramer::next(MrtHeader* header, Cursor* body) {
    in_.consume(pending_);
    pending_ = 0;
    for (;;) {
        U64 const at = in_.offset();
        std::size_t got = in_.ensure(mrtHeaderSize);
        if (got < mrtHeaderSize) {
            if (!in_.error().empty())
                diag_.at(at + got, in_.error() + "; rest of file skipped");
            else if (got != 0)
                diag_.at(at, "MRT header truncated (" + std::to_string(got) +
                                 " of 12 octets); record skipped");
            in_.consume(got);
            return false;
        }
        MrtHeader const h = parseHeader(in_.data());
        std::string const length = "MRT record length " + std::to_string(h.length);
        std::size_t const end = mrtHeaderSize + std::size_t(h.length);
        std::string why, lost;
        std::size_t resume = none;
        bool const known = plausible(0, nullptr);
        if (h.length > maxRecordLength) {
            why = " is implausible";
        } else if ((got = in_.ensure(end + mrtHeaderSize)) < end) {
            if (!in_.error().empty()) {
                diag_.at(at + got, in_.error() + "; rest of file skipped");
                in_.consume(got);
                return false;
            }
            why = " runs past the end of the file";
            lost =
                " but only " + std::to_string(got - mrtHeaderSize) + " octets left; record skipped";
        } else if (got < end + mrtHeaderSize || plausible(end, nullptr) ||
                   (known && (resume = search(1, end, false)) == none)) {
            // Taken at its length: it ends at the stream's end or at another
            // header, or it is a record of a kind this tool reads and no
            // record starts inside it.
            *header = h;
            *body = Cursor(in_.data() + mrtHeaderSize, h.length, at + mrtHeaderSize);
            pending_ = end;
            if (known) {
                haveTimestamp_ = true;
                lastTimestamp_ = h.timestamp;
            }
            return true;
        } else {
            why = " does not end at another record";
        }
        if (resume == none)
            resume = search(1, none, true);
        if (resume == none) {
            diag_.at(at, length + (lost.empty() ? why + "; rest of file skipped" : lost));
            if (!in_.error().empty())
                diag_.at(in_.offset() + in_.avail(), in_.error() + "; rest of file skipped");
            in_.consume(in_.avail());
            return false;
        }
        U64 const next = in_.offset() + resume;
        diag_.at(at, length + why + "; " + std::to_string(next - at) +
                         " octets skipped to the next record at offset " + std::to_string(next));
        in_.consume(resume);
    }
}

}  // namespace Bgpcomm
