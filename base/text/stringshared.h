// SPDX-License-Identifier: MIT
//
// A byte string whose copies share their storage.
#ifndef KESTROVA_BASE_TEXT_STRINGSHARED_H
#define KESTROVA_BASE_TEXT_STRINGSHARED_H

#include <atomic>
#include <cstddef>

/// Read-only view of a byte string; it may hold NUL bytes.
class KestrovaConstStringInterface {
public:
    KestrovaConstStringInterface() = default;
    virtual ~KestrovaConstStringInterface() = default;

    /// The bytes, followed by a NUL. Valid until the string changes or is destroyed.
    virtual const char* data() const = 0;
    /// Number of bytes, without the terminating NUL.
    virtual std::size_t length() const = 0;

protected:
    KestrovaConstStringInterface(const KestrovaConstStringInterface&) = default;
    KestrovaConstStringInterface& operator=(const KestrovaConstStringInterface&) = default;
};

/// Holds the contents of a file. Copies share the bytes, so copying never fails; the last copy
/// frees them. One thread at a time may use an object; its copies may be used by other threads.
class KestrovaStringShared final : public KestrovaConstStringInterface {
public:
    /// Storage behind one or more strings.
    struct Representation {
        std::atomic<unsigned> mReferences;
        std::size_t mLength;
        const char* mpBytes;  ///< the bytes and a NUL, in the same allocation
    };
    /// Shared by all empty strings; never freed.
    static Representation smEmpty;

    KestrovaStringShared() : mpRepresentation(&smEmpty) {}
    /// Copies `length` bytes. Throws only std::bad_alloc.
    KestrovaStringShared(const char* bytes, std::size_t length);
    KestrovaStringShared(const KestrovaStringShared& other);
    KestrovaStringShared& operator=(const KestrovaStringShared& other);
    ~KestrovaStringShared() override;

    const char* data() const override { return mpRepresentation->mpBytes; }
    std::size_t length() const override { return mpRepresentation->mLength; }
    /// Makes this string empty. Other copies keep the bytes.
    void clear();

private:
    Representation* mpRepresentation;
};

#endif
