#include "ZnUtil/ZnStreamTokenizer.h"

#include "ZnUtil/ZnException.h"

#include "tavoris/LogLevel.h"
#include "tavoris/LogSite.h"

#include <limits>

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(tokenizerLogger, "corvane.zn.ZnStreamTokenizer")

const unsigned int kEndOfStream = 0xFFFFFFFFu;
const unsigned int kNoLimit = 0xFFFFFFFFu;
const char* const kSource = "ZnStreamTokenizer";
const char* const kLineDelimiters = "\r\n";
/// Where the buffer form and the string form of sGetLine report a lone carriage return.
const int kBufferLineLogLine = 166;
const int kStringLineLogLine = 182;

/// White space of the library's parsers: tab, line feed, carriage return and blank.
bool isWhite(int c)
{
    return c == 9 || c == 10 || c == 13 || c == 32;
}

bool isDigit(int c)
{
    return c >= '0' && c <= '9';
}

/// True when \p c, a character from read() (0 to 255) or -1, equals one of \p delimiters taken
/// as a signed character: a delimiter above 127 never matches a byte.
bool isDelimiter(int c, const char* delimiters)
{
    if (delimiters == nullptr)
    {
        return false;
    }
    for (const char* d = delimiters; *d != '\0'; ++d)
    {
        if (c == static_cast<signed char>(*d))
        {
            return true;
        }
    }
    return false;
}

/// True when the byte \p c equals one of \p delimiters byte for byte.
bool isByteDelimiter(char c, const char* delimiters)
{
    if (delimiters == nullptr)
    {
        return false;
    }
    for (const char* d = delimiters; *d != '\0'; ++d)
    {
        if (c == *d)
        {
            return true;
        }
    }
    return false;
}

void requireMark(ZnInputStream& in)
{
    if (!in.markSupported())
    {
        ZnException::sThrow("Can only tokenize streams where mark supported");
    }
}

/// One block read of \p count bytes into \p buffer.
/// \return the bytes stored, never more than \p count; 0 for a count of 0 and at end of stream.
unsigned int readBytes(ZnInputStream& in, char* buffer, unsigned int count)
{
    if (count == 0)
    {
        return 0;
    }
    const unsigned int got = in.read(buffer, count, 0);
    if (got == kEndOfStream)
    {
        return 0;
    }
    return got < count ? got : count;
}

/// The common part of the buffer forms: the token (or line) up to \p delimiters into \p buffer.
/// \return false when it did not fit.
bool readToken(ZnInputStream& in, const char* delimiters, char* buffer, unsigned int size)
{
    if (buffer == nullptr)
    {
        // Nothing can be stored through a null buffer, whatever size comes with it.
        size = 0;
    }
    const unsigned int n = ZnStreamTokenizer::sLookAhead(in, delimiters);
    if (n == kEndOfStream)
    {
        return false;
    }
    if (size < n)
    {
        // The start of the token is consumed; the rest stays; no terminator.
        readBytes(in, buffer, size);
        return false;
    }
    const unsigned int got = readBytes(in, buffer, n);
    // Intended: a token that exactly fills the buffer comes back without terminator.
    if (got < size)
    {
        buffer[got] = '\0';
    }
    return true;
}

/// The end of a line read by sGetLine: takes the line end, CR LF or LF. After a lone CR the next
/// character is taken too and the line end is reported at DEBUG from \p logLine.
void readLineEnd(ZnInputStream& in, int logLine)
{
    if (in.read() != '\r')
    {
        return;
    }
    // Intended: the character after a lone CR is consumed and lost.
    if (in.read() != '\n')
    {
        TAVORIS_LOG_AT(tokenizerLogger(), Tavoris::DEBUG_LOG_LEVEL, kSource, logLine,
                       "ZnStreamTokenizer::sGetLine: Missing newline character at the end of a "
                       "line in SIP message, ignoring");
    }
}

/// digit / divisor as IEEE arithmetic would give it, also for the divisor 0 that the wrapped
/// 32-bit divisor reaches after 32 fraction digits.
double fractionDigit(unsigned int digit, unsigned int divisor)
{
    if (divisor != 0)
    {
        return static_cast<double>(digit) / static_cast<double>(divisor);
    }
    return digit != 0 ? std::numeric_limits<double>::infinity()
                      : std::numeric_limits<double>::quiet_NaN();
}

} // namespace

ZnStreamTokenizer::ZnStreamTokenizer(ZnInputStream& in) : m_in(&in) {}

ZnStreamTokenizer::~ZnStreamTokenizer() = default;

ZnInputStream& ZnStreamTokenizer::stream() const
{
    return *static_cast<ZnInputStream*>(m_in);
}

int ZnStreamTokenizer::sDiscardWhite(ZnInputStream& in)
{
    requireMark(in);
    in.mark(1);
    int c = in.read();
    while (isWhite(c))
    {
        in.mark(1);
        c = in.read();
    }
    in.reset();
    return c;
}

void ZnStreamTokenizer::sDiscardLine(ZnInputStream& in)
{
    // Intended: the low byte decides, so a byte 0xFF ends the skip as the end of stream (-1)
    // does.
    for (;;)
    {
        const int low = in.read() & 0xFF;
        if (low == 10 || low == 0xFF)
        {
            return;
        }
    }
}

unsigned int ZnStreamTokenizer::sLookAhead(ZnInputStream& in, const char* delimiters)
{
    sDiscardWhite(in);
    in.mark(kNoLimit);
    unsigned int count = 0;
    for (int c = in.read(); c != -1 && !isDelimiter(c, delimiters); c = in.read())
    {
        ++count;
    }
    in.reset();
    return count;
}

bool ZnStreamTokenizer::sGetToken(ZnInputStream& in, const char* delimiters, char* buffer,
                                  unsigned int size)
{
    return readToken(in, delimiters, buffer, size);
}

ZnString ZnStreamTokenizer::sGetToken(ZnInputStream& in, const char* delimiters)
{
    ZnString token;
    token.parse(in, delimiters);
    return token;
}

bool ZnStreamTokenizer::sPeekToken(ZnInputStream& in, const char* delimiters, char* buffer,
                                   unsigned int size)
{
    requireMark(in);
    if (buffer == nullptr)
    {
        size = 0;
    }
    in.mark(kNoLimit);
    int c = in.read();
    while (isWhite(c))
    {
        c = in.read();
    }
    unsigned int stored = 0;
    bool ended = false;
    while (stored < size)
    {
        const char byte = static_cast<char>(c);
        // Intended: the low byte tells the end of stream, so a byte 0xFF ends the token too.
        if (static_cast<unsigned char>(byte) == 0xFF)
        {
            ended = true;
            break;
        }
        if (isByteDelimiter(byte, delimiters))
        {
            break;
        }
        buffer[stored++] = byte;
        c = in.read();
    }
    in.reset();
    if (stored == size || ended)
    {
        return false;
    }
    buffer[stored] = '\0';
    return true;
}

bool ZnStreamTokenizer::sGetLine(ZnInputStream& in, char* buffer, unsigned int size)
{
    if (!readToken(in, kLineDelimiters, buffer, size))
    {
        return false;
    }
    readLineEnd(in, kBufferLineLogLine);
    return true;
}

ZnString ZnStreamTokenizer::sGetLine(ZnInputStream& in)
{
    ZnString line;
    line.parse(in, kLineDelimiters);
    readLineEnd(in, kStringLineLogLine);
    return line;
}

ZnString ZnStreamTokenizer::sGetQuote(ZnInputStream& in)
{
    sDiscardWhite(in);
    in.mark(kNoLimit);
    // On failure the mark stays set and what was read stays read.
    if (in.read() != '"')
    {
        ZnException::sThrow("quote ( \" ) expected");
    }
    unsigned int count = 2; // both quotes
    for (;;)
    {
        const int c = in.read();
        if (c == -1)
        {
            ZnException::sThrow("quote ( \" ) expected");
        }
        if (c == '"')
        {
            break;
        }
        if (c == '\\')
        {
            if (in.read() == -1)
            {
                ZnException::sThrow("quote ( \" ) expected");
            }
            count += 2;
        }
        else
        {
            ++count;
        }
    }
    in.reset();
    ZnString quote;
    quote.read(in, count);
    return quote;
}

unsigned int ZnStreamTokenizer::sGetUnsigned(ZnInputStream& in)
{
    sDiscardWhite(in);
    in.mark(1);
    int c = in.read();
    unsigned int value = 0;
    unsigned int digits = 0;
    while (isDigit(c))
    {
        // Intended: the value wraps silently in 32 bits; there is no overflow check.
        value = value * 10u + static_cast<unsigned int>(c - '0');
        ++digits;
        in.mark(1);
        c = in.read();
    }
    in.reset();
    if (digits == 0)
    {
        ZnException::sThrow("unsigned number expected");
    }
    return value;
}

double ZnStreamTokenizer::sGetDouble(ZnInputStream& in)
{
    sDiscardWhite(in);
    double integerPart = 0.0;
    double fraction = 0.0;
    unsigned int divisor = 1;
    unsigned int digits = 0;
    bool afterPoint = false;
    for (;;)
    {
        in.mark(kNoLimit);
        const int c = in.read();
        if (isDigit(c))
        {
            const unsigned int digit = static_cast<unsigned int>(c - '0');
            ++digits;
            if (!afterPoint)
            {
                integerPart = integerPart * 10.0 + digit;
            }
            else
            {
                // Intended: the divisor is 32 bits and wraps silently past 10^9.
                divisor *= 10u;
                fraction += fractionDigit(digit, divisor);
            }
        }
        else if (c == '.')
        {
            if (afterPoint)
            {
                ZnException::sThrow("floating-point value expected");
            }
            afterPoint = true;
        }
        else
        {
            break;
        }
    }
    in.reset();
    if (digits == 0)
    {
        ZnException::sThrow("floating-point value expected");
    }
    return integerPart + fraction;
}

bool ZnStreamTokenizer::sIsEmptyLine(ZnInputStream& in)
{
    requireMark(in);
    in.mark(kNoLimit);
    int c = in.read();
    while (c == 9 || c == 13 || c == 32)
    {
        c = in.read();
    }
    in.reset();
    return c == 10;
}

int ZnStreamTokenizer::discardWhite()
{
    return sDiscardWhite(stream());
}

void ZnStreamTokenizer::discardLine()
{
    sDiscardLine(stream());
}

unsigned int ZnStreamTokenizer::lookAhead(const char* delimiters)
{
    return sLookAhead(stream(), delimiters);
}

bool ZnStreamTokenizer::getToken(const char* delimiters, char* buffer, unsigned int size)
{
    return sGetToken(stream(), delimiters, buffer, size);
}

ZnString ZnStreamTokenizer::getToken(const char* delimiters)
{
    return sGetToken(stream(), delimiters);
}

bool ZnStreamTokenizer::peekToken(const char* delimiters, char* buffer, unsigned int size)
{
    return sPeekToken(stream(), delimiters, buffer, size);
}

bool ZnStreamTokenizer::getLine(char* buffer, unsigned int size)
{
    return sGetLine(stream(), buffer, size);
}

ZnString ZnStreamTokenizer::getQuote()
{
    return sGetQuote(stream());
}

unsigned int ZnStreamTokenizer::getUnsigned()
{
    return sGetUnsigned(stream());
}

double ZnStreamTokenizer::getDouble()
{
    return sGetDouble(stream());
}
