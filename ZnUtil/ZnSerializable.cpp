#include "ZnUtil/ZnSerializable.h"

ZnSerializable::~ZnSerializable() = default;
