// Dense boolean sets: a few named flags packed into one octet, as value
// types with the framework text form.
//
//   #define MY_FLAGS(X) X(sorted) X(hasLinkBandwidth)
//   KIV_DENSE_BOOL_SET(MyAttrs, "Ns::MyAttrs", MY_FLAGS)
//
// declares class MyAttrs with bit indexes MyAttrs::sortedBit, ..., getters
// sorted(), setters sortedIs(bool), value(), construction from an octet
// (bits beyond the flags raise Kiv::DenseBoolSetRangeError and store
// nothing), equality, and the text form
//   Value('Ns::MyAttrs', ** {'sorted': True, 'hasLinkBandwidth': False})
// with toStrep() and parse(it, end). The macro may stand inside a class.
#pragma once

#include <array>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kiv/String.h"
#include "Kiv/Types.h"

namespace Kiv {

namespace DenseBoolSetDetail {
[[noreturn]] void throwRange(std::string_view typeName, unsigned value, std::size_t flags);
std::string toStrep(std::string_view typeName, std::string_view const* names, std::size_t count,
                    U8 bits);
U8 parse(String::IteratorConst& it, String::IteratorConst end, std::string_view typeName,
         std::string_view const* names, std::size_t count);
}  // namespace DenseBoolSetDetail

template <class Traits>
class DenseBoolSet {
  public:
    static constexpr std::size_t flagCount = Traits::names.size();
    static_assert(flagCount > 0 && flagCount <= 8);
    static constexpr unsigned limit = 1u << flagCount;

    constexpr DenseBoolSet() = default;
    explicit DenseBoolSet(unsigned bits) : bits_(check(bits)) {}

    constexpr U8 value() const { return bits_; }
    constexpr bool test(unsigned bit) const { return (bits_ >> bit) & 1u; }
    constexpr void set(unsigned bit, bool on) {
        bits_ = static_cast<U8>(on ? bits_ | (1u << bit) : bits_ & ~(1u << bit));
    }
    friend constexpr bool operator==(DenseBoolSet, DenseBoolSet) = default;

    std::string toStrep() const {
        return DenseBoolSetDetail::toStrep(Traits::typeName, Traits::names.data(), flagCount,
                                           bits_);
    }

  protected:
    static U8 check(unsigned bits) {
        if (bits >= limit)
            DenseBoolSetDetail::throwRange(Traits::typeName, bits, flagCount);
        return static_cast<U8>(bits);
    }
    static U8 parseBits(String::IteratorConst& it, String::IteratorConst end) {
        return DenseBoolSetDetail::parse(it, end, Traits::typeName, Traits::names.data(),
                                         flagCount);
    }

  private:
    U8 bits_ = 0;
};

}  // namespace Kiv

#define KIV_DBS_NAME_(flag) std::string_view(#flag),
#define KIV_DBS_BIT_(flag) flag##Bit,
#define KIV_DBS_ACCESSORS_(flag)       \
    constexpr bool flag() const {      \
        return test(flag##Bit);        \
    }                                  \
    constexpr void flag##Is(bool on) { \
        set(flag##Bit, on);            \
    }

#define KIV_DENSE_BOOL_SET(Name, TypeName, FLAGS)                                               \
    struct Name##Traits {                                                                       \
        static constexpr std::string_view typeName = TypeName;                                  \
        static constexpr std::array names = {FLAGS(KIV_DBS_NAME_)};                             \
    };                                                                                          \
    class Name : public ::Kiv::DenseBoolSet<Name##Traits> {                                     \
      public:                                                                                   \
        enum Bit : unsigned { FLAGS(KIV_DBS_BIT_) };                                            \
        using DenseBoolSet::DenseBoolSet;                                                       \
        constexpr Name(DenseBoolSet base) : DenseBoolSet(base) {}                               \
        FLAGS(KIV_DBS_ACCESSORS_)                                                               \
        static Name parse(::Kiv::String::IteratorConst& it, ::Kiv::String::IteratorConst end) { \
            return Name(parseBits(it, end));                                                    \
        }                                                                                       \
    };
