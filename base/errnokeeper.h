// SPDX-License-Identifier: MIT
#ifndef KESTROVA_BASE_ERRNOKEEPER_H
#define KESTROVA_BASE_ERRNOKEEPER_H

#include <cerrno>

namespace base {

/// Restores errno at the end of the scope.
class ErrnoKeeper {
public:
    ErrnoKeeper() : mErrno(errno) {}
    ~ErrnoKeeper() { errno = mErrno; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int mErrno;
};

}  // namespace base

#endif
