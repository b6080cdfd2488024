// A short tour of the library's foundation, as a host would use it: counted objects and handles,
// copy-on-write strings, exceptions, logging configured from a properties file, the parameter
// catalogue and a read-only configuration, one-shot timers, and the process-wide shutdown that
// ends the program. It prints what it does.
#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnMonitorThread.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnProcess.h"
#include "ZnUtil/ZnSocketError.h"
#include "ZnUtil/ZnString.h"
#include "ZnUtil/ZnTimer.h"

#include "tavoris/LogSite.h"
#include "tavoris/MemAccount.h"
#include "tavoris/ParameterInfoDB.h"
#include "tavoris/ROConfiguration.h"

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(demoLogger, "corvane.zn.demo")

/// A counted object of the host's own.
class Call : public ZnObject
{
public:
    explicit Call(const char* callId) : m_callId(callId) {}
    const ZnString& getCallId() const { return m_callId; }

private:
    ZnString m_callId;
};

void showHandles()
{
    std::printf("-- counted objects and handles\n");
    Call* call = new Call("a84b4c76e66710@pc33.example.com");
    std::printf("new Call: count %lu\n", call->getRefCount());
    ZnHandle<Call> first(call);
    {
        ZnHandle<ZnObject> second(first);
        std::printf("two handles: count %lu, class %s\n", call->getRefCount(),
                    second->getClassName());
    }
    std::printf("one handle again: count %lu, Call-ID %s\n", call->getRefCount(),
                first->getCallId().c_str());
    try
    {
        ZnHandle<ZnObject> plain(new ZnObject);
        ZnHandle<Call> wrong(plain);
    }
    catch (ZnHandle<ZnException>& e)
    {
        std::printf("wrong handle cast caught: \"%s\"\n", e->getExceptionMessage());
    }
}

void showStrings()
{
    std::printf("-- copy-on-write strings\n");
    ZnString method("invite");
    ZnString shared = method;
    std::printf("shared buffer: %s (count %lu)\n", shared.c_str(), method.buffer()->getRefCount());
    shared.toUpper();
    std::printf("after toUpper on the copy: original \"%s\", copy \"%s\"\n", method.c_str(),
                shared.c_str());
    ZnString header("  Via: SIP/2.0/UDP pc33.example.com  ");
    header.trim();
    std::printf("trimmed: \"%s\", ';' at %d, hash %u\n", header.c_str(), header.indexOf(";"),
                header.hashCode());
    ZnString branch = header.substr(5, 0);
    std::printf("substr(5): \"%s\", compareNoCase(\"sip/2.0/udp PC33.EXAMPLE.COM\") = %d\n",
                branch.c_str(), branch.compareNoCase("sip/2.0/udp PC33.EXAMPLE.COM"));
}

void showExceptions()
{
    std::printf("-- exceptions\n");
    try
    {
        ZnSocketError::sThrow("bind", 10048);
    }
    catch (ZnHandle<ZnException>& e)
    {
        ZnSocketError* error = dynamic_cast<ZnSocketError*>(static_cast<ZnException*>(e));
        std::printf("%s: %s (%d)\n", e->getExceptionMessage(),
                    ZnSocketError::sGetErrorText(error->getErrNo()), error->getErrNo());
    }
    try
    {
        ZnObject plain;
        plain.clone();
    }
    catch (ZnHandle<ZnException>& e)
    {
        ZnAssertionFailure* failure =
            dynamic_cast<ZnAssertionFailure*>(static_cast<ZnException*>(e));
        std::printf("assertion failure \"%s\" at %s line %u\n", e->getExceptionMessage(),
                    failure->getFile(), failure->getLine());
    }
}

void showConfiguration()
{
    std::printf("-- parameters and configuration\n");
    const Tavoris::ParameterInfoDB& catalogue = Tavoris::ParameterInfoDB::getInstance();
    for (const std::string& name : catalogue.getNames())
    {
        Tavoris::ParameterInfo info;
        catalogue.find(name.c_str(), info);
        std::printf("declared %s (type %d, default %s)\n", name.c_str(), info.type,
                    info.hasDefault ? info.defaultValue.c_str() : "none");
    }
    const std::map<std::string, std::string> values{
        {"corvane.sip.tcpTls.asynchronousIO.numberOfTasks", "4"}};
    Tavoris::ROConfiguration config(values);
    int32_t tasks = 0;
    bool enabled = false;
    config.getInt32("corvane.sip.tcpTls.asynchronousIO.numberOfTasks", tasks);
    config.getBool("corvane.sip.tcpTls.asynchronousIO.enable", enabled);
    std::printf("configured tasks %d, asynchronous IO %s (catalogue default)\n", tasks,
                enabled ? "on" : "off");
}

/// Counts the timers it is told of; the last one ends the program through the library's shutdown.
class TimerWatcher : public ZnObserver
{
public:
    explicit TimerWatcher(int expected) : m_remaining(expected) {}

    void onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject> aArgument) override
    {
        // Timers given no argument bring their due time as a ZnTimer.
        ZnTimer* timer = dynamic_cast<ZnTimer*>(static_cast<ZnObject*>(aArgument));
        std::printf("timer fired on a pool worker%s\n",
                    timer != nullptr ? " (its argument is its due time)" : "");
        std::fflush(stdout);
        if (m_remaining.fetch_sub(1) == 1)
        {
            std::printf("last timer: shutting the process down\n");
            std::fflush(stdout);
            ZnThread::sAsyncShutdown();
        }
    }

private:
    std::atomic<int> m_remaining;
};

void showTimers(ZnObserver* watcher)
{
    std::printf("-- timers\n");
    for (unsigned int delay : {30U, 10U, 20U})
    {
        ZnMonitorThread::sMonitorTime(delay, watcher, nullptr);
    }
    std::printf("three timers set (30, 10 and 20 ms); the process thread now sleeps until "
                "shutdown\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    log4cplus::Initializer logging;
    std::string properties = std::string(ZN_EXAMPLES_DIR) + "/log4cplus.properties";
    if (argc > 2 && std::strcmp(argv[1], "--log-config") == 0)
    {
        properties = argv[2];
    }
    log4cplus::PropertyConfigurator::doConfigure(properties);
    TAVORIS_LOG_INFO(demoLogger(), "logging configured from " << properties);

    showHandles();
    showStrings();
    showExceptions();
    showConfiguration();

    const Tavoris::MemAccount::Reading strings = Tavoris::MemAccount::sRead("ZnStringBuffer");
    std::printf("-- memory: %lld string blocks, %lld bytes live\n",
                static_cast<long long>(strings.liveBlocks),
                static_cast<long long>(strings.liveBytes));

    // This thread becomes the process's thread, and main() returns once every library thread
    // has ended.
    ZnProcess* process = ZnProcess::sGetCurrent();
    ZnHandle<ZnObserver> watcher(new TimerWatcher(3));
    showTimers(watcher);
    const int result = process->main();
    std::printf("-- shutdown complete: %u threads left in the table\n",
                ZnThread::sGetThreadTableSize());
    TAVORIS_LOG_INFO(demoLogger(), "done");
    return result;
}
