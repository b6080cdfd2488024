#include "tavoris/NoSizeMemAllocator.h"

#include "tavoris/MemAccount.h"

#include <cstddef>
#include <limits>
#include <new>

namespace Tavoris
{

namespace
{

/// Kept in front of each block; its size keeps the block aligned as operator new's are.
union BlockHeader
{
    size_t size;
    std::max_align_t alignment;
};

} // namespace

void* NoSizeMemAllocator::allocate(size_t size, const char* account)
{
    if (size > std::numeric_limits<size_t>::max() - sizeof(BlockHeader))
    {
        throw std::bad_alloc();
    }
    BlockHeader* header = static_cast<BlockHeader*>(::operator new(sizeof(BlockHeader) + size));
    header->size = size;
    MemAccount::sAdded(account, size);
    return header + 1;
}

void NoSizeMemAllocator::deallocate(void* p, const char* account)
{
    if (p == nullptr)
    {
        return;
    }
    BlockHeader* header = static_cast<BlockHeader*>(p) - 1;
    MemAccount::sRemoved(account, header->size);
    ::operator delete(header);
}

} // namespace Tavoris
