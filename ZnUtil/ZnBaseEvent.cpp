#include "ZnUtil/ZnBaseEvent.h"

ZnBaseEvent::~ZnBaseEvent() = default;
