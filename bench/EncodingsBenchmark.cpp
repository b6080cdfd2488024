// Cost of MD5 digests and Base64 encoding, against OpenSSL doing the same work in one run.
//
// MD5::digest is portable C++ and hands back a new ZnByteArray; OpenSSL runs its x86-64
// assembly through a reused EVP context into a caller's buffer. Base64::encode measures its
// NUL-terminated input and allocates the result string; EVP_EncodeBlock writes into a caller's
// buffer from a known length.
#include "ZnUtil/Base64.h"
#include "ZnUtil/MD5.h"
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnString.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace
{

/// \p length bytes with no zero among them, as a NUL-terminated text.
std::string makeBytes(int64_t length)
{
    std::string bytes;
    bytes.reserve(static_cast<size_t>(length));
    for (int64_t i = 0; i < length; ++i)
    {
        bytes.push_back(static_cast<char>((i * 131 + 7) % 255 + 1));
    }
    return bytes;
}

/// OpenSSL's MD5 of \p bytes, fetched once and digested through one context.
class OpenSslMd5
{
public:
    OpenSslMd5() : m_md(EVP_MD_fetch(nullptr, "MD5", nullptr)), m_ctx(EVP_MD_CTX_new()) {}
    ~OpenSslMd5()
    {
        EVP_MD_CTX_free(m_ctx);
        EVP_MD_free(m_md);
    }
    OpenSslMd5(const OpenSslMd5&) = delete;
    OpenSslMd5& operator=(const OpenSslMd5&) = delete;

    bool digest(const std::string& bytes, unsigned char out[EVP_MAX_MD_SIZE])
    {
        unsigned int length = 0;
        return m_md != nullptr && m_ctx != nullptr &&
               EVP_DigestInit_ex2(m_ctx, m_md, nullptr) == 1 &&
               EVP_DigestUpdate(m_ctx, bytes.data(), bytes.size()) == 1 &&
               EVP_DigestFinal_ex(m_ctx, out, &length) == 1 && length == MD5::MD5_LENGTH;
    }

private:
    EVP_MD* m_md;
    EVP_MD_CTX* m_ctx;
};

// ---- MD5 digest ----

void BM_MD5_Digest(benchmark::State& state)
{
    const std::string bytes = makeBytes(state.range(0));
    const ZnHandle<ZnByteArray> message =
        ZnByteArray::sCreate(static_cast<unsigned int>(bytes.size()), bytes.data());
    MD5 md5;
    OpenSslMd5 reference;
    unsigned char expected[EVP_MAX_MD_SIZE];
    const ZnHandle<ZnByteArray> check = md5.digest(message);
    if (!reference.digest(bytes, expected) ||
        memcmp(check->getBytes(), expected, MD5::MD5_LENGTH) != 0)
    {
        state.SkipWithError("digest differs from OpenSSL's");
        return;
    }
    for (auto _ : state)
    {
        const ZnHandle<ZnByteArray> digest = md5.digest(message);
        benchmark::DoNotOptimize(digest->getBytes());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_MD5_Digest)->Arg(1024);

void BM_OpenSSL_Digest(benchmark::State& state)
{
    const std::string bytes = makeBytes(state.range(0));
    OpenSslMd5 md5;
    unsigned char out[EVP_MAX_MD_SIZE];
    if (!md5.digest(bytes, out))
    {
        state.SkipWithError("OpenSSL MD5 unavailable");
        return;
    }
    for (auto _ : state)
    {
        md5.digest(bytes, out);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_OpenSSL_Digest)->Arg(1024);

// ---- Base64 encode ----

void BM_Base64_Encode(benchmark::State& state)
{
    const std::string bytes = makeBytes(state.range(0));
    std::vector<unsigned char> expected(bytes.size() / 3 * 4 + 5);
    const int expectedLength =
        EVP_EncodeBlock(expected.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                        static_cast<int>(bytes.size()));
    unsigned int length = 0;
    const ZnString check = Base64::encode(bytes.c_str(), length);
    if (static_cast<int>(length) != expectedLength ||
        memcmp(check.c_str(), expected.data(), length) != 0)
    {
        state.SkipWithError("encoding differs from OpenSSL's");
        return;
    }
    for (auto _ : state)
    {
        const ZnString encoded = Base64::encode(bytes.c_str(), length);
        benchmark::DoNotOptimize(encoded.buffer());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Base64_Encode)->Arg(1024);

void BM_OpenSSL_Encode(benchmark::State& state)
{
    const std::string bytes = makeBytes(state.range(0));
    std::vector<unsigned char> out(bytes.size() / 3 * 4 + 5);
    if (EVP_EncodeBlock(out.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                        static_cast<int>(bytes.size())) !=
        static_cast<int>((bytes.size() + 2) / 3 * 4))
    {
        state.SkipWithError("unexpected encoded length");
        return;
    }
    for (auto _ : state)
    {
        const int written =
            EVP_EncodeBlock(out.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<int>(bytes.size()));
        benchmark::DoNotOptimize(written);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_OpenSSL_Encode)->Arg(1024);

} // namespace

BENCHMARK_MAIN();
