// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_NEVERDESTROYED_H
#define KESTROVA_BASE_NEVERDESTROYED_H

namespace base {

/// A global object that is constant-initialised and whose destructor never runs.
template <class T>
union NeverDestroyed {
    constexpr NeverDestroyed() : mValue() {}
    ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): a default one would be deleted
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T mValue;
};

}  // namespace base

#endif
