// Interface of objects that print themselves on a standard stream.
#ifndef TAVORIS_OUTPUTSTREAMABLE_H
#define TAVORIS_OUTPUTSTREAMABLE_H

#include "tavoris/Object.h"

#include <ostream>

namespace Tavoris
{

/// An object that writes a text form of itself on a std::ostream, for logs and diagnostics.
/// operator<< below makes every implementation printable with the usual syntax.
/// Thread safety: as the implementation's const operations.
class OutputStreamable : public virtual Object
{
public:
    /// Writes the object's text form on \p out.
    /// \return \p out.
    virtual std::ostream& write(std::ostream& out) const = 0;
};

/// Prints \p object through its write().
inline std::ostream& operator<<(std::ostream& out, const OutputStreamable& object)
{
    return object.write(out);
}

} // namespace Tavoris

#endif // TAVORIS_OUTPUTSTREAMABLE_H
