// The common root of the framework's interfaces.
#ifndef TAVORIS_OBJECT_H
#define TAVORIS_OBJECT_H

namespace Tavoris
{

/// The root of the framework's small interfaces (OutputStreamable, Cloneable, ...), so that an
/// object that implements several of them can be held and deleted through one pointer.
///
/// The interfaces derive from it virtually: an object has one Object part however many of them it
/// implements. It has no state. Thread safety: nothing to guard.
class Object
{
public:
    Object() = default;
    Object(const Object&) = default;
    Object& operator=(const Object&) = default;

    /// Virtual, so that a derived object may be deleted through an Object pointer.
    virtual ~Object() = default;
};

} // namespace Tavoris

#endif // TAVORIS_OBJECT_H
