// SPDX-License-Identifier: MIT
//
// The commands of the boot variables.
#include <cerrno>
#include <cstring>

#include "System/bootvarsmanager/sysBootVarsManager.h"
#include "System/system.h"
#include "app/cli/commands.h"
#include "app/cli/options.h"
#include "app/commands/vars/bootimage.h"
#include "app/commands/vars/environmentcheck.h"
#include "app/session.h"
#include "app/ui/colour.h"
#include "app/ui/humantext.h"

namespace app {

namespace {

// No variable is longer than the file that holds all of them.
constexpr unsigned kLongestValue = kLargestBootImage;

sysBootVarsManager& manager() {
    return *getSystem()->mpBootVarsManager;
}

Result failedFor(const EnvironmentState& state) {
    return Result::failed(state.mReason,
                          state.mKind == EnvironmentState::eUnreadable ? eFailed : eAbsent);
}

/// Why getVarS() gave nothing: the library answers alike for a variable that is not there and for
/// an environment that it cannot read.
Result notFound(const std::string& name) {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    (void)manager().getVarList(names, values);
    if (names.empty()) {
        const EnvironmentState state = checkEnvironment();
        if (state.mKind != EnvironmentState::eEmpty) {
            return failedFor(state);
        }
    }
    return Result::failed("there is no variable " + quoted(name) + "; 'vars list' shows them all",
                          eAbsent);
}

bool getText(const std::string& name, std::string& value) {
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

Result unreadFile(const std::string& file, int error) {
    return error == EINTR ? Result::failed("cancelled", eCancelled)
                          : Result::failed(quoted(file) + ": " + std::strerror(error));
}

JsonArray remarksData(const std::vector<BootImageRemark>& remarks) {
    JsonArray data;
    for (const BootImageRemark& remark : remarks) {
        data.addJson(JsonObject().add("offset", remark.mOffset).add("text", remark.mText).text());
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

}  // namespace

/// A new variable needs a name that 'vars list' and the boot stage can tell from its value.
bool checkNewName(const Words& arguments, std::string& error) {
    if (arguments[0].empty()) {
        error = "NAME is empty";
    } else if (arguments[0].find('=') != std::string::npos) {
        error = "NAME " + quoted(arguments[0]) + " holds '='; name and value are two arguments";
    }
    return error.empty();
}

Result runVarsList(Session& /*session*/, const Invocation& /*invocation*/) {
    KestrovaVector<std::string> names;
    KestrovaVector<std::string> values;
    (void)manager().getVarList(names, values);
    if (names.empty()) {
        const EnvironmentState state = checkEnvironment();
        if (state.mKind != EnvironmentState::eEmpty) {
            return failedFor(state);
        }
    }
    Result result;
    JsonArray variables;
    for (std::size_t i = 0; i < names.size(); ++i) {
        result.mText += printable(names[i]) + "=" + printable(values[i]) + "\n";
        variables.addJson(JsonObject().add("name", names[i]).add("value", values[i]).text());
    }
    result.mData.add("variables", variables);
    return result;
}

Result runVarsGet(Session& /*session*/, const Invocation& invocation) {
    const std::string& name = invocation.mArguments[0];
    std::string value;
    if (!getText(name, value)) {
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
    if (!getText(name, text)) {
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
    if (const int error = readFile(file, kLongestValue, session.interrupts(), bytes)) {
        return unreadFile(file, error);
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
    // One byte more than fits, so that a file that is too long shows.
    if (const int error = readFile(file, kLargestBootImage + 1, session.interrupts(), content)) {
        Result result = unreadFile(file, error);
        result.mStatus = error == ENOENT ? eAbsent : result.mStatus;
        return result;
    }
    const BootImage image = checkBootImage(content);
    Result result;
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

}  // namespace app
