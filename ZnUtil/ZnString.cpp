#include "ZnUtil/ZnString.h"

#include <ostream>

std::ostream& operator<<(std::ostream& out, const ZnString& text)
{
    const char* characters = text;
    if (characters != nullptr)
    {
        out << characters;
    }
    return out;
}
