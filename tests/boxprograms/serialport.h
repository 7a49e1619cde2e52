// SPDX-License-Identifier: MIT
#ifndef KESTROVA_TESTS_BOXPROGRAMS_SERIALPORT_H
#define KESTROVA_TESTS_BOXPROGRAMS_SERIALPORT_H

/// Opens a serial port in raw mode. Returns a descriptor, or a negative number.
int openPort(const char* path);

#endif
