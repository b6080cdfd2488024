// Cost of collecting bytes in a ZnByteArrayOutputStream, against std::string::append of the same
// bytes in one run.
//
// Every write of the stream is a virtual call with a trace scope and three guarded debug log
// sites, and the store grows additively by the write rounded up to 256; std::string appends
// inline and doubles. Both sides start over every kResetEvery writes the same way (reset() and
// clear(), which both keep their memory), so memory stays bounded and the growth is paid once.
#include "ZnUtil/ZnByteArrayOutputStream.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace
{

const int kResetEvery = 4096;

/// \p length bytes of varied content.
std::string makeBytes(int64_t length)
{
    std::string bytes(static_cast<size_t>(length), '\0');
    for (int64_t i = 0; i < length; ++i)
    {
        bytes[static_cast<size_t>(i)] = static_cast<char>(i * 37 + 11);
    }
    return bytes;
}

void BM_ZnByteArrayOutputStream_Write(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string bytes = makeBytes(length);
    const unsigned int size = static_cast<unsigned int>(length);

    ZnByteArrayOutputStream check;
    check.write(bytes.data(), size, 0);
    check.write(bytes.data(), size, 0);
    ZnHandle<ZnByteArray> collected = check.toByteArray();
    if (collected->length() != 2 * size ||
        memcmp(collected->getBytes(), (bytes + bytes).data(), 2 * size) != 0)
    {
        state.SkipWithError("collected bytes differ from what was written");
        return;
    }

    ZnByteArrayOutputStream out;
    int writes = 0;
    for (auto _ : state)
    {
        out.write(bytes.data(), size, 0);
        if (++writes == kResetEvery)
        {
            out.reset();
            writes = 0;
        }
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_ZnByteArrayOutputStream_Write)->Arg(1)->Arg(100);

void BM_StdString_Append(benchmark::State& state)
{
    const int64_t length = state.range(0);
    const std::string bytes = makeBytes(length);
    const size_t size = static_cast<size_t>(length);

    std::string check;
    check.append(bytes.data(), size);
    check.append(bytes.data(), size);
    if (check != bytes + bytes)
    {
        state.SkipWithError("collected bytes differ from what was written");
        return;
    }

    std::string out;
    int writes = 0;
    for (auto _ : state)
    {
        out.append(bytes.data(), size);
        if (++writes == kResetEvery)
        {
            out.clear();
            writes = 0;
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * length);
}
BENCHMARK(BM_StdString_Append)->Arg(1)->Arg(100);

} // namespace

BENCHMARK_MAIN();
