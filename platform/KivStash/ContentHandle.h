// KivStash::ContentHandle<Content>: an interned handle that is one value of
// type Content, and nothing else that counts for identity: two handles with
// equal contents are the same interned object, whatever else they carry
// (a classification, a subclass). Content provides operator== and hash().
//
// Supplies the interning hooks once for every such type (the 8-octet and the
// 20-octet extended communities alike).
#pragma once

#include "KivStash/DedupHandle.h"

namespace KivStash {

template <class Content>
class ContentHandle : public DedupHandle {
  public:
    Content const& getContent() const { return content_; }

    U32 hash() const override { return content_.hash(); }
    bool compare(Vok::DedupHandle const* other) const override {
        return static_cast<ContentHandle const*>(other)->content_ == content_;
    }
    virtual bool compareByContent(Content const& content) const { return content == content_; }

  protected:
    explicit ContentHandle(Content const& content) : content_(content) {}

    Content content_;
};

}  // namespace KivStash
