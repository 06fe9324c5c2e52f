// ExtCommIp6ListDedupTable: the interning tables of IPv6-address-specific
// extended community lists: ExtCommIp6Lists (the inherited table) and their
// classification lists, every classification alike (nothing watches IPv6
// route-target lists come and go, so they need no table of their own). Two
// hash tables, so that a list is only ever compared with its own kind.
// Both are created thread-safe when the agent runs multi-threaded
// (VoBgpGlobals::multiThreaded() at creation).
//
// Classification lists are built when something asks for them (see
// ExtCommIp6List.h), so by default the classification table holds only what
// has been asked for. The first time anyone reaches that table or a dump
// through this object, the table set switches to eager building
// (ClassificationListsEagerSwitch): it splits every list interned so far
// before the accessor returns, and every list interned from then on as it
// enters, so whoever can watch sees exactly what always splitting would show.
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
    // Lists asked for their split from now on make private ones: the
    // tables go.
    ~ExtCommIp6ListDedupTable() override { dedupTable()->ownerIs(nullptr); }

    // Switches the table set to eager building first.
    Vok::DedupHashTable::Ptr const& extCommIp6ClassificationListDedupTable() const {
        classificationListsEagerIs();
        return extCommIp6ClassificationListDedupTable_;
    }

    // Whether lists are split as they are interned; a list interned while
    // this is false may not be split yet.
    bool classificationListsEager() const { return eager_.on(); }
    // Switches to eager building: splits every list interned so far (once;
    // a caller on another thread meanwhile waits until that is done).
    void classificationListsEagerIs() const { eager_.switchOn(*dedupTable(), &split); }

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
    friend class ExtCommIp6List;
    friend class ExtCommIp6ClassificationList;
    ExtCommIp6ListDedupTable() { handleInitialized(); }
    // The list table comes with the base; this adds the classification table.
    void handleInitialized();
    static void split(Vok::DedupHandle const* list);
    // For interning, which must not count as watching.
    Vok::DedupHashTable const* classificationTable() const {
        return extCommIp6ClassificationListDedupTable_.ptr();
    }

    Vok::DedupHashTable::Ptr extCommIp6ClassificationListDedupTable_;
    ClassificationListsEagerSwitch eager_;
};

inline ExtCommIp6ListDedupTable::Ptr extCommIp6ListDedupTableFactory() {
    return ExtCommIp6ListDedupTable::ExtCommIp6ListDedupTableIs();
}

}  // namespace Routing::Bgp
