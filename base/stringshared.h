// SPDX-License-Identifier: MIT
//
// A byte string whose copies share their storage.
#ifndef KESTROVA_BASE_STRINGSHARED_H
#define KESTROVA_BASE_STRINGSHARED_H

#include <atomic>
#include <cstddef>

/// Read-only view of a byte string; it may hold NUL bytes.
class KestrovaConstStringInterface {
public:
    KestrovaConstStringInterface() = default;
    virtual ~KestrovaConstStringInterface() = default;

    /// The bytes, with a NUL behind the last; valid until the string changes or dies.
    virtual const char* data() const = 0;
    /// How many bytes, without the NUL behind them.
    virtual std::size_t length() const = 0;

protected:
    KestrovaConstStringInterface(const KestrovaConstStringInterface&) = default;
    KestrovaConstStringInterface& operator=(const KestrovaConstStringInterface&) = default;
};

/// Receives whole files. Copying shares the bytes and never fails; the last copy frees them. Each
/// object belongs to one thread at a time, copies may live in different threads.
class KestrovaStringShared final : public KestrovaConstStringInterface {
public:
    /// Storage behind one or more strings.
    struct Representation {
        std::atomic<unsigned> mReferences;
        std::size_t mLength;
        const char* mpBytes;  ///< the bytes and a NUL, in the same piece of memory
    };
    /// Shared by all empty strings; never freed.
    static Representation smEmpty;

    KestrovaStringShared() : mpRepresentation(&smEmpty) {}
    /// Copies `length` bytes. Only allocation failure is thrown.
    KestrovaStringShared(const char* bytes, std::size_t length);
    KestrovaStringShared(const KestrovaStringShared& other);
    KestrovaStringShared& operator=(const KestrovaStringShared& other);
    ~KestrovaStringShared() override;

    const char* data() const override { return mpRepresentation->mpBytes; }
    std::size_t length() const override { return mpRepresentation->mLength; }
    /// Makes the string empty; other copies keep their bytes.
    void clear();

private:
    Representation* mpRepresentation;
};

#endif
