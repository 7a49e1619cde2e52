// SPDX-License-Identifier: MIT
#include "app/cli/shellwords.h"

#include <algorithm>
#include <utility>

namespace app {

namespace {

/// Builds words and commands from single characters.
class Splitter {
public:
    explicit Splitter(std::vector<Words>& commands) : mCommands(commands) {}

    void put(char character) {
        mWord += character;
        mInWord = true;
    }
    void openQuote() { mInWord = true; }  // '' is a word
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

/// Returns the position after the closing quote of the one at `position`, or npos if it is missing.
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

Result splitCommands(std::string_view text, std::vector<Words>& commands) {
    Splitter splitter(commands);
    for (std::size_t position = 0; position < text.size();) {
        const char character = text[position];
        if (character == '\'' || character == '"') {
            position = putQuoted(text, position, splitter);
            if (position == std::string_view::npos) {
                return Result::misused("a quote is not closed");
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
    return {};
}

}  // namespace app
