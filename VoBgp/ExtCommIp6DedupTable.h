// ExtCommIp6DedupTable: the interning table of IPv6-address-specific
// extended communities (RFC 5701), the 20-octet twin of ExtCommDedupTable
// and the same table (ExtCommDedupTableOf): one ExtCommIp6 per content,
// built on first sight by the parse rule's IPv6 path
// (parseExtendedCommunityIp6, which chooses the classification and the
// subtyped class). Unlike the 8-octet table it keeps no route-target list:
// nothing in the agent watches IPv6 route targets come and go.
//
// Created thread-safe when the agent runs multi-threaded
// (VoBgpGlobals::multiThreaded() at creation).
//
// dumpState writes, each line indented by `indentCount` (no indent at 0):
//   ExtCommIp6DedupTable
//     dedupTable
//       <the hash table's own dump>
#pragma once

#include "VoBgp/ExtCommIp6.h"
#include "VoBgp/VoBgpCommunity.h"

namespace Routing::Bgp {

extern template class ExtCommDedupTableOf<ExtCommIp6>;

class ExtCommIp6DedupTable final : public ExtCommDedupTableOf<ExtCommIp6> {
  public:
    using Ptr = Kiv::Ptr<ExtCommIp6DedupTable>;
    using PtrConst = Kiv::Ptr<ExtCommIp6DedupTable const>;
    using RawPtrConst = ExtCommIp6DedupTable const*;

    static constexpr char const* typeName = "Routing::Bgp::ExtCommIp6DedupTable";

    static Ptr ExtCommIp6DedupTableIs(ParseRulePtrConst const& parseExtCommRule);

    void dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const {
        dumpTable(dumpCtx, indentCount, "ExtCommIp6DedupTable");
    }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    using ExtCommDedupTableOf::ExtCommDedupTableOf;
};

inline ExtCommIp6DedupTable::Ptr extCommIp6DedupTableFactory(
    ExtCommIp6DedupTable::ParseRulePtrConst const& parseExtCommRule) {
    return ExtCommIp6DedupTable::ExtCommIp6DedupTableIs(parseExtCommRule);
}

}  // namespace Routing::Bgp
