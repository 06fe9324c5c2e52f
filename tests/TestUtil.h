// Helpers shared by the unit tests.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <string>
#include <tuple>
#include <typeinfo>
#include <vector>

#include "Kiv/Errors.h"

// Death tests match the abort message literally: assertion texts are full of
// regex metacharacters ("( comm )->dedupState()").
#define EXPECT_ASSERT_DEATH(statement, text) \
    EXPECT_DEATH(statement, ::testing::HasSubstr(std::string("Assertion `") + (text) + "' failed"))

// As above, also checking the reported function.
#define EXPECT_ASSERT_DEATH_IN(statement, text, function)                                        \
    EXPECT_DEATH(statement, ::testing::AllOf(::testing::HasSubstr(std::string(function) + ": "), \
                                             ::testing::HasSubstr(std::string("Assertion `") +   \
                                                                  (text) + "' failed")))

// What operator<< writes for `value`.
template <class T>
std::string streamed(T const& value) {
    std::ostringstream os;
    os << value;
    return os.str();
}
// The same from a stream set to hexadecimal with its base shown: what
// prints numbers itself must not depend on the caller's stream flags.
template <class T>
std::string streamedHex(T const& value) {
    std::ostringstream os;
    os << std::hex << std::showbase << value;
    return os.str();
}

// The class of the object behind `p` (typeid of a call would be evaluated,
// which compilers warn about).
template <class T>
std::type_info const& classOf(T const* p) {
    return typeid(*p);
}

// The rows of a table-driven test, read with structured bindings:
//   for (auto [value, text] : Rows<U64, char const*>{{1, "1"}, {2, "2"}})
template <class... Columns>
using Rows = std::initializer_list<std::tuple<Columns...>>;

// The attribute a range error raised by `f` names; "none" without one.
template <class F>
std::string rangeErrorAttribute(F&& f) {
    try {
        f();
    } catch (Kiv::RangeError const& e) {
        return e.attributeName();
    }
    return "none";
}
