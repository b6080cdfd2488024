// A mix-in that gives an object a logger of its own.
#ifndef TAVORIS_OBJECTWITHLOGGER_H
#define TAVORIS_OBJECTWITHLOGGER_H

#include "tavoris/Logger.h"

namespace Tavoris
{

/// Base of objects that log on a logger of their own, of type L (LoggingIdLogger or
/// CachedLLLogger). Copies copy the logger. Thread safety: as the logger of type L.
template <class L>
class ObjectWithLogger
{
public:
    /// Holds an L made from the root logger.
    ObjectWithLogger() : m_logger(Logger()) {}
    ObjectWithLogger(const ObjectWithLogger& other) : m_logger(other.m_logger) {}
    ObjectWithLogger& operator=(const ObjectWithLogger& other)
    {
        if (this != &other)
        {
            m_logger = other.m_logger;
        }
        return *this;
    }
    virtual ~ObjectWithLogger() = default;

    /// Forwards to the logger's reset.
    bool reset() { return m_logger.reset(); }

    /// The logger of this object.
    const L& getLogger() const { return m_logger; }

protected:
    /// Replaces the logger of this object.
    void setLogger(const L& logger) { m_logger = logger; }

private:
    L m_logger;
};

} // namespace Tavoris

#endif // TAVORIS_OBJECTWITHLOGGER_H
