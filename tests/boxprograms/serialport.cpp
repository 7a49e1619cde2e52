// SPDX-License-Identifier: MIT
#include "serialport.h"

#include <fcntl.h>
#include <termios.h>

int openPort(const char* path) {
    const int port = ::open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings = {};
    if (port >= 0 && ::tcgetattr(port, &settings) == 0) {
        ::cfmakeraw(&settings);
        (void)::tcsetattr(port, TCSANOW, &settings);
    }
    return port;
}
