// Helpers shared by the unit tests.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <typeinfo>

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
