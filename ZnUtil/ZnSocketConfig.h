// The common base of the per-transport settings of a socket.
#ifndef ZNUTIL_ZNSOCKETCONFIG_H
#define ZNUTIL_ZNSOCKETCONFIG_H

#include "tavoris/Cloneable.h"
#include "tavoris/OutputStreamable.h"

/// Settings that a socket of one transport needs when it is made (the TLS settings, say), passed
/// by a base pointer to whoever creates sockets.
///
/// An abstract base with no fields and no operation of its own: write() of OutputStreamable and
/// clone() of Cloneable stay pure, and each transport's settings class implements them. The two
/// interfaces meet in one virtual Tavoris::Object, through which a configuration can be deleted.
/// Ownership: clone() gives the caller a new object. Thread safety: a value; one thread at a time.
class ZnSocketConfig : public Tavoris::OutputStreamable, public Tavoris::Cloneable
{
public:
    ZnSocketConfig();
    ZnSocketConfig(const ZnSocketConfig& other);
    ZnSocketConfig& operator=(const ZnSocketConfig& other);
    ~ZnSocketConfig() override;
};

#endif // ZNUTIL_ZNSOCKETCONFIG_H
