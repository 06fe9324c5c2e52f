#include "VoBgp/Parse/ExtCommCache.h"

namespace BgpShowCli {

Kiv::String ExtCommTextMap::text(U64 key) const {
    auto it = texts_.find(key);
    return it == texts_.end() ? Kiv::String() : it->second;
}

void ExtCommTextMap::textIs(U64 key, Kiv::String const& text) {
    if (text.isNull()) {
        texts_.erase(key);
        return;
    }
    auto [it, inserted] = texts_.try_emplace(key, text);
    // Replacing drops this map's hold on the old text.
    if (!inserted && !it->second.isSameObject(text))
        it->second = text;
}

Kiv::String ExtCommTextMap::textDel(U64 key) {
    auto it = texts_.find(key);
    if (it == texts_.end())
        return Kiv::String();
    Kiv::String text = std::move(it->second);
    texts_.erase(it);
    return text;
}

ExtCommCache::Ptr extCommCacheFactory() {
    return Kiv::makeActive<ExtCommCache>();
}

ExtCommCache::Ptr ExtCommCache::ExtCommCacheIs() {
    return extCommCacheFactory();
}

}  // namespace BgpShowCli
