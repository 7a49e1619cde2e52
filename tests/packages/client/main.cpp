// SPDX-License-Identifier: MIT
//
// A client of the installed library: the first lines that an application would contain.
#include <cstdio>
#include <string>

#include "System/BlockdevCfg.fmp.h"
#include "System/system.h"
#include "base/outputlevel.h"

namespace {

class TextOutput : public PrintfOutput {
public:
    void put(char character) override { mText += character; }
    void write(const char* text, unsigned int length) override { mText.append(text, length); }
    void flush() override {}
    std::string mText;
};

}  // namespace

int main() {
    kestrova_debug_output_level = 2;
    SystemMinimalInit();
    TextOutput sink;
    KestrovaOstream stream(&sink);
    stream << std::string("device ")
           << BlockdeviceConfig::GetInstance()->GetSoftwarePartitionMountDevice();
    std::printf("%s\n", sink.mText.c_str());
    const bool minimal = getSystem()->mMinimal && mem_fd == -1;
    download_free(download_allocate(10));
    SystemTerm();
    return minimal && getSystem() == nullptr ? 0 : 1;
}
