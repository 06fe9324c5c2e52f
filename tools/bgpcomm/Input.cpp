#include "bgpcomm/Input.h"

#include <bzlib.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>

namespace Bgpcomm {

std::unique_ptr<RawInput> RawInput::openFile(std::string const& path, std::string* error) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *error = std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<RawInput> raw(new RawInput);
    raw->fd_ = fd;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode))
        raw->fileSize_ = static_cast<U64>(st.st_size);
    raw->buffer_.resize(blockSize);
    return raw;
}

std::unique_ptr<RawInput> RawInput::fromMemory(std::vector<U8> data) {
    std::unique_ptr<RawInput> raw(new RawInput);
    raw->memory_ = true;
    raw->size_ = data.size();
    raw->readTotal_ = data.size();
    raw->fileSize_ = data.size();
    raw->buffer_ = std::move(data);
    return raw;
}

RawInput::~RawInput() {
    if (fd_ >= 0)
        ::close(fd_);
}

bool RawInput::fill() {
    if (avail() != 0)
        return true;
    if (memory_ || fd_ < 0)
        return false;
    for (;;) {
        ssize_t n = ::read(fd_, buffer_.data(), buffer_.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            error_ = std::string("read error: ") + std::strerror(errno);
            return false;
        }
        pos_ = 0;
        size_ = static_cast<std::size_t>(n);
        readTotal_ += size_;
        return n > 0;
    }
}

namespace {

class PlainSource final : public ByteSource {
  public:
    using ByteSource::ByteSource;

    std::size_t read(U8* out, std::size_t n) override {
        std::size_t done = 0;
        while (done < n && raw_->fill()) {
            std::size_t chunk = std::min(n - done, raw_->avail());
            std::memcpy(out + done, raw_->data(), chunk);
            raw_->consume(chunk);
            done += chunk;
        }
        if (done < n)
            error_ = raw_->error();
        return done;
    }
};

class GzipSource final : public ByteSource {
  public:
    explicit GzipSource(std::unique_ptr<RawInput> raw) : ByteSource(std::move(raw)) {
        // 15 + 16: a gzip wrapper, the largest window.
        ok_ = inflateInit2(&z_, 15 + 16) == Z_OK;
        if (!ok_)
            error_ = "cannot start gzip decompression";
    }
    ~GzipSource() override { inflateEnd(&z_); }

    std::size_t read(U8* out, std::size_t n) override {
        z_.next_out = out;
        z_.avail_out = static_cast<uInt>(n);
        while (ok_ && z_.avail_out != 0) {
            if (raw_->avail() == 0 && !raw_->fill()) {
                if (!raw_->error().empty())
                    fail(raw_->error());
                else if (!memberDone_)
                    fail("corrupt gzip stream: unexpected end of file");
                else
                    ok_ = false;  // clean end after a complete member
                break;
            }
            z_.next_in = const_cast<U8*>(raw_->data());
            z_.avail_in = static_cast<uInt>(std::min<std::size_t>(raw_->avail(), 1u << 30));
            uInt before = z_.avail_in;
            int rc = inflate(&z_, Z_NO_FLUSH);
            raw_->consume(before - z_.avail_in);
            memberDone_ = false;
            if (rc == Z_STREAM_END) {
                // Another member may follow (gzip -d reads them all).
                memberDone_ = true;
                inflateReset(&z_);
            } else if (rc != Z_OK && rc != Z_BUF_ERROR) {
                fail(std::string("corrupt gzip stream: ") + (z_.msg ? z_.msg : "data error"));
            }
        }
        return n - z_.avail_out;
    }

  private:
    void fail(std::string const& why) {
        error_ = why;
        ok_ = false;
    }

    z_stream z_{};
    bool ok_ = false;
    bool memberDone_ = false;
};

class Bzip2Source final : public ByteSource {
  public:
    explicit Bzip2Source(std::unique_ptr<RawInput> raw) : ByteSource(std::move(raw)) { start(); }
    ~Bzip2Source() override {
        if (started_)
            BZ2_bzDecompressEnd(&bz_);
    }

    std::size_t read(U8* out, std::size_t n) override {
        bz_.next_out = reinterpret_cast<char*>(out);
        bz_.avail_out = static_cast<unsigned>(n);
        while (ok_ && bz_.avail_out != 0) {
            if (raw_->avail() == 0 && !raw_->fill()) {
                if (!raw_->error().empty())
                    fail(raw_->error());
                else if (!streamDone_)
                    fail("corrupt bzip2 stream: unexpected end of file");
                else
                    ok_ = false;
                break;
            }
            if (streamDone_)
                start();  // a further stream, as bzip2 -d reads them
            bz_.next_in = const_cast<char*>(reinterpret_cast<char const*>(raw_->data()));
            bz_.avail_in = static_cast<unsigned>(std::min<std::size_t>(raw_->avail(), 1u << 30));
            unsigned before = bz_.avail_in;
            int rc = BZ2_bzDecompress(&bz_);
            raw_->consume(before - bz_.avail_in);
            if (rc == BZ_STREAM_END) {
                BZ2_bzDecompressEnd(&bz_);
                started_ = false;
                streamDone_ = true;
            } else if (rc != BZ_OK) {
                fail("corrupt bzip2 stream: " +
                     std::string(rc == BZ_DATA_ERROR_MAGIC ? "bad magic" : "data error"));
            }
        }
        return n - bz_.avail_out;
    }

  private:
    void start() {
        bz_ = bz_stream{};
        ok_ = BZ2_bzDecompressInit(&bz_, 0, 0) == BZ_OK;
        started_ = ok_;
        streamDone_ = false;
        if (!ok_)
            error_ = "cannot start bzip2 decompression";
    }
    void fail(std::string const& why) {
        error_ = why;
        ok_ = false;
    }

    bz_stream bz_{};
    bool ok_ = false;
    bool started_ = false;
    bool streamDone_ = false;
};

}  // namespace

std::size_t Lookahead::fill(std::size_t n) {
    // Read in steps of this size: a damaged length asking for megabytes of a
    // short stream grows the buffer only by what arrives.
    constexpr std::size_t step = 256u << 10;
    while (avail() < n && !ended_) {
        if (start_ != 0) {
            std::memmove(buffer_.data(), data(), avail());
            end_ -= start_;
            start_ = 0;
        }
        if (buffer_.size() < end_ + step)
            buffer_.resize(end_ + step);
        std::size_t const got = source_.read(buffer_.data() + end_, step);
        end_ += got;
        ended_ = got < step;
    }
    return avail();
}

std::unique_ptr<ByteSource> openSource(std::unique_ptr<RawInput> raw, Compression* detected) {
    raw->fill();
    U8 const* p = raw->data();
    std::size_t n = raw->avail();
    Compression kind = Compression::none;
    if (n >= 2 && p[0] == 0x1f && p[1] == 0x8b)  // RFC 1952 ID1 ID2
        kind = Compression::gzip;
    else if (n >= 3 && p[0] == 'B' && p[1] == 'Z' && p[2] == 'h')  // bzip2 stream header
        kind = Compression::bzip2;
    if (detected)
        *detected = kind;
    switch (kind) {
        case Compression::gzip:
            return std::make_unique<GzipSource>(std::move(raw));
        case Compression::bzip2:
            return std::make_unique<Bzip2Source>(std::move(raw));
        case Compression::none:
            break;
    }
    return std::make_unique<PlainSource>(std::move(raw));
}

}  // namespace Bgpcomm
