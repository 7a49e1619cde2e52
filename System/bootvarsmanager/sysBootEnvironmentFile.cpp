// SPDX-License-Identifier: MIT
#include "System/bootvarsmanager/sysBootEnvironmentFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "System/bootvarsmanager/binaryvalue.h"
#include "System/bootvarsmanager/bootvariables.h"
#include "System/bootvarsmanager/environmentfiles.h"
#include "System/bootvarsmanager/environmenttext.h"
#include "base/cancelguard.h"
#include "base/errnokeeper.h"
#include "base/io/descriptor.h"
#include "base/io/filelock.h"
#include "base/monotonictime.h"

namespace {

constexpr unsigned kLongestWait = 5000;  // milliseconds

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool isMissing(const EnvironmentFinding& finding) {
    return finding.mDefect == EnvironmentDefect::eUnreadable && finding.mError == ENOENT;
}

std::string describe(const EnvironmentFinding& finding, unsigned size) {
    switch (finding.mDefect) {
        case EnvironmentDefect::eNone:
            return "";
        case EnvironmentDefect::eUnreadable:
            return std::strerror(finding.mError);
        case EnvironmentDefect::eTooShort:
            return "shorter than its header of 12 bytes";
        case EnvironmentDefect::eBadFlags:
            return "bad flags";
        case EnvironmentDefect::eBadSize:
            return "the variables do not end within the file";
        case EnvironmentDefect::eTooLarge:
            return "larger than " + std::to_string(size) + " bytes";
        case EnvironmentDefect::eBadChecksum:
            return "bad checksum";
    }
    return "";
}

/// Paths and names as they stand in a line: a line end would break it.
std::string inOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', '?');
    return text;
}

}  // namespace

struct sysBootEnvironmentFile::Work {
    EnvironmentFiles mFiles;
    unsigned mSize;
    State mState = eStMissing;
    int mError = 0;
    std::string mReason;

    Work(const std::string& path, unsigned size)
        : mFiles{directoryOf(path), path, path + ".bkp", path + ".tmp"}, mSize(size) {}

    bool fail(int error, const std::string& reason) {
        mError = error;
        mReason = inOneLine(reason);
        errno = error;
        return false;
    }
    bool failOn(const std::string& path) {
        const int error = errno;
        return fail(error, path + ": " + std::strerror(error));
    }

    bool begin();
    bool checkType(const std::string& path);
    bool isFree(const std::string& path);
    bool lock(base::Descriptor& directory);
    BootVariables noVariables() const { return {kBootEnvHeaderSize, mSize - kBootEnvHeaderSize}; }
    bool load(BootVariables& vars);
    bool judge(const EnvironmentReading& reading);
    bool save(BootVariables& vars, bool loadedFromPrimary);
    bool removeBackup();
    bool change(const KestrovaVector<std::string>& names,
                const KestrovaVector<std::string>& values);
};

/// Prepares an operation. Anything but a regular file is refused before it is opened: opening a
/// fifo would block.
bool sysBootEnvironmentFile::Work::begin() {
    mError = 0;
    mReason.clear();
    if (mSize < kBootEnvHeaderSize || mSize > kBootEnvFileSize) {
        return fail(EINVAL, "the size is " + std::to_string(mSize) +
                                " bytes, and must be from 12 to 65536");
    }
    if (mFiles.mPrimary.empty() || mFiles.mPrimary.back() == '/') {
        return fail(EINVAL, "\"" + mFiles.mPrimary + "\" does not name a file");
    }
    return checkType(mFiles.mPrimary) && checkType(mFiles.mBackup) && checkType(mFiles.mTemporary);
}

bool sysBootEnvironmentFile::Work::checkType(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        return true;  // opening it fails, too, and says why
    }
    if (S_ISDIR(status.st_mode)) {
        return fail(EISDIR, path + ": is a directory");
    }
    return S_ISREG(status.st_mode) || fail(EINVAL, path + ": is not a regular file");
}

/// Expects that nothing has this name.
bool sysBootEnvironmentFile::Work::isFree(const std::string& path) {
    struct stat status = {};
    const int error = ::lstat(path.c_str(), &status) == 0 ? EEXIST : errno;
    return error == ENOENT || fail(error, path + ": " + std::strerror(error));
}

/// Keeps other changes in the directory away until the descriptor is closed. The file itself cannot
/// serve for that, because a change replaces it.
bool sysBootEnvironmentFile::Work::lock(base::Descriptor& directory) {
    directory = base::openDescriptor(mFiles.mDirectory.c_str(), O_RDONLY | O_DIRECTORY);
    if (!directory.valid()) {
        return failOn(mFiles.mDirectory);
    }
    const bool locked = base::retryUntil(
        kLongestWait, [&] { return base::tryFlock(directory, false); },
        [] { return errno != EWOULDBLOCK; });
    if (!locked && errno == EWOULDBLOCK) {
        return fail(EWOULDBLOCK, mFiles.mDirectory + ": locked by another process");
    }
    return locked || failOn(mFiles.mDirectory);
}

bool sysBootEnvironmentFile::Work::load(BootVariables& vars) {
    return judge(loadEnvironmentFiles(mFiles, mSize, vars));
}

bool sysBootEnvironmentFile::Work::judge(const EnvironmentReading& reading) {
    const EnvironmentFinding& primary = reading.mPrimary;
    const EnvironmentFinding& backup = reading.mBackup;
    const std::string reason = mFiles.mPrimary + ": " + describe(primary, mSize);
    if (reading.fromPrimary()) {
        mState = eStGood;
        return true;
    }
    if (reading.loaded()) {
        mState = eStBackup;
        mReason = inOneLine(reason);
        return true;
    }
    if (isMissing(primary) && isMissing(backup)) {
        mState = eStMissing;
        return fail(ENOENT, reason);
    }
    const std::string both =
        reason + (isMissing(backup) ? "; there is no backup"
                                    : "; " + mFiles.mBackup + ": " + describe(backup, mSize));
    for (const EnvironmentFinding* const finding : {&primary, &backup}) {
        if (finding->mDefect == EnvironmentDefect::eUnreadable && !isMissing(*finding)) {
            mState = eStUnreadable;
            return fail(finding->mError, both);
        }
    }
    mState = eStDamaged;
    return fail(EBADMSG, both);
}

bool sysBootEnvironmentFile::Work::save(BootVariables& vars, bool loadedFromPrimary) {
    if (!vars.fits()) {
        return fail(EFBIG, mFiles.mPrimary + ": the variables need more than " +
                               std::to_string(mSize) + " bytes");
    }
    completeImage(vars.image());
    const InstallStep failed = installEnvironment(mFiles, vars.image(), loadedFromPrimary);
    if (failed == InstallStep::eNone) {
        mState = eStGood;
        mReason.clear();
        return true;
    }
    (void)failOn(failed == InstallStep::eWriting           ? mFiles.mTemporary
                 : failed == InstallStep::eMakingPermanent ? mFiles.mDirectory
                                                           : mFiles.mPrimary);
    const base::ErrnoKeeper keeper;
    (void)::unlink(mFiles.mTemporary.c_str());
    return false;
}

/// A backup must not outlive the environment that it belongs to.
bool sysBootEnvironmentFile::Work::removeBackup() {
    if (::unlink(mFiles.mBackup.c_str()) != 0) {
        return errno == ENOENT || failOn(mFiles.mBackup);
    }
    return syncDirectory(mFiles.mDirectory) || failOn(mFiles.mDirectory);
}

bool sysBootEnvironmentFile::Work::change(const KestrovaVector<std::string>& names,
                                          const KestrovaVector<std::string>& values) {
    if (!begin()) {
        return false;
    }
    const std::string problem = settingsProblem(names, values);
    if (!problem.empty()) {
        return fail(EINVAL, problem);
    }
    base::Descriptor directory;
    if (!lock(directory)) {
        return false;
    }
    const base::CancelGuard guard;
    BootVariables vars = noVariables();
    if (!load(vars)) {
        return false;
    }
    const bool loadedFromPrimary = mState == eStGood;
    vars.setAll(names, values);
    return save(vars, loadedFromPrimary);
}

sysBootEnvironmentFile::sysBootEnvironmentFile(const char* path, unsigned size)
    : mpWork(new Work(path != nullptr ? path : "", size)) {}

sysBootEnvironmentFile::~sysBootEnvironmentFile() {
    delete mpWork;
}

bool sysBootEnvironmentFile::create(bool replace) {
    Work& work = *mpWork;
    base::Descriptor directory;
    if (!work.begin() || !work.lock(directory)) {
        return false;
    }
    const base::CancelGuard guard;
    if (!replace && !(work.isFree(work.mFiles.mPrimary) && work.isFree(work.mFiles.mBackup))) {
        return false;
    }
    BootVariables none = work.noVariables();
    return work.save(none, false) && work.removeBackup();
}

sysBootEnvironmentFile::State sysBootEnvironmentFile::verify() {
    const base::CancelGuard guard;
    if (!mpWork->begin()) {
        mpWork->mState = eStUnreadable;
    } else {
        BootVariables vars = mpWork->noVariables();
        (void)mpWork->load(vars);
    }
    return mpWork->mState;
}

bool sysBootEnvironmentFile::getVarList(KestrovaVector<std::string>& names,
                                        KestrovaVector<std::string>& values) {
    const base::CancelGuard guard;
    if (!mpWork->begin()) {
        return false;
    }
    BootVariables vars = mpWork->noVariables();
    if (!mpWork->load(vars)) {
        return false;
    }
    vars.appendTo(names, values);
    return true;
}

bool sysBootEnvironmentFile::getVarS(const char* name, std::string& value) {
    const base::CancelGuard guard;
    if (!mpWork->begin()) {
        return false;
    }
    if (name == nullptr) {
        return mpWork->fail(EINVAL, "there is no name");
    }
    BootVariables vars = mpWork->noVariables();
    if (!mpWork->load(vars)) {
        return false;
    }
    BootRecord found;
    if (!vars.find(name, found)) {
        return mpWork->fail(ENODATA, "there is no variable \"" + std::string(name) + "\"");
    }
    value = found.mValue;
    return true;
}

bool sysBootEnvironmentFile::getVarB(const char* name, KestrovaVector<unsigned char>& data) {
    std::string text;
    if (!getVarS(name, text)) {
        return false;
    }
    return decodeBinaryValue(text, data) ||
           mpWork->fail(EILSEQ, "variable \"" + std::string(name) + "\": no base64 text");
}

bool sysBootEnvironmentFile::setVarS(const char* name, const char* value) {
    if (name == nullptr) {
        return mpWork->fail(EINVAL, "there is no name");
    }
    return mpWork->change({name}, {value != nullptr ? value : ""});
}

bool sysBootEnvironmentFile::setVarB(const char* name, const unsigned char* data, unsigned length) {
    if (name == nullptr) {
        return mpWork->fail(EINVAL, "there is no name");
    }
    std::string text;
    if (length > kBootEnvFileSize || !encodeBinaryValue(data, length, text)) {
        return mpWork->fail(EFBIG, std::to_string(length) + " bytes are more than a file holds");
    }
    return mpWork->change({name}, {text});
}

bool sysBootEnvironmentFile::setVars(const KestrovaVector<std::string>& names,
                                     const KestrovaVector<std::string>& values) {
    return mpWork->change(names, values);
}

bool sysBootEnvironmentFile::clearVar(const char* name) {
    return setVarS(name, nullptr);
}

bool sysBootEnvironmentFile::importText(const std::string& text) {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    std::string problem;
    if (!parseSettings(text, names, values, problem)) {
        return mpWork->fail(EINVAL, problem);
    }
    return mpWork->change(names, values);
}

bool sysBootEnvironmentFile::exportText(std::string& text) {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    std::string problem;
    return getVarList(names, values) &&
           (formatSettings(names, values, text, problem) || mpWork->fail(EILSEQ, problem));
}

bool sysBootEnvironmentFile::parseText(const std::string& text, KestrovaVector<std::string>& names,
                                       KestrovaVector<std::string>& values, std::string& reason) {
    return parseSettings(text, names, values, reason);
}

bool sysBootEnvironmentFile::formatText(const KestrovaVector<std::string>& names,
                                        const KestrovaVector<std::string>& values,
                                        std::string& text, std::string& reason) {
    return formatSettings(names, values, text, reason);
}

sysBootEnvironmentFile::State sysBootEnvironmentFile::state() const {
    return mpWork->mState;
}

int sysBootEnvironmentFile::error() const {
    return mpWork->mError;
}

std::string sysBootEnvironmentFile::reason() const {
    return mpWork->mReason;
}
