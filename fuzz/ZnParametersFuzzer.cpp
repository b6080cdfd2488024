// libFuzzer harness of the SIP parameter parser: arbitrary bytes as a header value.
//
// Each input is parsed from a ZnByteArrayInputStream; the only acceptable failure is a thrown
// ZnHandle<ZnException>. Whatever was parsed (the items before a failure stay in the list) is
// printed, looked up and copied. When the parse succeeded, the printed text is parsed again: that
// must succeed, consume the whole text and give the same items in reverse order, except where the
// list cannot be printed back by design:
// - an empty list (a comma first) prints as "", and the empty text parses to one empty item;
// - an item with an empty key ("a=b;" ends with one, "=v;" holds one mid-list) prints as a bare
//   separator or as "=v", which the parser refuses where it stands;
// - a NUL byte inside quotes ends the stored text there, as all texts of the list are
//   NUL-terminated, which can cut a quoted string in half.
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayInputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnParameters.h"
#include "ZnUtil/ZnString.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace
{

using Items = std::vector<std::pair<std::string, std::string>>;

[[noreturn]] void fail(const char* what)
{
    fprintf(stderr, "ZnParametersFuzzer: %s\n", what);
    abort();
}

/// The items from the head; a missing value reads as "".
Items items(const ZnParameters& parameters)
{
    Items found;
    for (ZnParameters::ParIterator it(&parameters); it; it.next())
    {
        if (it.key() == nullptr)
        {
            fail("an item without key text");
        }
        if (it.value() != nullptr && it.value()[0] == '\0')
        {
            fail("an empty value stored as a text, not as null");
        }
        found.emplace_back(it.key(), it.value() != nullptr ? it.value() : "");
    }
    return found;
}

bool sameKey(const std::string& a, const std::string& b)
{
    if (a.size() != b.size())
    {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i)
    {
        char x = a[i];
        char y = b[i];
        x = (x >= 'A' && x <= 'Z') ? static_cast<char>(x + 32) : x;
        y = (y >= 'A' && y <= 'Z') ? static_cast<char>(y + 32) : y;
        if (x != y)
        {
            return false;
        }
    }
    return true;
}

bool isWhite(char c)
{
    return c == 9 || c == 10 || c == 13 || c == 32;
}

/// Every non-empty key is found, with the value of the first item that has it. Look-ups trim the
/// caller's key, so a key stored with white space at an end (the last key of a list is stored
/// untrimmed, and a NUL inside quotes can leave a line end last) is not looked for.
void checkLookups(const ZnParameters& list, const Items& found)
{
    for (const auto& item : found)
    {
        const std::string& key = item.first;
        if (key.empty() || isWhite(key.front()) || isWhite(key.back()))
        {
            continue;
        }
        if (!list.isPresent(item.first.c_str()))
        {
            fail("a listed key is not present");
        }
        std::string expected;
        for (const auto& first : found)
        {
            if (sameKey(first.first, item.first))
            {
                expected = first.second;
                break;
            }
        }
        if (std::string(list.getValue(item.first.c_str()).c_str()) != expected)
        {
            fail("getValue differs from the first matching item");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 0xFFFFFFFFu)
    {
        return 0;
    }
    ZnHandle<ZnByteArray> bytes = ZnByteArray::sCreate(static_cast<unsigned int>(size), data);
    ZnByteArrayInputStream in(bytes);
    ZnParameters list;
    bool parsed = true;
    try
    {
        list.parse(in);
    }
    catch (ZnHandle<ZnException>&)
    {
        parsed = false;
    }

    const Items found = items(list);
    if (found.size() != list.size())
    {
        fail("size() differs from the items walked");
    }
    const ZnString printed = list.getString();
    checkLookups(list, found);

    ZnParameters copy(list);
    Items copied = items(copy);
    Items reversed(found.rbegin(), found.rend());
    if (copied != reversed)
    {
        fail("the copy is not the list in reverse order");
    }

    bool printable = parsed && !found.empty() && memchr(data, '\0', size) == nullptr;
    for (const auto& item : found)
    {
        printable = printable && !item.first.empty();
    }

    ZnHandle<ZnByteArray> text = ZnByteArray::sCreate(printed);
    ZnByteArrayInputStream again(text);
    ZnParameters reparsed;
    try
    {
        reparsed.parse(again);
    }
    catch (ZnHandle<ZnException>&)
    {
        if (printable)
        {
            fail("the printed list does not parse");
        }
        return 0;
    }
    if (printable)
    {
        if (again.read() != -1)
        {
            fail("the printed list was not read to its end");
        }
        if (items(reparsed) != reversed)
        {
            fail("the printed list parses to other items");
        }
        if (std::string(ZnParameters(reparsed).getString().c_str()) != printed.c_str())
        {
            fail("printing the reparsed list after a copy differs");
        }
    }
    return 0;
}
