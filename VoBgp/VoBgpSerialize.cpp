#include "VoBgp/VoBgpSerialize.h"

#include "Kiv/Assert.h"

namespace Routing::Bgp {

namespace {

constexpr U32 kMaxAttrSize = maxPathAttributeValueSize;
// Largest value length the one-octet length form can announce.
constexpr U32 kMaxShortAttrSize = 0xFF;

}  // namespace

void SerializePathAttribute::reInitHdr(BgpPathAttrType attrType, BgpPathAttrFlag flags,
                                       U32 attrSize) {
    KIV_ASSERT(attrType <= 0xFF, "attrType <= 0xFF");
    if (attrSize <= kMaxShortAttrSize) {
        addU8(static_cast<U8>(flags));
        addU8(static_cast<U8>(attrType));
        if (flags & extLen)
            addU16hton(static_cast<U16>(attrSize));
        else
            addU8(static_cast<U8>(attrSize));
        headerSize_ = (flags & extLen) ? 4 : 3;
        return;
    }
    // A one-octet length would truncate: the extended form is forced.
    addU8(static_cast<U8>(flags | extLen));
    addU8(static_cast<U8>(attrType));
    // What follows would be a length the wire cannot carry: the caller's error.
    KIV_ASSERT(attrSize <= kMaxAttrSize, "attrSize <= 0xFFFF");
    addU16hton(static_cast<U16>(attrSize));
    headerSize_ = 4;
}

SerializePathAttribute::SerializePathAttribute(BgpPathAttrType attrType, BgpPathAttrFlag flags,
                                               U32 attrSize)
    : attrSize_(attrSize) {
    clearAndReInit(attrType, flags, attrSize);
}

void SerializePathAttribute::clearAndReInit(BgpPathAttrType attrType, BgpPathAttrFlag flags,
                                            U32 attrSize) {
    sizeIs(0);
    // Grow once, in advance, so that appending the value never reallocates.
    // A length above what a header can announce is refused by reInitHdr
    // right after; growing for it would only waste memory first.
    U32 const wanted = (attrSize < kMaxAttrSize ? attrSize : kMaxAttrSize) + 4;
    if (wanted > capacity())
        growBuffer(wanted);
    attrSize_ = attrSize;
    reInitHdr(attrType, flags, attrSize);
}

// The reserved octets are a four-octet header of length 0; patchHdrAndStringify
// overwrites them with the real one.
SerializePathAttributeAutoExtLen::SerializePathAttributeAutoExtLen()
    : SerializePathAttribute(invalidPathAttr, extLen, 0) {}

Kiv::String SerializePathAttributeAutoExtLen::patchHdrAndStringify(BgpPathAttrType attrType,
                                                                   BgpPathAttrFlag flags) {
    U32 const used = size();
    // The header carries at most 16 bits of length; a longer value is the
    // caller's error and is not checked here.
    U16 const valueLen = static_cast<U16>(used - reservedHeaderSize);
    // A short header takes three of the four reserved octets, the last three.
    U32 const start = valueLen <= kMaxShortAttrSize ? 1 : 0;
    sizeIs(start);
    reInitHdr(attrType, flags, valueLen);
    sizeIs(used);
    return Serialize::serializedString(start);
}

Kiv::String SerializePathAttributeAutoExtLen::serializeAttributeValue() const {
    return Serialize::serializedString(reservedHeaderSize);
}

SerializedBgpPrefixSidAttribute::SerializedBgpPrefixSidAttribute(PrefixSidTlvType tlvType,
                                                                 U16 length) {
    addU8(static_cast<U8>(tlvType));
    addU16hton(length);
}

// A value longer or shorter than announced would put a corrupt attribute on
// the wire, so the mismatch stops the process here.
Kiv::String SerializePathAttribute::serializedString() const {
    Kiv::String serialized = Serialize::serializedString(0);
    KIV_ASSERT(serialized.size() == attrSize_ + headerSize_);
    return serialized;
}

}  // namespace Routing::Bgp
