#include "Kiv/String.h"

#include <atomic>
#include <cstring>
#include <new>
#include <ostream>

namespace Kiv {

struct String::Rep {
    std::atomic<std::size_t> references;
    std::size_t size;
    // The characters follow the header, NUL-terminated.
    char* chars() { return reinterpret_cast<char*>(this + 1); }
};

namespace {

String::Rep* repNew(std::string_view text) {
    void* memory = ::operator new(sizeof(String::Rep) + text.size() + 1);
    auto* rep = new (memory) String::Rep{{1}, text.size()};
    if (!text.empty())
        std::memcpy(rep->chars(), text.data(), text.size());
    rep->chars()[text.size()] = '\0';
    return rep;
}

void repDec(String::Rep* rep) {
    if (rep && rep->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        rep->~Rep();
        ::operator delete(rep);
    }
}

}  // namespace

String::String(std::string_view text) : rep_(repNew(text)) {}

String::String(String const& other) noexcept : rep_(other.rep_) {
    if (rep_)
        rep_->references.fetch_add(1, std::memory_order_relaxed);
}

String::~String() {
    repDec(rep_);
}

String& String::operator=(String const& other) noexcept {
    if (other.rep_)
        other.rep_->references.fetch_add(1, std::memory_order_relaxed);
    repDec(rep_);
    rep_ = other.rep_;
    return *this;
}

String& String::operator=(String&& other) noexcept {
    if (this != &other) {
        repDec(rep_);
        rep_ = other.rep_;
        other.rep_ = nullptr;
    }
    return *this;
}

std::size_t String::size() const noexcept {
    return rep_ ? rep_->size : 0;
}

char const* String::data() const noexcept {
    return rep_ ? rep_->chars() : "";
}

std::ostream& operator<<(std::ostream& os, String const& s) {
    return os << s.view();
}

}  // namespace Kiv
