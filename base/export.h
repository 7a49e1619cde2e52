// SPDX-License-Identifier: MIT
/// @file
/// Marks what the shared library exports. Everything else is built with hidden visibility.
#ifndef KESTROVA_BASE_EXPORT_H
#define KESTROVA_BASE_EXPORT_H

/// Makes a class, function or variable part of the library's interface.
#define KESTROVA_EXPORT __attribute__((visibility("default")))

/// Keeps a private helper of an exported class inside the library.
#define KESTROVA_LOCAL __attribute__((visibility("hidden")))

#endif
