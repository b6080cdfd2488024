// Cost of copying and assigning ZnHandles, against std::shared_ptr doing the same in one run.
//
// Both counts are atomic here: libstdc++ skips the atomic operations of shared_ptr while a
// process has only one thread, so main() starts and joins one thread before the runs. The
// result is the price of counting as a threaded program pays it.
#include "ZnUtil/ZnHandle.h"

#include "ZnUtil/ZnObject.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <thread>

namespace
{

/// A counted object of a host's own, held by ZnHandles.
class Payload : public ZnObject
{
public:
    explicit Payload(int value) : m_value(value) {}
    int getValue() const { return m_value; }

private:
    int m_value;
};

/// The same object for std::shared_ptr: no count of its own, made with make_shared.
struct StdPayload
{
    explicit StdPayload(int aValue) : value(aValue) {}
    int value;
};

void BM_ZnHandle_Copy(benchmark::State& state)
{
    ZnHandle<Payload> original(new Payload(7));
    {
        ZnHandle<Payload> check(original);
        if (original->getRefCount() != 2 || check->getValue() != 7)
        {
            state.SkipWithError("a copied handle does not share the object");
            return;
        }
    }
    for (auto _ : state)
    {
        ZnHandle<Payload> copy(original);
        benchmark::DoNotOptimize(copy);
    }
    if (original->getRefCount() != 1)
    {
        state.SkipWithError("copies left references behind");
    }
}
BENCHMARK(BM_ZnHandle_Copy);

void BM_SharedPtr_Copy(benchmark::State& state)
{
    std::shared_ptr<StdPayload> original = std::make_shared<StdPayload>(7);
    {
        std::shared_ptr<StdPayload> check(original);
        if (original.use_count() != 2 || check->value != 7)
        {
            state.SkipWithError("a copied shared_ptr does not share the object");
            return;
        }
    }
    for (auto _ : state)
    {
        std::shared_ptr<StdPayload> copy(original);
        benchmark::DoNotOptimize(copy);
    }
    if (original.use_count() != 1)
    {
        state.SkipWithError("copies left references behind");
    }
}
BENCHMARK(BM_SharedPtr_Copy);

/// Each iteration assigns two different objects in turn: two increments and two decrements.
void BM_ZnHandle_Assign(benchmark::State& state)
{
    ZnHandle<Payload> first(new Payload(1));
    ZnHandle<Payload> second(new Payload(2));
    ZnHandle<Payload> target;
    target = first;
    target = second;
    if (first->getRefCount() != 1 || second->getRefCount() != 2 || target->getValue() != 2)
    {
        state.SkipWithError("assignment does not move the reference");
        return;
    }
    for (auto _ : state)
    {
        target = first;
        benchmark::DoNotOptimize(target);
        target = second;
        benchmark::DoNotOptimize(target);
    }
}
BENCHMARK(BM_ZnHandle_Assign);

void BM_SharedPtr_Assign(benchmark::State& state)
{
    std::shared_ptr<StdPayload> first = std::make_shared<StdPayload>(1);
    std::shared_ptr<StdPayload> second = std::make_shared<StdPayload>(2);
    std::shared_ptr<StdPayload> target;
    target = first;
    target = second;
    if (first.use_count() != 1 || second.use_count() != 2 || target->value != 2)
    {
        state.SkipWithError("assignment does not move the reference");
        return;
    }
    for (auto _ : state)
    {
        target = first;
        benchmark::DoNotOptimize(target);
        target = second;
        benchmark::DoNotOptimize(target);
    }
}
BENCHMARK(BM_SharedPtr_Assign);

} // namespace

int main(int argc, char** argv)
{
    // Leave single-threaded mode for good, so that shared_ptr counts atomically as handles do.
    std::thread([] {}).join();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
