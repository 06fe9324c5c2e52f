#include "KivStash/StoreManager.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <system_error>

#include "Kiv/Errors.h"

namespace KivStash {

namespace {

// Header fields (see StoreManager.h).
constexpr std::size_t versionAt = 8;
constexpr std::size_t headerSizeAt = 10;
constexpr std::size_t imageSizeAt = 12;
constexpr std::size_t recordCountAt = 16;
constexpr std::size_t directoryAt = 20;
constexpr std::size_t checksumAt = 24;

constexpr U64 fnvOffsetBasis = 0xcbf29ce484222325ull;
constexpr U64 fnvPrime = 0x100000001b3ull;

U16 loadLe16(U8 const* in) {
    return static_cast<U16>(in[0] | in[1] << 8);
}
void storeLe16(U8* out, U16 value) {
    out[0] = static_cast<U8>(value);
    out[1] = static_cast<U8>(value >> 8);
}
U64 loadLe64(U8 const* in) {
    return U64(loadLe32(in)) | U64(loadLe32(in + 4)) << 32;
}
void storeLe64(U8* out, U64 value) {
    storeLe32(out, static_cast<U32>(value));
    storeLe32(out + 4, static_cast<U32>(value >> 32));
}

U64 fnvMix(U64 h, U8 const* octets, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        h ^= octets[i];
        h *= fnvPrime;
    }
    return h;
}

[[noreturn]] void truncated(std::string const& what, U64 needed, U64 available) {
    throw Kiv::RangeError("stash image truncated: " + what + " needs " + std::to_string(needed) +
                          " octets, image has " + std::to_string(available));
}

[[noreturn]] void outside(std::string const& what, U64 offset) {
    throw Kiv::RangeError("stash image corrupt: " + what + " at offset " + std::to_string(offset) +
                          " lies outside its area");
}

}  // namespace

U64 imageChecksum(U8 const* image, std::size_t size) {
    static constexpr U8 zeros[8] = {};
    U64 h = fnvMix(fnvOffsetBasis, image, checksumAt);
    h = fnvMix(h, zeros, sizeof zeros);
    return fnvMix(h, image + imageHeaderSize, size - imageHeaderSize);
}

StoreManager::StoreManager() = default;

StoreManager::StoreManager(void const* image, std::size_t size)
    : base_(static_cast<U8 const*>(image)) {
    if (base_ == nullptr && size != 0)
        throw Kiv::RangeError("stash image: null image of " + std::to_string(size) + " octets");
    check(size);
}

StoreManager::~StoreManager() {
    for (auto const* handle : adopted_) {
        // A table still listing it would keep a dangling pointer.
        KIV_ASSERT(handle->dedupTable() == nullptr, "handle->dedupTable() == __null");
        delete handle;
    }
}

void StoreManager::check(std::size_t size) {
    if (size < imageHeaderSize)
        truncated("the header", imageHeaderSize, size);
    U8 const* h = base_;
    if (std::memcmp(h, imageMagic, sizeof imageMagic) != 0)
        throw Kiv::ParseError("not a stash image: bad magic");
    if (U16 version = loadLe16(h + versionAt); version != imageVersion)
        throw Kiv::ParseError("stash image version " + std::to_string(version) +
                              " not supported (this reader knows version " +
                              std::to_string(imageVersion) + ")");
    if (U16 headerSize = loadLe16(h + headerSizeAt); headerSize != imageHeaderSize)
        throw Kiv::ParseError("stash image corrupt: header size " + std::to_string(headerSize) +
                              ", expected " + std::to_string(imageHeaderSize));
    U32 const imageSize = loadLe32(h + imageSizeAt);
    if (imageSize > size)
        truncated("the image", imageSize, size);
    if (imageSize < imageHeaderSize)
        throw Kiv::ParseError("stash image corrupt: image size " + std::to_string(imageSize) +
                              " is smaller than its header");
    if (imageChecksum(h, imageSize) != loadLe64(h + checksumAt))
        throw Kiv::ParseError("stash image corrupt: checksum mismatch");

    // The directory ends the image; the records lie between header and
    // directory, in ascending order and without overlap.
    U32 const recordCount = loadLe32(h + recordCountAt);
    U32 const directory = loadLe32(h + directoryAt);
    if (directory < imageHeaderSize || directory % 4 != 0 ||
        U64(directory) + U64(recordCount) * 4 != imageSize)
        outside("the record directory", directory);
    directory_ = directory;
    offsets_.reserve(recordCount);
    U64 previousEnd = imageHeaderSize;
    for (U32 i = 0; i < recordCount; ++i) {
        U32 const offset = loadLe32(h + directory + U64(i) * 4);
        if (offset < previousEnd || offset % 4 != 0 || U64(offset) + recordHeaderSize > directory)
            outside("record " + std::to_string(i), offset);
        offsets_.push_back(offset);
        StashRecord const record = checkedRecord(i);
        previousEnd =
            offset + recordHeaderSize + U64(record.count()) * record.wordsPerElement() * 4;
    }
}

StashRecord StoreManager::checkedRecord(U32 index) const {
    // The header is read once into the record; only those copies are
    // checked and used, so octets changing underneath cannot slip past.
    U32 const offset = offsets_[index];
    StashRecord const record(base_ + offset);
    std::string const what = "record " + std::to_string(index);
    if (record.wordsPerElement() == 0 && record.count() != 0)
        throw Kiv::ParseError("stash image corrupt: " + what + " has elements of no words");
    // Counted in words first: count x words-per-element x 4 may not fit 64 bits.
    U64 const words = U64(record.count()) * record.wordsPerElement();
    U64 const room = (directory_ - offset - recordHeaderSize) / 4;
    if (words > room)
        throw Kiv::RangeError("stash image truncated: " + what + " claims " +
                              std::to_string(words) + " words, only " + std::to_string(room) +
                              " fit before the directory");
    return record;
}

StoreManager::NewRecord StoreManager::recordIs(U32 kind, U32 wordsPerElement, U32 count) {
    KIV_ASSERT(!attached());
    KIV_ASSERT(wordsPerElement > 0);
    U64 const size = recordHeaderSize + U64(count) * wordsPerElement * 4;
    // Offsets are 32 bits; leave room for the header and the directory.
    U64 const imageAfter = imageHeaderSize + body_.size() + size + (offsets_.size() + 1) * 4;
    if (imageAfter > std::numeric_limits<U32>::max())
        throw Kiv::RangeError("stash image would exceed " +
                              std::to_string(std::numeric_limits<U32>::max()) + " octets");
    std::size_t const at = body_.size();
    body_.resize(at + size);
    storeLe32(&body_[at], kind);
    storeLe32(&body_[at + 4], wordsPerElement);
    storeLe32(&body_[at + 8], count);
    offsets_.push_back(static_cast<U32>(imageHeaderSize + at));
    return NewRecord{static_cast<U32>(offsets_.size() - 1),
                     WordSink(body_.data() + at + recordHeaderSize)};
}

std::vector<U8> StoreManager::image() const {
    KIV_ASSERT(!attached());
    std::size_t const directory = imageHeaderSize + body_.size();
    std::vector<U8> out(directory + offsets_.size() * 4);
    std::memcpy(out.data(), imageMagic, sizeof imageMagic);
    storeLe16(&out[versionAt], imageVersion);
    storeLe16(&out[headerSizeAt], imageHeaderSize);
    storeLe32(&out[imageSizeAt], static_cast<U32>(out.size()));
    storeLe32(&out[recordCountAt], static_cast<U32>(offsets_.size()));
    storeLe32(&out[directoryAt], static_cast<U32>(directory));
    if (!body_.empty())
        std::memcpy(&out[imageHeaderSize], body_.data(), body_.size());
    for (std::size_t i = 0; i < offsets_.size(); ++i)
        storeLe32(&out[directory + 4 * i], offsets_[i]);
    storeLe64(&out[checksumAt], imageChecksum(out.data(), out.size()));
    return out;
}

void const* StoreManager::record(U32 index) const {
    KIV_ASSERT(attached());
    if (index >= offsets_.size())
        throw Kiv::RangeError("stash image has no record " + std::to_string(index) + " (it has " +
                              std::to_string(offsets_.size()) + ")");
    return base_ + offsets_[index];
}

StashRecord StoreManager::recordAt(void const* record) const {
    KIV_ASSERT(attached());
    // Addresses compared as numbers: `record` may point anywhere.
    auto const at = reinterpret_cast<std::uintptr_t>(record);
    auto const base = reinterpret_cast<std::uintptr_t>(base_);
    if (at < base || at - base > std::numeric_limits<U32>::max())
        throw Kiv::RangeError("not a record of this stash image");
    auto const found =
        std::lower_bound(offsets_.begin(), offsets_.end(), static_cast<U32>(at - base));
    if (found == offsets_.end() || *found != at - base)
        throw Kiv::RangeError("not a record of this stash image");
    // Checked again on every read: the octets may have changed since
    // attaching (a file rewritten in place, not published by rename).
    return checkedRecord(static_cast<U32>(found - offsets_.begin()));
}

void StoreManager::adoptedHandleIs(Vok::DedupHandle const* handle) {
    KIV_ASSERT(handle != nullptr, "handle != __null");
    adopted_.push_back(handle);
}

void writeImageFile(std::string const& path, std::vector<U8> const& image) {
    // A new file beside the old one, renamed over it when complete: a reader
    // that mapped the old file keeps its inode, whole and unchanged, and a
    // reader that opens the path sees the old image or the new one, never a
    // part.
    std::string temporary = path + ".XXXXXX";
    int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "create " + temporary);
    auto fail = [&](char const* what) {
        int const error = errno;
        if (fd >= 0)
            ::close(fd);
        ::unlink(temporary.c_str());
        throw std::system_error(error, std::generic_category(), what + (" " + temporary));
    };
    if (::fchmod(fd, 0644) != 0)
        fail("chmod");
    std::size_t done = 0;
    while (done < image.size()) {
        ssize_t n = ::write(fd, image.data() + done, image.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            fail("write");
        done += static_cast<std::size_t>(n);
    }
    int const closed = ::close(fd);
    fd = -1;
    if (closed != 0)
        fail("close");
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        fail("rename to");
}

MappedImage::MappedImage(std::string const& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "open " + path);
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        int error = errno;
        ::close(fd);
        throw std::system_error(error, std::generic_category(), "fstat " + path);
    }
    size_ = static_cast<std::size_t>(st.st_size);
    // An empty file cannot be mapped; it is an empty (and so truncated) image.
    if (size_ != 0) {
        void* p = ::mmap(nullptr, size_, PROT_READ, MAP_SHARED, fd, 0);
        if (p == MAP_FAILED) {
            int error = errno;
            ::close(fd);
            throw std::system_error(error, std::generic_category(), "mmap " + path);
        }
        data_ = p;
    }
    ::close(fd);
}

MappedImage::~MappedImage() {
    if (data_ != nullptr)
        ::munmap(data_, size_);
}

}  // namespace KivStash
