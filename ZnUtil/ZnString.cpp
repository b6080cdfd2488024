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

ZnInputStream& operator>>(ZnInputStream& in, ZnString& text)
{
    text.parse(in, " \t\r\n");
    return in;
}
