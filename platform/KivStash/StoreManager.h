// KivStash::StoreManager: writes interned objects into a stash image and
// reads them back.
//
// A stash image is a position-independent byte image: it holds offsets, never
// pointers, and plain little-endian words, never objects (no vtable pointers,
// no reference counts). So it can be written to a file or to shared memory,
// mapped at any address by another process, read-only, and read there
// without any of its octets being written: nothing in it is ever counted.
// Each interned type writes its content as one record of 32-bit words and
// rebuilds an equal object from it with its `destash`.
//
// Image layout, version 1 (all integers little-endian, all offsets from the
// first octet of the image):
//
//   offset  size  field
//        0     8  magic "KIVSTASH"
//        8     2  version (1)
//       10     2  header size (32)
//       12     4  image size: octets from the magic to the end of the directory
//       16     4  record count
//       20     4  directory offset
//       24     8  checksum: FNV-1a 64 over the whole image, these 8 octets read as 0
//       32        records, back to back, each at an offset divisible by 4:
//                   +0  4  kind: which type wrote it (the type's own number)
//                   +4  4  words per element
//                   +8  4  element count
//                  +12     count x words-per-element words
//   directory         record count x 4-octet record offsets, ascending; it
//                     ends the image
//
// Attaching checks all of this before anything is read, so that a truncated
// or corrupt image is refused with an exception (Kiv::RangeError when octets
// are missing or an offset points outside, Kiv::ParseError when the octets are
// not a stash image of this version or fail the checksum) instead of crashing
// a reader later. Types check their own records' content on destash.
//
// Counting switched off (Vok::DedupHandle::countingEnabledIs(false)): holders
// then neither count nor free interned handles, so objects a reader rebuilds
// from an image would live forever. The store manager adopts them instead
// (adoptedHandleIs) and deletes them when it is destroyed; tables holding
// them must be destroyed first.
//
// A store manager is used by one thread at a time; an attached image may be
// read by any number of store managers at once.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Kiv/Assert.h"
#include "Kiv/Types.h"
#include "Vok/DedupHandle.h"

namespace KivStash {

inline constexpr char imageMagic[8] = {'K', 'I', 'V', 'S', 'T', 'A', 'S', 'H'};
inline constexpr U16 imageVersion = 1;
inline constexpr U32 imageHeaderSize = 32;
inline constexpr U32 recordHeaderSize = 12;

inline void storeLe32(U8* out, U32 value) {
    out[0] = static_cast<U8>(value);
    out[1] = static_cast<U8>(value >> 8);
    out[2] = static_cast<U8>(value >> 16);
    out[3] = static_cast<U8>(value >> 24);
}
inline U32 loadLe32(U8 const* in) {
    return U32(in[0]) | U32(in[1]) << 8 | U32(in[2]) << 16 | U32(in[3]) << 24;
}

// One record of an attached image, read in place (valid while the image is).
class StashRecord {
  public:
    U32 kind() const { return kind_; }
    U32 wordsPerElement() const { return wordsPerElement_; }
    U32 count() const { return count_; }
    // Word `index` of the record's words (element i starts at word
    // i * wordsPerElement()).
    U32 word(std::size_t index) const {
        KIV_ASSERT(index < std::size_t(count_) * wordsPerElement_,
                   "index < count_ * wordsPerElement_");
        return loadLe32(words_ + 4 * index);
    }

  private:
    friend class StoreManager;
    StashRecord(U8 const* record)
        : kind_(loadLe32(record)),
          wordsPerElement_(loadLe32(record + 4)),
          count_(loadLe32(record + 8)),
          words_(record + recordHeaderSize) {}

    U32 kind_;
    U32 wordsPerElement_;
    U32 count_;
    U8 const* words_;
};

class StoreManager {
  public:
    // An empty image to write records into.
    StoreManager();
    // Attaches to a finished image of `size` octets (a file mapped read-only,
    // shared memory, a buffer) after checking it; see above for the errors.
    // The image is only read, and must outlive the store manager.
    StoreManager(void const* image, std::size_t size);
    // Deletes the adopted handles.
    ~StoreManager();
    StoreManager(StoreManager const&) = delete;
    StoreManager& operator=(StoreManager const&) = delete;

    bool attached() const { return base_ != nullptr; }
    U32 records() const { return static_cast<U32>(offsets_.size()); }

    // Writing. The words of a new record go through its sink, which stays
    // valid until the next recordIs().
    class WordSink {
      public:
        void wordIs(U32 word) {
            storeLe32(next_, word);
            next_ += 4;
        }

      private:
        friend class StoreManager;
        explicit WordSink(U8* next) : next_(next) {}
        U8* next_;
    };
    struct NewRecord {
        U32 index;
        WordSink words;
    };
    // Appends a record of `count` elements of `wordsPerElement` words; the
    // caller then writes exactly count x wordsPerElement words. RangeError
    // when the image would outgrow 32-bit offsets.
    NewRecord recordIs(U32 kind, U32 wordsPerElement, U32 count);
    // The finished image of the records written so far.
    std::vector<U8> image() const;

    // Reading an attached image.
    // Where record `index` starts in the image (RangeError when there is none):
    // what an interned type's destash takes.
    void const* record(U32 index) const;
    // The record starting at `record`; RangeError unless it is one of this
    // image's records. Its header is checked again on every call (RangeError
    // when its words no longer fit before the directory, ParseError for
    // elements of no words), so octets changed since attaching cannot make a
    // reader leave the image.
    StashRecord recordAt(void const* record) const;

    // Keeps `handle` (built from this image while counting is off) until the
    // store manager goes.
    void adoptedHandleIs(Vok::DedupHandle const* handle);
    std::size_t adoptedHandles() const { return adopted_.size(); }

  private:
    void check(std::size_t size);
    // Record `index`, its header read once and checked against the end of
    // the records (the directory).
    StashRecord checkedRecord(U32 index) const;

    // Attached: the image. Writing: null.
    U8 const* base_ = nullptr;
    // Writing: the records, as they will stand from offset imageHeaderSize on.
    std::vector<U8> body_;
    // Attached: where the directory starts, the end of the records.
    U32 directory_ = 0;
    // Record offsets (a private copy of the directory when attached).
    std::vector<U32> offsets_;
    std::vector<Vok::DedupHandle const*> adopted_;
};

// FNV-1a 64 of an image with its checksum field read as zero.
U64 imageChecksum(U8 const* image, std::size_t size);

// Publishes `image` at `path`: writes a new file beside it and renames it
// over `path`, so that readers which mapped the previous file keep reading
// it, unchanged (see docs/STASH.md). std::system_error on failure, with
// `path` left as it was.
void writeImageFile(std::string const& path, std::vector<U8> const& image);

// An image file mapped read-only (PROT_READ, shared): a page written through
// it would fault, so a reader provably leaves the image alone. The file must
// only ever be replaced (writeImageFile), never changed or truncated in
// place: the mapping shows whatever the inode holds, and pages cut off by a
// truncation fault (SIGBUS) when touched.
class MappedImage {
  public:
    // std::system_error when the file cannot be opened or mapped.
    explicit MappedImage(std::string const& path);
    ~MappedImage();
    MappedImage(MappedImage const&) = delete;
    MappedImage& operator=(MappedImage const&) = delete;

    void const* data() const { return data_; }
    std::size_t size() const { return size_; }

  private:
    void* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace KivStash
