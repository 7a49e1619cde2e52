// SPDX-License-Identifier: MIT
#include "base/stream.h"

#include <cstdint>
#include <cstring>

#include "base/log/console.h"
#include "base/neverdestroyed.h"

PrintfOutput::~PrintfOutput() = default;

void PrintfOutput::AppendFormatedString(const ConvertionFlags& flags, const char* text,
                                        unsigned int length) {
    const unsigned padding = flags.mWidth > length ? flags.mWidth - length : 0;
    if (!flags.mLeftAdjust) {
        for (unsigned i = 0; i < padding; ++i) {
            put(flags.mFill);
        }
    }
    if (length > 0) {
        write(text, length);
    }
    if (flags.mLeftAdjust) {
        for (unsigned i = 0; i < padding; ++i) {
            put(flags.mFill);
        }
    }
}

void PrintfOutput::AppendFormatedIntegerIntern(const ConvertionFlags& flags, bool upperCase,
                                               int base, bool isSigned, long long value) {
    if (base < 2 || base > 16) {
        base = 10;
    }
    const char* const digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    const bool negative = isSigned && value < 0;
    auto rest = static_cast<unsigned long long>(value);
    if (negative) {
        rest = 0 - rest;
    }
    char buffer[64 + 3];  // 64 binary digits, "0x" and a sign
    char* start = buffer + sizeof(buffer);
    const auto divisor = static_cast<unsigned>(base);
    do {
        *--start = digits[rest % divisor];
        rest /= divisor;
    } while (rest != 0);
    if (flags.mAlternateForm && base == 16) {
        *--start = upperCase ? 'X' : 'x';
        *--start = '0';
    } else if (flags.mAlternateForm && base == 8 && *start != '0') {
        *--start = '0';
    }
    if (negative) {
        *--start = '-';
    }
    AppendFormatedString(flags, start, static_cast<unsigned>(buffer + sizeof(buffer) - start));
}

KestrovaOstream& KestrovaOstream::finishPiece() {
    if ((mFormatFlags & eFlagFlushEach) != 0) {
        mpSink->flush();
    }
    return *this;
}

KestrovaOstream& KestrovaOstream::textPiece(const char* text, std::size_t length) {
    mpSink->AppendFormatedString(mConversion, text, static_cast<unsigned>(length));
    return finishPiece();
}

KestrovaOstream& KestrovaOstream::signedPiece(long long value) {
    mpSink->AppendFormatedIntegerIntern(mConversion, (mFormatFlags & eFlagUpperCase) != 0, mBase,
                                        true, value);
    return finishPiece();
}

KestrovaOstream& KestrovaOstream::unsignedPiece(unsigned long long value) {
    mpSink->AppendFormatedIntegerIntern(mConversion, (mFormatFlags & eFlagUpperCase) != 0, mBase,
                                        false, static_cast<long long>(value));
    return finishPiece();
}

KestrovaOstream& KestrovaOstream::operator<<(const char* text) {
    if (text == nullptr) {
        text = "(null)";
    }
    return textPiece(text, std::strlen(text));
}

KestrovaOstream& KestrovaOstream::operator<<(bool value) {
    return *this << (value ? "true" : "false");
}

KestrovaOstream& KestrovaOstream::operator<<(const void* address) {
    if (address == nullptr) {
        return *this << "(null)";
    }
    PrintfOutput::ConvertionFlags prefixed = mConversion;
    prefixed.mAlternateForm = true;
    mpSink->AppendFormatedIntegerIntern(
        prefixed, (mFormatFlags & eFlagUpperCase) != 0, 16, false,
        static_cast<long long>(reinterpret_cast<std::uintptr_t>(address)));
    return finishPiece();
}

KestrovaOstream& operator<<(KestrovaOstream& stream, const std::string& text) {
    return stream.textPiece(text.data(), text.size());
}

namespace {

/// Standard output as a sink. Unbuffered, so flush() does nothing.
class ConsoleOutput final : public PrintfOutput {
public:
    constexpr ConsoleOutput() = default;
    void put(char character) override { base::writeConsole(&character, 1); }
    void write(const char* text, unsigned int length) override { base::writeConsole(text, length); }
    void flush() override {}
};

// Constant-initialised and never destroyed, because workers may still write at exit.
base::NeverDestroyed<ConsoleOutput> consoleOutput;
KestrovaOstream consoleStream(&consoleOutput.mValue, KestrovaOstream::eFlagFlushEach);

}  // namespace

KestrovaOstream* const pCoutKestrovaOstream = &consoleStream;
