// Accounted heap allocation of blocks given back without their size.
#ifndef TAVORIS_NOSIZEMEMALLOCATOR_H
#define TAVORIS_NOSIZEMEMALLOCATOR_H

#include <cstddef>

namespace Tavoris
{

/// Heap allocation counted on a memory account, for variable-size blocks and arrays: the size
/// is kept in a small header in front of the block. Thread safe.
class NoSizeMemAllocator
{
public:
    /// Allocates \p size bytes counted on \p account (a static text, see MemAccount), aligned
    /// for any scalar type.
    /// \throws std::bad_alloc when the heap is exhausted.
    static void* allocate(size_t size, const char* account);

    /// Gives back a block of allocate(); \p account must be that of the allocation.
    /// A null \p p does nothing.
    static void deallocate(void* p, const char* account);
};

} // namespace Tavoris

#endif // TAVORIS_NOSIZEMEMALLOCATOR_H
