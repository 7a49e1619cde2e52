// SPDX-License-Identifier: MIT
#include "tests/crash/diskstates.h"

#include <algorithm>
#include <random>
#include <set>

namespace crash {

namespace {

constexpr std::size_t kBlock = 512;
/// Up to this many blocks every combination is built; beyond it, single blocks, prefixes, and
/// random combinations.
constexpr std::size_t kCombinedBlocks = 4;
constexpr std::size_t kSingleBlocks = 16;
constexpr int kRandomCombinations = 64;

enum BlockState { eNew, eOld, eZero, eGarbage, eHalf, kBlockStates };

/// The contents of a file: what is on the disk, and the newest with the changes that may be
/// missing.
struct Content {
    std::string mLasting;
    std::string mNewest;
    bool mPending = false;
};

std::vector<Content> contentsAfter(const History& history, std::size_t events) {
    std::vector<Content> contents;
    for (const std::string& bytes : history.mContents) {
        contents.push_back({bytes, bytes, false});
    }
    const auto settle = [](Content& content) {
        content.mLasting = content.mNewest;
        content.mPending = false;
    };
    for (std::size_t i = 0; i < events; ++i) {
        const Event& event = history.mEvents[i];
        if (event.mKind == Event::eCreate) {
            contents.resize(std::max(contents.size(), event.mFile + 1));
        } else if (event.mKind == Event::eTruncate) {
            contents[event.mFile].mNewest.clear();
            contents[event.mFile].mPending = true;
        } else if (event.mKind == Event::eWrite) {
            std::string& bytes = contents[event.mFile].mNewest;
            bytes.resize(std::max(bytes.size(), event.mOffset + event.mBytes.size()));
            bytes.replace(event.mOffset, event.mBytes.size(), event.mBytes);
            contents[event.mFile].mPending = true;
        } else if (event.mKind == Event::eSyncFile) {
            settle(contents[event.mFile]);
        } else if (event.mKind == Event::eSyncAll) {
            std::for_each(contents.begin(), contents.end(), settle);
        }
    }
    return contents;
}

std::string blockOf(const std::string& bytes, std::size_t block, std::size_t length) {
    std::string part =
        bytes.size() > block * kBlock ? bytes.substr(block * kBlock, length) : std::string();
    part.resize(length);
    return part;
}

std::string torn(const Content& content, std::size_t block, std::size_t length, BlockState state) {
    const std::string fresh = blockOf(content.mNewest, block, length);
    const std::string old = blockOf(content.mLasting, block, length);
    switch (state) {
        case eNew:
            return fresh;
        case eOld:
            return old;
        case eZero:
            return std::string(length, '\0');
        case eGarbage:
            return std::string(length, '\xa5');
        default:
            return fresh.substr(0, length / 2) + old.substr(length / 2);
    }
}

/// Every content that a file can have after a power cut.
class Tearing {
public:
    explicit Tearing(const Content& content) : mContent(content) {}

    const std::set<std::string>& all() {
        mFound.insert(mContent.mLasting);
        if (!mContent.mPending) {
            return mFound;
        }
        mFound.insert(std::string());
        tear(mContent.mLasting.size());
        tear(mContent.mNewest.size());
        const std::size_t blocks = (mContent.mNewest.size() + kBlock - 1) / kBlock;
        const std::size_t step = blocks <= kCombinedBlocks ? 1 : blocks / 2;
        for (std::size_t block = 1; block < blocks; block += step) {
            tear(block * kBlock);
        }
        return mFound;
    }

private:
    using States = std::vector<BlockState>;

    void tear(std::size_t length) {
        const std::size_t blocks = (length + kBlock - 1) / kBlock;
        if (blocks <= kCombinedBlocks) {
            combine(length, States(blocks, eNew), 0);
        } else {
            single(length, blocks);
        }
    }

    void combine(std::size_t length, States states, std::size_t block) {
        if (block == states.size()) {
            add(length, states);
            return;
        }
        for (int state = 0; state < kBlockStates; ++state) {
            states[block] = static_cast<BlockState>(state);
            combine(length, states, block + 1);
        }
    }

    void single(std::size_t length, std::size_t blocks) {
        const std::size_t step = std::max<std::size_t>(1, blocks / kSingleBlocks);
        for (std::size_t block = 0; block < blocks; block += step) {
            for (int state = 1; state < kBlockStates; ++state) {
                const auto other = static_cast<BlockState>(state);
                States states(blocks, eNew);
                states[block] = other;
                add(length, states);
                std::fill(states.begin() + static_cast<std::ptrdiff_t>(block), states.end(), other);
                add(length, states);
            }
        }
        std::mt19937 random(static_cast<unsigned>(length));
        for (int i = 0; i < kRandomCombinations; ++i) {
            States states(blocks);
            for (BlockState& state : states) {
                state = static_cast<BlockState>(random() % kBlockStates);
            }
            add(length, states);
        }
    }

    void add(std::size_t length, const States& states) {
        std::string bytes;
        bytes.reserve(length);
        for (std::size_t block = 0; block < states.size(); ++block) {
            bytes +=
                torn(mContent, block, std::min(kBlock, length - block * kBlock), states[block]);
        }
        mFound.insert(bytes);
    }

    const Content& mContent;
    std::set<std::string> mFound;
};

/// A file has one name at a time, whichever of its renames are missing.
void apply(const Event& event, std::map<std::string, File>& names) {
    for (auto each = names.begin(); each != names.end();) {
        each = each->second == event.mFile ? names.erase(each) : std::next(each);
    }
    if (event.mKind != Event::eUnlink) {
        names[event.mTo] = event.mFile;
    }
}

/// Returns the changes of names that may not be on the disk after the first events, and the names
/// without them.
std::vector<const Event*> pendingNames(const History& history, std::size_t events,
                                       std::map<std::string, File>& lasting) {
    lasting = history.mNames;
    std::vector<const Event*> pending;
    for (std::size_t i = 0; i < events; ++i) {
        const Event& event = history.mEvents[i];
        if (event.mKind == Event::eCreate || event.mKind == Event::eRename ||
            event.mKind == Event::eUnlink) {
            pending.push_back(&event);
        } else if (event.mKind == Event::eSyncDirectory || event.mKind == Event::eSyncAll) {
            for (const Event* const each : pending) {
                apply(*each, lasting);
            }
            pending.clear();
        }
    }
    return pending;
}

using Choices = std::vector<std::pair<std::string, std::vector<std::string>>>;

void combineFiles(const Choices& choices, std::size_t at, Disk& disk,
                  const std::function<void(const Disk&)>& visit) {
    if (at == choices.size()) {
        visit(disk);
        return;
    }
    for (const std::string& content : choices[at].second) {
        disk[choices[at].first] = content;
        combineFiles(choices, at + 1, disk, visit);
    }
}

}  // namespace

void forEachDisk(const History& history, std::size_t events,
                 const std::function<void(const Disk&)>& visit) {
    std::map<std::string, File> lasting;
    const std::vector<const Event*> pending = pendingNames(history, events, lasting);
    std::vector<std::vector<std::string>> found;
    for (const Content& content : contentsAfter(history, events)) {
        Tearing tearing(content);
        const std::set<std::string>& all = tearing.all();
        found.emplace_back(all.begin(), all.end());
    }
    for (unsigned kept = 0; kept < 1U << pending.size(); ++kept) {
        std::map<std::string, File> names = lasting;
        for (std::size_t i = 0; i < pending.size(); ++i) {
            if ((kept >> i & 1U) != 0) {
                apply(*pending[i], names);
            }
        }
        Choices choices;
        for (const auto& [name, file] : names) {
            choices.emplace_back(name, found[file]);
        }
        Disk disk;
        combineFiles(choices, 0, disk, visit);
    }
}

Disk syncedDisk(const History& history) {
    std::map<std::string, File> names;
    (void)pendingNames(history, history.mEvents.size(), names);
    const std::vector<Content> contents = contentsAfter(history, history.mEvents.size());
    Disk disk;
    for (const auto& [name, file] : names) {
        disk[name] = contents[file].mLasting;
    }
    return disk;
}

}  // namespace crash
