// Small value types of the BGP path-attribute code.
//
// BgpMaybeU63 is the base of the stack's optional values: bounds come from
// the derived type, and the base's own bounds (min 1 > max 0) accept no
// specified value at all, so that forgetting to override them fails loudly.
#pragma once

#include <concepts>
#include <iosfwd>

#include "Kiv/Assert.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "Vok/MaybeU63.h"

namespace Routing::Bgp {

class BgpMaybeU63 : public Vok::MaybeU63 {
  public:
    constexpr BgpMaybeU63() noexcept = default;
    constexpr explicit BgpMaybeU63(U64 word) noexcept : Vok::MaybeU63(word) {}

    // Accepts an unspecified word or one within [min(), max()]; otherwise
    // makes the word unspecified and raises Kiv::RangeError.
    virtual void checkValue();
    virtual U64 min() const { return 1; }
    virtual U64 max() const { return 0; }
    // What valueWithUnspecifiedMapped() reports for an unspecified value.
    virtual U64 mappedUnspecifiedValue() const { return 0; }

    // The value; callers test isUnspecified() first (the assertion names the
    // contract so that a crash report explains itself).
    operator U64() const {
        KIV_ASSERT(!isUnspecified() && "Caller must check isUnspecified() before getting value()");
        return value;
    }
    U64 valueWithUnspecifiedMapped() const {
        return isUnspecified() ? mappedUnspecifiedValue() : value;
    }
    // "-" or the value in decimal.
    Kiv::String toStrep() const;

    friend bool operator==(BgpMaybeU63 const& a, BgpMaybeU63 const& b) noexcept {
        if (a.isUnspecified() || b.isUnspecified())
            return a.isUnspecified() && b.isUnspecified();
        return a.value == b.value;
    }
    // Unspecified sorts before every specified value.
    friend bool operator<(BgpMaybeU63 const& a, BgpMaybeU63 const& b) noexcept {
        if (b.isUnspecified())
            return false;
        return a.isUnspecified() || a.value < b.value;
    }
};

// The text form of Vok::MaybeU63. Parsing stores the word and then runs the
// target's own checkValue(), so a derived type's range applies.
Kiv::String valueToStrep(BgpMaybeU63 const& v);
std::ostream& operator<<(std::ostream& os, BgpMaybeU63 const& v);
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpMaybeU63* out);

// Whole-string parse of any value type of this namespace that has a
// sequenceToValue: strepToValue<BgpExtCommPktSubtype>("7").
template <class T>
T strepToValue(Kiv::String const& text) {
    return Vok::strepToValue<T>(text);
}

// One 32-bit word holding several small attribute values side by side. The
// views overlap: bool i is bit i (i <= 15: only the low half-word is reachable
// as flags), U8 i is octet i (bits 8i..8i+7), U16 i is half-word i.
class BgpDenseU32Attr {
  public:
    constexpr BgpDenseU32Attr() noexcept = default;
    constexpr explicit BgpDenseU32Attr(U32 value) noexcept : value_(value) {}

    constexpr U32 value() const noexcept { return value_; }
    void valueIs(U32 value) noexcept { value_ = value; }

    bool valueBool(U8 i) const { return get<bool>(i, "BgpDenseU32Attr::valueBool"); }
    void valueBoolIs(U8 i, bool b) { set<bool>(i, b, "BgpDenseU32Attr::valueBoolIs"); }
    [[noreturn]] void valueBoolDel(U8) { throwNonDeletable("BgpDenseU32Attr::valueBoolDel"); }

    U8 valueU8(U8 i) const { return get<U8>(i, "BgpDenseU32Attr::valueU8"); }
    void valueU8Is(U8 i, U8 v) { set<U8>(i, v, "BgpDenseU32Attr::valueU8Is"); }
    [[noreturn]] void valueU8Del(U8) { throwNonDeletable("BgpDenseU32Attr::valueU8Del"); }

    U16 valueU16(U8 i) const { return get<U16>(i, "BgpDenseU32Attr::valueU16"); }
    void valueU16Is(U8 i, U16 v) { set<U16>(i, v, "BgpDenseU32Attr::valueU16Is"); }
    [[noreturn]] void valueU16Del(U8) { throwNonDeletable("BgpDenseU32Attr::valueU16Del"); }

    friend bool operator==(BgpDenseU32Attr, BgpDenseU32Attr) = default;

  private:
    // Width in bits and number of fields of a view.
    template <class T>
    static constexpr unsigned width = std::same_as<T, bool> ? 1 : 8 * sizeof(T);
    template <class T>
    static constexpr unsigned count = std::same_as<T, bool> ? 16 : 32 / width<T>;
    template <class T>
    static constexpr U32 mask = (U32(1) << width<T>)-1;

    template <class T>
    T get(U8 i, char const* operation) const {
        if (i >= count<T>)
            throwRange(operation);
        return static_cast<T>((value_ >> (i * width<T>)) & mask<T>);
    }
    template <class T>
    void set(U8 i, T v, char const* operation) {
        if (i >= count<T>)
            throwRange(operation);
        unsigned shift = i * width<T>;
        value_ = (value_ & ~(mask<T> << shift)) | (U32(v) << shift);
    }
    [[noreturn]] static void throwRange(char const* operation);
    [[noreturn]] static void throwNonDeletable(char const* operation);

    U32 value_ = 0;
};

// "Value('Routing::Bgp::BgpDenseU32Attr', ** {'value': <decimal>})"
Kiv::String valueToStrep(BgpDenseU32Attr v);
std::ostream& operator<<(std::ostream& os, BgpDenseU32Attr v);
void sequenceToValue(Kiv::String::IteratorConst& it, Kiv::String::IteratorConst const& end,
                     BgpDenseU32Attr* out);

}  // namespace Routing::Bgp
