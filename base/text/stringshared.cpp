// SPDX-License-Identifier: MIT
#include "base/text/stringshared.h"

#include <cstring>
#include <new>
#include <utility>

KestrovaStringShared::Representation KestrovaStringShared::smEmpty = {{1}, 0, ""};

namespace {

using Representation = KestrovaStringShared::Representation;

Representation* create(const char* bytes, std::size_t length) {
    char* const memory = static_cast<char*>(::operator new(sizeof(Representation) + length + 1));
    char* const stored = memory + sizeof(Representation);
    std::memcpy(stored, bytes, length);
    stored[length] = '\0';
    return new (memory) Representation{{1}, length, stored};
}

Representation* share(Representation* representation) {
    if (representation != &KestrovaStringShared::smEmpty) {
        representation->mReferences.fetch_add(1, std::memory_order_relaxed);
    }
    return representation;
}

void drop(Representation* representation) {
    if (representation != &KestrovaStringShared::smEmpty &&
        representation->mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        representation->~Representation();
        ::operator delete(representation);
    }
}

}  // namespace

KestrovaStringShared::KestrovaStringShared(const char* bytes, std::size_t length)
    : mpRepresentation(length == 0 ? &smEmpty : create(bytes, length)) {}

KestrovaStringShared::KestrovaStringShared(const KestrovaStringShared& other)
    : KestrovaConstStringInterface(other), mpRepresentation(share(other.mpRepresentation)) {}

KestrovaStringShared& KestrovaStringShared::operator=(const KestrovaStringShared& other) {
    KestrovaStringShared copy(other);
    std::swap(mpRepresentation, copy.mpRepresentation);
    return *this;
}

KestrovaStringShared::~KestrovaStringShared() {
    drop(mpRepresentation);
}

void KestrovaStringShared::clear() {
    drop(std::exchange(mpRepresentation, &smEmpty));
}
