// The short name of a source file, computed while compiling.
#ifndef TAVORIS_SOURCENAME_H
#define TAVORIS_SOURCENAME_H

#include <cstddef>

namespace Tavoris
{

/// The file name of a path without its folders and its extension: "ZnThread" for
/// ".../ZnUtil/ZnThread.cpp". Built by the compiler, so a log site pays nothing for it.
template <size_t N>
struct SourceName
{
    char text[N];

    constexpr explicit SourceName(const char (&path)[N]) : text{}
    {
        size_t begin = 0;
        size_t end = N - 1;
        for (size_t i = 0; i + 1 < N; ++i)
        {
            if (path[i] == '/' || path[i] == '\\')
            {
                begin = i + 1;
                end = N - 1;
            }
            else if (path[i] == '.')
            {
                end = i;
            }
        }
        if (end <= begin)
        {
            end = N - 1;
        }
        size_t out = 0;
        for (size_t i = begin; i < end; ++i)
        {
            text[out++] = path[i];
        }
        text[out] = '\0';
    }
};

} // namespace Tavoris

/// The short source name of the file in which the macro is expanded, as a static text.
#define TAVORIS_SOURCE_NAME                                                                        \
    (                                                                                              \
        []() -> const char*                                                                        \
        {                                                                                          \
            static constexpr ::Tavoris::SourceName<sizeof(__FILE__)> s_sourceName(__FILE__);       \
            return s_sourceName.text;                                                              \
        }())

#endif // TAVORIS_SOURCENAME_H
