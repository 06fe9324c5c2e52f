// ExtCommIp6ListDedupTable: the interning tables of IPv6-address-specific
// extended community lists: ExtCommIp6Lists (the inherited table) and their
// classification lists, every classification alike (nothing watches IPv6
// route-target lists come and go, so they need no table of their own). Two
// hash tables, so that a list is only ever compared with its own kind.
// Both are created thread-safe when the agent runs multi-threaded
// (VoBgpGlobals::multiThreaded() at creation).
//
// Dumps (each line indented by the count given):
//   ExtCommIp6ListDedupTable
//     extCommIp6:                 then the list table and one line per list
//     extCommIp6Classification:   the same for the classification lists
#pragma once

#include "VoBgp/ExtCommIp6List.h"

namespace Routing::Bgp {

class ExtCommIp6ListDedupTable final : public CommListDedupTableBase {
  public:
    using Ptr = Kiv::Ptr<ExtCommIp6ListDedupTable>;
    using PtrConst = Kiv::Ptr<ExtCommIp6ListDedupTable const>;
    using RawPtrConst = ExtCommIp6ListDedupTable const*;

    static Ptr ExtCommIp6ListDedupTableIs();

    Vok::DedupHashTable::Ptr const& extCommIp6ClassificationListDedupTable() const {
        return extCommIp6ClassificationListDedupTable_;
    }

    // Interns `list` (ExtCommIp6List::dedup, from the table's side).
    ExtCommIp6List::PtrConst dedup(ExtCommIp6List* list) const;

    void dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const;

  protected:
    char const* tableName() const override { return "extCommIp6"; }
    void dumpEntry(Vok::DumpContext const& dumpCtx, U32 indentCount,
                   Vok::DedupHandle const* handle) const override;

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    ExtCommIp6ListDedupTable() { handleInitialized(); }
    // The list table comes with the base; this adds the classification table.
    void handleInitialized();

    Vok::DedupHashTable::Ptr extCommIp6ClassificationListDedupTable_;
};

inline ExtCommIp6ListDedupTable::Ptr extCommIp6ListDedupTableFactory() {
    return ExtCommIp6ListDedupTable::ExtCommIp6ListDedupTableIs();
}

}  // namespace Routing::Bgp
