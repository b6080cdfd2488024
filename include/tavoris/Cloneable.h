// Interface of objects that copy themselves through a base pointer.
#ifndef TAVORIS_CLONEABLE_H
#define TAVORIS_CLONEABLE_H

#include "tavoris/Object.h"

namespace Tavoris
{

/// An object that makes a copy of its own run-time class, so that a holder of a base pointer can
/// duplicate it without knowing the class.
/// Thread safety: as the implementation's const operations.
class Cloneable : public virtual Object
{
public:
    /// A new copy of this object, of the same run-time class.
    /// \return a heap object owned by the caller, who deletes it (through any of its bases).
    virtual Cloneable* clone() const = 0;
};

} // namespace Tavoris

#endif // TAVORIS_CLONEABLE_H
