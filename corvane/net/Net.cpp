#include "tavoris/Net.h"

#include <atomic>

namespace
{

std::atomic<int> s_initializeCount{0};

} // namespace

namespace Tavoris
{

bool Net::initializeLibrary()
{
    // Sockets need no start-up call here; the count keeps the pairing visible.
    s_initializeCount.fetch_add(1);
    return true;
}

void Net::closeLibrary()
{
    int count = s_initializeCount.load();
    while (count > 0 && !s_initializeCount.compare_exchange_weak(count, count - 1))
    {
    }
}

bool Net::isInitialized()
{
    return s_initializeCount.load() > 0;
}

int Net::getInitializeCount()
{
    return s_initializeCount.load();
}

} // namespace Tavoris
