#include "tavoris/DefaultStaticMemAllocator.h"

#include "tavoris/MemAccount.h"

#include <new>

namespace Tavoris
{

void* DefaultStaticMemAllocator::allocate(size_t size, const char* account)
{
    void* p = ::operator new(size != 0 ? size : 1);
    MemAccount::sAdded(account, size);
    return p;
}

void DefaultStaticMemAllocator::deallocate(void* p, size_t size, const char* account)
{
    if (p == nullptr)
    {
        return;
    }
    MemAccount::sRemoved(account, size);
    ::operator delete(p);
}

} // namespace Tavoris
