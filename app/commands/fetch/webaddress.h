// SPDX-License-Identifier: MIT
//
// URLs as people type them.
#ifndef KESTROVA_APP_COMMANDS_FETCH_WEBADDRESS_H
#define KESTROVA_APP_COMMANDS_FETCH_WEBADDRESS_H

#include <set>
#include <string>

#include "app/cli/command.h"

namespace app {

/// Returns whether a text is a valid URL for a request: http://HOST[:PORT]/PATH, without blanks and
/// control characters, which would corrupt the request.
bool isUrl(const std::string& text);

/// Checks arguments that are URLs.
Result checkUrls(const Words& arguments);

/// Unique names for documents in one directory.
class FileNames {
public:
    /// Returns a name from the last part of the URL's path: without '/', not "." or "..", not
    /// hidden, not an option, and with a number appended if an earlier document has it.
    std::string add(const std::string& url);

private:
    std::set<std::string> mTaken;
};

}  // namespace app

#endif
