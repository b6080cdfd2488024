// ZnBufferedInputStream over a memory source, one byte at a time and in blocks, against memcpy
// of the same bytes.
#include "ZnUtil/ZnBufferedInputStream.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnHandle.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace
{

const unsigned int kEndOfStream = 0xFFFFFFFFu;
/// Every iteration reads this much, through a fresh stream.
const unsigned int kTotal = 1u << 20;

const std::vector<unsigned char>& sourceBytes()
{
    static const std::vector<unsigned char> bytes = []
    {
        std::vector<unsigned char> made(kTotal);
        for (unsigned int i = 0; i < kTotal; ++i)
        {
            made[i] = static_cast<unsigned char>((i * 131u) ^ (i >> 8));
        }
        return made;
    }();
    return bytes;
}

ZnHandle<ZnBufferedInputStream> openStream(const ZnHandle<ZnByteArray>& aArray)
{
    return new ZnBufferedInputStream(new ZnByteArrayInputStream(aArray, 0, 0), 0);
}

unsigned long sumOfBytes()
{
    unsigned long sum = 0;
    for (unsigned char byte : sourceBytes())
    {
        sum += byte;
    }
    return sum;
}

/// Reads the stream to its end with read().
unsigned long readBytes(ZnBufferedInputStream& aIn)
{
    unsigned long sum = 0;
    int byte;
    while ((byte = aIn.read()) != -1)
    {
        sum += static_cast<unsigned long>(byte);
    }
    return sum;
}

/// Reads the stream to its end in blocks of \p aSize; false when a block differs from the
/// source (checked only when \p aCheck is set).
bool readBlocks(ZnBufferedInputStream& aIn, unsigned char* aBlock, unsigned int aSize, bool aCheck)
{
    const unsigned char* expected = sourceBytes().data();
    size_t position = 0;
    unsigned int n;
    while ((n = aIn.read(aBlock, aSize, 0)) != kEndOfStream)
    {
        if (aCheck && memcmp(aBlock, expected + position, n) != 0)
        {
            return false;
        }
        position += n;
        benchmark::DoNotOptimize(aBlock);
        benchmark::ClobberMemory();
    }
    return position == kTotal;
}

void BM_ZnBufferedInputStream_Byte(benchmark::State& state)
{
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(kTotal, sourceBytes().data());
    {
        ZnHandle<ZnBufferedInputStream> in = openStream(array);
        if (readBytes(*in) != sumOfBytes())
        {
            state.SkipWithError("read() gave other bytes than the source holds");
            return;
        }
    }
    for (auto _ : state)
    {
        ZnHandle<ZnBufferedInputStream> in = openStream(array);
        benchmark::DoNotOptimize(readBytes(*in));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kTotal);
}
BENCHMARK(BM_ZnBufferedInputStream_Byte);

void BM_ZnBufferedInputStream_Block(benchmark::State& state)
{
    const unsigned int size = static_cast<unsigned int>(state.range(0));
    ZnHandle<ZnByteArray> array = ZnByteArray::sCreate(kTotal, sourceBytes().data());
    std::vector<unsigned char> block(size);
    {
        ZnHandle<ZnBufferedInputStream> in = openStream(array);
        if (!readBlocks(*in, block.data(), size, true))
        {
            state.SkipWithError("block reads gave other bytes than the source holds");
            return;
        }
    }
    for (auto _ : state)
    {
        ZnHandle<ZnBufferedInputStream> in = openStream(array);
        benchmark::DoNotOptimize(readBlocks(*in, block.data(), size, false));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kTotal);
}
BENCHMARK(BM_ZnBufferedInputStream_Block)->Arg(64)->Arg(1024);

/// The baseline of read(): the same bytes taken one at a time straight from memory.
void BM_Memcpy_Byte(benchmark::State& state)
{
    const unsigned char* source = sourceBytes().data();
    for (auto _ : state)
    {
        unsigned long sum = 0;
        for (unsigned int i = 0; i < kTotal; ++i)
        {
            unsigned char byte;
            memcpy(&byte, source + i, 1);
            sum += byte;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kTotal);
}
BENCHMARK(BM_Memcpy_Byte);

/// The baseline of the block reads: memcpy of the same bytes in blocks of the same size.
void BM_Memcpy_Block(benchmark::State& state)
{
    const unsigned int size = static_cast<unsigned int>(state.range(0));
    const unsigned char* source = sourceBytes().data();
    std::vector<unsigned char> block(size);
    for (auto _ : state)
    {
        for (unsigned int position = 0; position < kTotal; position += size)
        {
            memcpy(block.data(), source + position, size);
            benchmark::DoNotOptimize(block.data());
            benchmark::ClobberMemory();
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kTotal);
}
BENCHMARK(BM_Memcpy_Block)->Arg(64)->Arg(1024);

} // namespace

BENCHMARK_MAIN();
