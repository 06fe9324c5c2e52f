// Community dictionaries: what communities mean, as operators publish them,
// read from folders of NLNOG-style files (the .txt files of a folder, mostly
// one per AS, "as<N>.txt", and general ones like "well-known.txt"; each
// line a community pattern (bgpcomm/CommPattern.h), a comma and the
// description; '#' comments and blank lines ignored).
//
// Precedence when several entries match one community, best first:
//   1. an exact entry, then a range entry, then a wildcard entry (any field
//      with x or nnn): a wildcard never beats an exact entry or a range;
//   2. at equal precedence, the folder loaded first (the user's own
//      --dictionary folders before the shipped one);
//   3. then the narrower entry (a shorter range, fewer wildcard digits);
//   4. then the earlier file (general files before as<N>.txt ones, each by
//      name) and line.
// Descriptions may refer to the wildcard digits of the match as $0, $1, ...
//
// "<ASN>" in a line stands for the AS number of the file's name, so one
// shared file can serve many ASes: a file "as<N>.txt" that holds only the
// name of another file in its folder (a symbolic link as a checkout without
// link support stores it) is read as that file, and a file some link names
// is read only through its links.
//
// Contract: malformed lines and unreadable files are reported through the
// problem callback ("FILE: line N: what") and skipped; everything else is
// loaded. Lookups are read-only and may run on any number of threads once
// loading is done: exact entries from one hash table, the others from a short
// list per (kind, first field), scanned in precedence order.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bgpcomm/CommPattern.h"

namespace Bgpcomm {

class Dictionary {
  public:
    using Problem = std::function<void(std::string const&)>;

    struct Entry {
        CommPattern pattern;
        std::string description;
        U32 folder = 0;
        U64 order = 0;  // file and line order within all loading
    };

    // Every .txt file of `dir` (order above). Folders loaded first win ties.
    void loadFolder(std::string const& dir, Problem const& problem);
    // One file's text; `asn` is what "<ASN>" stands for (none: such lines are
    // malformed).
    void addText(std::string const& name, std::string_view text, std::optional<U32> asn,
                 Problem const& problem);
    // Starts the next folder (addText callers; loadFolder does it itself).
    void nextFolder() { ++folder_; }

    // Builds the lookup index; call once loading is done, before lookups.
    void finish();

    // The best entry for `key`, or null.
    Entry const* lookup(CommKey const& key) const;
    // The entry's description with $N replaced by the Nth wildcard's digits.
    std::string describe(Entry const& entry, CommKey const& key) const;

    std::size_t size() const { return entries_.size(); }

  private:
    bool better(Entry const* a, Entry const* b) const;

    std::vector<Entry> entries_;
    U32 folder_ = 0;
    U64 order_ = 0;
    bool indexed_ = false;
    std::unordered_map<CommKey, Entry const*, CommKeyHash> exact_;
    // Range and wildcard entries by kind and exact first field, and by kind
    // alone where the first field is not exact; each in precedence order.
    std::unordered_map<CommKey, std::vector<Entry const*>, CommKeyHash> byFirst_;
    struct Bounded {
        U32 low;  // the first field's bounds, checked before the pattern
        U32 high;
        Entry const* entry;
    };
    std::vector<Bounded> anyFirst_[4];
};

// The dictionary folder installed with the tool (or the source tree's, for a
// build that is not installed); empty when neither exists.
std::string shippedDictionaryFolder();

}  // namespace Bgpcomm
