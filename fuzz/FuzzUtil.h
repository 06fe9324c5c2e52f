// What the fuzz targets share: reading typed values off the fuzzer's input,
// the one way a target reports a broken property, and the rule that text
// parsers may raise the framework's errors and nothing else.
//
// A target catches Kiv::Exception where the contract allows it; any other
// exception escapes, terminates the process and so counts as a crash, as
// does a failed check (abort) with its input saved by libFuzzer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Kiv/Errors.h"
#include "Kiv/Types.h"

namespace Fuzz {

// Consumes the input front to back; reads past the end yield zeros.
class Input {
  public:
    Input(U8 const* data, std::size_t size) : data_(data), size_(size) {}
    explicit Input(std::string_view octets)
        : Input(reinterpret_cast<U8 const*>(octets.data()), octets.size()) {}

    std::size_t left() const { return size_ - at_; }
    U8 octet() { return at_ < size_ ? data_[at_++] : 0; }
    // The next `octets` octets as a big-endian number (at most 8).
    U64 number(unsigned octets) {
        U64 value = 0;
        while (octets-- > 0)
            value = value << 8 | octet();
        return value;
    }
    // Up to `most` octets of text, ended early by a NUL octet (consumed).
    std::string text(std::size_t most) {
        std::string out;
        while (left() > 0 && out.size() < most)
            if (char const c = static_cast<char>(octet()); c != '\0')
                out.push_back(c);
            else
                break;
        return out;
    }
    // The next `count` octets (fewer at the end), NULs included.
    std::string octets(std::size_t count) {
        std::string out(reinterpret_cast<char const*>(data_) + at_, std::min(count, left()));
        at_ += out.size();
        return out;
    }
    std::string rest() { return octets(left()); }

  private:
    U8 const* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

inline void check(bool holds, std::string_view what, std::string_view detail = {}) {
    if (holds)
        return;
    std::fprintf(stderr, "fuzz property broken: %.*s\n  %.*s\n", int(what.size()), what.data(),
                 int(detail.size()), detail.data());
    std::abort();
}

// Runs `parse`; true when it returned, false when it raised a framework
// error. Anything else it raises escapes.
template <class Parse>
bool frameworkErrorsOnly(Parse&& parse) {
    try {
        parse();
        return true;
    } catch (Kiv::Exception const&) {
        return false;
    }
}

}  // namespace Fuzz

// A target defines only its body; libFuzzer calls it once per input.
#define VOBGP_FUZZ_TARGET(input)                                              \
    static void fuzzOne(Fuzz::Input& input);                                  \
    extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) { \
        Fuzz::Input in(data, size);                                           \
        fuzzOne(in);                                                          \
        return 0;                                                             \
    }                                                                         \
    static void fuzzOne(Fuzz::Input& input)
