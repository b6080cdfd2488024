// A base for interfaces mixed into classes that have no count of their own.
#ifndef ZNUTIL_ZNINTERFACE_H
#define ZNUTIL_ZNINTERFACE_H

/// Declares AddRef and Release so that interfaces can be mixed into classes without a count:
/// both do nothing and answer 0.
class ZnInterface
{
public:
    ZnInterface() = default;
    ZnInterface(const ZnInterface&) {}
    ZnInterface& operator=(const ZnInterface&) { return *this; }

    /// \return 0, always.
    virtual unsigned long AddRef();
    /// \return 0, always.
    virtual unsigned long Release();
};

#endif // ZNUTIL_ZNINTERFACE_H
