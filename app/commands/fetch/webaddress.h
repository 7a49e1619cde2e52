// SPDX-License-Identifier: MIT
//
// URLs as people write them.
#ifndef KESTROVA_APP_COMMANDS_FETCH_WEBADDRESS_H
#define KESTROVA_APP_COMMANDS_FETCH_WEBADDRESS_H

#include <set>
#include <string>

#include "app/cli/command.h"

namespace app {

/// True when a request can be made of the text: http://HOST[:PORT]/PATH, without blanks and control
/// characters, which would break the request apart.
bool isUrl(const std::string& text);

/// The check of arguments that are URLs.
Result checkUrls(const Words& arguments);

/// Names for documents in one folder, none twice.
class FileNames {
public:
    /// A name after the last part of the URL's path: no '/', neither "." nor "..", not hidden, no
    /// option, and with a number behind when an earlier document has it.
    std::string add(const std::string& url);

private:
    std::set<std::string> mTaken;
};

}  // namespace app

#endif
