// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_SIDETABLE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_SIDETABLE_H

#include "base/lock.h"

namespace drivemanager {

/// Values that belong to objects of a class whose layout applications are compiled with, so that
/// the class cannot get another member. Any thread may call; the lock is held for a few
/// instructions, and no other lock is taken meanwhile.
///
/// For static storage: constant-initialised and never destroyed, because objects may be deleted,
/// and workers may still store a value, until the process ends.
template <class Owner, class Value>
class SideTable {
public:
    /// Calls `change` with the value of an owner, under the lock. Throws allocation failure only
    /// for an owner without a value, which is added first.
    template <class Change>
    void change(const Owner* owner, Change change) {
        const base::Lock lock(mLock);
        Entry*& link = linkTo(owner);
        if (link == nullptr) {
            link = new Entry{owner, Value(), nullptr};
        }
        change(link->mValue);
    }

    /// Returns a copy of the value of an owner, or a default one.
    Value value(const Owner* owner) {
        const base::Lock lock(mLock);
        const Entry* const entry = linkTo(owner);
        return entry != nullptr ? entry->mValue : Value();
    }

    /// Frees the value of an owner, if there is one. Never fails and never allocates.
    void remove(const Owner* owner) {
        const base::Lock lock(mLock);
        Entry*& link = linkTo(owner);
        if (link != nullptr) {
            const Entry* const entry = link;
            link = entry->mpNext;
            delete entry;
        }
    }

private:
    // A list, because a box has one drive or two.
    struct Entry {
        const Owner* mpOwner;
        Value mValue;
        Entry* mpNext;
    };

    /// The pointer that leads to an owner's entry; null if there is none.
    Entry*& linkTo(const Owner* owner) KESTROVA_REQUIRES(mLock) {
        Entry** link = &mpFirst;
        while (*link != nullptr && (*link)->mpOwner != owner) {
            link = &(*link)->mpNext;
        }
        return *link;
    }

    base::Mutex mLock;
    Entry* mpFirst KESTROVA_GUARDED_BY(mLock) = nullptr;
};

}  // namespace drivemanager

#endif
