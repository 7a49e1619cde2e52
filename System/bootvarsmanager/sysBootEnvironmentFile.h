// SPDX-License-Identifier: MIT
/// @file
/// The boot variables of a box in a plain file, for the build of the box's image.
#ifndef KESTROVA_SYSTEM_BOOTVARSMANAGER_SYSBOOTENVIRONMENTFILE_H
#define KESTROVA_SYSTEM_BOOTVARSMANAGER_SYSBOOTENVIRONMENTFILE_H

#include <string>

#include "base/export.h"
#include "base/vector.h"

/// A boot environment file at any path, on a build host or on a box.
///
/// The format, its checks and the safe replacement are those of sysBootVarsManager. The file has
/// the same bytes on every host, whatever its word size and byte order. Nothing is mounted, no
/// system object is needed, and sysResourceLock is not involved. docs/boot-environment.md describes
/// the format.
///
/// Beside the file PATH lie PATH.bkp, the variables before the last change, and PATH.tmp, a new
/// file while it is written. When PATH is missing or damaged, the variables come from PATH.bkp; see
/// state(). A new file has mode 0777 less the umask. A symbolic link PATH is replaced by a file.
/// Only trusted users may write to the directory. PATH.tmp is removed after a failed change.
///
/// Unlike sysBootVarsManager, a change fails when there is no valid environment: create() makes
/// one.
///
/// Nothing is cached: every operation reads the file again. A change loads, changes and saves the
/// variables while it holds a flock(2) on the directory, so that two changes in one directory,
/// also of different files, take turns. A change waits for up to 5 seconds for another one and
/// then fails with EWOULDBLOCK. Reading takes no lock: beside a change it returns the variables
/// before or after that, whole, and those before it may come from the backup.
///
/// Threads: one object is used by one thread at a time; several objects, also of one file, at once.
/// Every operation blocks until its files are read, or are on the disk. An operation can be
/// cancelled (pthread_cancel()) only while it waits for another change, and has then changed
/// nothing. What is done with the files is logged at level 1, without names and values of
/// variables. Only allocation failure is thrown; the variables and the arguments are then as they
/// were.
///
/// @code
/// bool makeEnvironment(const char* path, const std::string& settings) {
///     sysBootEnvironmentFile file(path);
///     if (!file.create(true) || !file.importText(settings)) {
///         std::fprintf(stderr, "%s\n", file.reason().c_str());
///         return false;
///     }
///     return true;
/// }
/// @endcode
class KESTROVA_EXPORT sysBootEnvironmentFile {
public:
    /// What the files hold.
    enum State {
        eStGood = 0,        ///< the file is valid
        eStBackup = 1,      ///< the file is missing or damaged, and its backup is valid
        eStDamaged = 2,     ///< neither is valid, and at least one exists
        eStMissing = 3,     ///< neither exists
        eStUnreadable = 4,  ///< neither can be used, and at least one cannot be read
    };

    /// Touches no file.
    /// @param path where the file is, or is to be; must not end with '/'. A null or empty path
    /// makes every operation fail with EINVAL
    /// @param size bytes of the largest file: a change that needs more fails with EFBIG, and a
    /// larger file counts as damaged. From 12, the size of a file without variables, to 65536, the
    /// largest that the box reads; any other value makes every operation fail with EINVAL. It is
    /// not stored, and no file is padded to it
    explicit sysBootEnvironmentFile(const char* path, unsigned size = 65536);
    /// Frees memory only.
    ~sysBootEnvironmentFile();
    sysBootEnvironmentFile(const sysBootEnvironmentFile&) = delete;
    sysBootEnvironmentFile& operator=(const sysBootEnvironmentFile&) = delete;

    /// Makes an environment without variables. An existing backup is removed.
    /// @param replace false: fails with EEXIST when the file or its backup exists, valid or not;
    /// true: replaces them
    /// @return true when it is on the disk. After a failure the earlier file or the empty one is
    /// there, whole
    bool create(bool replace = false);

    /// Reads the file, and its backup when the file is not valid.
    /// @return what they hold; reason() says what is wrong, for eStBackup too. eStUnreadable also
    /// when path or size is not usable
    State verify();

    /// Appends every variable in the order of the names, name and value at the same index.
    /// @param names appended to, not cleared first
    /// @param values appended to, not cleared first
    /// @return false, with both unchanged, when there is no valid environment
    bool getVarList(KestrovaVector<std::string>& names, KestrovaVector<std::string>& values);

    /// Reads a variable's text.
    /// @param name exact name; a null name fails with EINVAL
    /// @param[out] value its text; unchanged on failure
    /// @return false when there is no such variable (ENODATA) or no valid environment
    bool getVarS(const char* name, std::string& value);

    /// Decodes a binary variable (base64, RFC 4648).
    /// @param name exact name; a null name fails with EINVAL
    /// @param[out] data its bytes; unchanged on failure
    /// @return false when there is no such variable (ENODATA), when it is not base64 (EILSEQ), or
    /// without a valid environment
    bool getVarB(const char* name, KestrovaVector<unsigned char>& data);

    /// Sets a variable and saves all of them; see setVars().
    /// @param name exact name; a null name fails with EINVAL
    /// @param value its text; empty or null removes the variable
    /// @return true when it is on the disk
    bool setVarS(const char* name, const char* value);

    /// Sets a variable to bytes, stored as base64 text (RFC 4648); see setVars().
    /// @param name exact name; a null name fails with EINVAL
    /// @param data the bytes
    /// @param length how many; 0 removes the variable
    /// @return true when it is on the disk
    bool setVarB(const char* name, const unsigned char* data, unsigned length);

    /// Sets several variables in one rewrite of the file: all or none. After a failure or a power
    /// cut the variables are the old or the new ones, whole. Without any name the file is rewritten
    /// all the same. They need 12 bytes, and for each variable the bytes of its name, of its value
    /// and 3 more; more than the size of the constructor fails with EFBIG.
    /// @param names exact names; of two that are equal the later one counts. A variable that gets a
    /// value needs a name that is not empty and holds neither '=' nor a line end; a NUL in a name
    /// or value is refused as well (EINVAL)
    /// @param values their texts, as many (else EINVAL); an empty one removes its variable
    /// @return true when all are on the disk
    bool setVars(const KestrovaVector<std::string>& names,
                 const KestrovaVector<std::string>& values);

    /// Removes a variable; see setVars().
    /// @param name exact name; a null name fails with EINVAL
    /// @return true when it is not on the disk, also when there was none
    bool clearVar(const char* name);

    /// Sets the variables of a text as parseText() reads it, in one rewrite; see setVars().
    /// @param text the text; one that is malformed changes nothing (EINVAL), and reason() says
    /// which line
    /// @return true when all are on the disk
    bool importText(const std::string& text);

    /// Makes a text that importText() takes, a line for each variable in the order of the names.
    /// @param[out] text the lines; unchanged on failure
    /// @return false when there is no valid environment, and when the text cannot hold a variable
    /// (EILSEQ, reason() names it): one whose name is empty, holds '=' or a line end or starts with
    /// '#', or whose value ends with a backslash
    bool exportText(std::string& text);

    /// Reads a text of settings. Each line is NAME=VALUE; the value starts after the first '=' and
    /// extends to the line end, blanks and quotation marks included. An empty value removes the
    /// variable. A backslash at the end of a line stands for a line end (LF) in the value, which
    /// goes on with the next line. Empty lines and lines that start with '#' are ignored. Any
    /// thread may call it; it touches no file.
    /// @param text the text; its last line needs no end
    /// @param names appended to, not cleared first; unchanged on failure
    /// @param values appended to, name and value at the same index; unchanged on failure
    /// @param[out] reason the number of the line and what is wrong with it; unchanged on success
    /// @return false when a line is malformed: no '=', an empty name, a NUL byte, or nothing after
    /// a backslash
    static bool parseText(const std::string& text, KestrovaVector<std::string>& names,
                          KestrovaVector<std::string>& values, std::string& reason);

    /// Makes a text that parseText() reads, a line for each variable. Any thread may call it; it
    /// touches no file.
    /// @param names the variables' names
    /// @param values their values, as many
    /// @param[out] text the lines; unchanged on failure
    /// @param[out] reason which variable the text cannot hold, and why; unchanged on success
    /// @return false when the text cannot hold a variable, see exportText(), or when there are not
    /// as many values as names
    static bool formatText(const KestrovaVector<std::string>& names,
                           const KestrovaVector<std::string>& values, std::string& text,
                           std::string& reason);

    /// @return what the last operation that read the file found; eStGood after a change that
    /// succeeded; eStMissing before the first one
    State state() const;

    /// @return the errno of the last operation if it failed, otherwise 0: EINVAL, EFBIG, EEXIST,
    /// ENODATA, EILSEQ and EWOULDBLOCK as described above, EBADMSG without a valid file (damaged),
    /// ENOENT without any file, or that of the system call that failed
    int error() const;

    /// @return one line for people about that failure, or about the file that was damaged when the
    /// backup was used, such as "out/boot_env: bad checksum"; otherwise empty. It can hold any
    /// bytes but line ends
    std::string reason() const;

private:
    struct KESTROVA_LOCAL Work;

    Work* mpWork;  // owned
};

#endif
