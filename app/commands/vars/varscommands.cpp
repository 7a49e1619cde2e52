// SPDX-License-Identifier: MIT
//
// The commands of the boot variables.
#include <unistd.h>

#include "System/bootvarsmanager/sysBootEnvironmentFile.h"
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/vars/bootimage.h"
#include "app/commands/vars/variablestore.h"
#include "app/session.h"
#include "app/ui/colour.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

// No variable is longer than the file that contains all of them.
constexpr unsigned kLongestValue = kLargestBootImage;

/// Longest text of 'vars import', comments included.
constexpr std::size_t kLongestText = 1 << 20;

Json namesData(const Words& names) {
    Json data = Json::array();
    for (const std::string& name : names) {
        data.append(name);
    }
    return data;
}

Result withName(Result result, const std::string& name) {
    if (result.good()) {
        result.mData.add("name", name);
    }
    return result;
}

/// Reads a FILE argument.
Result readArgument(Session& session, const std::string& file, std::size_t limit,
                    std::string& content) {
    Result result = readContent(file, limit, &session.interrupts(), content);
    if (!result.good() && result.mStatus != eCancelled) {
        result.mError = quoted(file) + ": " + result.mError;
    }
    return result;
}

Json remarksData(const std::vector<BootImageRemark>& remarks) {
    Json data = Json::array();
    for (const BootImageRemark& remark : remarks) {
        data.append(Json().add("offset", remark.mOffset).add("text", remark.mText));
    }
    return data;
}

std::string remarksText(const char* kind, const std::vector<BootImageRemark>& remarks) {
    std::string text;
    for (const BootImageRemark& remark : remarks) {
        text += std::string("  ") + kind + " at offset " + std::to_string(remark.mOffset) + ": " +
                remark.mText + "\n";
    }
    return text;
}

/// Fails if 'vars list' and the boot stage could not separate a new variable's name from its value.
Result checkNewName(const Words& arguments) {
    const std::string& name = arguments[0];
    if (name.empty()) {
        return Result::misused("NAME is empty");
    }
    return name.find('=') == std::string::npos
               ? Result()
               : Result::misused("NAME " + quoted(name) +
                                 " holds '='; name and value are two arguments");
}

Result checkSettings(const Words& arguments) {
    Result result;
    for (std::size_t i = 0; result.good() && i < arguments.size(); i += 2) {
        result = checkNewName({arguments[i]});
        if (result.good() && i + 1 == arguments.size()) {
            result = Result::misused("NAME " + quoted(arguments[i]) + " has no VALUE");
        }
    }
    return result;
}

Result runVarsList(Session& /*session*/, const Invocation& invocation) {
    Words names;
    Words values;
    Result result = openStore(invocation.mOptions)->list(names, values);
    if (!result.good()) {
        return result;
    }
    Json variables = Json::array();
    for (std::size_t i = 0; i < names.size(); ++i) {
        result.mText += printable(names[i]) + "=" + printable(values[i]) + "\n";
        variables.append(Json().add("name", names[i]).add("value", values[i]));
    }
    result.mData.add("variables", variables);
    return result;
}

Result runVarsGet(Session& /*session*/, const Invocation& invocation) {
    const std::string& name = invocation.mArguments[0];
    std::string value;
    Result result = openStore(invocation.mOptions)->get(name, value);
    if (result.good()) {
        result.mText = value + "\n";
        result.mData.add("name", name).add("value", value);
    }
    return result;
}

Result runVarsGetBinary(Session& /*session*/, const Invocation& invocation) {
    const std::string& name = invocation.mArguments[0];
    const std::unique_ptr<VariableStore> store = openStore(invocation.mOptions);
    std::string text;
    std::string bytes;
    Result result = store->get(name, text);
    if (result.good()) {
        result = store->getBinary(name, bytes);
    }
    if (result.good()) {
        result.mText = bytes;
        result.mData.add("name", name).add("length", bytes.size()).add("base64", text);
    }
    return result;
}

Result runVarsSet(Session& /*session*/, const Invocation& invocation) {
    const Words& arguments = invocation.mArguments;
    Words names;
    Words values;
    for (std::size_t i = 0; i < arguments.size(); i += 2) {
        names.push_back(arguments[i]);
        values.push_back(arguments[i + 1]);
    }
    Result result = withName(openStore(invocation.mOptions)->set(names, values), names[0]);
    if (result.good() && names.size() > 1) {
        result.mData.add("names", namesData(names));
    }
    return result;
}

Result runVarsSetBinary(Session& session, const Invocation& invocation) {
    const std::string& name = invocation.mArguments[0];
    const std::string& file = invocation.mArguments[1];
    std::string bytes;
    if (Result read = readArgument(session, file, kLongestValue, bytes); !read.good()) {
        read.mStatus = read.mStatus == eAbsent ? eFailed : read.mStatus;
        return read;
    }
    if (bytes.empty()) {
        return Result::failed(quoted(file) + " is empty; 'vars clear' removes a variable");
    }
    return withName(openStore(invocation.mOptions)->setBinary(name, bytes), name);
}

Result runVarsClear(Session& /*session*/, const Invocation& invocation) {
    const std::string& name = invocation.mArguments[0];
    return withName(openStore(invocation.mOptions)->set({name}, {""}), name);
}

/// Reads the FILE argument of 'vars import'. '-' means standard input; it fails if a shell reads
/// its commands from there.
Result readText(Session& session, const std::string& file, std::string& text) {
    std::string path = file;
    if (file == "-") {
        const int input = session.inputForChildren();
        if (input == STDIN_FILENO) {
            return Result::misused("standard input holds the commands; give a FILE");
        }
        path = "/dev/fd/" + std::to_string(input);
    }
    Result result = readArgument(session, path, kLongestText + 1, text);
    if (result.good() && text.size() > kLongestText) {
        return Result::failed(quoted(file) + " is longer than " + std::to_string(kLongestText) +
                              " bytes");
    }
    result.mStatus = result.mStatus == eAbsent ? eFailed : result.mStatus;
    return result;
}

Result runVarsImport(Session& session, const Invocation& invocation) {
    const std::string& file = invocation.mArguments[0];
    std::string text;
    Result result = readText(session, file, text);
    if (!result.good()) {
        return result;
    }
    Words names;
    Words values;
    std::string reason;
    if (!sysBootEnvironmentFile::parseText(text, names, values, reason)) {
        return Result::failed(quoted(file) + ": " + printable(reason));
    }
    result = openStore(invocation.mOptions)->set(names, values);
    if (result.good()) {
        result.mData.add("names", namesData(names));
    }
    return result;
}

Result runVarsExport(Session& /*session*/, const Invocation& invocation) {
    Words names;
    Words values;
    Result result = openStore(invocation.mOptions)->list(names, values);
    std::string reason;
    if (result.good() && !sysBootEnvironmentFile::formatText(names, values, result.mText, reason)) {
        return Result::failed(printable(reason));
    }
    if (result.good()) {
        result.mData.add("text", result.mText);
    }
    return result;
}

Result runVarsCreate(Session& /*session*/, const Invocation& invocation) {
    Result result = createEnvironment(invocation.mOptions);
    if (result.good()) {
        result.mData.add("file", invocation.mOptions.mFile);
    }
    return result;
}

Result verifyFile(Session& session, const std::string& file) {
    std::string content;
    // One byte more than the limit, so that a file that is too long is detected.
    Result result = readArgument(session, file, kLargestBootImage + 1, content);
    if (!result.good()) {
        return result;
    }
    const BootImage image = checkBootImage(content);
    if (!image.mProblems.empty()) {
        result = Result::failed(quoted(file) + " is not a good boot environment");
    }
    const std::size_t variables = image.mVariables;
    result.mText = printable(file) + ": " +
                   (image.mProblems.empty() ? coloured("good", eGreen) : coloured("bad", eRed)) +
                   ", " + std::to_string(variables) +
                   (variables == 1 ? " variable\n" : " variables\n") +
                   remarksText("problem", image.mProblems) + remarksText("note", image.mNotes);
    result.mData.add("file", file).add("good", image.mProblems.empty());
    result.mData.add("count", variables);
    result.mData.add("problems", remarksData(image.mProblems));
    result.mData.add("notes", remarksData(image.mNotes));
    return result;
}

/// Adds the state that the library reads from the file of --file, and a check of its backup.
void addState(Session& session, const Options& options, Result& result) {
    std::string state;
    const Result library = environmentState(options, state);
    const Result backup = verifyFile(session, options.mFile + ".bkp");
    result.mText += backup.mText;
    result.mData.add("state", state);
    if (!backup.mText.empty()) {
        result.mData.add("backup", backup.mData);
    }
    if (!library.good()) {
        result.mStatus = library.mStatus;
        result.mError = library.mError;
    }
}

Result runVarsVerify(Session& session, const Invocation& invocation) {
    Result result = verifyFile(session, invocation.mArguments[0]);
    if (!invocation.mOptions.mFile.empty() && result.mStatus != eCancelled) {
        addState(session, invocation.mOptions, result);
    }
    return result;
}

}  // namespace

constexpr unsigned kOptions = eOptionWait | eOptionFile;

constexpr char kVarsListHelp[] = R"(Show the boot variables.

Prints NAME=VALUE, in the order of the names, control characters as \xNN.

Exit status:
  1  the environment can't be read
  3  there is no environment yet

Example:
  kestrova vars list
)";
const Command kVarsListCommand = {
    "vars list", "", kVarsListHelp, kOptions, eRunsBesideWork | eReadsVariables, runVarsList};

constexpr char kVarsGetHelp[] = R"(Print the value of a boot variable.

Prints the value as it is, and a line end.

Exit status:
  1  the environment can't be read
  3  there is no such variable, or no environment yet

Example:
  kestrova vars get language
)";
const Command kVarsGetCommand = {
    "vars get", "NAME", kVarsGetHelp, kOptions, eRunsBesideWork | eReadsVariables, runVarsGet};

constexpr char kVarsGetBinaryHelp[] = R"(Write the bytes of a binary boot variable.

Writes the bytes and nothing else to standard output.

Exit status:
  1  the environment can't be read, or the variable is not binary
  3  there is no such variable, or no environment yet

Example:
  kestrova vars get-binary key >FILE
)";
const Command kVarsGetBinaryCommand = {
    "vars get-binary", "NAME", kVarsGetBinaryHelp, kOptions, eRunsBesideWork | eReadsVariables,
    runVarsGetBinary};

constexpr char kVarsSetHelp[] = R"(Set boot variables.

Each NAME is followed by its VALUE. Several are set in one write, all or none.
When it is done they are on the disk. An empty VALUE removes the variable. A
VALUE that begins with '-' needs '--' in front. A NAME that is empty or holds
'=' is refused. Where the box has no environment that can be read, a new one
with these variables alone is written; a file must be valid.

Exit status:
  1  the environment could not be saved

Example:
  kestrova vars set language en
  kestrova vars set syslog 192.168.1.20 debug ''
  kestrova vars set -- offset -1
)";
const Command kVarsSetCommand = {
    "vars set", "NAME VALUE...", kVarsSetHelp, kOptions, eRunsBesideWork | eWritesVariables,
    runVarsSet, checkSettings};

constexpr char kVarsSetBinaryHelp[] = R"(Set a binary boot variable to a file's bytes.

The variable holds the bytes as base64 text. When it is done it is on the disk.
An empty FILE is refused, and a NAME that is empty or holds '='.

Exit status:
  1  FILE could not be read, or the environment not be saved

Example:
  kestrova vars set-binary key FILE
)";
const Command kVarsSetBinaryCommand = {"vars set-binary",
                                       "NAME FILE",
                                       kVarsSetBinaryHelp,
                                       kOptions,
                                       eRunsBesideWork | eWritesVariables,
                                       runVarsSetBinary,
                                       checkNewName};

constexpr char kVarsClearHelp[] = R"(Remove a boot variable.

A variable that is not there is no failure.

Exit status:
  1  the environment could not be saved

Example:
  kestrova vars clear language
)";
const Command kVarsClearCommand = {
    "vars clear", "NAME", kVarsClearHelp, kOptions, eRunsBesideWork | eWritesVariables,
    runVarsClear};

constexpr char kVarsImportHelp[] = R"(Set the boot variables of a text.

Each line of FILE is NAME=VALUE; '-' is standard input. All are set in one
write, or none. An empty value removes the variable. A '\' at the end of a line
stands for a line end in the value. Empty lines and lines that start with '#'
are ignored.

Exit status:
  1  FILE can't be read or has a bad line, or the environment was not saved

Example:
  kestrova vars import FILE
)";
const Command kVarsImportCommand = {
    "vars import", "FILE", kVarsImportHelp, kOptions, eRunsBesideWork | eWritesVariables,
    runVarsImport};

constexpr char kVarsExportHelp[] = R"(Print the boot variables as text.

Prints what 'vars import' reads. A variable that this cannot express is an
error: one whose name is empty, holds '=' or a line end or starts with '#', or
whose value ends with a '\'.

Exit status:
  1  the environment can't be read, or a variable does not fit the text
  3  there is no environment yet

Example:
  kestrova vars export >FILE
)";
const Command kVarsExportCommand = {
    "vars export", "", kVarsExportHelp, kOptions, eRunsBesideWork | eReadsVariables, runVarsExport};

constexpr char kVarsCreateHelp[] = R"(Make a boot environment file without variables.

For building an image; on the box 'vars set' makes the file. With --replace an
existing file is replaced, and its backup removed.

Exit status:
  1  ENVFILE or its backup exists, or it can't be written
  7  another process changes a file in the same directory

Example:
  kestrova vars create --file boot_env
)";
const Command kVarsCreateCommand = {
    "vars create", "", kVarsCreateHelp, eOptionFile | eOptionReplace, eRunsBesideWork | eNeedsFile,
    runVarsCreate};

constexpr char kVarsVerifyHelp[] = R"(Check a boot environment file.

Checks a copy of the file 'boot_env' and tells what is wrong, and at which byte.
Looks at this file alone, and not with the library's reader: it is a second
opinion. With --file, ENVFILE and its backup are checked, and with the library's
reader, too.

Exit status:
  1  there is a problem, or FILE can't be read
  3  there is no such file
  6  cancelled by Ctrl-C

Example:
  kestrova vars verify boot_env
)";
const Command kVarsVerifyCommand = {
    "vars verify", "FILE", kVarsVerifyHelp, eOptionFile, eRunsBesideWork | eFileIsArgument,
    runVarsVerify};

}  // namespace app
