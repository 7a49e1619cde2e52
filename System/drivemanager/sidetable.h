// SPDX-License-Identifier: MIT
#ifndef KESTROVA_SYSTEM_DRIVEMANAGER_SIDETABLE_H
#define KESTROVA_SYSTEM_DRIVEMANAGER_SIDETABLE_H

#include "base/lock.h"

namespace drivemanager {

/// Values for objects of a class that cannot have another member, because applications are compiled
/// with its layout. Any thread may call the functions; the lock is held for a few instructions, and
/// no other lock is acquired meanwhile.
///
/// For static storage: constant-initialised and never destroyed, because objects may be deleted,
/// and workers may still store a value, until the process ends.
template <class Owner, class Value>
class SideTable {
public:
    /// Calls `change` with the value of an owner, under the lock. An owner without a value is added
    /// first, which is the only case that throws (std::bad_alloc).
    template <class Change>
    void change(const Owner* owner, Change change) {
        const base::Lock lock(mLock);
        Entry*& link = linkTo(owner);
        if (link == nullptr) {
            link = new Entry{owner, Value(), nullptr};
        }
        change(link->mValue);
    }

    /// Returns a copy of the value of an owner, or a default value.
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
    // A list is sufficient, because a box has one or two drives.
    struct Entry {
        const Owner* mpOwner;
        Value mValue;
        Entry* mpNext;
    };

    /// Returns the link to an owner's entry, which is null if there is none.
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
