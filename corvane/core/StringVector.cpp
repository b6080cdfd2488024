#include "tavoris/StringVector.h"

namespace Tavoris
{

StringVector::StringVector(size_t reserved)
{
    reserve(reserved);
}

StringVector::~StringVector() = default;

void StringVector::clear()
{
    std::vector<std::string>::clear();
}

size_t strTokenize(const char* text, StringVector& out, char separator)
{
    if (text == nullptr)
    {
        return 0;
    }
    size_t added = 0;
    const char* start = text;
    for (const char* p = text;; ++p)
    {
        if (*p == separator || *p == '\0')
        {
            if (p != start)
            {
                out.emplace_back(start, p);
                ++added;
            }
            if (*p == '\0')
            {
                break;
            }
            start = p + 1;
        }
    }
    return added;
}

} // namespace Tavoris
