// libFuzzer harness of ZnStreamTokenizer and the reading operations of ZnStringBuffer.
//
// Input layout: byte 0 chooses the stream (bits 0-2) and the length of the program (bits 3-7);
// the program's bytes follow, one operation each (low nibble: operation, high nibble: argument);
// the rest is the stream's content. The program runs in a loop over the stream until the stream
// ends or a bound of steps is reached, on the static and the member forms alike. Every result
// is checked against what the operation promises; a broken promise aborts.
#include "ZnUtil/ZnBufferedInputStream.h"
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnCppInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"
#include "ZnUtil/ZnStreamTokenizer.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnStringBuffer.h"

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

namespace
{

const char* const kDelimiters[] = {" ",       "\r\n", ":",  ";,", "=",   "",
                                   " \t\r\n", "\xE9", "\"", "<>", "\xFF"};
const unsigned int kDelimiterCount = sizeof kDelimiters / sizeof kDelimiters[0];
/// Buffer sizes of the buffer forms, chosen by an argument nibble.
const unsigned int kSizes[] = {0, 1, 2, 3, 4, 5, 7, 8, 15, 16, 31, 64, 100, 255, 256, 1024};
const unsigned int kMaxSteps = 512;
/// Passes over a stream whose available() says nothing: the buffered and the unmarked one.
const unsigned int kUnmarkedPasses = 8;

/// Stream kinds by the low three bits of byte 0; 0 and 3 to 7 give the memory stream.
enum StreamKind
{
    BUFFERED = 1, // ZnBufferedInputStream over a ZnByteArrayInputStream
    UNMARKED = 2, // ZnCppInputStream: no mark support
};

[[noreturn]] void broken(const char* promise)
{
    fprintf(stderr, "broken promise: %s\n", promise);
    abort();
}

void check(bool condition, const char* promise)
{
    if (!condition)
    {
        broken(promise);
    }
}

/// A string must be terminated at its length and fit its capacity.
void checkString(const ZnString& text)
{
    const ZnStringBuffer* buffer = text.buffer();
    if (buffer == nullptr)
    {
        return;
    }
    check(buffer->length() < buffer->capacity(), "length below capacity");
    check(buffer->c_str()[buffer->length()] == '\0', "terminated at its length");
}

/// Logging as a host with debug output would have it, so that the log path runs too.
void configureLogging()
{
    static const bool configured = []
    {
        log4cplus::Logger logger = log4cplus::Logger::getInstance("corvane.zn.ZnStreamTokenizer");
        logger.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
        logger.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
        return true;
    }();
    (void)configured;
}

class Runner
{
public:
    Runner(ZnInputStream& in, bool marked) : m_in(in), m_tokenizer(in), m_marked(marked) {}

    /// Bytes left, for streams that know them; only the memory stream is asked.
    unsigned int available() { return m_in.available(); }

    void step(uint8_t code)
    {
        const unsigned int operation = code & 0x0F;
        const unsigned int argument = code >> 4;
        const bool member = (argument & 1) != 0;
        const char* delimiters = kDelimiters[argument % kDelimiterCount];
        const unsigned int size = kSizes[argument];
        try
        {
            run(operation, argument, member, delimiters, size);
        }
        catch (ZnHandle<ZnException>& e)
        {
            check(!e.isNil(), "a thrown handle holds an exception");
        }
    }

private:
    void run(unsigned int operation, unsigned int argument, bool member, const char* delimiters,
             unsigned int size)
    {
        switch (operation)
        {
        case 0:
        {
            const int c =
                member ? m_tokenizer.discardWhite() : ZnStreamTokenizer::sDiscardWhite(m_in);
            check(c >= -1 && c <= 255 && c != 9 && c != 10 && c != 13 && c != 32,
                  "discardWhite stops at a non-white character");
            break;
        }
        case 1:
            member ? m_tokenizer.discardLine() : ZnStreamTokenizer::sDiscardLine(m_in);
            break;
        case 2:
        {
            const unsigned int n = member ? m_tokenizer.lookAhead(delimiters)
                                          : ZnStreamTokenizer::sLookAhead(m_in, delimiters);
            if (m_marked)
            {
                check(n <= available(), "lookAhead counts no more than is left");
            }
            break;
        }
        case 3:
        {
            // An exact heap block, so that a write past it is caught.
            std::unique_ptr<char[]> buffer(size > 0 ? new char[size] : nullptr);
            const bool whole =
                member ? m_tokenizer.getToken(delimiters, buffer.get(), size)
                       : ZnStreamTokenizer::sGetToken(m_in, delimiters, buffer.get(), size);
            if (whole && size > 0)
            {
                check(strnlen(buffer.get(), size) <= size, "token within its buffer");
            }
            break;
        }
        case 4:
        {
            ZnString token = member ? m_tokenizer.getToken(delimiters)
                                    : ZnStreamTokenizer::sGetToken(m_in, delimiters);
            check(!token.isNil(), "a string token is never nil");
            checkString(token);
            break;
        }
        case 5:
        {
            std::unique_ptr<char[]> buffer(size > 0 ? new char[size] : nullptr);
            const unsigned int before = available();
            const bool whole =
                member ? m_tokenizer.peekToken(delimiters, buffer.get(), size)
                       : ZnStreamTokenizer::sPeekToken(m_in, delimiters, buffer.get(), size);
            check(!whole || size > 0, "peekToken with size 0 answers false");
            if (m_marked)
            {
                check(available() == before, "peekToken consumes nothing");
            }
            break;
        }
        case 6:
        {
            std::unique_ptr<char[]> buffer(size > 0 ? new char[size] : nullptr);
            member ? m_tokenizer.getLine(buffer.get(), size)
                   : ZnStreamTokenizer::sGetLine(m_in, buffer.get(), size);
            break;
        }
        case 7:
        {
            ZnString line = ZnStreamTokenizer::sGetLine(m_in);
            check(!line.isNil(), "a string line is never nil");
            check(line.indexOf("\n") < 0, "a line holds no line feed");
            checkString(line);
            break;
        }
        case 8:
        {
            ZnString quote = member ? m_tokenizer.getQuote() : ZnStreamTokenizer::sGetQuote(m_in);
            check(quote.length() >= 2 && quote.c_str()[0] == '"' &&
                      quote.c_str()[quote.length() - 1] == '"',
                  "a quote keeps its quotes");
            checkString(quote);
            break;
        }
        case 9:
            member ? m_tokenizer.getUnsigned() : ZnStreamTokenizer::sGetUnsigned(m_in);
            break;
        case 10:
        {
            const double value =
                member ? m_tokenizer.getDouble() : ZnStreamTokenizer::sGetDouble(m_in);
            check(!(value < 0.0), "a decimal is never negative");
            break;
        }
        case 11:
        {
            const unsigned int before = available();
            ZnStreamTokenizer::sIsEmptyLine(m_in);
            if (m_marked)
            {
                check(available() == before, "isEmptyLine consumes nothing");
            }
            break;
        }
        case 12:
            shareSometimes(argument);
            m_text.parse(m_in, delimiters);
            check(!m_text.isNil(), "parse gives a buffer");
            checkString(m_text);
            break;
        case 13:
        {
            shareSometimes(argument);
            const unsigned int before = available();
            m_text.peek(m_in, delimiters);
            checkString(m_text);
            if (m_marked)
            {
                check(available() <= before && m_text.length() <= available(),
                      "peek leaves the token in the stream");
            }
            break;
        }
        case 14:
            shareSometimes(argument);
            m_text.read(m_in, size);
            check(!m_text.isNil(), "read gives a buffer");
            check(m_text.length() <= size, "read takes at most count bytes");
            checkString(m_text);
            break;
        default:
            m_in >> m_text;
            check(!m_text.isNil(), "operator>> gives a buffer");
            checkString(m_text);
            break;
        }
    }

    /// Shares the working string with another one on odd arguments, so that both branches of
    /// the sharing rule run.
    void shareSometimes(unsigned int argument)
    {
        if ((argument & 2) != 0)
        {
            m_shared = m_text;
        }
        else
        {
            m_shared = ZnString();
        }
    }

    ZnInputStream& m_in;
    ZnStreamTokenizer m_tokenizer;
    bool m_marked;
    ZnString m_text;
    ZnString m_shared;
};

void runProgram(ZnInputStream& in, bool marked, const uint8_t* program, size_t programLength)
{
    Runner runner(in, marked);
    // Whole passes of the program; a memory stream stops as soon as a pass consumed nothing, as
    // the next would do the same again.
    const unsigned int passes = marked ? kMaxSteps : kUnmarkedPasses;
    for (unsigned int pass = 0; pass < passes && pass * programLength < kMaxSteps; ++pass)
    {
        const unsigned int before = marked ? runner.available() : 0;
        for (size_t i = 0; i < programLength; ++i)
        {
            runner.step(program[i]);
        }
        if (marked && (runner.available() == 0 || runner.available() == before))
        {
            break;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    configureLogging();
    if (size < 2)
    {
        return 0;
    }
    const unsigned int kind = data[0] & 0x07;
    size_t programLength = (data[0] >> 3) + 1;
    if (programLength > size - 1)
    {
        programLength = size - 1;
    }
    const uint8_t* program = data + 1;
    const uint8_t* payload = program + programLength;
    const unsigned int payloadLength = static_cast<unsigned int>(size - 1 - programLength);

    ZnHandle<ZnByteArray> bytes = ZnByteArray::sCreate(payloadLength, payload);
    switch (kind)
    {
    case BUFFERED:
    {
        ZnHandle<ZnInputStream> source(new ZnByteArrayInputStream(bytes));
        ZnHandle<ZnBufferedInputStream> in(new ZnBufferedInputStream(source, 0));
        // available() of a buffered stream does not count the unbuffered rest.
        runProgram(*in, false, program, programLength);
        break;
    }
    case UNMARKED:
    {
        std::istringstream text(std::string(reinterpret_cast<const char*>(payload), payloadLength));
        ZnHandle<ZnCppInputStream> in(new ZnCppInputStream(text));
        runProgram(*in, false, program, programLength);
        break;
    }
    default:
    {
        ZnHandle<ZnByteArrayInputStream> in(new ZnByteArrayInputStream(bytes));
        runProgram(*in, true, program, programLength);
        break;
    }
    }
    return 0;
}
