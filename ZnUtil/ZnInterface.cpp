#include "ZnUtil/ZnInterface.h"

unsigned long ZnInterface::AddRef()
{
    return 0;
}

unsigned long ZnInterface::Release()
{
    return 0;
}
