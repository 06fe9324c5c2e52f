// BgpShowCli::ExtCommCache: printed text of extended communities, memoised by
// their 64-bit content for the length of a show command.
//
// Large route tables print the same few communities over and over; the show
// code formats each distinct one once and looks it up afterwards. Plain and
// asdot renderings differ, so they live in two maps of the same shape. The
// cache has no policy of its own: no size limit, no eviction; the caller
// decides what to store and when to clear. It is used from the show-command
// thread only and takes no lock.
//
// A null text means "absent" throughout: lookups return it for missing keys,
// and storing a null text removes the entry, so the two never diverge.
#pragma once

#include <cstddef>
#include <unordered_map>

#include "Kiv/Hash.h"
#include "Kiv/Ptr.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"

namespace BgpShowCli {

// One map from community content to its text. Iteration is in the map's own
// (hash) order and yields (key, text) pairs.
class ExtCommTextMap {
    struct KeyHash {
        std::size_t operator()(U64 key) const { return Kiv::hashU64(key); }
    };
    using Container = std::unordered_map<U64, Kiv::String, KeyHash>;

  public:
    using IteratorConst = Container::const_iterator;

    Kiv::String text(U64 key) const;
    // Inserts or replaces; storing the very same string object is no change.
    void textIs(U64 key, Kiv::String const& text);
    // Removes the entry and returns its text (null when there was none).
    Kiv::String textDel(U64 key);
    void textDelAll() { texts_.clear(); }

    std::size_t size() const { return texts_.size(); }
    bool empty() const { return texts_.empty(); }
    IteratorConst begin() const { return texts_.begin(); }
    IteratorConst end() const { return texts_.end(); }

  private:
    Container texts_;
};

class ExtCommCache : public Kiv::PtrInterface {
  public:
    using Ptr = Kiv::Ptr<ExtCommCache>;
    using PtrConst = Kiv::Ptr<ExtCommCache const>;

    static constexpr char const* typeName = "BgpShowCli::ExtCommCache";

    static Ptr ExtCommCacheIs();

    // The text stored for `key` in the asdot or the plain map; null if none.
    Kiv::String lookup(U64 key, bool asdot) const { return map(asdot).text(key); }
    void insert(U64 key, Kiv::String const& text, bool asdot) { map(asdot).textIs(key, text); }

    // Texts rendered without asdot.
    ExtCommTextMap const& extCommToString() const { return plain_; }
    Kiv::String extCommToString(U64 key) const { return plain_.text(key); }
    void extCommToStringIs(U64 key, Kiv::String const& text) { plain_.textIs(key, text); }
    Kiv::String extCommToStringDel(U64 key) { return plain_.textDel(key); }
    void extCommToStringDelAll() { plain_.textDelAll(); }

    // Texts rendered with asdot.
    ExtCommTextMap const& extCommToAsdotString() const { return asdot_; }
    Kiv::String extCommToAsdotString(U64 key) const { return asdot_.text(key); }
    void extCommToAsdotStringIs(U64 key, Kiv::String const& text) { asdot_.textIs(key, text); }
    Kiv::String extCommToAsdotStringDel(U64 key) { return asdot_.textDel(key); }
    void extCommToAsdotStringDelAll() { asdot_.textDelAll(); }

  private:
    template <class T, class... Args>
    friend Kiv::Ptr<T> Kiv::makeActive(Args&&... args);
    ExtCommCache() = default;

    ExtCommTextMap& map(bool asdot) { return asdot ? asdot_ : plain_; }
    ExtCommTextMap const& map(bool asdot) const { return asdot ? asdot_ : plain_; }

    ExtCommTextMap plain_;
    ExtCommTextMap asdot_;
};

ExtCommCache::Ptr extCommCacheFactory();

}  // namespace BgpShowCli
