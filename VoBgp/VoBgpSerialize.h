// Writers of complete BGP path attributes (RFC 4271 section 4.3): a flags
// octet, a type octet, a one- or two-octet length, then the value.
//
// SerializePathAttribute is for a value whose length is known before it is
// written: the header goes first and the caller appends exactly that many
// octets. SerializePathAttributeAutoExtLen is for a value whose length is only
// known at the end: the value is written behind four reserved octets and the
// header that fits is put in front of it afterwards. SerializedBgpPrefixSidAttribute
// writes the TLV header used inside the BGP Prefix-SID attribute.
//
// pathAttributeSize and pathAttributeValueFits say beforehand what a value
// will take and whether one attribute can carry it at all: a length above
// 65,535 octets stops the process in reInitHdr, so a caller holding a value
// of unknown size (say, communities gathered from several peers) asks first.
#pragma once

#include <cstddef>

#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "Routing/Bgp/Serialize.h"
#include "VoBgp/BgpPathAttributeEnums.h"

namespace Routing::Bgp {

// The longest value a two-octet attribute length announces (RFC 4271 4.3).
inline constexpr std::size_t maxPathAttributeValueSize = 0xFFFF;
constexpr bool pathAttributeValueFits(std::size_t valueSize) noexcept {
    return valueSize <= maxPathAttributeValueSize;
}
// The octets of the whole attribute SerializePathAttribute writes for a value
// of `valueSize` octets when the caller does not ask for extLen: a
// three-octet header up to 255, a four-octet one above.
constexpr std::size_t pathAttributeSize(std::size_t valueSize) noexcept {
    return valueSize + (valueSize > 0xFF ? 4 : 3);
}
static_assert(pathAttributeSize(255) == 258 && pathAttributeSize(256) == 260);

class SerializePathAttribute : public Serialize {
  public:
    // The header is in the buffer on return; append `attrSize` value octets.
    SerializePathAttribute(BgpPathAttrType attrType, BgpPathAttrFlag flags, U32 attrSize);

    // Starts over for another attribute, as if newly constructed.
    void clearAndReInit(BgpPathAttrType attrType, BgpPathAttrFlag flags, U32 attrSize);
    // Appends the header at the write position and records its size. A length
    // above 255 always takes the two-octet form; a caller may ask for it for a
    // shorter value by passing extLen. Does not change attrSize().
    void reInitHdr(BgpPathAttrType attrType, BgpPathAttrFlag flags, U32 attrSize);

    // Header and value; the value must have exactly the announced length.
    Kiv::String serializedString() const;
    using Serialize::serializedString;

    // Octets of the last header written: 0 before any, else 3 or 4.
    U32 headerSize() const { return headerSize_; }
    // The value length announced to the constructor or clearAndReInit().
    U32 attrSize() const { return attrSize_; }

  protected:
    U32 headerSize_ = 0;
    U32 attrSize_ = 0;
};

class SerializePathAttributeAutoExtLen : public SerializePathAttribute {
  public:
    // Octets the header may need; the value is written from this offset on.
    static constexpr U32 reservedHeaderSize = 4;

    SerializePathAttributeAutoExtLen();

    // Writes the header that fits the value now in the buffer, ending where
    // the value begins, and returns header and value. `flags` must not carry
    // extLen: the choice of length form is made here.
    Kiv::String patchHdrAndStringify(BgpPathAttrType attrType, BgpPathAttrFlag flags);
    // The value octets alone.
    Kiv::String serializeAttributeValue() const;
};

// A TLV inside the BGP Prefix-SID attribute: one type octet and a two-octet
// length, then the value the caller appends.
class SerializedBgpPrefixSidAttribute : public Serialize {
  public:
    SerializedBgpPrefixSidAttribute(PrefixSidTlvType tlvType, U16 length);
};

}  // namespace Routing::Bgp
