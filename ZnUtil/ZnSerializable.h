// A base for objects that can write themselves to an output stream.
#ifndef ZNUTIL_ZNSERIALIZABLE_H
#define ZNUTIL_ZNSERIALIZABLE_H

#include <iosfwd>

class ZnOutputStream;

/// Objects that write themselves to a ZnOutputStream. The byte form belongs to each class.
class ZnSerializable
{
public:
    ZnSerializable() = default;
    ZnSerializable(const ZnSerializable&) {}
    ZnSerializable& operator=(const ZnSerializable&) { return *this; }
    virtual ~ZnSerializable();

    /// Writes the object to \p out.
    virtual void serialize(ZnOutputStream* out) const = 0;
};

/// Writes the serialised bytes of \p object to \p out, one character at a time.
std::ostream& operator<<(std::ostream& out, const ZnSerializable& object);

#endif // ZNUTIL_ZNSERIALIZABLE_H
