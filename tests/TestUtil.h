// Helpers shared by the unit tests.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

// Death tests match the abort message literally: assertion texts are full of
// regex metacharacters ("( comm )->dedupState()").
#define EXPECT_ASSERT_DEATH(statement, text) \
    EXPECT_DEATH(statement, ::testing::HasSubstr(std::string("Assertion `") + (text) + "' failed"))

// As above, also checking the reported function.
#define EXPECT_ASSERT_DEATH_IN(statement, text, function)                                        \
    EXPECT_DEATH(statement, ::testing::AllOf(::testing::HasSubstr(std::string(function) + ": "), \
                                             ::testing::HasSubstr(std::string("Assertion `") +   \
                                                                  (text) + "' failed")))
