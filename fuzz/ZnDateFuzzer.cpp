// Feeds arbitrary bytes to the date parser; a date that parses is printed and read back.
#include "ZnUtil/ZnDate.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // A fixed zone, so that a finding replays the same way on any machine.
    setenv("TZ", "UTC", 1);
    tzset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The parser reads NUL-terminated text: an exact-size copy lets ASan see any over-read.
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    try
    {
        ZnDate date(text.data());
        char printed[ZnDate::PRINT_BUFFER_SIZE];
        date.getZnDate(printed);
        if (std::strlen(printed) >= sizeof(printed))
        {
            std::abort();
        }
        // Whatever a parse leaves prints as a date that reads back the same, as long as the
        // printed year is above 1900 (smaller ones read back as two-digit or plain years) and
        // still fits an int (atoi cuts larger ones).
        const bool mustReadBack = date.getYear() >= 1 && date.getYear() <= INT_MAX - 1900;
        try
        {
            ZnDate again(printed);
            char reprinted[ZnDate::PRINT_BUFFER_SIZE];
            again.getZnDate(reprinted);
            if (mustReadBack && std::strcmp(printed, reprinted) != 0)
            {
                std::abort();
            }
        }
        catch (ZnHandle<ZnException>&)
        {
            if (mustReadBack)
            {
                std::abort();
            }
        }
        date.addSeconds(static_cast<int>(size));
        date.getDelta();
        date.getDayOfWeek();
        date.getMonthOfYear();
    }
    catch (ZnHandle<ZnException>&)
    {
    }
    return 0;
}
