// SPDX-License-Identifier: MIT
//
// Formatted output piece by piece: a stream over a character sink.
#ifndef KESTROVA_BASE_STREAM_H
#define KESTROVA_BASE_STREAM_H

#include <string>

#include "base/export.h"

/// A sink for characters. Derive from it to send a dump somewhere else than to the console. A sink
/// has no lock of its own: its users take turns.
class KESTROVA_EXPORT PrintfOutput {
public:
    /// How a piece is laid out; the default is the piece as it is.
    struct ConvertionFlags {
        bool mAlternateForm = false;  ///< integers: base 16 with "0x", base 8 with "0" in front
        bool mLeftAdjust = false;     ///< fill behind the piece instead of before it
        char mFill = ' ';             ///< fills up a piece narrower than mWidth, sign and all
        unsigned mWidth = 0;          ///< least width of a piece in characters
    };

    constexpr PrintfOutput() = default;
    virtual ~PrintfOutput();
    PrintfOutput(const PrintfOutput&) = delete;
    PrintfOutput& operator=(const PrintfOutput&) = delete;

    /// Takes one character. A sink that cannot take it drops it.
    virtual void put(char character) = 0;
    /// Takes `length` characters; they need not be terminated.
    virtual void write(const char* text, unsigned int length) = 0;
    /// Brings what the sink still holds to its destination.
    virtual void flush() = 0;

    /// Writes `length` bytes of text, filled up to the width of the flags.
    void AppendFormatedString(const ConvertionFlags& flags, const char* text, unsigned int length);

    /// Writes an integer in a base from 2 to 16 (10 for any other). Signed values come
    /// sign-extended with isSigned true, unsigned ones zero-extended with isSigned false.
    /// `upperCase` selects the case of the digits above 9.
    void AppendFormatedIntegerIntern(const ConvertionFlags& flags, bool upperCase, int base,
                                     bool isSigned, long long value);
};

/// A stream of formatted pieces over a sink that it does not own; the sink outlives it.
class KESTROVA_EXPORT KestrovaOstream {
public:
    /// Format flags. The two lowest are a client's own marks: the dump of the partition table sets
    /// them, nothing here reads them.
    enum FormatFlag : unsigned {
        eFlagMark1 = 1,
        eFlagMark2 = 2,
        eFlagUpperCase = 8,   ///< digits above 9 as capitals
        eFlagFlushEach = 16,  ///< the sink is flushed after every piece
    };

    explicit constexpr KestrovaOstream(PrintfOutput* sink, unsigned formatFlags = 0)
        : mpSink(sink), mFormatFlags(formatFlags) {}

    unsigned formatFlags() const { return mFormatFlags; }
    void setFormatFlags(unsigned flags) { mFormatFlags = flags; }
    int base() const { return mBase; }
    /// Base of the integers written from now on, 2 to 16.
    void setBase(int base) { mBase = base; }
    const PrintfOutput::ConvertionFlags& conversion() const { return mConversion; }
    void setConversion(const PrintfOutput::ConvertionFlags& flags) { mConversion = flags; }

    /// Inserts a text; a null pointer is written as "(null)".
    KestrovaOstream& operator<<(const char* text);
    /// Inserts "true" or "false".
    KestrovaOstream& operator<<(bool value);
    KestrovaOstream& operator<<(int value) { return signedPiece(value); }
    KestrovaOstream& operator<<(long value) { return signedPiece(value); }
    KestrovaOstream& operator<<(long long value) { return signedPiece(value); }
    KestrovaOstream& operator<<(unsigned value) { return unsignedPiece(value); }
    KestrovaOstream& operator<<(unsigned long value) { return unsignedPiece(value); }
    KestrovaOstream& operator<<(unsigned long long value) { return unsignedPiece(value); }
    /// Inserts an address in hexadecimal with "0x" in front, a null pointer as "(null)".
    KestrovaOstream& operator<<(const void* address);

private:
    KestrovaOstream& signedPiece(long long value);
    KestrovaOstream& unsignedPiece(unsigned long long value);
    KESTROVA_LOCAL KestrovaOstream& textPiece(const char* text, std::size_t length);
    KESTROVA_LOCAL KestrovaOstream& finishPiece();

    friend KESTROVA_EXPORT KestrovaOstream& operator<<(KestrovaOstream& stream,
                                                       const std::string& text);

    PrintfOutput* mpSink;
    PrintfOutput::ConvertionFlags mConversion;
    unsigned mFormatFlags;
    int mBase = 10;
};

/// Inserts a text, NUL bytes included.
KESTROVA_EXPORT KestrovaOstream& operator<<(KestrovaOstream& stream, const std::string& text);

/// The stream bound to standard output, unbuffered. Never null, never destroyed. Inside the
/// library it is used under the print lock only.
KESTROVA_EXPORT extern KestrovaOstream* const pCoutKestrovaOstream;

#endif
