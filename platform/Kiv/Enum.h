// Table-driven enumerations.
//
// An enumeration is declared once, as a list of (member, value) pairs:
//
//   #define MY_COLOR_MEMBERS(X) X(colorRed, 1) X(colorBlue, 2) X(colorUnknown, 256)
//   KIV_ENUM(MyColor, U16, "Ns::MyColor", MY_COLOR_MEMBERS)
//
// which declares the unscoped enum (members in its namespace, ordered and
// hashed by numeric value as any enum) and its table, and the family of free
// operations every framework enumeration has:
//
//   MyColorInstance(U32)            value -> enum (RangeError when it does not
//                                   fit the storage width; a non-member value
//                                   that fits is kept: membership is a separate
//                                   question, e.g. bgpIsValidEnumMember)
//   MyColorInstance(Kiv::String)    member name -> enum (RangeError if no member)
//   valueToStrep(e), stringValue(e) the member name
//   operator<<(ostream, e)          writes the member name
//   sequenceToValue(it, end, &e)    parses a member name, advancing `it`
//
// The same rules hold for every enumeration: a value that is not a member
// prints as its decimal number (a dump never loses information), and
// sequenceToValue reads such a number back; a word that names no member
// raises Kiv::RangeError "unknown <type> member '<word>'".
#pragma once

#include <cstddef>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "Kiv/String.h"
#include "Kiv/Types.h"

namespace Kiv {

template <class E>
struct EnumMember {
    E value;
    std::string_view name;
};

template <class E>
struct EnumTable {
    std::string_view typeName;
    std::span<EnumMember<E> const> members;
};

// The table of E, found by argument-dependent lookup of the kivEnumTable
// overload that KIV_ENUM declares next to the enumeration.
template <class E>
constexpr EnumTable<E> enumTable() {
    return kivEnumTable(static_cast<E const*>(nullptr));
}

template <class E>
constexpr EnumMember<E> const* enumMemberByValue(E value) {
    for (auto const& m : enumTable<E>().members)
        if (m.value == value)
            return &m;
    return nullptr;
}

template <class E>
constexpr EnumMember<E> const* enumMemberByName(std::string_view name) {
    for (auto const& m : enumTable<E>().members)
        if (m.name == name)
            return &m;
    return nullptr;
}

// Shared, non-template halves of the operations (one copy in the binary).
namespace EnumDetail {
std::string numberText(U64 value);
[[noreturn]] void throwUnknownName(std::string_view typeName, std::string_view word);
[[noreturn]] void throwTooWide(std::string_view typeName, U64 value);
// Reads one word ([A-Za-z0-9_]+) at `it`; ParseError when there is none.
std::string_view readWord(char const*& it, char const* end, std::string_view typeName);
bool isNumber(std::string_view word);
U64 parseNumber(std::string_view word, std::string_view typeName);
}  // namespace EnumDetail

template <class E>
std::string enumName(E value) {
    if (auto const* m = enumMemberByValue(value))
        return std::string(m->name);
    return EnumDetail::numberText(static_cast<U64>(value));
}

template <class E>
E enumInstance(U64 value) {
    using Raw = std::underlying_type_t<E>;
    if (value > static_cast<U64>(static_cast<Raw>(~Raw(0))))
        EnumDetail::throwTooWide(enumTable<E>().typeName, value);
    return static_cast<E>(value);
}

template <class E>
E enumInstance(std::string_view name) {
    if (auto const* m = enumMemberByName<E>(name))
        return m->value;
    EnumDetail::throwUnknownName(enumTable<E>().typeName, name);
}

template <class E>
void enumSequenceToValue(char const*& it, char const* end, E* out) {
    char const* start = it;
    std::string_view word = EnumDetail::readWord(it, end, enumTable<E>().typeName);
    if (auto const* m = enumMemberByName<E>(word)) {
        *out = m->value;
        return;
    }
    if (EnumDetail::isNumber(word)) {
        *out = enumInstance<E>(EnumDetail::parseNumber(word, enumTable<E>().typeName));
        return;
    }
    it = start;
    EnumDetail::throwUnknownName(enumTable<E>().typeName, word);
}

}  // namespace Kiv

#define KIV_ENUM_ENUMERATOR_(name, value) name = value,
#define KIV_ENUM_ENTRY_(name, value) {name, #name},

// Declares the operations of an enumeration defined elsewhere (for example one
// whose members must not be declared by the macro).
#define KIV_ENUM_OPERATIONS(Name)                                                     \
    inline Name Name##Instance(U32 value) {                                           \
        return ::Kiv::enumInstance<Name>(value);                                      \
    }                                                                                 \
    inline Name Name##Instance(::Kiv::String const& name) {                           \
        return ::Kiv::enumInstance<Name>(name.view());                                \
    }                                                                                 \
    inline ::Kiv::String valueToStrep(Name value) {                                   \
        return ::Kiv::enumName(value);                                                \
    }                                                                                 \
    inline std::string stringValue(Name value) {                                      \
        return ::Kiv::enumName(value);                                                \
    }                                                                                 \
    inline std::ostream& operator<<(std::ostream& os, Name value) {                   \
        return os << ::Kiv::enumName(value);                                          \
    }                                                                                 \
    inline void sequenceToValue(::Kiv::String::IteratorConst& it,                     \
                                ::Kiv::String::IteratorConst const& end, Name* out) { \
        ::Kiv::enumSequenceToValue(it, end, out);                                     \
    }

#define KIV_ENUM(Name, Underlying, TypeName, MEMBERS)                                             \
    enum Name : Underlying { MEMBERS(KIV_ENUM_ENUMERATOR_) };                                     \
    inline constexpr ::Kiv::EnumMember<Name> kivEnumMembers##Name[] = {MEMBERS(KIV_ENUM_ENTRY_)}; \
    constexpr ::Kiv::EnumTable<Name> kivEnumTable(Name const*) {                                  \
        return {TypeName, kivEnumMembers##Name};                                                  \
    }                                                                                             \
    KIV_ENUM_OPERATIONS(Name)
