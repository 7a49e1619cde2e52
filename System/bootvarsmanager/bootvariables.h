// SPDX-License-Identifier: MIT
//
// The boot variables in memory, in the form of the file: reading and changing a full file takes no
// allocation for each of them.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_BOOTVARIABLES_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_BOOTVARIABLES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/vector.h"

/// One variable. Key and value hold no NUL, and in a variable area a NUL follows each.
struct BootRecord {
    std::string_view mKey;
    std::string_view mValue;
};

/// Removes the first record from a variable area. Returns false, and leaves both arguments as they
/// are, when the record is malformed or does not end within the area.
bool takeRecord(std::string_view& area, BootRecord& record);

/// The variables in ascending byte order of their keys, each key once, as one variable area. One
/// thread at a time. Only allocation failure is thrown: set() then changes nothing, and after
/// assign() the object can only be destroyed.
class BootVariables {
public:
    /// No variables. The image has `header` bytes, and then room for an area of `room` bytes.
    BootVariables(std::size_t header, std::size_t room) : mHeader(header), mRoom(room) {}
    BootVariables(const BootVariables&) = delete;
    BootVariables& operator=(const BootVariables&) = delete;

    /// Replaces the variables by the records of a file image, `size` bytes after its header, which
    /// must lie within it and within the room. Of two records with the same key the later one
    /// counts; the first malformed record ends the search.
    void assign(std::vector<char> image, std::size_t size);

    /// Sets a variable; an empty value removes it. Variables that have been read with an empty
    /// value are removed, too, because none is ever written. Without enough room nothing changes,
    /// and fits() is false from then on. The texts must not point into this object.
    void set(std::string_view key, std::string_view value);
    bool fits() const { return mFits; }

    /// Sets several variables, one for each value, as set() does; of two equal names the
    /// later one counts. Their order makes no difference to whether all of them fit: a variable
    /// that is removed or shrinks makes room for any other.
    void setAll(const KestrovaVector<std::string>& names,
                const KestrovaVector<std::string>& values);

    /// How many variables there are.
    std::size_t count() const { return mStarts.size(); }
    /// The variable at a place in the order, less than count(). Valid until the variables change.
    BootRecord at(std::size_t place) const;
    /// Gives a variable. Returns false when there is none with this key.
    bool find(std::string_view key, BootRecord& record) const;
    /// Appends keys and values in order. Only allocation failure is thrown: both are then
    /// unchanged.
    void appendTo(KestrovaVector<std::string>& names, KestrovaVector<std::string>& values) const;

    /// The image: the header, whose bytes are undefined, and the area. Empty before the first
    /// assign() or set().
    std::vector<char>& image() { return mImage; }

private:
    std::string_view keyAt(std::size_t place) const { return mImage.data() + mStarts[place]; }
    std::size_t endOf(std::size_t place) const;
    std::size_t placeOf(std::string_view key) const;
    std::vector<BootRecord> all() const;
    void rebuild(const std::vector<BootRecord>& records);
    void removeEmpty();
    void resizeRecord(std::size_t place, bool found, std::size_t size);

    std::size_t mHeader;
    std::size_t mRoom;
    bool mFits = true;
    bool mHasEmpty = false;
    std::vector<char> mImage;
    std::vector<std::size_t> mStarts;  ///< where in the image each record starts
};

#endif
