// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_BOXPROGRAMS_SERIALPORT_H
#define KESTROVA_TESTS_BOXPROGRAMS_SERIALPORT_H

/// Opens a serial port as a plain line of bytes, without the terminal's rewriting. A descriptor, or
/// a negative number.
int openPort(const char* path);

#endif
