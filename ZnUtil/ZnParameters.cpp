#include "ZnUtil/ZnParameters.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInputStream.h"
#include "ZnUtil/ZnMutex.h"
#include "ZnUtil/ZnOutputStream.h"
#include "ZnUtil/ZnStringBuffer.h"

#include "tavoris/DefaultStaticMemAllocator.h"
#include "tavoris/LogSite.h"
#include "tavoris/NoSizeMemAllocator.h"
#include "tavoris/TraceScope.h"

#include <cstring>
#include <new>

TAVORIS_DEFINE_STATIC_LOGGER(logger, "corvane.zn.ZnParameters")

namespace
{

const char* const kQuoteMismatch = "Parameters: Double quote mismatch";
const char* const kInvalidParameter = "Invalid Parameter\n";
const char* const kNoKeyValuePair = "Parameter doesn't have Key/Value pair\n";

/// Room of the text buffer on the stack, terminators included.
const size_t kInlineBufferSize = 256;

/// What the capacity of getString's result starts at.
const unsigned int kInitialStringCapacity = 80;

/// The text buffer of one parse: all tokens seen, each ended by a NUL. It only grows. The first
/// 256 bytes live in the object itself (on the parser's stack); beyond them the text goes on
/// in a heap block of the account "FastStringAccount". Positions in it are offsets, since the
/// block moves when it grows.
class ParseBuffer
{
public:
    ParseBuffer() : m_pData(m_inline), m_size(0), m_capacity(kInlineBufferSize) {}

    ~ParseBuffer()
    {
        if (m_pData != m_inline)
        {
            Tavoris::NoSizeMemAllocator::deallocate(m_pData, kAccount);
        }
    }

    void push(char c)
    {
        if (m_size == m_capacity)
        {
            grow();
        }
        m_pData[m_size++] = c;
    }

    size_t size() const { return m_size; }

    /// The text from \p offset, which is below size().
    const char* at(size_t offset) const { return m_pData + offset; }

private:
    ParseBuffer(const ParseBuffer&) = delete;
    ParseBuffer& operator=(const ParseBuffer&) = delete;

    void grow()
    {
        const size_t capacity = m_capacity * 2;
        char* data = static_cast<char*>(Tavoris::NoSizeMemAllocator::allocate(capacity, kAccount));
        memcpy(data, m_pData, m_size);
        if (m_pData != m_inline)
        {
            Tavoris::NoSizeMemAllocator::deallocate(m_pData, kAccount);
        }
        m_pData = data;
        m_capacity = capacity;
    }

    static constexpr const char* kAccount = "FastStringAccount";

    char m_inline[kInlineBufferSize];
    char* m_pData;
    size_t m_size;
    size_t m_capacity;
};

/// What the parser makes of a byte that is none of its special characters.
enum CharKind : unsigned char
{
    kInvalidChar = 0,
    kLegalChar = 1,
    kSeparatorChar = 2
};

/// The characters a parameter may hold outside quotes, by byte value: kLegalChar or
/// kInvalidChar.
struct LegalCharTable
{
    unsigned char kind[256];

    constexpr LegalCharTable() : kind()
    {
        for (int c = '0'; c <= '9'; ++c)
        {
            kind[c] = kLegalChar;
        }
        for (int c = 'A'; c <= 'Z'; ++c)
        {
            kind[c] = kLegalChar;
            kind[c - 'A' + 'a'] = kLegalChar;
        }
        const char* marks = "[]/:&+$-_.!~*')(%`";
        for (const char* p = marks; *p != '\0'; ++p)
        {
            kind[static_cast<unsigned char>(*p)] = kLegalChar;
        }
    }
};

constexpr LegalCharTable kLegalChars;

/// White space of the parsers: exactly 9, 10, 13 and 32.
inline bool isWhite(char c)
{
    return c == 9 || c == 10 || c == 13 || c == 32;
}

/// Narrows \p text and \p length to the characters between leading and trailing white space.
inline void trimSpan(const char*& text, size_t& length)
{
    while (length > 0 && isWhite(text[length - 1]))
    {
        --length;
    }
    while (length > 0 && isWhite(*text))
    {
        ++text;
        --length;
    }
}

/// ASCII case folding only: the locale never plays a part.
inline unsigned char foldAscii(char c)
{
    const unsigned char u = static_cast<unsigned char>(c);
    return (u >= 'A' && u <= 'Z') ? static_cast<unsigned char>(u + ('a' - 'A')) : u;
}

/// True when the NUL-terminated \p stored equals the \p length bytes of \p key, ignoring ASCII
/// case. \p key holds no NUL within \p length.
bool keyMatches(const char* stored, const char* key, size_t length)
{
    for (size_t i = 0; i < length; ++i)
    {
        // A shorter stored key ends at its NUL, which never matches a character of the key.
        if (stored[i] == '\0' || foldAscii(stored[i]) != foldAscii(key[i]))
        {
            return false;
        }
    }
    return stored[length] == '\0';
}

/// The caller's key trimmed, as a span into \p key.
inline const char* trimmedKey(const char* key, size_t& length)
{
    length = strlen(key);
    trimSpan(key, length);
    return key;
}

ZnMutex* allocateMutex()
{
    ZnMutex* mutex = ZnMutex::sAllocate();
    if (mutex == nullptr)
    {
        throw std::bad_alloc();
    }
    return mutex;
}

[[noreturn]] void throwInvalidCharacter(int c)
{
    static const char kHead[] = "Invalid Character (";
    static const char kTail[] = ") in SIP parameter\n";
    char text[sizeof(kHead) + sizeof(kTail)];
    memcpy(text, kHead, sizeof(kHead) - 1);
    text[sizeof(kHead) - 1] = static_cast<char>(c);
    memcpy(text + sizeof(kHead), kTail, sizeof(kTail));
    ZnException::sThrow(text);
}

} // namespace

// ZnParameters::Item

ZnParameters::Item::Item(const char* key, size_t keyLength, const char* value, size_t valueLength,
                         Item* next)
    : m_key(key, static_cast<unsigned int>(keyLength)),
      m_value(valueLength == 0 ? nullptr : value, static_cast<unsigned int>(valueLength)),
      m_pNext(next)
{
}

void* ZnParameters::Item::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnParameters::Item::operator delete(void* p)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, sizeof(Item), getMemAccountName());
}

void* ZnParameters::Item::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnParameters::Item::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}

// ZnParameters::ParIterator

ZnParameters::ParIterator::ParIterator(const ZnParameters* parameters)
    : m_pItem(parameters != nullptr ? parameters->m_pHead : nullptr)
{
}

ZnParameters::ParIterator& ZnParameters::ParIterator::next()
{
    if (m_pItem != nullptr)
    {
        m_pItem = m_pItem->m_pNext;
    }
    return *this;
}

const char* ZnParameters::ParIterator::key() const
{
    return m_pItem != nullptr ? static_cast<const char*>(m_pItem->m_key) : nullptr;
}

const char* ZnParameters::ParIterator::value() const
{
    return m_pItem != nullptr ? static_cast<const char*>(m_pItem->m_value) : nullptr;
}

// ZnParameters

ZnParameters::ZnParameters()
    : m_pHead(nullptr), m_pMutex(allocateMutex()), m_count(0), m_separator(";")
{
}

ZnParameters::ZnParameters(const char* text, const char* separators)
    : m_pHead(nullptr), m_pMutex(allocateMutex()), m_count(0), m_separator(separators)
{
    try
    {
        parse(text);
    }
    catch (...)
    {
        // No destructor runs for an object whose constructor fails: give everything back here.
        mClear();
        ZnMutex::sRecycle(m_pMutex);
        throw;
    }
}

ZnParameters::ZnParameters(const ZnParameters& other)
    : ZnObject(other), m_pHead(nullptr), m_pMutex(allocateMutex()), m_count(0),
      m_separator(other.m_separator)
{
    TAVORIS_TRACE_SCOPE(logger(), "ZnParameters copy ctor");
    try
    {
        ZnMutexGuard guard(other.m_pMutex);
        mCopyItems(other);
    }
    catch (...)
    {
        mClear();
        ZnMutex::sRecycle(m_pMutex);
        throw;
    }
}

ZnParameters::~ZnParameters()
{
    clear();
    ZnMutex::sRecycle(m_pMutex);
    m_pMutex = nullptr;
}

ZnParameters& ZnParameters::operator=(const ZnParameters& other)
{
    if (&other == this)
    {
        return *this;
    }
    clear();
    // Own mutex first, then the source's: two lists assigned to each other at once could
    // deadlock, which is why this operator is private.
    ZnMutexGuard own(m_pMutex);
    m_separator = other.m_separator;
    ZnMutexGuard source(other.m_pMutex);
    mCopyItems(other);
    return *this;
}

ZnObject* ZnParameters::clone() const
{
    return new ZnParameters(*this);
}

void ZnParameters::setSeparator(const char* separators)
{
    m_separator = separators;
}

void ZnParameters::setValue(const char* key, const char* value)
{
    // A null key is a caller's error; it is refused here rather than read.
    if (value == nullptr || key == nullptr || key[0] == '\0')
    {
        return;
    }
    size_t keyLength = 0;
    const char* trimmed = trimmedKey(key, keyLength);
    size_t valueLength = strlen(value);
    trimSpan(value, valueLength);

    ZnMutexGuard guard(m_pMutex);
    Item* item = mFind(trimmed, keyLength, nullptr);
    if (item == nullptr)
    {
        mAdd(trimmed, keyLength, value, valueLength);
        return;
    }
    // The key stays as it was stored; only the value changes. An empty value is a null text.
    if (valueLength == 0)
    {
        item->m_value = static_cast<const char*>(nullptr);
    }
    else
    {
        // Copied before the old text is given back: the caller may pass the item's own value.
        ZnConstString copy(value, static_cast<unsigned int>(valueLength));
        item->m_value = copy;
    }
}

ZnString ZnParameters::getValue(const char* key) const
{
    if (key == nullptr)
    {
        return ZnString();
    }
    size_t keyLength = 0;
    const char* trimmed = trimmedKey(key, keyLength);
    ZnMutexGuard guard(m_pMutex);
    const Item* item = mFind(trimmed, keyLength, nullptr);
    if (item == nullptr)
    {
        return ZnString();
    }
    // An empty value gives a nil string, as every empty text does.
    return ZnString(static_cast<const char*>(item->m_value));
}

bool ZnParameters::isPresent(const char* key) const
{
    if (key == nullptr || key[0] == '\0')
    {
        return false;
    }
    size_t keyLength = 0;
    const char* trimmed = trimmedKey(key, keyLength);
    ZnMutexGuard guard(m_pMutex);
    return mFind(trimmed, keyLength, nullptr) != nullptr;
}

void ZnParameters::removeValue(const char* key)
{
    if (key == nullptr || key[0] == '\0')
    {
        return;
    }
    size_t keyLength = 0;
    const char* trimmed = trimmedKey(key, keyLength);
    ZnMutexGuard guard(m_pMutex);
    Item* previous = nullptr;
    Item* item = mFind(trimmed, keyLength, &previous);
    if (item == nullptr)
    {
        return;
    }
    if (previous == nullptr)
    {
        m_pHead = item->m_pNext;
    }
    else
    {
        previous->m_pNext = item->m_pNext;
    }
    delete item;
    m_count.fetch_sub(1, std::memory_order_relaxed);
}

void ZnParameters::clear()
{
    ZnMutexGuard guard(m_pMutex);
    mClear();
}

bool ZnParameters::isLegalParamValChar(char c) const
{
    return kLegalChars.kind[static_cast<unsigned char>(c)] == kLegalChar;
}

void ZnParameters::parse(const char* text)
{
    // A null text gives a nil array, which the stream reads as empty.
    ZnHandle<ZnByteArray> bytes = ZnByteArray::sCreate(text);
    ZnByteArrayInputStream in(bytes);
    parse(in);
}

void ZnParameters::parse(ZnInputStream& in)
{
    // Items are added without looking for an earlier key, so a parsed list can hold duplicates;
    // that is intended.
    ParseBuffer buffer;
    size_t tokenStart = 0;
    // The last structural character: '=' while reading a value, ';' just past a separator.
    char state = '?';
    // The key of the parameter being read, as a span of the buffer; empty outside a value.
    size_t keyStart = 0;
    size_t keyLength = 0;
    // The parser's own character test: legal characters, with the separators over them, since
    // a separator is tested before legality. The special characters are dispatched before this
    // table is read. A NUL never separates.
    unsigned char kinds[256];
    memcpy(kinds, kLegalChars.kind, sizeof(kinds));
    const char* separators = m_separator;
    for (unsigned int i = 0; separators != nullptr && i < m_separator.length(); ++i)
    {
        const unsigned char separator = static_cast<unsigned char>(separators[i]);
        if (separator != 0)
        {
            kinds[separator] = kSeparatorChar;
        }
    }

    for (;;)
    {
        in.mark(1);
        const int c = in.read();
        if (c < 0)
        {
            break;
        }
        if (c == '\n')
        {
            in.mark(1);
            const int next = in.read();
            if (next == ' ' || next == '\t')
            {
                // A folded header line: the line end and the white space behind it are nothing.
                continue;
            }
            // The line feed stays consumed; what follows it belongs to the next line.
            in.reset();
            break;
        }
        if (c == '\r')
        {
            continue;
        }
        if (c == '"')
        {
            // Quoted text is kept with its quotes; a back-slash takes the next byte unexamined.
            buffer.push('"');
            for (;;)
            {
                const int q = in.read();
                if (q < 0)
                {
                    ZnException::sThrow(kQuoteMismatch);
                }
                buffer.push(static_cast<char>(q));
                if (q == '\\')
                {
                    const int escaped = in.read();
                    if (escaped < 0)
                    {
                        ZnException::sThrow(kQuoteMismatch);
                    }
                    buffer.push(static_cast<char>(escaped));
                }
                else if (q == '"')
                {
                    break;
                }
            }
            continue;
        }
        if (c == ',')
        {
            // The comma stays in the stream for the caller's loop over header values.
            in.reset();
            if (buffer.size() == 0)
            {
                return;
            }
            // Read it once more: a comma is no folding white space, so the value ends here.
            in.mark(1);
            (void)in.read();
            in.reset();
            break;
        }
        if (c == '=')
        {
            if (state == '=')
            {
                buffer.push('=');
                continue;
            }
            buffer.push('\0');
            keyStart = tokenStart;
            keyLength = strlen(buffer.at(tokenStart));
            state = '=';
            tokenStart = buffer.size();
            continue;
        }
        // Separators are tested after the characters above, so a comma or an equals sign among
        // them separates nothing.
        const unsigned char kind = c <= 0xFF ? kinds[c] : static_cast<unsigned char>(kInvalidChar);
        if (kind == kSeparatorChar)
        {
            buffer.push('\0');
            const char* token = buffer.at(tokenStart);
            size_t tokenLength = strlen(token);
            trimSpan(token, tokenLength);
            if (state == '=')
            {
                // Mid-list an empty key or value is accepted, unlike at the end of the list.
                const char* key = buffer.at(keyStart);
                size_t length = keyLength;
                trimSpan(key, length);
                mAdd(key, length, token, tokenLength);
            }
            else
            {
                if (tokenLength == 0)
                {
                    ZnException::sThrow(kInvalidParameter);
                }
                mAdd(token, tokenLength, nullptr, 0);
            }
            keyLength = 0;
            state = ';';
            tokenStart = buffer.size();
            continue;
        }
        if (kind == kLegalChar)
        {
            buffer.push(static_cast<char>(c));
            continue;
        }
        throwInvalidCharacter(c);
    }

    // End of the input or of the header line.
    buffer.push('\0');
    const char* token = buffer.at(tokenStart);
    size_t tokenLength = strlen(token);
    if (state == '=')
    {
        if (tokenLength == 0 || keyLength == 0)
        {
            ZnException::sThrow(kNoKeyValuePair);
        }
        const char* key = buffer.at(keyStart);
        size_t length = keyLength;
        trimSpan(key, length);
        trimSpan(token, tokenLength);
        mAdd(key, length, token, tokenLength);
        return;
    }
    // Unchecked and untrimmed at the end, on purpose: "a=b;" and "" each add an item with an
    // empty key.
    mAdd(token, tokenLength, nullptr, 0);
}

ZnString ZnParameters::getString() const
{
    ZnMutexGuard guard(m_pMutex);
    const unsigned int separatorLength = m_separator.length();
    size_t needed = 1;
    for (const Item* item = m_pHead; item != nullptr; item = item->m_pNext)
    {
        needed += item->m_key.length();
        if (item->m_value.length() != 0)
        {
            needed += 1 + item->m_value.length();
        }
        if (item->m_pNext != nullptr)
        {
            needed += separatorLength;
        }
    }
    // Capacity 80 for the usual short list; a longer text gets its whole room at once, so that
    // the appends below never copy and printing stays linear in the length of the list.
    const unsigned int capacity = needed > kInitialStringCapacity
                                      ? static_cast<unsigned int>(needed)
                                      : kInitialStringCapacity;
    ZnString result(ZnStringBuffer::sCreate("", 0, capacity));
    for (const Item* item = m_pHead; item != nullptr; item = item->m_pNext)
    {
        result.append(item->m_key, item->m_key.length());
        if (item->m_value.length() != 0)
        {
            result.append("=", 1);
            result.append(item->m_value, item->m_value.length());
        }
        if (item->m_pNext != nullptr)
        {
            result.append(m_separator, separatorLength);
        }
    }
    return result;
}

void ZnParameters::serialize(ZnOutputStream& out) const
{
    const ZnString text = getString();
    out << static_cast<const char*>(text);
}

void ZnParameters::lock() const
{
    m_pMutex->lock();
}

void ZnParameters::unlock() const
{
    m_pMutex->unlock();
}

ZnParameters::Item* ZnParameters::mFind(const char* key, size_t keyLength, Item** previous) const
{
    Item* before = nullptr;
    for (Item* item = m_pHead; item != nullptr; item = item->m_pNext)
    {
        if (keyMatches(item->m_key, key, keyLength))
        {
            if (previous != nullptr)
            {
                *previous = before;
            }
            return item;
        }
        before = item;
    }
    return nullptr;
}

void ZnParameters::mAdd(const char* key, size_t keyLength, const char* value, size_t valueLength)
{
    // Newest first, so a parsed text prints in reverse order; that is intended.
    m_pHead = new Item(key, keyLength, value, valueLength, m_pHead);
    m_count.fetch_add(1, std::memory_order_relaxed);
}

void ZnParameters::mCopyItems(const ZnParameters& other)
{
    // Each copy goes to the head, so the copy holds the items in reverse order; that is intended.
    for (const Item* item = other.m_pHead; item != nullptr; item = item->m_pNext)
    {
        mAdd(item->m_key, item->m_key.length(), item->m_value, item->m_value.length());
    }
}

void ZnParameters::mClear()
{
    Item* item = m_pHead;
    m_pHead = nullptr;
    while (item != nullptr)
    {
        Item* next = item->m_pNext;
        delete item;
        item = next;
    }
    m_count.store(0, std::memory_order_relaxed);
}

void* ZnParameters::operator new(size_t size)
{
    return Tavoris::DefaultStaticMemAllocator::allocate(size, getMemAccountName());
}

void ZnParameters::operator delete(void* p)
{
    Tavoris::DefaultStaticMemAllocator::deallocate(p, sizeof(ZnParameters), getMemAccountName());
}

void* ZnParameters::operator new[](size_t size)
{
    return Tavoris::NoSizeMemAllocator::allocate(size, getMemAccountName());
}

void ZnParameters::operator delete[](void* p)
{
    Tavoris::NoSizeMemAllocator::deallocate(p, getMemAccountName());
}
