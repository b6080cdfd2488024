#include "ZnUtil/ZnSocket.h"

ZnSocket::~ZnSocket() = default;
