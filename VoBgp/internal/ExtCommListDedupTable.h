// Part of VoBgp/VoBgpCommunityList.h; include that header, not this one.
//
// ExtCommListDedupTable: the three interning tables of extended community
// lists, tied together: ExtCommLists (the inherited table), classification
// lists of every classification but route target, and route-target
// classification lists, which have a table of their own because other parts
// of the agent watch them come and go.
//
// Classification lists are built when something asks for them (see
// ExtCommListImpl.h), so by default the classification tables, and with
// them the route-target notifiers, hold only what has been asked for. The
// first time anyone reaches the collection, the notifiee, a classification
// table or a dump through this object (any accessor below), or a notifier
// through a route-target list (RtExtCommClassificationList), the table set
// switches to eager building: it splits every list interned so far before
// the accessor returns, and every list interned from then on as it enters.
// Whoever can watch therefore sees exactly what always splitting would show.
//
// Route-target list lifetime: the notifiee on the route-target table gives
// every interned RtExtCommClassificationList an RtExtCommListLifeTimeNotifier
// when it enters the table, and adds that notifier to
// NotifyingRtExtCommListCollection; when the list leaves the table the
// notifier leaves the collection. Observers of the collection therefore
// hear exactly one insert and one delete per distinct set of route targets
// (Kiv::CollectionEvent<RtExtCommListLifeTimeNotifier const*> as key; see
// Kiv/OrderedMap.h). They run synchronously, under the table's lock for that
// list: they must not intern into the route-target table themselves.
//
// A notifier may outlive its list (a reader on another thread holds the
// members it took): once the list has left the table (or the table has
// stopped notifying) the notifier answers null and prints "NULL".
//
// Dumps (each line indented by the count given, plain at 0):
//   ExtCommListDedupTable
//     extComm                    then the list table
//     extCommClassification      then the classification table
//     rtExtCommClassification    then the route-target table
#pragma once

#include <cstddef>

#include "Kiv/OrderedMap.h"
#include "Kiv/PointerSet.h"
#include "VoBgp/internal/ClassificationListsOnDemand.h"
#include "VoBgp/internal/CommListDedupTableBase.h"
#include "VoBgp/internal/ExtCommListImpl.h"
#include "Vok/DedupHandleLifeTimeNotifier.h"

namespace Routing::Bgp {

class RtExtCommListLifeTimeNotifier final : public Vok::DedupHandleLifeTimeNotifier {
  public:
    using Ptr = Kiv::Ptr<RtExtCommListLifeTimeNotifier>;
    using PtrConst = Kiv::Ptr<RtExtCommListLifeTimeNotifier const>;

    explicit RtExtCommListLifeTimeNotifier(Vok::DedupHandle::PtrConst const& handle)
        : DedupHandleLifeTimeNotifier(handle) {}

    // The watched list, null once it has left its table; see
    // Vok::DedupHandleLifeTimeNotifier for when it is safe to follow.
    RtExtCommClassificationList const* rtExtCommListRawPtr() const {
        return static_cast<RtExtCommClassificationList const*>(dedupHandle());
    }
    // The watched list's member with that value; null when it has none or
    // the list has gone. Safe on any thread.
    ExtComm::PtrConst comm(U64 community) const;
    // The watched list's printed form, "NULL" once it has gone. Safe on any
    // thread.
    Kiv::String toStrep() const;
};

// One per interned route-target list: the vtable pointer, the count and the
// watched list, no lock of its own (see Vok::DedupHandleLifeTimeNotifier).
static_assert(sizeof(RtExtCommListLifeTimeNotifier) == 3 * sizeof(void*));

std::ostream& operator<<(std::ostream& os, RtExtCommListLifeTimeNotifier const* notifier);

class NotifyingRtExtCommListCollection final : public Kiv::CollectionNotifier {
  public:
    using Ptr = Kiv::Ptr<NotifyingRtExtCommListCollection>;
    using PtrConst = Kiv::Ptr<NotifyingRtExtCommListCollection const>;
    using Member = RtExtCommListLifeTimeNotifier::PtrConst;

    static constexpr Kiv::AttributeId rtExtCommListAttributeId = 0;

    static Ptr NotifyingRtExtCommListCollectionIs();

    // Adds `notifier` and tells the observers (nothing when it is there).
    void rtExtCommListIs(Member const& notifier);
    // Removes `notifier` and tells the observers; false when it was absent.
    bool rtExtCommListDel(RtExtCommListLifeTimeNotifier const* notifier);
    // Removes every member, each told.
    void rtExtCommListDelAll();
    bool rtExtCommListHas(RtExtCommListLifeTimeNotifier const* notifier) const;
    std::size_t rtExtCommLists() const;
    // The members now, in no particular order.
    std::vector<Member> rtExtCommListMembers() const;

    // "NotifyingRtExtCommListCollection rtExtCommLists #<n>;", then one line
    // "rtExtCommList <notifier>" per member two blanks deeper.
    void dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const;

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    NotifyingRtExtCommListCollection() = default;

    // Interning on several threads adds and removes concurrently; held while
    // observers run, so they hear the changes one at a time and in order.
    mutable std::recursive_mutex mutex_;
    // One pointer per slot: a full table interns tens of thousands of
    // route-target lists, and a node per member would cost more than the
    // notifier it holds.
    Kiv::PointerSet<RtExtCommListLifeTimeNotifier const> rtExtCommList_;
};

class RtExtCommListLifeTimeNotifiee final : public Vok::DedupHashTableLifeTimeNotifiee {
  public:
    using Ptr = Kiv::Ptr<RtExtCommListLifeTimeNotifiee>;

    static Ptr RtExtCommListLifeTimeNotifieeIs(
        NotifyingRtExtCommListCollection::Ptr const& collection);

    void handleInsert(Vok::DedupHandle const* handle) override;
    void handleRemove(Vok::DedupHandle const* handle) override;
    // Every list goes, as far as the observers are concerned.
    void handleNotificationStop(Vok::DedupHashTable const* table) override;

    NotifyingRtExtCommListCollection::Ptr const& notifyingRtExtCommListCollection() const {
        return collection_;
    }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    explicit RtExtCommListLifeTimeNotifiee(NotifyingRtExtCommListCollection::Ptr collection)
        : collection_(std::move(collection)) {}

    NotifyingRtExtCommListCollection::Ptr collection_;
};

inline NotifyingRtExtCommListCollection::Ptr notifyingRtExtCommListCollectionFactory() {
    return NotifyingRtExtCommListCollection::NotifyingRtExtCommListCollectionIs();
}
inline RtExtCommListLifeTimeNotifiee::Ptr rtExtCommListLifeTimeNotifieeFactory(
    NotifyingRtExtCommListCollection::Ptr const& collection) {
    return RtExtCommListLifeTimeNotifiee::RtExtCommListLifeTimeNotifieeIs(collection);
}

class ExtCommListDedupTable final : public CommListDedupTableBase {
  public:
    using Ptr = Kiv::Ptr<ExtCommListDedupTable>;
    using PtrConst = Kiv::Ptr<ExtCommListDedupTable const>;
    using RawPtrConst = ExtCommListDedupTable const*;

    static Ptr ExtCommListDedupTableIs();
    // Lists asked for their split from now on (an observer told of the
    // route-target lists leaving, say) make private ones: the tables go.
    ~ExtCommListDedupTable() override {
        dedupTable()->ownerIs(nullptr);
        rtExtCommClassificationListDedupTable_->ownerIs(nullptr);
    }

    // Each accessor below first switches the table set to eager building
    // (classificationListsEagerIs).
    Vok::DedupHashTable::Ptr const& extCommClassificationListDedupTable() const {
        classificationListsEagerIs();
        return extCommClassificationListDedupTable_;
    }
    Vok::DedupHashTable const* extCommClassificationListDedupTableRaw() const {
        return extCommClassificationListDedupTable().ptr();
    }
    Vok::DedupHashTable::Ptr const& rtExtCommClassificationListDedupTable() const {
        classificationListsEagerIs();
        return rtExtCommClassificationListDedupTable_;
    }
    Vok::DedupHashTable const* rtExtCommClassificationListDedupTableRaw() const {
        return rtExtCommClassificationListDedupTable().ptr();
    }

    NotifyingRtExtCommListCollection::Ptr const& notifyingRtExtCommListCollection() const {
        classificationListsEagerIs();
        return notifyingRtExtCommListCollection_;
    }
    void notifyingRtExtCommListCollectionIs();
    void notifyingRtExtCommListCollectionDel() {
        classificationListsEagerIs();
        notifyingRtExtCommListCollection_ = nullptr;
    }
    RtExtCommListLifeTimeNotifiee::Ptr const& rtExtCommListLifeTimeNotifiee() const {
        classificationListsEagerIs();
        return rtExtCommListLifeTimeNotifiee_;
    }
    // Creates the notifiee over `collection` and installs it on the
    // route-target table.
    void rtExtCommListLifeTimeNotifieeIs(NotifyingRtExtCommListCollection::Ptr const& collection);
    void rtExtCommListLifeTimeNotifieeDel();

    // Whether lists are split as they are interned; a list interned while
    // this is false may not be split yet.
    bool classificationListsEager() const { return eager_.on(); }
    // Switches to eager building: splits every list interned so far (once;
    // a caller on another thread meanwhile waits until that is done).
    void classificationListsEagerIs() const { eager_.switchOn(*dedupTable(), &split); }

    // Interns `list` (ExtCommList::dedup, from the table's side).
    ExtCommList::PtrConst dedup(ExtCommList* list) const;

    void dumpState(Vok::DumpContext const& dumpCtx, U32 indentCount) const;

  protected:
    char const* tableName() const override { return "extComm"; }
    void dumpEntry(Vok::DumpContext const& dumpCtx, U32 indentCount,
                   Vok::DedupHandle const* handle) const override;

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    friend class ExtCommList;
    friend class ExtCommClassificationList;
    ExtCommListDedupTable() { handleInitialized(); }
    void handleInitialized();
    static void split(Vok::DedupHandle const* list);
    // For interning, which must not count as watching.
    Vok::DedupHashTable const* classificationTable(ExtCommClassification classification) const {
        return classification == extCommClassificationRouteTarget
                   ? rtExtCommClassificationListDedupTable_.ptr()
                   : extCommClassificationListDedupTable_.ptr();
    }

    Vok::DedupHashTable::Ptr extCommClassificationListDedupTable_;
    NotifyingRtExtCommListCollection::Ptr notifyingRtExtCommListCollection_;
    RtExtCommListLifeTimeNotifiee::Ptr rtExtCommListLifeTimeNotifiee_;
    Vok::DedupHashTable::Ptr rtExtCommClassificationListDedupTable_;
    ClassificationListsEagerSwitch eager_;
};

inline ExtCommListDedupTable::Ptr extCommListDedupTableFactory() {
    return ExtCommListDedupTable::ExtCommListDedupTableIs();
}

}  // namespace Routing::Bgp
