/* SPDX-License-Identifier: MIT
 *
 * Preloaded into the command: a file answers like an ATA disk. The tools do without it.
 */
#define _GNU_SOURCE
#define _FILE_OFFSET_BITS 64
#include <errno.h>
#include <linux/hdreg.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

__attribute__((constructor)) static void forgetPreload(void) {
    unsetenv("LD_PRELOAD");
}

static int answer(int fd, unsigned long request, void* argument) {
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return (int)syscall(SYS_ioctl, fd, request, argument);
    }
    if (request == HDIO_GET_IDENTITY) {
        unsigned char* const identity = argument;
        memset(identity, 0, 512);
        memcpy(identity + 54, "FAKE\033DRIVE                               ", 40);
        memcpy(identity + 20, "  SERIAL-1          ", 20);
        return 0;
    }
    if ((request & 0xffff) == 0x1272) { /* BLKGETSIZE64 of either word size */
        *(uint64_t*)argument = (uint64_t)status.st_size;
        return 0;
    }
    errno = ENOTTY;
    return -1;
}

int ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return answer(fd, request, argument);
}

/* The name that a 32-bit program with 64-bit times calls. */
int __ioctl_time64(int fd, unsigned long request, ...) __attribute__((alias("ioctl")));
