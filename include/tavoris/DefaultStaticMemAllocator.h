// Accounted heap allocation of blocks whose size the caller repeats when giving them back.
#ifndef TAVORIS_DEFAULTSTATICMEMALLOCATOR_H
#define TAVORIS_DEFAULTSTATICMEMALLOCATOR_H

#include <cstddef>

namespace Tavoris
{

/// Heap allocation counted on a memory account (see MemAccount). Used by the class-level
/// operator new and delete of the library's classes. Thread safe.
class DefaultStaticMemAllocator
{
public:
    /// Allocates \p size bytes (at least one) counted on \p account, a static text (see
    /// MemAccount). \throws std::bad_alloc when the heap is exhausted.
    static void* allocate(size_t size, const char* account);

    /// Gives back a block of allocate(); \p size and \p account must be those of the allocation.
    /// A null \p p does nothing.
    static void deallocate(void* p, size_t size, const char* account);
};

} // namespace Tavoris

#endif // TAVORIS_DEFAULTSTATICMEMALLOCATOR_H
