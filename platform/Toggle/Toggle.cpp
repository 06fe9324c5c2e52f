#include "Toggle/Toggle.h"

#include "Kiv/ValueText.h"

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>

namespace Toggle {

namespace {

// Toggle files are a handful of lines; anything much larger is not one.
constexpr std::size_t maxFileSize = 64 * 1024;
// Deeper nesting than this is not a toggle file either, and bounding it
// keeps a hostile file from exhausting the stack.
constexpr unsigned maxDepth = 32;

// A strict reader of just enough JSON to find one top-level member. Any
// syntax error makes the whole text unreadable (the caller then reports off).
class JsonReader {
  public:
    explicit JsonReader(std::string_view text) : text_(text) {}

    // The state of member `name` of the top-level object; nullopt when the
    // text is not a well-formed object. Later duplicates win.
    std::optional<U32> member(std::string_view name) {
        U32 state = 0;
        skipSpace();
        if (!consume('{'))
            return std::nullopt;
        skipSpace();
        if (!consume('}')) {
            for (;;) {
                std::string key;
                skipSpace();
                if (!readString(&key))
                    return std::nullopt;
                skipSpace();
                if (!consume(':'))
                    return std::nullopt;
                skipSpace();
                std::optional<U32> value = readValue(1);
                if (!value)
                    return std::nullopt;
                if (key == name)
                    state = *value;
                skipSpace();
                if (consume('}'))
                    break;
                if (!consume(','))
                    return std::nullopt;
            }
        }
        skipSpace();
        if (pos_ != text_.size())
            return std::nullopt;
        return state;
    }

  private:
    bool atEnd() const { return pos_ >= text_.size(); }
    char peek() const { return atEnd() ? '\0' : text_[pos_]; }
    bool consume(char c) {
        if (atEnd() || text_[pos_] != c)
            return false;
        ++pos_;
        return true;
    }
    bool consumeWord(std::string_view word) {
        if (text_.substr(pos_, word.size()) != word)
            return false;
        pos_ += word.size();
        return true;
    }
    void skipSpace() {
        while (!atEnd() && (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\n' ||
                            text_[pos_] == '\r'))
            ++pos_;
    }

    static int hexDigit(char c) { return Kiv::hexDigitValue(c); }

    // A string; escapes are checked, and \u escapes kept only as far as
    // needed to compare ASCII names.
    bool readString(std::string* out) {
        if (!consume('"'))
            return false;
        while (!atEnd()) {
            char c = text_[pos_++];
            if (c == '"')
                return true;
            if (static_cast<unsigned char>(c) < 0x20)
                return false;
            if (c != '\\') {
                out->push_back(c);
                continue;
            }
            if (atEnd())
                return false;
            char e = text_[pos_++];
            switch (e) {
                case '"':
                case '\\':
                case '/':
                    out->push_back(e);
                    break;
                case 'b':
                    out->push_back('\b');
                    break;
                case 'f':
                    out->push_back('\f');
                    break;
                case 'n':
                    out->push_back('\n');
                    break;
                case 'r':
                    out->push_back('\r');
                    break;
                case 't':
                    out->push_back('\t');
                    break;
                case 'u': {
                    unsigned code = 0;
                    for (int i = 0; i < 4; ++i) {
                        int d = hexDigit(peek());
                        if (d < 0)
                            return false;
                        ++pos_;
                        code = code << 4 | static_cast<unsigned>(d);
                    }
                    // Non-ASCII never matches a toggle name; keep a marker.
                    out->push_back(code < 0x80 ? static_cast<char>(code) : '\x7f');
                    break;
                }
                default:
                    return false;
            }
        }
        return false;
    }

    // A number: its value when it is a non-negative integer (saturated to
    // 32 bits), 0 for any other well-formed number.
    std::optional<U32> readNumber() {
        bool negative = consume('-');
        if (!(peek() >= '0' && peek() <= '9'))
            return std::nullopt;
        U64 value = 0;
        bool leadingZero = peek() == '0';
        std::size_t digits = 0;
        while (peek() >= '0' && peek() <= '9') {
            value =
                value > std::numeric_limits<U32>::max() ? value : value * 10 + U64(peek() - '0');
            ++pos_;
            ++digits;
        }
        if (leadingZero && digits > 1)
            return std::nullopt;
        bool integral = true;
        if (consume('.')) {
            integral = false;
            if (!(peek() >= '0' && peek() <= '9'))
                return std::nullopt;
            while (peek() >= '0' && peek() <= '9')
                ++pos_;
        }
        if (peek() == 'e' || peek() == 'E') {
            integral = false;
            ++pos_;
            if (peek() == '+' || peek() == '-')
                ++pos_;
            if (!(peek() >= '0' && peek() <= '9'))
                return std::nullopt;
            while (peek() >= '0' && peek() <= '9')
                ++pos_;
        }
        if (negative || !integral)
            return 0u;
        return value > std::numeric_limits<U32>::max() ? std::numeric_limits<U32>::max()
                                                       : static_cast<U32>(value);
    }

    // Any value; only true and numbers are anything but off.
    std::optional<U32> readValue(unsigned depth) {
        if (depth > maxDepth)
            return std::nullopt;
        skipSpace();
        char c = peek();
        if (c == '"') {
            std::string ignored;
            return readString(&ignored) ? std::optional<U32>(0) : std::nullopt;
        }
        if (c == '{' || c == '[') {
            char close = c == '{' ? '}' : ']';
            ++pos_;
            skipSpace();
            if (consume(close))
                return 0u;
            for (;;) {
                if (c == '{') {
                    std::string ignored;
                    skipSpace();
                    if (!readString(&ignored))
                        return std::nullopt;
                    skipSpace();
                    if (!consume(':'))
                        return std::nullopt;
                }
                if (!readValue(depth + 1))
                    return std::nullopt;
                skipSpace();
                if (consume(close))
                    return 0u;
                if (!consume(','))
                    return std::nullopt;
            }
        }
        if (consumeWord("true"))
            return 1u;
        if (consumeWord("false") || consumeWord("null"))
            return 0u;
        return readNumber();
    }

    std::string_view text_;
    std::size_t pos_ = 0;
};

// The whole file, or nullopt when it cannot be read or is too large.
std::optional<std::string> readFile(std::string const& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr)
        return std::nullopt;
    std::string content;
    char buffer[4096];
    std::size_t n;
    bool tooLarge = false;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) {
        if (content.size() + n > maxFileSize) {
            tooLarge = true;
            break;
        }
        content.append(buffer, n);
    }
    bool failed = std::ferror(f) != 0;
    std::fclose(f);
    if (tooLarge || failed)
        return std::nullopt;
    return content;
}

}  // namespace

U32 toggleStateFromJson(std::string_view json, std::string_view name) {
    return JsonReader(json).member(name).value_or(0);
}

U32 getToggleState(std::string_view name, std::string_view file, U32 version) {
    if (version != toggleFormatVersion)
        return 0;
    char const* dir = std::getenv(toggleDirEnv);
    if (dir == nullptr || *dir == '\0' || file.empty())
        return 0;
    // A toggle file is a plain name inside the directory, never a path out of it.
    if (file.find('/') != std::string_view::npos)
        return 0;
    std::string path(dir);
    if (path.back() != '/')
        path += '/';
    path += file;
    std::optional<std::string> content = readFile(path);
    if (!content)
        return 0;
    return toggleStateFromJson(*content, name);
}

}  // namespace Toggle
