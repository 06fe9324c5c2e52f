// Intrusive counted references.
//
// Kiv::Ptr<T> holds one reference on an object that counts its own holders.
// T provides `referencesInc() const` and `referencesDec() const`; the object
// decides what happens when the count falls (PtrInterface deletes itself at
// zero, interned handles leave their table first). Counting in the object
// rather than in a control block keeps a reference one pointer wide and lets
// a raw pointer be turned back into a counted one at any time.
//
// Ptr<T const> is the constant reference; every class nests
//   using Ptr = Kiv::Ptr<X>; using PtrConst = Kiv::Ptr<X const>;
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kiv/Types.h"

namespace Kiv {

template <class T>
class Ptr {
  public:
    using element_type = T;

    constexpr Ptr() noexcept = default;
    constexpr Ptr(std::nullptr_t) noexcept {}
    // Takes a new reference on `p` (may be null).
    explicit Ptr(T* p) noexcept : p_(p) { inc(); }
    Ptr(Ptr const& other) noexcept : p_(other.p_) { inc(); }
    Ptr(Ptr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ptr(Ptr<U> const& other) noexcept : p_(other.ptr()) {
        inc();
    }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ptr(Ptr<U>&& other) noexcept : p_(other.release()) {}
    ~Ptr() { dec(); }

    Ptr& operator=(Ptr const& other) noexcept {
        Ptr(other).swap(*this);
        return *this;
    }
    Ptr& operator=(Ptr&& other) noexcept {
        Ptr(std::move(other)).swap(*this);
        return *this;
    }
    Ptr& operator=(std::nullptr_t) noexcept {
        Ptr().swap(*this);
        return *this;
    }

    T* ptr() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    // Gives up the reference without dropping it; the caller now owns it.
    T* release() noexcept { return std::exchange(p_, nullptr); }
    // Adopts a reference the caller already owns (no increment).
    static Ptr adopt(T* p) noexcept {
        Ptr result;
        result.p_ = p;
        return result;
    }
    void swap(Ptr& other) noexcept { std::swap(p_, other.p_); }

    friend bool operator==(Ptr const& a, Ptr const& b) noexcept { return a.p_ == b.p_; }
    friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }
    friend bool operator<(Ptr const& a, Ptr const& b) noexcept {
        return std::less<T*>()(a.p_, b.p_);
    }

  private:
    void inc() const noexcept {
        if (p_)
            p_->referencesInc();
    }
    void dec() const noexcept {
        if (p_)
            p_->referencesDec();
    }
    T* p_ = nullptr;
};

template <class T, class U>
Ptr<T> ptrStaticCast(Ptr<U> const& p) noexcept {
    return Ptr<T>(static_cast<T*>(p.ptr()));
}

// Identifies an attribute of an object in change notifications: the
// attribute's position in its class's declaration order.
using AttributeId = U32;

class PtrInterface;

// An observer of a PtrInterface. The notifier calls onAttribute synchronously,
// inside the call that made the change, with the attribute and a pointer to
// the changed key (its type is the attribute's key type).
class Notifiee {
  public:
    Notifiee() = default;
    Notifiee(Notifiee const&) = delete;
    Notifiee& operator=(Notifiee const&) = delete;
    virtual ~Notifiee();

    virtual void onAttribute(AttributeId attribute, void const* key) = 0;

    PtrInterface const* notifier() const { return notifier_; }
    // Detaches from the current notifier (if any) and attaches to `notifier`.
    void notifierIs(PtrInterface const* notifier);

    bool hasNotificationActive() const { return notificationActive_; }
    void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

  private:
    PtrInterface const* notifier_ = nullptr;
    bool notificationActive_ = false;
};

// The observers registered on one object, in registration order.
class NotifieeList {
  public:
    using Container = std::vector<Notifiee*>;

    bool empty() const { return notifiees_.empty(); }
    std::size_t size() const { return notifiees_.size(); }
    Container::const_iterator begin() const { return notifiees_.begin(); }
    Container::const_iterator end() const { return notifiees_.end(); }

    void add(Notifiee* notifiee);
    void remove(Notifiee* notifiee);
    // Calls onAttribute on every active notifiee. Works on a copy so that a
    // notifiee may detach itself (or others) from inside the callback.
    void visit(AttributeId attribute, void const* key) const;

  private:
    Container notifiees_;
};

// Base of reference-counted framework objects: an atomic count, the
// notification-active switch and the list of observers.
class PtrInterface {
  public:
    PtrInterface() = default;
    PtrInterface(PtrInterface const&) = delete;
    PtrInterface& operator=(PtrInterface const&) = delete;
    virtual ~PtrInterface();

    void referencesInc() const noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void referencesDec() const noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
    U32 references() const noexcept { return references_.load(std::memory_order_relaxed); }

    bool hasNotificationActive() const { return notificationActive_; }
    virtual void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

    NotifieeList const& notifieeList() const { return notifiees_; }

  protected:
    // Tells every active notifiee that `attribute` changed for `key`; does
    // nothing while this object's own notification is switched off.
    void notify(AttributeId attribute, void const* key) const {
        if (notificationActive_ && !notifiees_.empty())
            notifiees_.visit(attribute, key);
    }
    // Detaches every notifiee (their notifier becomes null).
    void notifieeListClear() const;

  private:
    friend class Notifiee;
    mutable std::atomic<U32> references_{0};
    bool notificationActive_ = false;
    mutable NotifieeList notifiees_;
};

// Allocates a T, switches its notification on and returns the first reference:
// the shape every `...Factory()` / `...Is()` pair shares.
template <class T, class... Args>
Ptr<T> makeActive(Args&&... args) {
    Ptr<T> result(new T(std::forward<Args>(args)...));
    result->hasNotificationActiveIs(true);
    return result;
}

}  // namespace Kiv
