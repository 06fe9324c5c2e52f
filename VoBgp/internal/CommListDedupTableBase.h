// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// CommListDedupTableBase: what the interning tables of every list kind share.
#pragma once

#include "Kiv/Ptr.h"
#include "Kiv/Types.h"
#include "Vok/DedupHashTable.h"
#include "Vok/DumpContext.h"

namespace Routing::Bgp {

// The interning table of one list kind: a Vok::DedupHashTable, thread-safe
// when the agent runs multi-threaded.
class CommListDedupTableBase : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<CommListDedupTableBase>;
    using PtrConst = Kiv::Ptr<CommListDedupTableBase const>;

    ~CommListDedupTableBase() override;

    Vok::DedupHashTable::Ptr const& dedupTable() const { return dedupTable_; }
    // Creates a new (empty) hash table, releasing any earlier one. The hash
    // table names this object as its owner (Vok::DedupHashTable::owner), so
    // that a list reaches its table set from itself.
    void initDedupTable();
    // One line for the table, one for its hash table and one per list.
    void dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const;

  protected:
    CommListDedupTableBase() { initDedupTable(); }
    virtual char const* tableName() const = 0;
    virtual void dumpEntry(Vok::DumpContext const& dumpCtx, U32 indentCount,
                           Vok::DedupHandle const* handle) const = 0;

  private:
    Vok::DedupHashTable::Ptr dedupTable_;
};

// One dump line for an interned list: its kind, hash, references, size and
// printed form.
template <class List>
void dumpListEntry(Vok::DumpContext const& dumpCtx, U32 indentCount, char const* listName,
                   List const* list) {
    dumpCtx.print("%*s%s hash 0x%08x references %u comms %u: %s\n", static_cast<int>(indentCount),
                  "", listName, list->hash(), list->references(), list->comms(),
                  list->toStrep().c_str());
}

}  // namespace Routing::Bgp
