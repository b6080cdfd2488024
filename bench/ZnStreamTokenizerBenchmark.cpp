// Cost of reading a SIP request head with ZnStreamTokenizer, against plain C splitters (memchr
// for lines, strcspn for tokens) over the same bytes in one run.
//
// The tokenizer reads through the virtual byte read of the stream and looks ahead with mark and
// reset, so every character is read twice; the baselines scan the bytes in memory once. The
// pairs show what that generality costs per line and per token.
#include "ZnUtil/ZnStreamTokenizer.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnString.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{

/// A realistic INVITE head of about 700 bytes, blank line included, body left out.
const char kHead[] =
    "INVITE sip:bob@biloxi.example.com;transport=udp SIP/2.0\r\n"
    "Via: SIP/2.0/UDP pc33.atlanta.example.com:5060;branch=z9hG4bK776asdhds;rport\r\n"
    "Via: SIP/2.0/UDP bigbox3.site3.atlanta.example.com;branch=z9hG4bK77ef4c2312983.1\r\n"
    "Max-Forwards: 70\r\n"
    "To: Bob <sip:bob@biloxi.example.com>\r\n"
    "From: \"Alice Liddell\" <sip:alice@atlanta.example.com>;tag=1928301774\r\n"
    "Call-ID: a84b4c76e66710@pc33.atlanta.example.com\r\n"
    "CSeq: 314159 INVITE\r\n"
    "Contact: <sip:alice@pc33.atlanta.example.com:5060;transport=udp>;expires=3600\r\n"
    "Allow: INVITE, ACK, CANCEL, OPTIONS, BYE, REFER, NOTIFY, MESSAGE, SUBSCRIBE, INFO\r\n"
    "Supported: replaces, timer, 100rel\r\n"
    "User-Agent: Example SIP Phone 4.2.1\r\n"
    "Session-Expires: 1800;refresher=uac\r\n"
    "Content-Type: application/sdp\r\n"
    "Content-Length: 142\r\n"
    "\r\n";
const unsigned int kHeadLength = sizeof kHead - 1;
/// Token delimiters; white space before a token is skipped by both splitters.
const char kDelimiters[] = " \t\r\n;:,";
const unsigned int kTokenBufferSize = 256;

ZnHandle<ZnByteArray> headBytes()
{
    return ZnByteArray::sCreate(kHeadLength, kHead);
}

bool isWhite(char c)
{
    return c == 9 || c == 10 || c == 13 || c == 32;
}

// ---- the splitters; each returns the number of items and can collect them for the check ----

unsigned int tokenizerLines(ZnInputStream& in, std::vector<std::string>* out)
{
    unsigned int lines = 0;
    while (in.available() > 0)
    {
        ZnString line = ZnStreamTokenizer::sGetLine(in);
        benchmark::DoNotOptimize(line.buffer());
        if (out != nullptr)
        {
            out->push_back(line.c_str());
        }
        ++lines;
    }
    return lines;
}

unsigned int tokenizerLinesBuffer(ZnInputStream& in, std::vector<std::string>* out)
{
    char buffer[kTokenBufferSize];
    unsigned int lines = 0;
    while (in.available() > 0)
    {
        if (!ZnStreamTokenizer::sGetLine(in, buffer, sizeof buffer))
        {
            return 0; // no line of the head is that long
        }
        benchmark::DoNotOptimize(buffer);
        if (out != nullptr)
        {
            out->push_back(buffer);
        }
        ++lines;
    }
    return lines;
}

/// The lines of \p text: up to each line feed, a carriage return before it dropped; white space
/// and empty lines before a line skipped, as the tokenizer does.
template <class Store>
unsigned int memchrLines(const char* text, unsigned int length, Store store)
{
    const char* p = text;
    const char* const end = text + length;
    unsigned int lines = 0;
    while (p < end)
    {
        while (p < end && isWhite(*p))
        {
            ++p;
        }
        const char* nl = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)));
        const char* lineEnd = nl != nullptr ? nl : end;
        const char* cr =
            static_cast<const char*>(memchr(p, '\r', static_cast<size_t>(lineEnd - p)));
        store(p, static_cast<size_t>((cr != nullptr ? cr : lineEnd) - p));
        ++lines;
        p = nl != nullptr ? nl + 1 : end;
    }
    return lines;
}

unsigned int tokenizerTokens(ZnInputStream& in, std::vector<std::string>* out)
{
    char buffer[kTokenBufferSize];
    unsigned int tokens = 0;
    for (;;)
    {
        if (!ZnStreamTokenizer::sGetToken(in, kDelimiters, buffer, sizeof buffer))
        {
            return 0; // no token of the head is that long
        }
        benchmark::DoNotOptimize(buffer);
        if (buffer[0] != '\0')
        {
            if (out != nullptr)
            {
                out->push_back(buffer);
            }
            ++tokens;
        }
        if (in.read() == -1) // the delimiter
        {
            return tokens;
        }
    }
}

/// The same tokens with strcspn over the bytes in memory: white space skipped, the token up to
/// a delimiter copied and terminated, the delimiter passed.
unsigned int strcspnTokens(const char* text, std::vector<std::string>* out)
{
    char buffer[kTokenBufferSize];
    const char* p = text;
    unsigned int tokens = 0;
    for (;;)
    {
        while (isWhite(*p))
        {
            ++p;
        }
        const size_t n = strcspn(p, kDelimiters);
        if (n >= sizeof buffer)
        {
            return 0;
        }
        memcpy(buffer, p, n);
        buffer[n] = '\0';
        benchmark::DoNotOptimize(buffer);
        if (n > 0)
        {
            if (out != nullptr)
            {
                out->push_back(buffer);
            }
            ++tokens;
        }
        p += n;
        if (*p == '\0')
        {
            return tokens;
        }
        ++p;
    }
}

// ---- lines into strings ----

void BM_ZnStreamTokenizer_GetLine(benchmark::State& state)
{
    ZnHandle<ZnByteArray> bytes = headBytes();
    std::vector<std::string> ours;
    std::vector<std::string> theirs;
    ZnByteArrayInputStream check(bytes);
    tokenizerLines(check, &ours);
    memchrLines(kHead, kHeadLength, [&](const char* p, size_t n) { theirs.emplace_back(p, n); });
    if (ours.empty() || ours != theirs)
    {
        state.SkipWithError("the tokenizer's lines differ from memchr's");
        return;
    }
    unsigned int lines = 0;
    for (auto _ : state)
    {
        // On the stack with count 0: the static forms take no reference.
        ZnByteArrayInputStream in(bytes);
        lines = tokenizerLines(in, nullptr);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * lines);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kHeadLength);
}
BENCHMARK(BM_ZnStreamTokenizer_GetLine);

void BM_Memchr_GetLine(benchmark::State& state)
{
    unsigned int lines = 0;
    for (auto _ : state)
    {
        lines = memchrLines(kHead, kHeadLength,
                            [](const char* p, size_t n)
                            {
                                std::string line(p, n);
                                benchmark::DoNotOptimize(line.data());
                            });
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * lines);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kHeadLength);
}
BENCHMARK(BM_Memchr_GetLine);

// ---- lines into a caller's buffer ----

void BM_ZnStreamTokenizer_GetLineBuffer(benchmark::State& state)
{
    ZnHandle<ZnByteArray> bytes = headBytes();
    std::vector<std::string> ours;
    std::vector<std::string> theirs;
    ZnByteArrayInputStream check(bytes);
    tokenizerLinesBuffer(check, &ours);
    memchrLines(kHead, kHeadLength, [&](const char* p, size_t n) { theirs.emplace_back(p, n); });
    if (ours.empty() || ours != theirs)
    {
        state.SkipWithError("the tokenizer's lines differ from memchr's");
        return;
    }
    unsigned int lines = 0;
    for (auto _ : state)
    {
        ZnByteArrayInputStream in(bytes);
        lines = tokenizerLinesBuffer(in, nullptr);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * lines);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kHeadLength);
}
BENCHMARK(BM_ZnStreamTokenizer_GetLineBuffer);

void BM_Memchr_GetLineBuffer(benchmark::State& state)
{
    char buffer[kTokenBufferSize];
    unsigned int lines = 0;
    for (auto _ : state)
    {
        lines = memchrLines(kHead, kHeadLength,
                            [&](const char* p, size_t n)
                            {
                                memcpy(buffer, p, n);
                                buffer[n] = '\0';
                                benchmark::DoNotOptimize(buffer);
                            });
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * lines);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kHeadLength);
}
BENCHMARK(BM_Memchr_GetLineBuffer);

// ---- tokens into a caller's buffer ----

void BM_ZnStreamTokenizer_GetToken(benchmark::State& state)
{
    ZnHandle<ZnByteArray> bytes = headBytes();
    std::vector<std::string> ours;
    std::vector<std::string> theirs;
    ZnByteArrayInputStream check(bytes);
    tokenizerTokens(check, &ours);
    strcspnTokens(kHead, &theirs);
    if (ours.empty() || ours != theirs)
    {
        state.SkipWithError("the tokenizer's tokens differ from strcspn's");
        return;
    }
    unsigned int tokens = 0;
    for (auto _ : state)
    {
        ZnByteArrayInputStream in(bytes);
        tokens = tokenizerTokens(in, nullptr);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * tokens);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kHeadLength);
}
BENCHMARK(BM_ZnStreamTokenizer_GetToken);

void BM_Memchr_GetToken(benchmark::State& state)
{
    unsigned int tokens = 0;
    for (auto _ : state)
    {
        tokens = strcspnTokens(kHead, nullptr);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * tokens);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kHeadLength);
}
BENCHMARK(BM_Memchr_GetToken);

} // namespace

BENCHMARK_MAIN();
