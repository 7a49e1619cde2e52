// SPDX-License-Identifier: MIT
/// @file
/// Formatted output piece by piece: a stream over a character sink.
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

    /// Nothing to set up; what a sink needs is its own.
    constexpr PrintfOutput() = default;
    /// Does not flush.
    virtual ~PrintfOutput();
    PrintfOutput(const PrintfOutput&) = delete;
    PrintfOutput& operator=(const PrintfOutput&) = delete;

    /// Takes one character. A sink that cannot take it drops it.
    /// @param character any value, NUL included
    virtual void put(char character) = 0;
    /// Takes a run of characters.
    /// @param text the characters; they need not be terminated, and are the caller's
    /// @param length how many
    virtual void write(const char* text, unsigned int length) = 0;
    /// Brings what the sink still holds to its destination.
    virtual void flush() = 0;

    /// Writes a text, filled up to the width of the flags.
    /// @param flags fill, width and side
    /// @param text the bytes; they need not be terminated
    /// @param length how many
    void AppendFormatedString(const ConvertionFlags& flags, const char* text, unsigned int length);

    /// Writes an integer.
    /// @param flags layout; the fill stands outside the sign and the prefix
    /// @param upperCase digits above 9, and the x of the prefix, as capitals
    /// @param base 2 to 16; any other counts as 10
    /// @param isSigned whether a negative value is written with its sign
    /// @param value sign-extended when isSigned is true, zero-extended otherwise
    void AppendFormatedIntegerIntern(const ConvertionFlags& flags, bool upperCase, int base,
                                     bool isSigned, long long value);
};

/// A stream of formatted pieces over a sink that it does not own; the sink outlives it.
class KESTROVA_EXPORT KestrovaOstream {
public:
    /// Format flags. The two lowest are a client's own marks: the dump of the partition table sets
    /// them, nothing here reads them.
    enum FormatFlag : unsigned {
        eFlagMark1 = 1,       ///< a client's own
        eFlagMark2 = 2,       ///< a client's own
        eFlagUpperCase = 8,   ///< digits above 9 as capitals
        eFlagFlushEach = 16,  ///< the sink is flushed after every piece
    };

    /// A stream with base 10 and pieces laid out as they are.
    /// @param sink where it writes; not null, not owned, outlives the stream
    /// @param formatFlags FormatFlag values, added
    explicit constexpr KestrovaOstream(PrintfOutput* sink, unsigned formatFlags = 0)
        : mpSink(sink), mFormatFlags(formatFlags) {}

    /// @return FormatFlag values, added
    unsigned formatFlags() const { return mFormatFlags; }
    /// Replaces the format flags.
    /// @param flags FormatFlag values, added
    void setFormatFlags(unsigned flags) { mFormatFlags = flags; }
    /// @return base of the integers
    int base() const { return mBase; }
    /// Sets the base of the integers written from now on.
    /// @param base 2 to 16; any other counts as 10
    void setBase(int base) { mBase = base; }
    /// @return layout of the pieces; valid as long as the stream
    const PrintfOutput::ConvertionFlags& conversion() const { return mConversion; }
    /// Sets the layout of every piece written from now on.
    /// @param flags copied
    void setConversion(const PrintfOutput::ConvertionFlags& flags) { mConversion = flags; }

    /// Inserts a text.
    /// @param text terminated; a null pointer is written as "(null)"
    /// @return this stream
    KestrovaOstream& operator<<(const char* text);
    /// Inserts "true" or "false".
    /// @param value selects which
    /// @return this stream
    KestrovaOstream& operator<<(bool value);
    /// @{
    /// Inserts an integer in the stream's base.
    /// @param value any
    /// @return this stream
    KestrovaOstream& operator<<(int value) { return signedPiece(value); }
    KestrovaOstream& operator<<(long value) { return signedPiece(value); }
    KestrovaOstream& operator<<(long long value) { return signedPiece(value); }
    KestrovaOstream& operator<<(unsigned value) { return unsignedPiece(value); }
    KestrovaOstream& operator<<(unsigned long value) { return unsignedPiece(value); }
    KestrovaOstream& operator<<(unsigned long long value) { return unsignedPiece(value); }
    /// @}
    /// Inserts an address in hexadecimal with "0x" in front.
    /// @param address a null pointer is written as "(null)"
    /// @return this stream
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
/// @param stream where to
/// @param text the bytes
/// @return the stream
KESTROVA_EXPORT KestrovaOstream& operator<<(KestrovaOstream& stream, const std::string& text);

/// The stream bound to standard output, unbuffered, not bound to any level. Never null, never
/// destroyed. The library uses it under a lock that an application cannot take, and sets its base
/// and format flags: an application uses it while no other thread is inside the library.
KESTROVA_EXPORT extern KestrovaOstream* const pCoutKestrovaOstream;

#endif
