#include "ZnUtil/ZnSerializable.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayOutputStream.h"
#include "ZnUtil/ZnHandle.h"

#include <ostream>

ZnSerializable::~ZnSerializable() = default;

std::ostream& operator<<(std::ostream& out, const ZnSerializable& object)
{
    ZnHandle<ZnByteArrayOutputStream> bytes(new ZnByteArrayOutputStream(0));
    object.serialize(bytes);
    ZnHandle<ZnByteArray> serialized = bytes->toByteArray();
    return out << *static_cast<ZnByteArray*>(serialized);
}
