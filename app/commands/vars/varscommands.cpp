// SPDX-License-Identifier: MIT
//
// The commands of the boot variables.
#include <cstring>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "app/cli/command.h"
#include "app/commands/commands.h"
#include "app/commands/vars/bootimage.h"
#include "app/commands/vars/environmentcheck.h"
#include "app/session.h"
#include "app/ui/colour.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

// No variable is longer than the file that contains all of them.
constexpr unsigned kLongestValue = kLargestBootImage;

sysBootVarsManager& manager() {
    return *getSystem()->mpBootVarsManager;
}

/// Returns why the library found no variable with this name.
Result notFound(const std::string& name) {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    (void)manager().getVarList(names, values);
    Result result = names.empty() ? checkEnvironment() : Result();
    return result.good() ? Result::failed("there is no variable " + quoted(name) +
                                              "; 'vars list' shows them all",
                                          eAbsent)
                         : result;
}

bool readVariable(const std::string& name, std::string& value) {
    value.resize(kLongestValue);
    if (!manager().getVarS(name.c_str(), value.data(), static_cast<int>(value.size()))) {
        return false;
    }
    value.resize(std::strlen(value.c_str()));
    return true;
}

Result saved(bool done, const std::string& name) {
    if (!done) {
        return Result::failed("the boot environment could not be saved; -v tells more");
    }
    Result result;
    result.mData.add("name", name);
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

Result runVarsList(Session& /*session*/, const Invocation& /*invocation*/) {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    (void)manager().getVarList(names, values);
    Result result = names.empty() ? checkEnvironment() : Result();
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
    if (!readVariable(name, value)) {
        return notFound(name);
    }
    Result result;
    result.mText = value + "\n";
    result.mData.add("name", name).add("value", value);
    return result;
}

Result runVarsGetBinary(Session& /*session*/, const Invocation& invocation) {
    const std::string& name = invocation.mArguments[0];
    std::string text;
    if (!readVariable(name, text)) {
        return notFound(name);
    }
    std::string bytes(kLongestValue, '\0');
    unsigned length = 0;
    if (!manager().getVarB(name.c_str(), length, reinterpret_cast<unsigned char*>(bytes.data()),
                           kLongestValue)) {
        return Result::failed("the variable " + quoted(name) +
                              " is not binary: no base64 text; 'vars get' prints it");
    }
    Result result;
    result.mText = bytes.substr(0, length);
    result.mData.add("name", name).add("length", length).add("base64", text);
    return result;
}

Result runVarsSet(Session& /*session*/, const Invocation& invocation) {
    const Words& arguments = invocation.mArguments;
    return saved(manager().setVarS(arguments[0].c_str(), arguments[1].c_str()), arguments[0]);
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
    const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
    return saved(manager().setVarB(name.c_str(), data, static_cast<unsigned>(bytes.size())), name);
}

Result runVarsClear(Session& /*session*/, const Invocation& invocation) {
    const std::string& name = invocation.mArguments[0];
    return saved(manager().clearVar(name.c_str()), name);
}

Result runVarsVerify(Session& session, const Invocation& invocation) {
    const std::string& file = invocation.mArguments[0];
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

}  // namespace

constexpr char kVarsListHelp[] = R"(Show the boot variables.

Prints NAME=VALUE, in the order of the names, control characters as \xNN.

Exit status:
  1  the environment can't be read
  3  there is no environment yet

Example:
  kestrova vars list
)";
const Command kVarsListCommand = {
    "vars list", "", kVarsListHelp, eOptionWait, eRunsBesideWork | eReadsVariables, runVarsList};

constexpr char kVarsGetHelp[] = R"(Print the value of a boot variable.

Prints the value as it is, and a line end.

Exit status:
  1  the environment can't be read
  3  there is no such variable, or no environment yet

Example:
  kestrova vars get language
)";
const Command kVarsGetCommand = {
    "vars get", "NAME", kVarsGetHelp, eOptionWait, eRunsBesideWork | eReadsVariables, runVarsGet};

constexpr char kVarsGetBinaryHelp[] = R"(Write the bytes of a binary boot variable.

Writes the bytes and nothing else to standard output.

Exit status:
  1  the environment can't be read, or the variable is not binary
  3  there is no such variable, or no environment yet

Example:
  kestrova vars get-binary key >FILE
)";
const Command kVarsGetBinaryCommand = {
    "vars get-binary", "NAME", kVarsGetBinaryHelp, eOptionWait, eRunsBesideWork | eReadsVariables,
    runVarsGetBinary};

constexpr char kVarsSetHelp[] = R"(Set a boot variable.

When it is done the variable is on the disk. An empty VALUE removes the
variable. A VALUE that begins with '-' needs '--' in front. A NAME that is empty
or holds '=' is refused. Where no environment can be read, a new one with this
variable alone is written.

Exit status:
  1  the environment could not be saved

Example:
  kestrova vars set language en
  kestrova vars set -- offset -1
)";
const Command kVarsSetCommand = {
    "vars set", "NAME VALUE", kVarsSetHelp, eOptionWait, eRunsBesideWork | eWritesVariables,
    runVarsSet, checkNewName};

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
                                       eOptionWait,
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
    "vars clear", "NAME", kVarsClearHelp, eOptionWait, eRunsBesideWork | eWritesVariables,
    runVarsClear};

constexpr char kVarsVerifyHelp[] = R"(Check a boot environment file.

Checks a copy of the file 'boot_env' and tells what is wrong, and at which byte.
Looks at this file alone, and not with the library's reader: it is a second
opinion.

Exit status:
  1  there is a problem, or FILE can't be read
  3  there is no such file
  6  cancelled by Ctrl-C

Example:
  kestrova vars verify boot_env
)";
const Command kVarsVerifyCommand = {"vars verify",   "FILE",       kVarsVerifyHelp, 0,
                                    eRunsBesideWork, runVarsVerify};

}  // namespace app
