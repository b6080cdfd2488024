// A host program built against the installed library: it must compile, link and run.
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnString.h"

#include "tavoris/Logger.h"
#include "tavoris/ParameterInfoDB.h"

#include <cstdio>

int main()
{
    int failures = 0;
    ZnString text("via");
    ZnString copy = text;
    copy.toUpper();
    if (text != "via" || copy != "VIA")
    {
        std::printf("consumer: copy-on-write failed\n");
        ++failures;
    }
    try
    {
        ZnException::sThrow("consumer");
    }
    catch (ZnHandle<ZnException>& e)
    {
        if (ZnString(e->getExceptionMessage()) != "consumer")
        {
            std::printf("consumer: wrong exception text\n");
            ++failures;
        }
    }
    Tavoris::ParameterInfo info;
    if (!Tavoris::ParameterInfoDB::getInstance().find("corvane.sip.tls.cypherSuites", info))
    {
        std::printf("consumer: parameters not declared at load\n");
        ++failures;
    }
    Tavoris::Logger logger("consumer");
    if (failures == 0)
    {
        std::printf("consumer: all checks passed\n");
    }
    return failures == 0 ? 0 : 1;
}
