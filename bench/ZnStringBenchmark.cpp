// Cost of ZnString's everyday operations, against std::string doing the same work in one run.
//
// ZnString allocates every non-empty string (there is no small-string buffer), grows exactly
// (no reserve) and shares on copy; std::string does the opposite on all three. The pairs below
// show what those choices cost and save at 8, 64 and 512 characters.
#include "ZnUtil/ZnString.h"

#include "ZnUtil/ZnStringBuffer.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>

namespace
{

/// A text of \p length lower-case letters; \p seed varies it.
std::string makeText(int64_t length, int seed)
{
    std::string text;
    text.reserve(static_cast<size_t>(length));
    for (int64_t i = 0; i < length; ++i)
    {
        text.push_back(static_cast<char>('a' + (i * 7 + seed) % 26));
    }
    return text;
}

/// h = h * 5 + c over signed bytes, independent of the library, to check its result.
unsigned int referenceHash(const std::string& text)
{
    uint32_t hash = 0;
    for (char c : text)
    {
        hash = hash * 5u + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
    }
    return hash;
}

const char kPiece[] = "abcdefgh";
const unsigned int kPieceLength = 8;

// ---- create: a string from a NUL-terminated text ----

void BM_ZnString_Create(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string text = makeText(length, 0);
    const ZnString check(text.c_str());
    if (check.length() != static_cast<unsigned int>(length) || check != text.c_str())
    {
        state.SkipWithError("created string differs from its text");
        return;
    }
    for (auto _ : state)
    {
        ZnString created(text.c_str());
        benchmark::DoNotOptimize(created.buffer());
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_ZnString_Create)->Arg(8)->Arg(64)->Arg(512);

void BM_StdString_Create(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string text = makeText(length, 0);
    const std::string check(text.c_str());
    if (check != text)
    {
        state.SkipWithError("created string differs from its text");
        return;
    }
    for (auto _ : state)
    {
        std::string created(text.c_str());
        benchmark::DoNotOptimize(created.data());
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_StdString_Create)->Arg(8)->Arg(64)->Arg(512);

// ---- copy: a second string with the same characters ----

void BM_ZnString_Copy(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const ZnString original(makeText(length, 0).c_str());
    {
        const ZnString check(original);
        if (check.buffer() != original.buffer() || check != original)
        {
            state.SkipWithError("a copy does not share the buffer");
            return;
        }
    }
    for (auto _ : state)
    {
        ZnString copy(original);
        benchmark::DoNotOptimize(copy.buffer());
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_ZnString_Copy)->Arg(8)->Arg(64)->Arg(512);

void BM_StdString_Copy(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string original = makeText(length, 0);
    if (std::string(original) != original)
    {
        state.SkipWithError("a copy differs from the original");
        return;
    }
    for (auto _ : state)
    {
        std::string copy(original);
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_StdString_Copy)->Arg(8)->Arg(64)->Arg(512);

// ---- append: build a string of the given length from 8-character pieces ----

void BM_ZnString_Append(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const int64_t pieces = length / kPieceLength;
    {
        ZnString check;
        for (int64_t i = 0; i < pieces; ++i)
        {
            check.append(kPiece, kPieceLength);
        }
        if (check.length() != static_cast<unsigned int>(length) ||
            check.indexOf(kPiece, static_cast<int>(length - kPieceLength)) !=
                static_cast<int>(length - kPieceLength))
        {
            state.SkipWithError("appended string has the wrong characters");
            return;
        }
    }
    for (auto _ : state)
    {
        ZnString built;
        for (int64_t i = 0; i < pieces; ++i)
        {
            built.append(kPiece, kPieceLength);
        }
        benchmark::DoNotOptimize(built.buffer());
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_ZnString_Append)->Arg(8)->Arg(64)->Arg(512);

void BM_StdString_Append(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const int64_t pieces = length / kPieceLength;
    {
        std::string check;
        for (int64_t i = 0; i < pieces; ++i)
        {
            check.append(kPiece, kPieceLength);
        }
        if (check.size() != static_cast<size_t>(length) ||
            check.compare(static_cast<size_t>(length - kPieceLength), kPieceLength, kPiece) != 0)
        {
            state.SkipWithError("appended string has the wrong characters");
            return;
        }
    }
    for (auto _ : state)
    {
        std::string built;
        for (int64_t i = 0; i < pieces; ++i)
        {
            built.append(kPiece, kPieceLength);
        }
        benchmark::DoNotOptimize(built.data());
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_StdString_Append)->Arg(8)->Arg(64)->Arg(512);

// ---- assign: replace the characters of a string that has room, two texts in turn ----

void BM_ZnString_Assign(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string first = makeText(length, 1);
    const std::string second = makeText(length, 2);
    ZnString target(ZnStringBuffer::sCreate(nullptr, 0, static_cast<unsigned int>(length + 1)));
    const ZnStringBuffer* room = target.buffer();
    target = first.c_str();
    if (target.buffer() != room || target != first.c_str())
    {
        state.SkipWithError("assignment did not work in place");
        return;
    }
    for (auto _ : state)
    {
        target = first.c_str();
        benchmark::DoNotOptimize(target.buffer());
        target = second.c_str();
        benchmark::DoNotOptimize(target.buffer());
    }
    state.SetBytesProcessed(state.iterations() * 2 * length);
}
BENCHMARK(BM_ZnString_Assign)->Arg(8)->Arg(64)->Arg(512);

void BM_StdString_Assign(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string first = makeText(length, 1);
    const std::string second = makeText(length, 2);
    std::string target;
    target.reserve(static_cast<size_t>(length));
    target = first.c_str();
    if (target != first)
    {
        state.SkipWithError("assignment gave other characters");
        return;
    }
    for (auto _ : state)
    {
        target = first.c_str();
        benchmark::DoNotOptimize(target.data());
        target = second.c_str();
        benchmark::DoNotOptimize(target.data());
    }
    state.SetBytesProcessed(state.iterations() * 2 * length);
}
BENCHMARK(BM_StdString_Assign)->Arg(8)->Arg(64)->Arg(512);

// ---- compare: equality of two equal strings held in different buffers ----

void BM_ZnString_Compare(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string text = makeText(length, 3);
    const ZnString left(text.c_str());
    const ZnString right(text.c_str());
    if (left.buffer() == right.buffer() || !(left == right) || left == ZnString("x"))
    {
        state.SkipWithError("equality gives the wrong answer");
        return;
    }
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(left == right);
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_ZnString_Compare)->Arg(8)->Arg(64)->Arg(512);

void BM_StdString_Compare(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string left = makeText(length, 3);
    const std::string right = makeText(length, 3);
    if (left.data() == right.data() || !(left == right) || left == std::string("x"))
    {
        state.SkipWithError("equality gives the wrong answer");
        return;
    }
    // Let both strings escape, so that the comparison is not hoisted out of the loop.
    benchmark::DoNotOptimize(left);
    benchmark::DoNotOptimize(right);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(left == right);
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_StdString_Compare)->Arg(8)->Arg(64)->Arg(512);

// ---- hash: computed afresh after each change (an in-place assignment on both sides) ----

void BM_ZnString_Hash(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string text = makeText(length, 4);
    ZnString target(text.c_str());
    target = text.c_str();
    if (target.hashCode() != referenceHash(text))
    {
        state.SkipWithError("hash differs from h * 5 + c");
        return;
    }
    for (auto _ : state)
    {
        // The assignment works in place and clears the cached hash, so it is computed again.
        target = text.c_str();
        benchmark::DoNotOptimize(target.hashCode());
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_ZnString_Hash)->Arg(8)->Arg(64)->Arg(512);

void BM_StdString_Hash(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string text = makeText(length, 4);
    std::string target;
    target = text.c_str();
    const std::hash<std::string> hasher;
    if (hasher(target) != hasher(text))
    {
        state.SkipWithError("equal strings hash differently");
        return;
    }
    for (auto _ : state)
    {
        target = text.c_str();
        benchmark::DoNotOptimize(hasher(target));
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_StdString_Hash)->Arg(8)->Arg(64)->Arg(512);

// ---- hash of an unchanged string: ZnString answers from its cache, std::string hashes again ----

void BM_ZnString_HashCached(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string text = makeText(length, 5);
    const ZnString target(text.c_str());
    if (target.hashCode() != referenceHash(text) || target.hashCode() != target.hashCode())
    {
        state.SkipWithError("cached hash differs from h * 5 + c");
        return;
    }
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(target.hashCode());
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_ZnString_HashCached)->Arg(8)->Arg(64)->Arg(512);

void BM_StdString_HashCached(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string target = makeText(length, 5);
    const std::hash<std::string> hasher;
    if (hasher(target) != hasher(std::string(target)))
    {
        state.SkipWithError("equal strings hash differently");
        return;
    }
    // Let the string escape, so that the hash is not hoisted out of the loop.
    benchmark::DoNotOptimize(target);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(hasher(target));
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_StdString_HashCached)->Arg(8)->Arg(64)->Arg(512);

} // namespace

BENCHMARK_MAIN();
