// SPDX-License-Identifier: MIT
#include "app/cli/line.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace app {

namespace {

/// Collects words and commands from single characters.
class Splitter {
public:
    explicit Splitter(std::vector<Words>& commands) : mCommands(commands) {}

    void put(char character) {
        mWord += character;
        mInWord = true;
    }
    void openQuote() { mInWord = true; }  // '' is a word, too
    bool inWord() const { return mInWord; }
    void endWord() {
        if (mInWord) {
            mWords.push_back(std::exchange(mWord, {}));
            mInWord = false;
        }
    }
    void endCommand() {
        endWord();
        if (!mWords.empty()) {
            mCommands.push_back(std::exchange(mWords, {}));
        }
    }

private:
    std::vector<Words>& mCommands;
    Words mWords;
    std::string mWord;
    bool mInWord = false;
};

/// Position behind the quote that closes the one at `position`; npos when there is none.
std::size_t putQuoted(std::string_view text, std::size_t position, Splitter& splitter) {
    const char quote = text[position];
    splitter.openQuote();
    for (++position; position < text.size(); ++position) {
        if (text[position] == quote) {
            return position + 1;
        }
        if (quote == '"' && text[position] == '\\' && position + 1 < text.size()) {
            ++position;
        }
        splitter.put(text[position]);
    }
    return std::string_view::npos;
}

}  // namespace

bool splitCommands(std::string_view text, std::vector<Words>& commands, std::string& error) {
    Splitter splitter(commands);
    for (std::size_t position = 0; position < text.size();) {
        const char character = text[position];
        if (character == '\'' || character == '"') {
            position = putQuoted(text, position, splitter);
            if (position == std::string_view::npos) {
                error = "a quote is not closed";
                return false;
            }
            continue;
        }
        if (character == '#' && !splitter.inWord()) {
            position = std::min(text.find('\n', position), text.size());
            continue;
        }
        ++position;
        if (character == ';' || character == '\n') {
            splitter.endCommand();
        } else if (character == ' ' || character == '\t' || character == '\r') {
            splitter.endWord();
        } else if (character == '\\' && position < text.size()) {
            splitter.put(text[position++]);
        } else {
            splitter.put(character);
        }
    }
    splitter.endCommand();
    return true;
}

LineReader::Outcome LineReader::read(const Interrupts& interrupts, std::string& line) {
    Outcome outcome = eEnd;
    while (!takeLine(line, outcome)) {
        pollfd sources[] = {{mDescriptor, POLLIN, 0}, {interrupts.descriptor(), POLLIN, 0}};
        if (::poll(sources, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return eEnd;
        }
        if ((sources[1].revents & POLLIN) != 0 && interrupts.take()) {
            mBuffer.clear();
            return eInterrupted;
        }
        if (sources[0].revents == 0) {
            continue;
        }
        char piece[512];
        const ssize_t length = ::read(mDescriptor, piece, sizeof(piece));
        if (length > 0) {
            mBuffer.append(piece, static_cast<std::size_t>(length));
        } else if (length == 0 || (errno != EINTR && errno != EAGAIN)) {
            return takeRest(line);
        }
    }
    return outcome;
}

bool LineReader::takeLine(std::string& line, Outcome& outcome) {
    const std::size_t end = mBuffer.find('\n');
    if (end == std::string::npos) {
        if (mBuffer.size() > kLongest) {
            mBuffer.clear();
            mSkipping = true;
        }
        return false;
    }
    const bool tooLong = std::exchange(mSkipping, false) || end > kLongest;
    line = mBuffer.substr(0, end);
    mBuffer.erase(0, end + 1);
    outcome = tooLong ? eTooLong : eLine;
    return true;
}

/// The last line may lack its end.
LineReader::Outcome LineReader::takeRest(std::string& line) {
    if (std::exchange(mSkipping, false)) {
        mBuffer.clear();
        return eTooLong;
    }
    line = std::exchange(mBuffer, {});
    return line.empty() ? eEnd : eLine;
}

}  // namespace app
