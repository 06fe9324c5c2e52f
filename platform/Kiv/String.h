// Kiv::String: a shared, immutable character string.
//
// Copies share one counted buffer, so texts cached per community (show
// commands print the same community thousands of times) cost one pointer per
// holder. A String is either null (no text at all: "absent" in lookups) or a
// text, possibly empty; the two are distinct. Octet strings (wire forms) are
// Strings too: the content may hold any byte, NUL included.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Kiv {

class String {
  public:
    using IteratorConst = char const*;

    // The null string.
    String() noexcept = default;
    String(char const* text) : String(std::string_view(text)) {}
    String(std::string_view text);
    String(std::string const& text) : String(std::string_view(text)) {}
    String(char const* data, std::size_t size) : String(std::string_view(data, size)) {}
    String(String const& other) noexcept;
    String(String&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
    ~String();
    String& operator=(String const& other) noexcept;
    String& operator=(String&& other) noexcept;

    static String null() { return String(); }

    bool isNull() const noexcept { return rep_ == nullptr; }
    std::size_t size() const noexcept;
    bool empty() const noexcept { return size() == 0; }
    char const* data() const noexcept;
    // NUL-terminated; "" for the null string.
    char const* c_str() const noexcept { return data(); }
    IteratorConst begin() const noexcept { return data(); }
    IteratorConst end() const noexcept { return data() + size(); }
    std::string_view view() const noexcept { return {data(), size()}; }
    std::string str() const { return std::string(view()); }
    operator std::string_view() const noexcept { return view(); }

    // True when both refer to the same buffer (or both are null): a replace
    // with the same string object is not a change.
    bool isSameObject(String const& other) const noexcept { return rep_ == other.rep_; }

    // Null equals only null; texts compare by content.
    friend bool operator==(String const& a, String const& b) noexcept {
        if (a.isNull() || b.isNull())
            return a.isNull() && b.isNull();
        return a.view() == b.view();
    }
    friend bool operator==(String const& a, std::string_view b) noexcept {
        return !a.isNull() && a.view() == b;
    }
    friend bool operator==(String const& a, char const* b) noexcept {
        return a == std::string_view(b);
    }
    friend bool operator<(String const& a, String const& b) noexcept {
        if (a.isNull() || b.isNull())
            return a.isNull() && !b.isNull();
        return a.view() < b.view();
    }

    // The shared buffer: a count, the size and the characters (implementation detail).
    struct Rep;

  private:
    Rep* rep_ = nullptr;
};

std::ostream& operator<<(std::ostream& os, String const& s);

}  // namespace Kiv
