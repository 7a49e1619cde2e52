// SPDX-License-Identifier: MIT
//
// Directories and files that another process has prepared, and file systems that cannot be written.
#include <grp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "System/sysResourceLock.h"
#include "tests/unit/System/lockbox.h"

namespace {

using tests::inLockBox;
using tests::kDriveLock;
using tests::kLockFolder;
using tests::writeFile;

using Lock = sysResourceLock;
constexpr auto kDrive = Lock::eResRecordingDrive;

void expectNoLock(int error, const std::string& why) {
    Lock lock(kDrive);
    EXPECT_FALSE(lock.lock(Lock::eMoExclusive, tests::kLockMinute));
    EXPECT_FALSE(lock.held());
    EXPECT_FALSE(lock.busy());
    EXPECT_EQ(error, lock.error()) << lock.reason();
    EXPECT_EQ("the drive can't be locked: " + why, lock.reason());
}

/// Expects that it can be neither locked nor queried.
void expectRefused(int error, const std::string& why) {
    expectNoLock(error, why);
    Lock::Holder holder;
    errno = 0;
    EXPECT_FALSE(Lock::holder(kDrive, holder));
    EXPECT_EQ(error, errno);
    EXPECT_FALSE(holder.mHeld);
    EXPECT_EQ(why, holder.mReason);
}

void makeLockFolder() {
    ASSERT_EQ(0, ::mkdir(kLockFolder, 0700));
}

TEST(SysResourceLock, ALinkInPlaceOfTheFolderIsNotFollowed) {
    inLockBox([] {
        ASSERT_EQ(0, ::mkdir("/run/elsewhere", 0700));
        ASSERT_EQ(0, ::symlink("/run/elsewhere", kLockFolder));
        expectRefused(ELOOP, "/run/lock/kestrova: is a symbolic link");
        EXPECT_EQ(0, ::rmdir("/run/elsewhere"));
    });
}

TEST(SysResourceLock, ALinkInPlaceOfTheFileIsNotFollowed) {
    inLockBox([] {
        makeLockFolder();
        writeFile("/run/precious", "precious");
        ASSERT_EQ(0, ::symlink("/run/precious", kDriveLock));
        expectRefused(ELOOP, "/run/lock/kestrova/drive.lock: is a symbolic link");
        EXPECT_EQ("precious", tests::readFile("/run/precious"));
        ASSERT_EQ(0, ::unlink("/run/precious"));
        expectRefused(ELOOP, "/run/lock/kestrova/drive.lock: is a symbolic link");
        EXPECT_NE(0, ::access("/run/precious", F_OK));
    });
}

TEST(SysResourceLock, NothingButAFileIsOpened) {
    inLockBox([] {
        const std::string why = "/run/lock/kestrova/drive.lock: is not a regular file";
        makeLockFolder();
        ASSERT_EQ(0, ::mkfifo(kDriveLock, 0600));
        expectRefused(EINVAL, why);
        ASSERT_EQ(0, ::unlink(kDriveLock));
        ASSERT_EQ(0, ::mkdir(kDriveLock, 0700));
        expectRefused(EINVAL, why);
        ASSERT_EQ(0, ::rmdir(kDriveLock));
        const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = {AF_UNIX, ""};
        std::strcpy(address.sun_path, kDriveLock);
        ASSERT_EQ(0, ::bind(server, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
        ASSERT_EQ(0, ::chmod(kDriveLock, 0600));
        expectRefused(EINVAL, why);
        (void)::close(server);
    });
}

TEST(SysResourceLock, AFileInPlaceOfTheFolderIsRefused) {
    inLockBox([] {
        writeFile(kLockFolder, "");
        expectRefused(ENOTDIR, "/run/lock/kestrova: is not a directory");
    });
}

TEST(SysResourceLock, WhatOthersOwnIsRefused) {
    inLockBox([] {
        makeLockFolder();
        if (::chown(kLockFolder, 65534, 65534) != 0) {
            GTEST_SKIP() << "this machine gives no second user";
        }
        expectRefused(EPERM, "/run/lock/kestrova: belongs to user 65534, not to root");
        ASSERT_EQ(0, ::chown(kLockFolder, 0, 0));
        writeFile(kDriveLock, "");
        ASSERT_EQ(0, ::chmod(kDriveLock, 0600));
        ASSERT_EQ(0, ::chown(kDriveLock, 65534, 65534));
        expectRefused(EPERM, "/run/lock/kestrova/drive.lock: belongs to user 65534, not to root");
        ASSERT_EQ(0, ::unlink(kDriveLock));
        ASSERT_EQ(0, ::chown("/run/lock", 65534, 65534));
        expectRefused(EPERM, "/run/lock: belongs to user 65534, not to root");
    });
}

TEST(SysResourceLock, WhatOthersMayChangeIsRefused) {
    inLockBox([] {
        makeLockFolder();
        ASSERT_EQ(0, ::chmod(kLockFolder, 0770));
        expectRefused(EPERM, "/run/lock/kestrova: its mode 0770 gives rights to other users");
        ASSERT_EQ(0, ::chmod(kLockFolder, 0700));
        writeFile(kDriveLock, "");
        ASSERT_EQ(0, ::chmod(kDriveLock, 0604));
        expectRefused(EPERM,
                      "/run/lock/kestrova/drive.lock: its mode 0604 gives rights to other users");
        ASSERT_EQ(0, ::chmod("/run/lock", 0777));
        expectRefused(EPERM, "/run/lock: its mode 0777 gives rights to other users");
        ASSERT_EQ(0, ::chmod(kDriveLock, 0600));
        ASSERT_EQ(0, ::chmod("/run/lock", 01777));
        Lock lock(kDrive);
        EXPECT_TRUE(lock.tryLock()) << lock.reason();
    });
}

TEST(SysResourceLock, AFileWithASecondNameIsRefused) {
    inLockBox([] {
        makeLockFolder();
        writeFile("/run/precious", "precious");
        ASSERT_EQ(0, ::chmod("/run/precious", 0600));
        ASSERT_EQ(0, ::link("/run/precious", kDriveLock));
        expectRefused(EMLINK, "/run/lock/kestrova/drive.lock: has another name, too (hard link)");
        EXPECT_EQ("precious", tests::readFile("/run/precious"));
    });
}

TEST(SysResourceLock, AFileOfAMebibyteIsRefused) {
    inLockBox([] {
        makeLockFolder();
        writeFile(kDriveLock, "kestrova-lock 1\n", 1048576);
        ASSERT_EQ(0, ::chmod(kDriveLock, 0600));
        expectRefused(EFBIG, "/run/lock/kestrova/drive.lock: is too large (1048576 bytes)");
    });
}

TEST(SysResourceLock, WhateverTheFileHoldsItIsOnlyText) {
    inLockBox([] {
        makeLockFolder();
        writeFile(kDriveLock, std::string(4096, 'x'));
        ASSERT_EQ(0, ::chmod(kDriveLock, 0600));
        Lock::Holder holder;
        EXPECT_TRUE(Lock::holder(kDrive, holder));
        EXPECT_FALSE(holder.mHeld);
        Lock lock(kDrive, "next");
        ASSERT_TRUE(lock.tryLock()) << lock.reason();
        EXPECT_TRUE(Lock::holder(kDrive, holder));
        EXPECT_EQ("next", holder.mCommand);
        // A process with root permissions writes to the file while it is held.
        writeFile(kDriveLock, std::string(600, '\xff'));
        EXPECT_TRUE(Lock::holder(kDrive, holder));
        EXPECT_TRUE(holder.mHeld);
        EXPECT_EQ(0, holder.mPid);
        EXPECT_EQ("", holder.mCommand);
        Lock other(kDrive);
        EXPECT_FALSE(other.tryLock());
        EXPECT_EQ("the drive is in use by another process", other.reason());
    });
}

TEST(SysResourceLock, AReadOnlyFileSystemIsTheReason) {
    inLockBox([] {
        ASSERT_EQ(0, ::mount(nullptr, "/run", nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
        expectNoLock(EROFS, "/run/lock/kestrova: Read-only file system");
        ASSERT_EQ(0, ::mount(nullptr, "/run", nullptr, MS_REMOUNT, nullptr));
        makeLockFolder();
        ASSERT_EQ(0, ::mount(nullptr, "/run", nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
        expectNoLock(EROFS, "/run/lock/kestrova/drive.lock: Read-only file system");
        ASSERT_EQ(0, ::mount(nullptr, "/run", nullptr, MS_REMOUNT, nullptr));
        Lock lock(kDrive);
        ASSERT_TRUE(lock.tryLock());
        lock.unlock();
        ASSERT_EQ(0, ::mount(nullptr, "/run", nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
        expectNoLock(EROFS, "/run/lock/kestrova/drive.lock: Read-only file system");
        Lock::Holder holder;
        EXPECT_TRUE(Lock::holder(kDrive, holder)) << holder.mReason;
        EXPECT_FALSE(holder.mHeld);
    });
}

TEST(SysResourceLock, AFullFileSystemIsTheReason) {
    inLockBox([] {
        ASSERT_EQ(0, ::mount("lock", "/run/lock", "tmpfs", 0, "mode=0755,size=64k"));
        const int filler = ::open("/run/lock/filler", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        while (::write(filler, "x", 1) == 1) {
        }
        EXPECT_EQ(ENOSPC, errno);
        (void)::close(filler);
        expectNoLock(ENOSPC, "/run/lock/kestrova/drive.lock: No space left on device");
        Lock::Holder holder;
        EXPECT_TRUE(Lock::holder(kDrive, holder)) << holder.mReason;
        EXPECT_FALSE(holder.mHeld);
        ASSERT_EQ(0, ::unlink("/run/lock/filler"));
        Lock lock(kDrive);
        EXPECT_TRUE(lock.tryLock()) << lock.reason();
    });
}

TEST(SysResourceLock, AFileSystemWithoutInodesIsTheReason) {
    inLockBox([] {
        ASSERT_EQ(0, ::mount("lock", "/run/lock", "tmpfs", 0, "mode=0755,nr_inodes=2"));
        makeLockFolder();
        expectNoLock(ENOSPC, "/run/lock/kestrova/drive.lock: No space left on device");
    });
}

TEST(SysResourceLock, TheFolderOfAllLocksIsMadeWhereItIsMissing) {
    inLockBox([] {
        ASSERT_EQ(0, ::rmdir("/run/lock"));
        Lock lock(kDrive);
        EXPECT_TRUE(lock.tryLock()) << lock.reason();
        lock.unlock();
        ASSERT_EQ(0, ::umount2("/run", MNT_DETACH));
        ASSERT_EQ(0, ::rmdir("/run"));
        expectNoLock(ENOENT, "/run/lock: No such file or directory");
    });
}

TEST(SysResourceLock, OnlyRootMakesTheFolder) {
    inLockBox([] {
        ASSERT_EQ(0, ::chmod("/run/lock", 01777));
        if (::setgroups(0, nullptr) != 0 || ::setresuid(65534, 65534, 65534) != 0) {
            GTEST_SKIP() << "this machine gives no second user";
        }
        expectNoLock(EACCES, "/run/lock/kestrova: Permission denied");
        EXPECT_NE(0, ::access(kLockFolder, F_OK));
    });
}

}  // namespace
