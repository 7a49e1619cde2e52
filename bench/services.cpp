// SPDX-License-Identifier: MIT
//
// The small services that are called often, each against a plain implementation:
//   kestrova-bench-services LIBZ
// LIBZ is the zlib for this word size, as a name for the dynamic loader.
#include <dlfcn.h>

#include <cstdio>
#include <vector>

#include "System/drivemanager/partition.h"
#include "base/log/log.h"
#include "base/text/crc32.h"
#include "bench/bare.h"
#include "bench/figure.h"

namespace {

constexpr int kRounds = 201;
constexpr int kCalls = 2000;

// Volatile, so that the optimiser cannot remove the calls.
volatile unsigned long keptResult = 0;

// zlib's own declaration. Loaded by name, because Debian has its headers for only one word size.
using ZlibCrc = unsigned long (*)(unsigned long, const unsigned char*, unsigned);

void compareCrc(bench::Report& report, const char* library) {
    constexpr int calls = 20;
    void* const zlib = dlopen(library, RTLD_NOW);
    if (zlib == nullptr) {
        bench::fail(dlerror());
    }
    const auto zlibCrc = reinterpret_cast<ZlibCrc>(dlsym(zlib, "crc32"));
    if (zlibCrc == nullptr) {
        bench::fail(dlerror());
    }
    std::vector<unsigned char> bytes(65536);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i * 2654435761U >> 16U);
    }
    const auto length = static_cast<unsigned>(bytes.size());
    if (kestrova_crc32(bytes.data(), static_cast<int>(length)) !=
        zlibCrc(0, bytes.data(), length)) {
        bench::fail("the two checksums differ");
    }
    const bench::Times times = bench::measure(
        kRounds, calls,
        [&] { keptResult = kestrova_crc32(bytes.data(), static_cast<int>(length)); },
        [&] { keptResult = zlibCrc(0, bytes.data(), length); });
    // A speed, not a time: the bound is a minimum.
    report.figure("crc32", times.mControl / times.mSubject, times);
}

void compareLog(bench::Report& report) {
    std::FILE* const nowhere = std::fopen("/dev/null", "w");
    if (nowhere == nullptr || std::setvbuf(nowhere, nullptr, _IONBF, 0) != 0) {
        bench::fail("/dev/null");
    }
    const auto control = [nowhere] {
        (void)std::fprintf(nowhere, "   Partitions: %d of %s\n", 2, "/dev/sda");
    };
    const auto logAt = [](unsigned level) {
        base::logMessage(level, "   Partitions: %d of %s\n", 2, "/dev/sda");
    };
    const bench::Times suppressed = bench::measure(
        kRounds, kCalls, [&] { logAt(2); }, control);
    report.figure("log-suppressed", suppressed.mSubject / suppressed.mControl, suppressed);
    const bench::Times printed = bench::measure(
        kRounds, kCalls, [&] { logAt(1); }, control);
    report.figure("log-printed", printed.mSubject / printed.mControl, printed);
    (void)std::fclose(nowhere);
}

void compareMountTable(bench::Report& report) {
    constexpr int calls = 200;
    sysPartition partition;
    // Any node that is not mounted works: the whole table must be searched.
    if (!partition.init("/dev/null", 0, 0) || partition.isMounted()) {
        bench::fail("/dev/null");
    }
    const bench::Times times = bench::measure(
        kRounds, calls, [&] { keptResult = partition.isMounted() ? 1 : 0; }, bench::readMountTable);
    report.figure("is-mounted", times.mSubject / times.mControl, times);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        (void)std::fprintf(stderr, "usage: %s LIBZ\n", argv[0]);
        return 2;
    }
    bench::Report report;
    compareCrc(report, argv[1]);
    compareLog(report);
    compareMountTable(report);
    return 0;
}
