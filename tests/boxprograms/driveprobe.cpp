// SPDX-License-Identifier: MIT
#include "driveprobe.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <future>
#include <stdexcept>

#include "serialport.h"

namespace {

/// Returns the numbers of all open descriptors.
Words openDescriptors() {
    Words numbers;
    DIR* const folder = ::opendir("/proc/self/fd");
    const std::string own = std::to_string(::dirfd(folder));
    while (const dirent* const entry = ::readdir(folder)) {
        if (entry->d_name[0] != '.' && entry->d_name != own) {
            numbers.push_back(entry->d_name);
        }
    }
    (void)::closedir(folder);
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

/// Returns whether there is a child process, running or not yet reaped.
bool hasChildren() {
    siginfo_t child = {};
    return ::waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0;
}

/// A command that runs in parallel with the others, and a file that is held open.
class Background {
public:
    void add(Commands& commands) {
        commands["begin"] = [this, &commands](const Words& words) -> Words {
            const Words inner(words.begin() + 1, words.end());
            mResult = std::async(std::launch::async,
                                 [&commands, inner] { return commands.at(inner.at(0))(inner); });
            return {};
        };
        commands["finished"] = [this](const Words&) {
            return answer(mResult.wait_for(std::chrono::seconds(0)) == std::future_status::ready);
        };
        commands["end"] = [this](const Words&) { return mResult.get(); };
        commands["hold"] = [this](const Words& words) {
            mHeld = ::open(words.at(1).c_str(), O_RDONLY | O_CLOEXEC);
            return answer(mHeld >= 0);
        };
        commands["release"] = [this](const Words&) { return answer(::close(mHeld) == 0); };
    }

private:
    std::future<Words> mResult;
    int mHeld = -1;
};

void addProcessCommands(Commands& commands) {
    commands["descriptors"] = [](const Words&) { return openDescriptors(); };
    commands["children"] = [](const Words&) { return answer(hasChildren()); };
    commands["umask"] = [](const Words& words) -> Words {
        (void)::umask(static_cast<mode_t>(std::stoi(words.at(1), nullptr, 8)));
        return {};
    };
}

Words split(const std::string& line) {
    Words words(1);
    for (const char character : line) {
        if (character == '\t') {
            words.emplace_back();
        } else {
            words.back() += character;
        }
    }
    return words;
}

std::string run(const Commands& commands, const std::string& line) {
    std::string text = "ok";
    try {
        const Words words = split(line);
        for (const std::string& word : commands.at(words[0])(words)) {
            text += "\t" + word;
        }
    } catch (const std::exception& error) {
        text = std::string("refused\t") + error.what();
    }
    return text + "\n";
}

}  // namespace

int main(int argc, char** argv) {
    const int port = argc == 2 ? openPort(argv[1]) : -1;
    if (port < 0) {
        std::fprintf(stderr, "usage: drive-probe PORT\n");
        return 2;
    }
    Background background;
    Commands commands;
    background.add(commands);
    addProcessCommands(commands);
    addBootVarsCommands(commands);
    addDiskCommands(commands);
    addDvrCommands(commands);

    std::FILE* const requests = ::fdopen(port, "r");
    (void)::dprintf(port, "ready\n");
    char* line = nullptr;
    std::size_t size = 0;
    for (ssize_t length; (length = ::getline(&line, &size, requests)) > 0;) {
        const std::string reply = run(commands, std::string(line, static_cast<size_t>(length) - 1));
        (void)!(::write(port, reply.data(), reply.size()) > 0);
    }
    return 0;
}
