// Append-only text buffers.
//
// VoFmt::TextBuffer is the interface every formatter writes to: appends of
// text, decimal numbers and hex octets, growing when needed. It is not a
// template, so virtual formatting hooks (one per community type) can take it.
//
// VoFmt::StackBackedBuffer<Inline, Max> is a TextBuffer whose first `Inline`
// characters live inside the object (on the caller's stack), so formatting one
// community or one short list allocates nothing. When it is outgrown it moves
// to the heap: the new capacity is twice the used size, capped at `Max`, but
// never less than what the next write needs (`Max` caps the doubling, not the
// text).
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "Kiv/Assert.h"
#include "Kiv/String.h"
#include "Kiv/Types.h"
#include "VoFmt/Numbers.h"

namespace VoFmt {

class TextBuffer {
  public:
    TextBuffer(TextBuffer const&) = delete;
    TextBuffer& operator=(TextBuffer const&) = delete;

    // Makes room for `required` more characters and returns where they go;
    // commit() then says how many were written.
    char* reserve(std::size_t required) {
        if (static_cast<std::size_t>(endPtr_ - writePtr_) < required)
            grow(required);
        KIV_ASSERT(endPtr_ - writePtr_ >= ptrdiff_t(required),
                   "endPtr - writePtr >= ptrdiff_t( required )");
        return writePtr_;
    }
    void commit(std::size_t written) { writePtr_ += written; }

    void append(char c) {
        *reserve(1) = c;
        ++writePtr_;
    }
    void append(std::string_view text) {
        if (text.empty())
            return;
        std::memcpy(reserve(text.size()), text.data(), text.size());
        writePtr_ += text.size();
    }
    // Unsigned decimal, no padding.
    void appendDecimal(U64 value) {
        writePtr_ += writeDecimal(reserve(decimalDigits(value)), value);
    }
    // An AS number, in asdot when asked and above 65535.
    void appendAsNumber(U32 asNumber, bool asdot) {
        writePtr_ += writeAsNumber(reserve(maxAsNumber), asNumber, asdot);
    }
    void appendIpv4Address(U32 address) {
        writePtr_ += writeIpv4Address(reserve(maxIpv4Address), address);
    }
    // Two lower-case hexadecimal digits.
    void appendHex2(U8 octet) { writePtr_ += writeHex(reserve(2), octet, 2); }

    std::size_t size() const { return static_cast<std::size_t>(writePtr_ - begin_); }
    std::size_t capacity() const { return static_cast<std::size_t>(endPtr_ - begin_); }
    bool onHeap() const { return begin_ != inline_; }
    char const* data() const { return begin_; }
    std::string_view view() const { return {begin_, size()}; }
    std::string str() const { return std::string(view()); }
    Kiv::String kivString() const { return Kiv::String(view()); }
    void clear() { writePtr_ = begin_; }

  protected:
    TextBuffer(char* inlineStorage, std::size_t inlineSize, std::size_t maxDoubling)
        : inline_(inlineStorage),
          begin_(inlineStorage),
          writePtr_(inlineStorage),
          endPtr_(inlineStorage + inlineSize),
          maxDoubling_(maxDoubling) {}
    ~TextBuffer() {
        if (begin_ != inline_)
            delete[] begin_;
    }

  private:
    void grow(std::size_t required) {
        std::size_t used = size();
        std::size_t doubled = used * 2 < maxDoubling_ ? used * 2 : maxDoubling_;
        std::size_t capacity = doubled > used + required ? doubled : used + required;
        char* heap = new char[capacity];
        std::memcpy(heap, begin_, used);
        if (begin_ != inline_)
            delete[] begin_;
        begin_ = heap;
        writePtr_ = heap + used;
        endPtr_ = heap + capacity;
    }

    char* inline_;
    char* begin_;
    char* writePtr_;
    char* endPtr_;
    std::size_t maxDoubling_;
};

template <std::size_t Inline, std::size_t Max = 1024>
class StackBackedBuffer : public TextBuffer {
    static_assert(Inline > 0 && Inline <= Max);

  public:
    StackBackedBuffer() : TextBuffer(storage_, Inline, Max) {}

  private:
    char storage_[Inline];
};

}  // namespace VoFmt
