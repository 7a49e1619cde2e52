// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/bootvariables.h"

#include <algorithm>
#include <map>
#include <utility>

namespace {

constexpr std::size_t kTerminators = 3;  // of a record: one of the key, two of the value

bool isEmpty(const BootRecord& record) {
    return record.mValue.empty();
}

/// Of two records with the same key the earlier one in the file comes first.
bool precedes(const BootRecord& one, const BootRecord& other) {
    const int order = one.mKey.compare(other.mKey);
    return order < 0 || (order == 0 && one.mKey.data() < other.mKey.data());
}

/// Sorts the records. Of those with the same key only the last one remains.
void sortByKey(std::vector<BootRecord>& records) {
    std::sort(records.begin(), records.end(), precedes);
    auto kept = records.begin();
    for (auto record = records.begin(); record != records.end(); ++record) {
        const auto next = record + 1;
        if (next == records.end() || next->mKey != record->mKey) {
            *kept++ = *record;
        }
    }
    records.erase(kept, records.end());
}

}  // namespace

bool takeRecord(std::string_view& area, BootRecord& record) {
    const std::size_t keyEnd = area.find('\0');
    if (keyEnd == std::string_view::npos) {
        return false;
    }
    const std::size_t valueEnd = area.find('\0', keyEnd + 1);
    if (valueEnd == std::string_view::npos || valueEnd + 1 == area.size() ||
        area[valueEnd + 1] != '\0') {
        return false;
    }
    record = {area.substr(0, keyEnd), area.substr(keyEnd + 1, valueEnd - keyEnd - 1)};
    area.remove_prefix(valueEnd + 2);
    return true;
}

void BootVariables::assign(std::vector<char> image, std::size_t size) {
    constexpr std::size_t usualRecord = 32;  // bytes, for a first guess of how many there are
    std::vector<std::size_t> starts;
    starts.reserve(size / usualRecord + 1);
    std::string_view area(image.data() + mHeader, size);
    std::string_view previous;
    BootRecord record;
    bool ordered = true;
    bool hasEmpty = false;
    const auto position = [&] { return static_cast<std::size_t>(area.data() - image.data()); };
    for (std::size_t start = position(); takeRecord(area, record); start = position()) {
        ordered = ordered && (starts.empty() || previous < record.mKey);
        hasEmpty = hasEmpty || record.mValue.empty();
        previous = record.mKey;
        starts.push_back(start);
    }
    image.resize(position());  // without what is malformed
    mImage.swap(image);
    mStarts.swap(starts);
    mHasEmpty = hasEmpty;
    if (!ordered) {
        std::vector<BootRecord> records = all();
        sortByKey(records);
        rebuild(records);
    }
}

void BootVariables::set(std::string_view key, std::string_view value) {
    removeEmpty();
    if (mImage.empty()) {
        mImage.resize(mHeader);
    }
    const std::size_t place = placeOf(key);
    const bool found = place < count() && keyAt(place) == key;
    const std::size_t freed = found ? endOf(place) - mStarts[place] : 0;
    const std::size_t room = mRoom + mHeader + freed - mImage.size();
    if (value.empty()) {
        if (found) {
            resizeRecord(place, true, 0);
        }
        return;
    }
    if (key.size() > room || value.size() > room ||
        key.size() + value.size() + kTerminators > room) {
        mFits = false;
        return;
    }
    resizeRecord(place, found, key.size() + value.size() + kTerminators);
    char* next = mImage.data() + mStarts[place];
    next = std::copy(key.begin(), key.end(), next);
    *next++ = '\0';
    next = std::copy(value.begin(), value.end(), next);
    *next++ = '\0';
    *next = '\0';
}

void BootVariables::setAll(const KestrovaVector<std::string>& names,
                           const KestrovaVector<std::string>& values) {
    removeEmpty();
    for (const std::string& name : names) {
        set(name, "");
    }
    std::map<std::string_view, std::string_view> last;
    for (std::size_t i = 0; i < names.size(); ++i) {
        last[names[i]] = values[i];
    }
    for (const auto& [name, value] : last) {
        set(name, value);
    }
}

BootRecord BootVariables::at(std::size_t place) const {
    const std::string_view key = keyAt(place);
    const std::size_t value = mStarts[place] + key.size() + 1;
    return {key, {mImage.data() + value, endOf(place) - value - 2}};
}

bool BootVariables::find(std::string_view key, BootRecord& record) const {
    const std::size_t place = placeOf(key);
    if (place == count() || keyAt(place) != key) {
        return false;
    }
    record = at(place);
    return true;
}

void BootVariables::appendTo(KestrovaVector<std::string>& names,
                             KestrovaVector<std::string>& values) const {
    // Everything that can fail comes first, so that both vectors always grow together.
    std::vector<std::pair<std::string, std::string>> found(count());
    for (std::size_t place = 0; place < count(); ++place) {
        const auto [name, value] = at(place);
        found[place].first = name;
        found[place].second = value;
    }
    names.reserve(names.size() + found.size());
    values.reserve(values.size() + found.size());
    for (auto& [name, value] : found) {
        names.push_back(std::move(name));
        values.push_back(std::move(value));
    }
}

std::size_t BootVariables::endOf(std::size_t place) const {
    return place + 1 < count() ? mStarts[place + 1] : mImage.size();
}

/// The place of the first variable whose key is not less.
std::size_t BootVariables::placeOf(std::string_view key) const {
    const auto isLess = [this](std::size_t start, std::string_view wanted) {
        return std::string_view(mImage.data() + start) < wanted;
    };
    return static_cast<std::size_t>(std::lower_bound(mStarts.begin(), mStarts.end(), key, isLess) -
                                    mStarts.begin());
}

std::vector<BootRecord> BootVariables::all() const {
    std::vector<BootRecord> records;
    records.reserve(count());
    for (std::size_t place = 0; place < count(); ++place) {
        records.push_back(at(place));
    }
    return records;
}

/// Makes an area of these records, which may point into the present one.
void BootVariables::rebuild(const std::vector<BootRecord>& records) {
    std::vector<char> image(mHeader);
    image.reserve(mImage.size());
    std::vector<std::size_t> starts;
    starts.reserve(records.size());
    for (const auto& [key, value] : records) {
        starts.push_back(image.size());
        // In the area a NUL follows the key, and two the value.
        image.insert(image.end(), key.begin(), key.end() + 1);
        image.insert(image.end(), value.begin(), value.end() + 2);
    }
    mImage.swap(image);
    mStarts.swap(starts);
}

void BootVariables::removeEmpty() {
    if (mHasEmpty) {
        std::vector<BootRecord> records = all();
        records.erase(std::remove_if(records.begin(), records.end(), isEmpty), records.end());
        rebuild(records);
        mHasEmpty = false;
    }
}

/// Gives the record at a place another size, 0 to remove it; it is inserted when it is not there.
void BootVariables::resizeRecord(std::size_t place, bool found, std::size_t size) {
    const std::size_t start = place < count() ? mStarts[place] : mImage.size();
    const std::size_t before = found ? endOf(place) - start : 0;
    const auto at = mImage.begin() + static_cast<std::ptrdiff_t>(start);
    mStarts.reserve(count() + 1);  // the last that can fail but for the image itself
    if (size > before) {
        mImage.insert(at, size - before, '\0');
    } else {
        mImage.erase(at, at + static_cast<std::ptrdiff_t>(before - size));
    }
    const auto entry = mStarts.begin() + static_cast<std::ptrdiff_t>(place);
    for (auto later = found ? entry + 1 : entry; later != mStarts.end(); ++later) {
        *later = *later + size - before;
    }
    if (!found) {
        mStarts.insert(entry, start);
    } else if (size == 0) {
        mStarts.erase(entry);
    }
}
