#include "ZnUtil/ZnTimer.h"

ZnTimer::~ZnTimer() = default;
