// KivStash::ContentHandle<Content>: an interned handle that is one value of
// type Content, and nothing else that counts for identity: two handles with
// equal contents are the same interned object, whatever else they carry
// (a classification, a subclass). Content provides operator==, hash() (the
// value's defined hash) and placementHash() (where tables put it: a
// word-wise hash of the content through Vok::PlacementHash, so that values
// crafted to share hash() still spread; intern and lookups compute it from a
// plain content without building a handle).
//
// Supplies the interning hooks once for every such type (the 8-octet and the
// 20-octet extended communities alike), and the mechanics of their stash
// records. A value's record (see StoreManager.h for the image around it)
// holds one element: the content as Content::stashWords words, then one word
// the concrete type keeps beside the content (its "tag": for the
// communities, the classification). For this Content also provides:
//   static constexpr char const* typeName;  named in errors
//   static constexpr U32 stashKind;         its record kind in an image
//   static constexpr U32 stashWords;
//   void stashWordsTo(U32* words) const;
//   static Content fromStashWords(U32 const* words);
// The concrete type spells stash(storeManager) and destash(image,
// storeManager) with stashWithTag and destashWith.
#pragma once

#include <string>

#include "Kiv/Assert.h"
#include "Kiv/Errors.h"
#include "KivStash/DedupHandle.h"
#include "KivStash/StoreManager.h"
#include "Vok/SizeClassArena.h"

namespace KivStash {

template <class Content>
class ContentHandle : public DedupHandle {
  public:
    // Values are small objects of a few fixed sizes (32 octets for the
    // 8-octet community): blocks of the size-class arena, without the C
    // library's chunk header and 16-octet rounding (48 octets each there).
    // The sized delete gets the concrete type's size through the virtual
    // destructor.
    static void* operator new(std::size_t size) {
        return Vok::SizeClassArena::global().allocate(size);
    }
    static void operator delete(void* block, std::size_t size) noexcept {
        Vok::SizeClassArena::global().deallocate(block, size);
    }

    Content const& getContent() const { return content_; }

    U32 hash() const override { return content_.hash(); }
    U32 placementHashCompute() const override { return content_.placementHash(); }
    bool compare(Vok::DedupHandle const* other) const override {
        return static_cast<ContentHandle const*>(other)->content_ == content_;
    }
    virtual bool compareByContent(Content const& content) const { return content == content_; }

  protected:
    static constexpr U32 stashElementWords = Content::stashWords + 1;

    explicit ContentHandle(Content const& content) : content_(content) {}

    // Writes this value and `tag` as one record; returns the record index.
    U32 stashWithTag(StoreManager* storeManager, U32 tag) const {
        KIV_ASSERT(storeManager != nullptr, "storeManager != __null");
        U32 words[stashElementWords];
        content_.stashWordsTo(words);
        words[Content::stashWords] = tag;
        auto record = storeManager->recordIs(Content::stashKind, stashElementWords, 1);
        for (U32 word : words)
            record.words.wordIs(word);
        return record.index;
    }

    // Reads the record at `image` (of `storeManager`'s attached image) and
    // returns make(content, tag): a fresh, private handle. Kiv::ParseError
    // when the record is not one value of this Content.
    template <class Make>
    static auto destashWith(void const* image, StoreManager* storeManager, Make make) {
        KIV_ASSERT(storeManager != nullptr, "storeManager != __null");
        StashRecord const record = storeManager->recordAt(image);
        if (record.kind() != Content::stashKind || record.wordsPerElement() != stashElementWords ||
            record.count() != 1)
            throw Kiv::ParseError(std::string("stash record is not a ") + Content::typeName +
                                  " (kind " + std::to_string(record.kind()) + ", " +
                                  std::to_string(record.wordsPerElement()) + " words each, " +
                                  std::to_string(record.count()) + " elements)");
        U32 words[stashElementWords];
        for (U32 i = 0; i < stashElementWords; ++i)
            words[i] = record.word(i);
        auto handle = make(Content::fromStashWords(words), words[Content::stashWords]);
        // Holders do not count while counting is off: the store manager keeps
        // the handle instead, and frees it when it goes.
        if (!countingEnabled())
            storeManager->adoptedHandleIs(handle.ptr());
        return handle;
    }

    Content content_;
};

}  // namespace KivStash
