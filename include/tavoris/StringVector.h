// A list of strings and the splitting of a text at a separator.
#ifndef TAVORIS_STRINGVECTOR_H
#define TAVORIS_STRINGVECTOR_H

#include <cstddef>
#include <string>
#include <vector>

namespace Tavoris
{

/// A vector of std::string with room reserved at construction.
class StringVector : public std::vector<std::string>
{
public:
    /// An empty list with room for \p reserved strings.
    explicit StringVector(size_t reserved = 0);
    ~StringVector();

    /// Removes every string.
    void clear();
};

/// Appends to \p out the pieces of \p text between occurrences of \p separator. Empty pieces
/// (two separators in a row, or one at either end) are skipped; a null or empty text adds
/// nothing.
/// \return the number of pieces appended.
size_t strTokenize(const char* text, StringVector& out, char separator);

} // namespace Tavoris

#endif // TAVORIS_STRINGVECTOR_H
