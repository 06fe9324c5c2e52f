#include "Kiv/Ptr.h"

#include <algorithm>

namespace Kiv {

Notifiee::~Notifiee() {
    notifierIs(nullptr);
}

void Notifiee::notifierIs(PtrInterface const* notifier) {
    if (notifier == notifier_)
        return;
    if (notifier_)
        notifier_->notifiees_.remove(this);
    notifier_ = notifier;
    if (notifier_)
        notifier_->notifiees_.add(this);
}

void NotifieeList::add(Notifiee* notifiee) {
    notifiees_.push_back(notifiee);
}

void NotifieeList::remove(Notifiee* notifiee) {
    auto it = std::find(notifiees_.begin(), notifiees_.end(), notifiee);
    if (it != notifiees_.end())
        notifiees_.erase(it);
}

void NotifieeList::visit(AttributeId attribute, void const* key) const {
    if (notifiees_.size() == 1) {
        // The common case needs no copy: detaching during the callback cannot
        // skip anybody else.
        Notifiee* only = notifiees_.front();
        if (only->hasNotificationActive())
            only->onAttribute(attribute, key);
        return;
    }
    Container snapshot(notifiees_);
    for (Notifiee* n : snapshot) {
        // Skip notifiees detached by an earlier callback of this visit.
        if (std::find(notifiees_.begin(), notifiees_.end(), n) == notifiees_.end())
            continue;
        if (n->hasNotificationActive())
            n->onAttribute(attribute, key);
    }
}

PtrInterface::~PtrInterface() {
    notifieeListClear();
}

void PtrInterface::notifieeListClear() const {
    while (!notifiees_.empty())
        (*notifiees_.begin())->notifierIs(nullptr);
}

}  // namespace Kiv
