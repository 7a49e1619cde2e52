// SPDX-License-Identifier: MIT
//
// Empty: its target holds the precompiled header that the test programs share.
