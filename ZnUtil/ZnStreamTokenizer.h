// Reads the tokens, lines, quoted strings and numbers of a SIP message head off a stream.
#ifndef ZNUTIL_ZNSTREAMTOKENIZER_H
#define ZNUTIL_ZNSTREAMTOKENIZER_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"
#include "ZnUtil/ZnString.h"

/// The tokenizer of the SIP parsers: tokens up to a set of delimiters, lines, quoted strings,
/// unsigned numbers and decimals.
///
/// Every operation exists as a static sXxx on a stream and as a member xxx on the stream the
/// tokenizer holds. The tokenizer keeps no state of its own and buffers nothing: every look ahead
/// is done with the stream's mark() and reset(), so all operations but discardLine() need a
/// stream whose markSupported() is true. White space is exactly tab, line feed, carriage return
/// and blank (9, 10, 13 and 32); vertical tab and form feed are not.
///
/// Ownership: a tokenizer holds a counted reference on its stream. A stream with count 0 (one
/// made on the stack, say) must therefore not be given to the constructor: the tokenizer's
/// handle would delete it when the last tokenizer goes. The static forms take no reference.
/// Thread safety: none of its own; a stream is read by one thread at a time.
class ZnStreamTokenizer
{
public:
    /// A tokenizer on \p in; takes a counted reference on the stream.
    explicit ZnStreamTokenizer(ZnInputStream& in);
    ZnStreamTokenizer(const ZnStreamTokenizer& other) = default;
    ZnStreamTokenizer& operator=(const ZnStreamTokenizer& other) = default;
    ~ZnStreamTokenizer();

    /// The stream read by the member forms.
    ZnHandle<ZnInputStream> getInputStream() const { return m_in; }

    /// Skips white space; the next character stays unread.
    /// \return the next character as 0 to 255, or -1 at end of stream.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
    static int sDiscardWhite(ZnInputStream& in);

    /// Reads up to and including the next line feed. A byte 0xFF ends the skip as the end of the
    /// stream does. Uses no mark, so it works on any stream.
    static void sDiscardLine(ZnInputStream& in);

    /// Skips white space, then counts the characters up to one of \p delimiters or the end of
    /// the stream, and puts them back: only the white space is consumed. A delimiter is compared
    /// as a signed character, so one above 127 never matches; null or empty \p delimiters never
    /// match.
    /// \return the count, 0 at end of stream.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
    static unsigned int sLookAhead(ZnInputStream& in, const char* delimiters);

    /// Reads the next token (after white space) up to one of \p delimiters, which stays unread.
    /// \param buffer room for \p size bytes; may be null only with \p size 0.
    /// \return true when the whole token was read: it is NUL-terminated when shorter than
    /// \p size, and it comes without terminator when it fills the buffer exactly. False when
    /// the token is longer than \p size: its first \p size bytes are read and stored without
    /// terminator, and the rest stays in the stream.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
    static bool sGetToken(ZnInputStream& in, const char* delimiters, char* buffer,
                          unsigned int size);

    /// Reads the next token (after white space) up to one of \p delimiters into a string.
    /// \return the token; an empty (not nil) string when there is none.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
    static ZnString sGetToken(ZnInputStream& in, const char* delimiters);

    /// Copies the next token (after white space) up to one of \p delimiters into \p buffer and
    /// puts everything back, the white space included. A byte 0xFF ends the token as the end of
    /// the stream does.
    /// \param buffer room for \p size bytes; may be null only with \p size 0.
    /// \return true with a NUL-terminated token when a delimiter followed it within the buffer;
    /// false, with no terminator, when the buffer filled up or the stream (or a byte 0xFF) ended
    /// first, so always for a \p size of 0.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
    static bool sPeekToken(ZnInputStream& in, const char* delimiters, char* buffer,
                           unsigned int size);

    /// Reads the next line, without its line end, after skipping white space and empty lines.
    /// The line end is CR LF or LF; a lone CR is taken with the character after it, which is
    /// lost, and logged at DEBUG.
    /// \param buffer room for \p size bytes; may be null only with \p size 0.
    /// \return true when the line was read, NUL-terminated when shorter than \p size (at end of
    /// stream an empty line); false when it is longer than \p size: its first \p size bytes
    /// are read without terminator, and the rest and the line end stay in the stream.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
    static bool sGetLine(ZnInputStream& in, char* buffer, unsigned int size);

    /// Reads the next line as sGetLine(in, buffer, size) does, of any length.
    /// \return the line; an empty (not nil) string at end of stream.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
    static ZnString sGetLine(ZnInputStream& in);

    /// Reads a quoted string after white space. Back-slash escapes the next character, so \"
    /// does not end the string.
    /// \return the string with its quotes and back-slashes exactly as they stand.
    /// \throws ZnHandle<ZnException> "quote ( \" ) expected" when the next character is not a
    /// double quote or the stream ends before the closing quote (what was read stays read);
    /// "Can only tokenize streams where mark supported".
    static ZnString sGetQuote(ZnInputStream& in);

    /// Reads decimal digits after white space; the character after them stays unread. There is
    /// no sign, and the value wraps silently in 32 bits.
    /// \return the value.
    /// \throws ZnHandle<ZnException> "unsigned number expected" when no digit comes;
    /// "Can only tokenize streams where mark supported".
    static unsigned int sGetUnsigned(ZnInputStream& in);

    /// Reads digits with at most one decimal point after white space; the character after them
    /// stays unread. No sign, no exponent. The divisor of the fraction is a 32-bit integer that
    /// wraps silently, so fraction digits past the ninth are weighted wrongly.
    /// \return the value.
    /// \throws ZnHandle<ZnException> "floating-point value expected" when no digit comes or a
    /// second point does; "Can only tokenize streams where mark supported".
    static double sGetDouble(ZnInputStream& in);

    /// Tells whether the rest of the current line holds only tabs, blanks and carriage returns.
    /// Consumes nothing.
    /// \return true when a line feed follows them, false for anything else and at end of stream.
    /// \throws ZnHandle<ZnException> "Can only tokenize streams where mark supported".
    static bool sIsEmptyLine(ZnInputStream& in);

    /// sDiscardWhite on the held stream.
    int discardWhite();
    /// sDiscardLine on the held stream.
    void discardLine();
    /// sLookAhead on the held stream.
    unsigned int lookAhead(const char* delimiters);
    /// sGetToken on the held stream.
    bool getToken(const char* delimiters, char* buffer, unsigned int size);
    /// sGetToken on the held stream, into a string.
    ZnString getToken(const char* delimiters);
    /// sPeekToken on the held stream.
    bool peekToken(const char* delimiters, char* buffer, unsigned int size);
    /// sGetLine on the held stream, into a buffer.
    bool getLine(char* buffer, unsigned int size);
    /// sGetQuote on the held stream.
    ZnString getQuote();
    /// sGetUnsigned on the held stream.
    unsigned int getUnsigned();
    /// sGetDouble on the held stream.
    double getDouble();

private:
    /// The held stream.
    ZnInputStream& stream() const;

    ZnHandle<ZnInputStream> m_in;
};

#endif // ZNUTIL_ZNSTREAMTOKENIZER_H
