// Decompressing input of the bgpcomm tool: a file (or a buffer) read in large
// blocks, decompressed on the fly when it is gzip (RFC 1952) or bzip2, chosen
// by the first octets and never by the file name.
//
// Contract: ByteSource::read fills the caller's buffer completely unless the
// stream ends or breaks; after a short read, error() is empty at a clean end
// and says what broke otherwise ("corrupt gzip stream: invalid block type").
// Concatenated gzip members and bzip2 streams are read as one stream, as
// gzip -d and bzip2 -d do. consumed()/total() count octets of the underlying
// file (compressed ones), for a progress display. Lookahead keeps what was
// read ahead of the reader's position, for a reader that must look past the
// record in hand.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "Kiv/Types.h"

namespace Bgpcomm {

enum class Compression { none, gzip, bzip2 };

// The undecompressed octets: a file descriptor or a buffer in memory.
class RawInput {
  public:
    static constexpr std::size_t blockSize = 1 << 20;

    // Null and *error set when the file cannot be opened.
    static std::unique_ptr<RawInput> openFile(std::string const& path, std::string* error);
    static std::unique_ptr<RawInput> fromMemory(std::vector<U8> data);
    ~RawInput();

    // Octets buffered and not yet consumed; fill() reads another block when
    // none are left. Returns false at the end of the input or on a read error.
    U8 const* data() const { return buffer_.data() + pos_; }
    std::size_t avail() const { return size_ - pos_; }
    void consume(std::size_t n) { pos_ += n; }
    bool fill();
    std::string const& error() const { return error_; }

    U64 consumed() const { return readTotal_ - avail(); }
    U64 total() const { return fileSize_; }

  private:
    RawInput() = default;

    int fd_ = -1;
    std::vector<U8> buffer_;
    std::size_t pos_ = 0;
    std::size_t size_ = 0;
    U64 readTotal_ = 0;
    U64 fileSize_ = 0;
    bool memory_ = false;
    std::string error_;
};

class ByteSource {
  public:
    explicit ByteSource(std::unique_ptr<RawInput> raw) : raw_(std::move(raw)) {}
    virtual ~ByteSource() = default;

    // Reads `n` octets unless the stream ends or breaks first; returns how
    // many were read.
    virtual std::size_t read(U8* out, std::size_t n) = 0;
    std::string const& error() const { return error_; }
    U64 consumed() const { return raw_->consumed(); }
    U64 total() const { return raw_->total(); }

  protected:
    std::unique_ptr<RawInput> raw_;
    std::string error_;
};

// A window over a ByteSource: octets read ahead stay available until
// consumed, so the MRT framer can check the header after a record and scan
// forward after a damaged one, on compressed streams too. It holds what the
// caller asks to see (from the current position), not the whole stream, and
// grows only as octets really arrive: asking for more than the stream has
// costs memory for what it has.
class Lookahead {
  public:
    explicit Lookahead(ByteSource& source) : source_(source) {}

    // Makes `n` octets available from data() unless the stream ends or
    // breaks first; returns how many are available (fewer than `n` only at
    // the end).
    std::size_t ensure(std::size_t n) { return avail() >= n ? avail() : fill(n); }
    U8 const* data() const { return buffer_.data() + start_; }
    std::size_t avail() const { return end_ - start_; }
    void consume(std::size_t n) {
        start_ += n;
        offset_ += n;
    }
    // Stream offset of data()[0].
    U64 offset() const { return offset_; }
    // Empty when the stream ended cleanly (after ensure() came up short).
    std::string const& error() const { return source_.error(); }

  private:
    std::size_t fill(std::size_t n);

    ByteSource& source_;
    std::vector<U8> buffer_;
    std::size_t start_ = 0;
    std::size_t end_ = 0;
    U64 offset_ = 0;
    bool ended_ = false;
};

// Looks at the first octets of `raw` (1f 8b: gzip; "BZh": bzip2; anything
// else: plain) and returns the matching source.
std::unique_ptr<ByteSource> openSource(std::unique_ptr<RawInput> raw,
                                       Compression* detected = nullptr);

}  // namespace Bgpcomm
