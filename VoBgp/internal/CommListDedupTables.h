// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// The dedup tables of the standard and large community lists: one typed
// front (CommListDedupTableOf) over the shared CommListDedupTableBase, and
// the two table classes with their factories. A table interns lists of its
// kind only; dedup(list) is List::dedup seen from the table's side.
#pragma once

namespace Routing::Bgp {

// The typed side of a list kind's table.
template <class List>
class CommListDedupTableOf : public CommListDedupTableBase {
  public:
    // Interns `list` (List::dedup, from the table's side).
    Kiv::Ptr<List const> dedup(List* list) const {
        KIV_ASSERT(list != nullptr, "list != __null");
        return list->dedup(static_cast<typename List::Traits::Table const*>(this));
    }

  protected:
    char const* tableName() const override { return List::Traits::tableName; }
    void dumpEntry(Vok::DumpContext const& dumpCtx, U32 indentCount,
                   Vok::DedupHandle const* handle) const override {
        dumpListEntry(dumpCtx, indentCount, List::Traits::listName,
                      Vok::fromDedupHandle<List>(handle));
    }
};

class CommListDedupTable final : public CommListDedupTableOf<CommList> {
  public:
    using Ptr = Kiv::Ptr<CommListDedupTable>;
    using PtrConst = Kiv::Ptr<CommListDedupTable const>;
    using RawPtrConst = CommListDedupTable const*;

    static Ptr CommListDedupTableIs() { return Kiv::makeActive<CommListDedupTable>(); }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    CommListDedupTable() = default;
};

class LargeCommListDedupTable final : public CommListDedupTableOf<LargeCommList> {
  public:
    using Ptr = Kiv::Ptr<LargeCommListDedupTable>;
    using PtrConst = Kiv::Ptr<LargeCommListDedupTable const>;
    using RawPtrConst = LargeCommListDedupTable const*;

    static Ptr LargeCommListDedupTableIs() { return Kiv::makeActive<LargeCommListDedupTable>(); }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    LargeCommListDedupTable() = default;
};

inline CommListDedupTable::Ptr commListDedupTableFactory() {
    return CommListDedupTable::CommListDedupTableIs();
}
inline LargeCommListDedupTable::Ptr largeCommListDedupTableFactory() {
    return LargeCommListDedupTable::LargeCommListDedupTableIs();
}

extern template class CommListDedupTableOf<CommList>;
extern template class CommListDedupTableOf<LargeCommList>;

}  // namespace Routing::Bgp
