// A plain value holding a private, NUL-terminated copy of a text.
#ifndef ZNUTIL_ZNCONSTSTRING_H
#define ZNUTIL_ZNCONSTSTRING_H

#include <cstddef>

/// A small value type for a private copy of a text: no reference count, no virtual functions,
/// not a ZnObject. It holds the length and a pointer to the characters, which is null for a
/// default-constructed string, a shared static empty text for an empty one, and otherwise a
/// block of length() + 1 bytes of its own on the memory account "ZnConstString".
///
/// toUpper(), toLower(), indexOf() and operator==() accept a null receiver.
/// Thread safety: none; a string is used by one thread at a time.
class ZnConstString
{
public:
    /// Length 0 and a null text.
    ZnConstString();

    /// A copy of \p text up to its terminator; a null \p text gives a null text, "" the static
    /// empty text.
    ZnConstString(const char* text);

    /// A copy of exactly \p n bytes of \p text, terminated; embedded NULs are kept and the
    /// text's own length is not consulted, so the caller guarantees \p n readable bytes.
    /// A null \p text gives length 0 and a null text; an \p n of 0 the static empty text.
    ZnConstString(const char* text, unsigned int n);

    /// A copy of \p other's text up to its terminator.
    ZnConstString(const ZnConstString& other);

    /// Gives back the text's block, if it has one.
    ~ZnConstString();

    /// Replaces the text with a copy of \p text, as the constructor from a text.
    ZnConstString& operator=(const char* text);

    /// Replaces the text with a copy of \p other's, up to its terminator.
    ZnConstString& operator=(const ZnConstString& other);

    /// The text, or null for a default-constructed string. It stays owned by the string.
    operator const char*() const { return m_pText; }

    /// The number of characters, without the terminator.
    unsigned int length() const { return m_length; }

    /// True when the length is 0.
    bool empty() const { return m_length == 0; }

    /// Folds the ASCII letters a to z to upper case in place; other bytes stay as they are.
    /// Does nothing on an empty string or a null receiver.
    void toUpper();

    /// Folds the ASCII letters A to Z to lower case in place; other bytes stay as they are.
    /// Does nothing on an empty string or a null receiver.
    void toLower();

    /// Finds \p needle in the text from the offset \p from on.
    /// \return the offset of the match from the start of the text; -1 when it is not found,
    /// when the receiver or \p needle is null, or when \p from is negative or not below length().
    int indexOf(const char* needle, int from) const;

    /// Case-sensitive equality. A null receiver equals a null or empty \p other; a null \p other
    /// equals only a string with a null text.
    bool operator==(const char* other) const;

    /// As the comparison with \p other's text.
    bool operator==(const ZnConstString& other) const;

    /// The name of the memory account of the class and of its texts.
    static const char* getMemAccountName() { return "ZnConstString"; }

    static void* operator new(size_t size);
    static void operator delete(void* p);
    static void* operator new[](size_t size);
    static void operator delete[](void* p);
    /// Placement forms: nothing is allocated.
    static void* operator new(size_t, void* place) { return place; }
    static void operator delete(void*, void*) {}

private:
    /// Makes the copy of \p text that is to become this string's text and sets the length for
    /// it, after giving back the old text.
    /// \return the new text, which the caller stores.
    char* assign(const char* text);

    /// The comparison of operator==.
    bool compare(const char* other) const;

    /// Gives back the text's block, if it has one, and leaves length 0 and a null text.
    void releaseBuffer();

    unsigned int m_length;
    char* m_pText;
};

#endif // ZNUTIL_ZNCONSTSTRING_H
