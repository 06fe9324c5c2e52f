// The one assertion macro of the code base.
//
// Programming errors (a null argument where one is required, mutating an
// interned object, a broken sort order) stop the process: continuing would
// corrupt state that every route shares. The check is always compiled in,
// whatever NDEBUG says, because the callers rely on it as a contract.
//
//   KIV_ASSERT(cond);           // message holds the expression as written
//   KIV_ASSERT(cond, "text");   // message holds "text" instead
//
// The second form exists for checks whose documented text is not the C++
// expression itself, e.g. texts that operators and tools already grep for.
// The abort message is one line on stderr:
//   <file>:<line>: <function signature>: Assertion `<text>' failed.
#pragma once

namespace Kiv {

[[noreturn]] void assertFailed(char const* text, char const* function, char const* file,
                               int line) noexcept;

constexpr char const* assertText(char const* expression) {
    return expression;
}
constexpr char const* assertText(char const*, char const* text) {
    return text;
}

}  // namespace Kiv

#define KIV_ASSERT(cond, ...)                                                       \
    (static_cast<bool>(cond)                                                        \
         ? void(0)                                                                  \
         : ::Kiv::assertFailed(::Kiv::assertText(#cond __VA_OPT__(, ) __VA_ARGS__), \
                               __PRETTY_FUNCTION__, __FILE__, __LINE__))
