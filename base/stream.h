// SPDX-License-Identifier: MIT
/// @file
/// Formatted output piece by piece: a stream over a character sink.
#ifndef KESTROVA_BASE_STREAM_H
#define KESTROVA_BASE_STREAM_H

#include <string>

#include "base/export.h"

/// A sink for characters. Derive from it to send a dump to a destination other than the console. A
/// sink has no lock: its users serialise their calls. A call blocks as long as the destination
/// does.
///
/// @code
/// class Text : public PrintfOutput {
/// public:
///     void put(char character) override { mText += character; }
///     void write(const char* text, unsigned int length) override {
///         mText.append(text, length);
///     }
///     void flush() override {}
///
///     std::string mText;
/// };
///
/// std::string dump(const BlockdeviceConfig& table) {
///     Text text;
///     KestrovaOstream stream(&text);
///     table.DumpToKestrovaOstream(&stream);
///     return text.mText;
/// }
/// @endcode
class KESTROVA_EXPORT PrintfOutput {
public:
    /// Layout of a piece. The default adds nothing.
    struct ConvertionFlags {
        bool mAlternateForm = false;  ///< prefix integers with "0x" (base 16) or "0" (base 8)
        bool mLeftAdjust = false;     ///< fill after the piece instead of before it
        char mFill = ' ';             ///< fills a piece that is narrower than mWidth
        unsigned mWidth = 0;          ///< minimum width of a piece in characters, sign included
    };

    /// A sink without state; a derived class adds its own.
    constexpr PrintfOutput() = default;
    /// Does not flush.
    virtual ~PrintfOutput();
    PrintfOutput(const PrintfOutput&) = delete;
    PrintfOutput& operator=(const PrintfOutput&) = delete;

    /// Writes one character. A sink that cannot write it drops it.
    /// @param character any value, including NUL
    virtual void put(char character) = 0;
    /// Writes characters.
    /// @param text the characters; need not be terminated; owned by the caller
    /// @param length number of characters
    virtual void write(const char* text, unsigned int length) = 0;
    /// Writes buffered characters to the destination.
    virtual void flush() = 0;

    /// Writes a text, padded to the width in the flags.
    /// @param flags fill, width and side
    /// @param text the bytes; need not be terminated
    /// @param length number of bytes
    void AppendFormatedString(const ConvertionFlags& flags, const char* text, unsigned int length);

    /// Writes an integer.
    /// @param flags layout; the fill is outside the sign and the prefix
    /// @param upperCase true writes digits above 9, and the x of the prefix, in upper case
    /// @param base 2 to 16; any other value means 10
    /// @param isSigned true if `value` is signed
    /// @param value sign-extended if isSigned is true, otherwise zero-extended
    void AppendFormatedIntegerIntern(const ConvertionFlags& flags, bool upperCase, int base,
                                     bool isSigned, long long value);
};

/// A formatted output stream over a sink. The stream does not own the sink, which outlives it.
///
/// Threads: one thread at a time uses a stream. Writing blocks as long as the sink does. It does
/// not fail, logs nothing, and throws only what the sink throws.
class KESTROVA_EXPORT KestrovaOstream {
public:
    /// Format flags. The two lowest are marks for clients: the dump of the partition table sets
    /// them, and the stream ignores them.
    enum FormatFlag : unsigned {
        eFlagMark1 = 1,       ///< mark for clients
        eFlagMark2 = 2,       ///< mark for clients
        eFlagUpperCase = 8,   ///< write digits above 9 in upper case
        eFlagFlushEach = 16,  ///< flush the sink after every piece
    };

    /// Creates a stream with base 10 and the default layout.
    /// @param sink the destination; not null, not owned, outlives the stream
    /// @param formatFlags FormatFlag values, combined with |
    explicit constexpr KestrovaOstream(PrintfOutput* sink, unsigned formatFlags = 0)
        : mpSink(sink), mFormatFlags(formatFlags) {}

    /// @return FormatFlag values, combined with |
    unsigned formatFlags() const { return mFormatFlags; }
    /// Replaces the format flags.
    /// @param flags FormatFlag values, combined with |
    void setFormatFlags(unsigned flags) { mFormatFlags = flags; }
    /// @return the base of the integers
    int base() const { return mBase; }
    /// Sets the base for later integers.
    /// @param base 2 to 16; any other value means 10
    void setBase(int base) { mBase = base; }
    /// @return the layout of pieces; valid for the life of the stream
    const PrintfOutput::ConvertionFlags& conversion() const { return mConversion; }
    /// Sets the layout of later pieces.
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
    /// Inserts an address in hexadecimal with the prefix "0x".
    /// @param address a null pointer is written as "(null)"
    /// @return this stream
    KestrovaOstream& operator<<(const void* address);

private:
    KestrovaOstream& signedPiece(long long value);
    KestrovaOstream& unsignedPiece(unsigned long long value);
    KESTROVA_LOCAL KestrovaOstream& textPiece(const char* text, std::size_t length);
    KESTROVA_LOCAL KestrovaOstream& finishPiece();

    /// @cond
    // Hidden from doxygen, whose links to a friend lead nowhere. It is documented as a function
    // below.
    friend KESTROVA_EXPORT KestrovaOstream& operator<<(KestrovaOstream& stream,
                                                       const std::string& text);
    /// @endcond

    PrintfOutput* mpSink;
    PrintfOutput::ConvertionFlags mConversion;
    unsigned mFormatFlags;
    int mBase = 10;
};

/// Inserts a text, including its NUL bytes.
/// @param stream the destination
/// @param text the bytes
/// @return the stream
KESTROVA_EXPORT KestrovaOstream& operator<<(KestrovaOstream& stream, const std::string& text);

/// The console stream: standard output, unbuffered, with eFlagFlushEach, independent of the log's
/// verbosity. Never null, never destroyed. The library sets its base and format flags under a lock
/// that an application cannot take, so an application may use it only while no other thread is
/// inside the library.
KESTROVA_EXPORT extern KestrovaOstream* const pCoutKestrovaOstream;

#endif
