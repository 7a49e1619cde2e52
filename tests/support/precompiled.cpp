// SPDX-License-Identifier: MIT
//
// Empty: its target provides the precompiled header for the test programs.
