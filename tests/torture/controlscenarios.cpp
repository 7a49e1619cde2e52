// SPDX-License-Identifier: MIT
//
// The harness's own operations, each with one defect that it must find.
#include <fcntl.h>
#include <pthread.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tests/torture/scenario.h"

namespace torture {

namespace {

constexpr char kFile[] = "/tmp/control";

/// An operation without a defect: writes a text to a file through a heap buffer.
class Control : public Case {
public:
    explicit Control(void (*defect)(Control&)) : mDefect(defect) {}

    void prepare(World& world) override {
        world.box().allow(tests::Role({"/sbin/hdparm", "-y", "/dev/sda"}));
    }

    void act() override {
        mDefect(*this);
        mResult = !mFailed;
    }

    void check(Verdict& verdict) override {
        verdict.expect(!mResult || !verdict.isTool() || !verdict.toolFault().mFails,
                       "success although the tool failed");
        verdict.expect(World::mounts().empty(), "a mount is left");
        const std::string text = tests::readFile(kFile);
        verdict.expect(text.empty() || text == "whole", "half of a file");
        verdict.expect(!mResult || !verdict.returned() || text == "whole",
                       "success without a file");
        if (verdict.returned() && !mResult) {
            verdict.expectSaid({"control failed"});
        }
    }

    /// Creates the file; each step can fail. Returns false, and logs a message, on failure.
    bool make(bool closes = true, bool whole = true) {
        const int file = ::open(kFile, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (file < 0) {
            return fail();
        }
        const char* const text = "whole";
        // Two writes: a failure between them leaves half a file.
        const bool written = whole ? ::write(file, text, 5) == 5
                                   : ::write(file, text, 2) == 2 && ::write(file, text + 2, 3) == 3;
        if (!written && whole) {
            (void)::unlink(kFile);
        }
        if (closes || written) {
            (void)::close(file);
        }
        return written || fail();
    }
    bool fail() {
        mFailed = true;
        if (!mSilent) {
            (void)!::write(STDOUT_FILENO, "control failed\n", 15);
        }
        return false;
    }

    void (*mDefect)(Control&);
    bool mResult = false;
    bool mFailed = false;
    bool mSilent = false;
};

struct Defect {
    const char* mName;
    void (*mRun)(Control&);
};

const Defect kDefects[] = {
    {"control-none",
     [](Control& control) {
         int state = 0;
         (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
         (void)control.make();
         (void)pthread_setcancelstate(state, nullptr);
     }},
    {"control-leaves-a-descriptor", [](Control& control) { (void)control.make(false); }},
    {"control-leaves-memory",
     [](Control& control) {
         void* const memory = std::malloc(100);
         if (memory == nullptr) {
             (void)control.fail();
         } else if (control.make()) {
             std::free(memory);
         }
     }},
    {"control-ignores-a-failure",
     [](Control& control) {
         control.mSilent = true;
         (void)control.make();
         control.mFailed = false;
     }},
    {"control-says-nothing",
     [](Control& control) {
         control.mSilent = true;
         (void)control.make();
     }},
    {"control-leaves-half-a-file", [](Control& control) { (void)control.make(true, false); }},
    {"control-leaves-a-child",
     [](Control& control) {
         const pid_t child = ::fork();
         if (child == 0) {
             ::_exit(0);
         }
         (void)control.make();
     }},
    {"control-leaves-a-process",
     [](Control& control) {
         if (!control.make()) {
             (void)!std::system("/usr/bin/sleep 30 &");
         }
     }},
    {"control-leaves-a-thread",
     [](Control& control) {
         if (!control.make()) {
             pthread_t thread = 0;
             const auto wait = [](void*) -> void* {
                 (void)::pause();
                 return nullptr;
             };
             (void)pthread_create(&thread, nullptr, wait, nullptr);
         }
     }},
    {"control-leaves-a-mount",
     [](Control& control) {
         if (!control.make()) {
             (void)::mount("/dev/sda1", "/dvr", "tmpfs", 0, nullptr);
         }
     }},
    {"control-leaves-cancellation-off",
     [](Control& control) {
         (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
         if (control.make()) {
             (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
         }
     }},
    {"control-believes-a-tool",
     [](Control& control) {
         (void)!std::system("/sbin/hdparm -y /dev/sda");
         (void)control.make();
     }},
    {"control-cannot-be-cancelled",
     [](Control& control) {
         const auto make = [&control]() noexcept { (void)control.make(); };
         make();
     }},
    {"control-throws",
     [](Control& control) {
         if (!control.make()) {
             throw std::length_error("control");
         }
     }},
    {"control-crashes",
     [](Control& control) {
         if (!control.make()) {
             (void)std::raise(SIGSEGV);
         }
     }},
    {"control-hangs",
     [](Control& control) {
         if (!control.make()) {
             for (;;) {
                 (void)::pause();
             }
         }
     }},
};

}  // namespace

void addControlScenarios(Scenarios& scenarios) {
    for (const Defect& defect : kDefects) {
        scenarios.push_back(scenario<Control>(defect.mName, defect.mRun));
    }
}

}  // namespace torture
