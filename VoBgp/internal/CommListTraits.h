// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// CommListTraits<Value> for the standard (U32, RFC 1997) and large
// (Acl::CommunityValue, RFC 8092) list kinds: how CommListBase spells an
// element as 32-bit words (the order in which it is hashed, written to the
// wire and to a stash image), reads it from the wire, compares runs of them
// and prints one, and which list, table and stash record kind go with it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "Acl/CommunityValue.h"
#include "Kiv/Types.h"
#include "VoBgp/BgpPathAttributeEnums.h"
#include "VoBgp/VoBgpCommunityListImpl.h"
#include "VoBgp/internal/ListStorage.h"

namespace Routing::Bgp {

class CommList;
class LargeCommList;
class CommListDedupTable;
class LargeCommListDedupTable;

template <class Value>
struct CommListTraits;

template <>
struct CommListTraits<U32> : CommListValueShape<1, 1> {
    using List = CommList;
    using Table = CommListDedupTable;
    static constexpr BgpPathAttrType attrType = community;
    static constexpr char const* listName = "CommList";
    static constexpr char const* tableName = "CommListDedupTable";

    static U32 word(U32 comm, U32) { return comm; }
    static U32 fromWords(U32 const* words) { return words[0]; }
    // RFC 1997: four octets, network order.
    static U32 fromWire(U8 const* p) { return wireU32(p); }
    // Plain numbers: the raw vectors compare octet by octet.
    static bool equal(U32 const* a, U32 const* b, std::size_t count) {
        return count == 0 || std::memcmp(a, b, count * sizeof(U32)) == 0;
    }
    template <class Buffer>
    static void format(Buffer& buffer, U32 comm) {
        CommunityFormatter<true>::format(buffer, comm);
    }
};

template <>
struct CommListTraits<Acl::CommunityValue> : CommListValueShape<3, 2> {
    using List = LargeCommList;
    using Table = LargeCommListDedupTable;
    static constexpr BgpPathAttrType attrType = largeCommunity;
    static constexpr char const* listName = "LargeCommList";
    static constexpr char const* tableName = "LargeCommListDedupTable";

    // Field order: global administrator, local data part 1, local data part 2.
    static U32 word(Acl::CommunityValue const& value, U32 index) {
        return index == 0   ? value.globalAdmin()
               : index == 1 ? value.localData1()
                            : value.localData2();
    }
    static Acl::CommunityValue fromWords(U32 const* words) {
        return Acl::CommunityValue(words[0], words[1], words[2]);
    }
    // RFC 8092: the three fields in that order, four octets each.
    static Acl::CommunityValue fromWire(U8 const* p) {
        return Acl::CommunityValue(wireU32(p), wireU32(p + 4), wireU32(p + 8));
    }
    static bool equal(Acl::CommunityValue const* a, Acl::CommunityValue const* b,
                      std::size_t count) {
        return std::equal(a, a + count, b);
    }
    template <class Buffer>
    static void format(Buffer& buffer, Acl::CommunityValue const& value) {
        LargeCommunityFormatter::format(buffer, value, false);
    }
};

}  // namespace Routing::Bgp
