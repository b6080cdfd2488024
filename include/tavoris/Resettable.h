// Something whose cached state can be refreshed on demand.
#ifndef TAVORIS_RESETTABLE_H
#define TAVORIS_RESETTABLE_H

namespace Tavoris
{

/// Interface of objects that cache something (a log level, say) and can be told to read it again.
class Resettable
{
public:
    virtual ~Resettable() = default;

    /// Refreshes what the object caches.
    /// \return true when the refresh succeeded.
    virtual bool reset() = 0;
};

} // namespace Tavoris

#endif // TAVORIS_RESETTABLE_H
