// Cost of ZnKeyTable's put, get and remove, against a std::unordered_map<std::string,
// std::shared_ptr<...>> behind one std::mutex doing the same work in one run, from one thread
// and from two.
//
// Both maps are shared by the threads of a run, each thread working on 1024 keys of its own with
// values of its own, so that what the threads contend for is the map and its lock. ZnKeyTable
// has 2053 buckets and 8 lock stripes, as a table expecting a few thousand keys is made; the
// standard map is reserved for all keys and has its one lock. Keys of ZnKeyTable cache their
// hash; std::string keys are hashed at each look-up. Values are counted on both sides: a put
// hands back the replaced value, a get a new reference.
#include "ZnUtil/ZnKeyTable.h"

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"
#include "ZnUtil/ZnString.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace
{

const unsigned int kKeysPerThread = 1024; // a power of two: the key index wraps by a mask
const unsigned int kMaxThreads = 2;
const unsigned int kTableSize = 2053;
const unsigned int kStripes = 8;

class Payload : public ZnObject
{
};

struct StdPayload
{
    int value = 0;
};

/// The keys of all threads in both forms, made once: thread t uses [t * 1024, (t + 1) * 1024).
struct Keys
{
    Keys()
    {
        for (unsigned int i = 0; i < kKeysPerThread * kMaxThreads; ++i)
        {
            const std::string text = "call-" + std::to_string(i * 7919u) + "@host.example";
            zn.push_back(ZnString(text.c_str()));
            zn.back().hashCode();
            plain.push_back(text);
        }
    }

    std::vector<ZnString> zn;
    std::vector<std::string> plain;
};

const Keys& keys()
{
    static const Keys s_keys;
    return s_keys;
}

/// The standard baseline: the map and the one lock that guards it.
struct StdTable
{
    StdTable() { map.reserve(kKeysPerThread * kMaxThreads); }

    std::shared_ptr<StdPayload> put(const std::string& key,
                                    const std::shared_ptr<StdPayload>& value)
    {
        std::shared_ptr<StdPayload> old;
        std::lock_guard<std::mutex> guard(mutex);
        std::shared_ptr<StdPayload>& slot = map[key];
        old = std::exchange(slot, value);
        return old;
    }

    std::shared_ptr<StdPayload> get(const std::string& key)
    {
        std::lock_guard<std::mutex> guard(mutex);
        const auto found = map.find(key);
        return found != map.end() ? found->second : std::shared_ptr<StdPayload>();
    }

    bool remove(const std::string& key)
    {
        std::shared_ptr<StdPayload> old; // released after the lock, as ZnKeyTable does
        std::lock_guard<std::mutex> guard(mutex);
        const auto found = map.find(key);
        if (found == map.end())
        {
            return false;
        }
        old = std::move(found->second);
        map.erase(found);
        return true;
    }

    std::mutex mutex;
    std::unordered_map<std::string, std::shared_ptr<StdPayload>> map;
};

// The tables of the running benchmark. Thread 0 makes them before the loop and destroys them
// after it; the other threads touch them only inside the loop, which all threads enter and leave
// together.
ZnKeyTable* g_znTable = nullptr;
StdTable* g_stdTable = nullptr;

/// Puts a value of its own under each of \p count keys from \p first.
void fillZn(ZnKeyTable& table, unsigned int first, unsigned int count, ZnObject* value)
{
    for (unsigned int i = first; i < first + count; ++i)
    {
        table.put(keys().zn[i], value);
    }
}

void fillStd(StdTable& table, unsigned int first, unsigned int count,
             const std::shared_ptr<StdPayload>& value)
{
    for (unsigned int i = first; i < first + count; ++i)
    {
        table.put(keys().plain[i], value);
    }
}

// ---- put: replace the value of a present key (the first round adds) ----

void BM_ZnKeyTable_Put(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        g_znTable = new ZnKeyTable(kTableSize, kStripes);
        ZnHandle<ZnObject> probe(new Payload);
        ZnHandle<ZnObject> first = g_znTable->put("check", probe);
        ZnHandle<ZnObject> second = g_znTable->put("check", new Payload);
        if (!first.isNil() || static_cast<ZnObject*>(second) != static_cast<ZnObject*>(probe))
        {
            state.SkipWithError("put does not hand back the replaced value");
        }
    }
    const ZnString* mine = &keys().zn[state.thread_index() * kKeysPerThread];
    ZnHandle<ZnObject> value(new Payload);
    unsigned int i = 0;
    for (auto _ : state)
    {
        ZnHandle<ZnObject> old = g_znTable->put(mine[i], value);
        benchmark::DoNotOptimize(old);
        i = (i + 1) & (kKeysPerThread - 1);
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
    {
        delete g_znTable;
        g_znTable = nullptr;
    }
}
BENCHMARK(BM_ZnKeyTable_Put)->Threads(1)->Threads(2);

void BM_StdMap_Put(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        g_stdTable = new StdTable;
        auto probe = std::make_shared<StdPayload>();
        const auto first = g_stdTable->put("check", probe);
        const auto second = g_stdTable->put("check", std::make_shared<StdPayload>());
        if (first != nullptr || second != probe)
        {
            state.SkipWithError("put does not hand back the replaced value");
        }
    }
    const std::string* mine = &keys().plain[state.thread_index() * kKeysPerThread];
    const auto value = std::make_shared<StdPayload>();
    unsigned int i = 0;
    for (auto _ : state)
    {
        std::shared_ptr<StdPayload> old = g_stdTable->put(mine[i], value);
        benchmark::DoNotOptimize(old);
        i = (i + 1) & (kKeysPerThread - 1);
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
    {
        delete g_stdTable;
        g_stdTable = nullptr;
    }
}
BENCHMARK(BM_StdMap_Put)->Threads(1)->Threads(2);

// ---- get: look up a present key and take a reference on its value ----

void BM_ZnKeyTable_Get(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        g_znTable = new ZnKeyTable(kTableSize, kStripes);
        for (unsigned int i = 0; i < kKeysPerThread * kMaxThreads; ++i)
        {
            g_znTable->put(keys().zn[i], new Payload);
        }
        ZnHandle<ZnObject> probe(new Payload);
        g_znTable->put("check", probe);
        if (static_cast<ZnObject*>(g_znTable->get(ZnString("check"))) !=
                static_cast<ZnObject*>(probe) ||
            g_znTable->get(keys().zn[0]).isNil())
        {
            state.SkipWithError("get does not find what was put");
        }
    }
    const ZnString* mine = &keys().zn[state.thread_index() * kKeysPerThread];
    unsigned int i = 0;
    for (auto _ : state)
    {
        ZnHandle<ZnObject> found = g_znTable->get(mine[i]);
        benchmark::DoNotOptimize(found);
        i = (i + 1) & (kKeysPerThread - 1);
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
    {
        delete g_znTable;
        g_znTable = nullptr;
    }
}
BENCHMARK(BM_ZnKeyTable_Get)->Threads(1)->Threads(2);

void BM_StdMap_Get(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        g_stdTable = new StdTable;
        for (unsigned int i = 0; i < kKeysPerThread * kMaxThreads; ++i)
        {
            g_stdTable->put(keys().plain[i], std::make_shared<StdPayload>());
        }
        auto probe = std::make_shared<StdPayload>();
        g_stdTable->put("check", probe);
        if (g_stdTable->get("check") != probe || g_stdTable->get(keys().plain[0]) == nullptr)
        {
            state.SkipWithError("get does not find what was put");
        }
    }
    const std::string* mine = &keys().plain[state.thread_index() * kKeysPerThread];
    unsigned int i = 0;
    for (auto _ : state)
    {
        std::shared_ptr<StdPayload> found = g_stdTable->get(mine[i]);
        benchmark::DoNotOptimize(found);
        i = (i + 1) & (kKeysPerThread - 1);
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
    {
        delete g_stdTable;
        g_stdTable = nullptr;
    }
}
BENCHMARK(BM_StdMap_Get)->Threads(1)->Threads(2);

// ---- remove: take out a present key; each thread refills its keys, untimed, every 1024 ----

void BM_ZnKeyTable_Remove(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        g_znTable = new ZnKeyTable(kTableSize, kStripes);
        g_znTable->put("check", new Payload);
        const bool present = g_znTable->remove("check");
        const bool again = g_znTable->remove("check");
        if (!present || again || !g_znTable->isEmpty())
        {
            state.SkipWithError("remove does not take out exactly the key");
        }
    }
    const unsigned int first = static_cast<unsigned int>(state.thread_index()) * kKeysPerThread;
    const ZnString* mine = &keys().zn[first];
    ZnHandle<ZnObject> value(new Payload);
    unsigned int i = 0;
    for (auto _ : state)
    {
        if (i == 0)
        {
            state.PauseTiming();
            fillZn(*g_znTable, first, kKeysPerThread, value);
            state.ResumeTiming();
        }
        bool removed = g_znTable->remove(mine[i]);
        benchmark::DoNotOptimize(removed);
        i = (i + 1) & (kKeysPerThread - 1);
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
    {
        delete g_znTable;
        g_znTable = nullptr;
    }
}
BENCHMARK(BM_ZnKeyTable_Remove)->Threads(1)->Threads(2);

void BM_StdMap_Remove(benchmark::State& state)
{
    if (state.thread_index() == 0)
    {
        g_stdTable = new StdTable;
        g_stdTable->put("check", std::make_shared<StdPayload>());
        const bool present = g_stdTable->remove("check");
        const bool again = g_stdTable->remove("check");
        if (!present || again || !g_stdTable->map.empty())
        {
            state.SkipWithError("remove does not take out exactly the key");
        }
    }
    const unsigned int first = static_cast<unsigned int>(state.thread_index()) * kKeysPerThread;
    const std::string* mine = &keys().plain[first];
    const auto value = std::make_shared<StdPayload>();
    unsigned int i = 0;
    for (auto _ : state)
    {
        if (i == 0)
        {
            state.PauseTiming();
            fillStd(*g_stdTable, first, kKeysPerThread, value);
            state.ResumeTiming();
        }
        bool removed = g_stdTable->remove(mine[i]);
        benchmark::DoNotOptimize(removed);
        i = (i + 1) & (kKeysPerThread - 1);
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
    {
        delete g_stdTable;
        g_stdTable = nullptr;
    }
}
BENCHMARK(BM_StdMap_Remove)->Threads(1)->Threads(2);

} // namespace

int main(int argc, char** argv)
{
    // Leave single-threaded mode for good, so that shared_ptr counts atomically as handles do.
    std::thread([] {}).join();
    keys();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
