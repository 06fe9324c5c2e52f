// The one assertion macro of the code base.
//
// Programming errors (a null argument where one is required, mutating an
// interned object, a broken sort order) stop the process: continuing would
// corrupt state that every route shares. The check is always compiled in,
// whatever NDEBUG says, because the callers rely on it as a contract.
//
//   KIV_ASSERT(cond);           // message holds the expression as written
//   KIV_ASSERT(cond, "text");   // message holds "text" instead
//   KIV_ASSERT(cond, "text", "function");  // and names "function"
//
// The second form exists for checks whose documented text is not the C++
// expression itself, e.g. texts that operators and tools already grep for.
// The abort message is one line on stderr:
//   <file>:<line>: <function signature>: Assertion `<text>' failed.
#pragma once

namespace Kiv {

// What the abort message says: the asserted text, and the function to name
// when the documented one is not what __PRETTY_FUNCTION__ spells (families of
// functions generated from a table, whose parameter types print differently
// from compiler to compiler).
struct AssertSite {
    constexpr explicit AssertSite(char const* expression) : text(expression) {}
    constexpr AssertSite(char const*, char const* documentedText) : text(documentedText) {}
    constexpr AssertSite(char const*, char const* documentedText, char const* documentedFunction)
        : text(documentedText), function(documentedFunction) {}

    char const* text;
    char const* function = nullptr;
};

[[noreturn]] void assertFailed(AssertSite site, char const* function, char const* file,
                               int line) noexcept;

}  // namespace Kiv

#define KIV_ASSERT(cond, ...)                                                       \
    (static_cast<bool>(cond)                                                        \
         ? void(0)                                                                  \
         : ::Kiv::assertFailed(::Kiv::AssertSite(#cond __VA_OPT__(, ) __VA_ARGS__), \
                               __PRETTY_FUNCTION__, __FILE__, __LINE__))
