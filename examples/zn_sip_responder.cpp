// zn-sip-responder: a stateless SIP responder over UDP, built the way the SIP stack above the
// library uses it. A ZnDatagramSocket, driven by a ZnObserverThread of ZnMonitorThread, hands
// each datagram to a pool worker of ZnUDPIDispatcher; the worker reads the request with
// ZnStreamTokenizer and ZnParameters, builds the final response and posts it to ZnUDPODispatcher,
// which sends it from the listening socket. A timer of ZnMonitorThread writes a line of
// statistics every second. SIGINT and SIGTERM end it through the library's process shutdown.
//
//   zn-sip-responder [--address A] [--port P] [--config FILE] [--help]
#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnDatagramPacket.h"
#include "ZnUtil/ZnDatagramSocket.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnInetAddress.h"
#include "ZnUtil/ZnMonitorThread.h"
#include "ZnUtil/ZnObservable.h"
#include "ZnUtil/ZnObserver.h"
#include "ZnUtil/ZnProcess.h"
#include "ZnUtil/ZnThread.h"
#include "ZnUtil/ZnUDPEvent.h"
#include "ZnUtil/ZnUDPODispatcher.h"

#include "tavoris/Exception.h"
#include "tavoris/LogSite.h"
#include "tavoris/ROConfiguration.h"

#include <log4cplus/configurator.h>
#include <log4cplus/helpers/property.h>
#include <log4cplus/initializer.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "sip_responder/SipResponseBuilder.h"
#include "sip_responder/SipStatistics.h"
#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(responderLogger, "corvane.zn.example.SipResponder")

const char* const kProgram = "zn-sip-responder";

/// Larger than any UDP datagram over IPv4 (65507 bytes of payload), so that none fails to be read.
const unsigned int kMaxDatagram = 65536;

/// Time limit of a host name look-up for the listening address.
const int kResolveTimeoutMs = 2000;

/// What the program was asked to do.
struct Settings
{
    std::string address = "127.0.0.1";
    unsigned int port = 5060;
    unsigned int responseCode = 200;
    std::string logConfig; // empty: the built-in configuration
    std::string configFile;
};

void printUsage(FILE* out)
{
    std::fprintf(out,
                 "Usage: %s [--address A] [--port P] [--config FILE] [--help]\n"
                 "A stateless SIP responder over UDP: it answers every request but ACK with a\n"
                 "final response (200 OK unless configured), and prints a line of statistics\n"
                 "every second. SIGINT (Ctrl-C) or SIGTERM stops it.\n"
                 "\n"
                 "  --address A    listening IPv4 address or host name (default 127.0.0.1)\n"
                 "  --port P       listening UDP port, 0 for any free one (default 5060)\n"
                 "  --config FILE  properties file with the keys responder.address,\n"
                 "                 responder.port, responder.responseCode (200 to 699) and\n"
                 "                 responder.logConfig (a log4cplus properties file, relative\n"
                 "                 to FILE); the command line wins over the file\n"
                 "  --help         this text\n",
                 kProgram);
}

/// Exit status 2: a bad command line or configuration.
[[noreturn]] void usageError(const std::string& message)
{
    std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
    printUsage(stderr);
    std::exit(2);
}

bool parseNumber(const std::string& text, unsigned int maximum, unsigned int& value)
{
    if (text.empty() || text.size() > 10 ||
        text.find_first_not_of("0123456789") != std::string::npos)
    {
        return false;
    }
    const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
    if (number > maximum)
    {
        return false;
    }
    value = static_cast<unsigned int>(number);
    return true;
}

/// The directory part of \p path, with its slash; empty when there is none.
std::string directoryOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

/// Reads the configuration file, then the command line over it.
Settings readSettings(int argc, char** argv)
{
    Settings settings;
    std::string address;
    std::string port;
    bool haveAddress = false;
    bool havePort = false;
    for (int i = 1; i < argc; ++i)
    {
        std::string option = argv[i];
        std::string value;
        bool inlineValue = false;
        const size_t equals = option.find('=');
        if (option.compare(0, 2, "--") == 0 && equals != std::string::npos)
        {
            value = option.substr(equals + 1);
            option.erase(equals);
            inlineValue = true;
        }
        if (option == "--help" || option == "-h")
        {
            if (inlineValue)
            {
                usageError("--help takes no value");
            }
            printUsage(stdout);
            std::exit(0);
        }
        if (option != "--address" && option != "--port" && option != "--config")
        {
            usageError("unknown option '" + std::string(argv[i]) + "'");
        }
        if (!inlineValue)
        {
            if (i + 1 >= argc)
            {
                usageError(option + " needs a value");
            }
            value = argv[++i];
        }
        if (option == "--address")
        {
            address = value;
            haveAddress = true;
        }
        else if (option == "--port")
        {
            port = value;
            havePort = true;
        }
        else
        {
            settings.configFile = value;
        }
    }

    if (!settings.configFile.empty())
    {
        try
        {
            const Tavoris::ROConfiguration config = Tavoris::ROConfiguration::sLoadFile(
                settings.configFile, Tavoris::ROConfiguration::WITHOUT_DEFAULTS);
            config.getString("responder.address", settings.address);
            std::string text;
            if (config.getString("responder.port", text) &&
                !parseNumber(text, 65535, settings.port))
            {
                usageError("responder.port in " + settings.configFile + " is no port: '" + text +
                           "'");
            }
            if (config.getString("responder.responseCode", text) &&
                (!parseNumber(text, 699, settings.responseCode) ||
                 !ZnExample::SipResponseBuilder::sIsFinalCode(settings.responseCode)))
            {
                usageError("responder.responseCode in " + settings.configFile +
                           " is no final response code (200 to 699): '" + text + "'");
            }
            if (config.getString("responder.logConfig", settings.logConfig) &&
                !settings.logConfig.empty() && settings.logConfig[0] != '/')
            {
                settings.logConfig = directoryOf(settings.configFile) + settings.logConfig;
            }
        }
        catch (const Tavoris::Exception& e)
        {
            usageError(e.what());
        }
    }
    if (haveAddress)
    {
        settings.address = address;
    }
    if (havePort && !parseNumber(port, 65535, settings.port))
    {
        usageError("--port needs a port number from 0 to 65535, not '" + port + "'");
    }
    if (settings.address.empty())
    {
        usageError("the listening address is empty");
    }
    return settings;
}

/// Logging from the file named in the configuration, or else warnings and errors on stderr.
void configureLogging(const Settings& settings)
{
    if (!settings.logConfig.empty())
    {
        log4cplus::PropertyConfigurator::doConfigure(settings.logConfig);
        return;
    }
    log4cplus::helpers::Properties properties;
    properties.setProperty("log4cplus.rootLogger", "WARN, console");
    properties.setProperty("log4cplus.appender.console", "log4cplus::ConsoleAppender");
    properties.setProperty("log4cplus.appender.console.logToStdErr", "true");
    properties.setProperty("log4cplus.appender.console.layout", "log4cplus::PatternLayout");
    properties.setProperty("log4cplus.appender.console.layout.ConversionPattern",
                           "%D{%H:%M:%S.%q} %-5p %c - %m%n");
    log4cplus::PropertyConfigurator configurator(properties,
                                                 log4cplus::Logger::getDefaultHierarchy(), 0);
    configurator.configure();
}

/// The port a socket was really bound to (the socket keeps the port asked for, 0 included).
unsigned int boundPort(ZnDatagramSocket& socket, unsigned int asked)
{
    sockaddr_in self{};
    socklen_t size = sizeof self;
    if (::getsockname(static_cast<int>(socket.getFd()), reinterpret_cast<sockaddr*>(&self),
                      &size) == 0)
    {
        return ntohs(self.sin_port);
    }
    return asked;
}

/// The observer of the listening socket: called on a pool worker of ZnUDPIDispatcher with each
/// datagram, it builds the reply and posts it to the output dispatcher.
class Responder : public ZnObserver
{
public:
    Responder(const ZnExample::SipResponseBuilder& builder, ZnExample::SipStatistics& statistics,
              ZnUDPODispatcher* output)
        : m_builder(builder), m_statistics(statistics), m_output(output)
    {
    }

    void onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject> aArgument) override
    {
        ZnObject* argument = aArgument;
        if (ZnException* failure = dynamic_cast<ZnException*>(argument))
        {
            // The socket is closed after such a failure: nothing more will come in.
            TAVORIS_LOG_ERROR(responderLogger(),
                              "the listening socket failed: " << failure->getExceptionMessage()
                                                              << "; shutting down");
            m_failed.store(true);
            ZnThread::sAsyncShutdown();
            return;
        }
        ZnDatagramPacket* packet = dynamic_cast<ZnDatagramPacket*>(argument);
        if (packet == nullptr)
        {
            // A nil argument only says "look at the source": unblock() sends one when the
            // socket is released at shutdown.
            return;
        }
        m_statistics.countReceived();
        try
        {
            answer(*packet);
        }
        catch (ZnHandle<ZnException>& e)
        {
            TAVORIS_LOG_ERROR(responderLogger(),
                              "a datagram could not be answered: " << e->getExceptionMessage());
        }
        catch (const std::exception& e)
        {
            TAVORIS_LOG_ERROR(responderLogger(), "a datagram could not be answered: " << e.what());
        }
    }

    /// True when the socket reported a failure.
    bool failed() const { return m_failed.load(); }

private:
    void answer(ZnDatagramPacket& packet)
    {
        ZnHandle<ZnByteArray> data = packet.getData();
        if (data.isNil())
        {
            return;
        }
        const ZnInetAddress source = packet.getAddress();
        const std::string sourceText = source.getHostAddress();
        const ZnExample::SipReply reply = m_builder.build(
            *data, packet.getOffset(), packet.getLength(), sourceText.c_str(), packet.getPort());
        if (reply.isMalformed())
        {
            TAVORIS_LOG_DEBUG(responderLogger(), "malformed datagram of "
                                                     << packet.getLength() << " bytes from "
                                                     << sourceText << ":" << packet.getPort()
                                                     << ": " << reply.problem);
        }
        // During shutdown nothing more is posted: the output dispatcher may have ended.
        if (!reply.hasResponse() || ZnThread::sShuttingDown())
        {
            m_statistics.countReply(reply, false);
            return;
        }
        const unsigned int length = static_cast<unsigned int>(reply.response.size());
        ZnHandle<ZnByteArray> bytes = ZnByteArray::sCreate(length, reply.response.data());
        ZnDatagramPacket* response =
            new ZnDatagramPacket(bytes, 0, length, source, reply.destinationPort,
                                 packet.getLocalAddress(), packet.getLocalPort());
        m_output->addEvent(new ZnUDPEvent(nullptr, response));
        m_statistics.countReply(reply, true);
        TAVORIS_LOG_DEBUG(responderLogger(), "answered " << reply.method << " with "
                                                         << reply.statusCode << " to " << sourceText
                                                         << ":" << reply.destinationPort);
    }

    const ZnExample::SipResponseBuilder& m_builder;
    ZnExample::SipStatistics& m_statistics;
    ZnUDPODispatcher* m_output;
    std::atomic<bool> m_failed{false};
};

/// Writes the line of statistics every second, from a timer of ZnMonitorThread that it sets again
/// from its own callback.
class StatisticsReporter : public ZnObserver
{
public:
    explicit StatisticsReporter(const ZnExample::SipStatistics& statistics)
        : m_statistics(statistics), m_last(statistics.snapshot()),
          m_lastTime(std::chrono::steady_clock::now())
    {
    }

    /// Sets the first timer.
    void start() { ZnMonitorThread::sMonitorTime(1000, this, nullptr); }

    void onNotification(ZnHandle<ZnObservable>, ZnHandle<ZnObject>) override
    {
        if (ZnThread::sShuttingDown())
        {
            return;
        }
        report();
        ZnMonitorThread::sMonitorTime(1000, this, nullptr);
    }

    /// Prints and logs the line for the time since the last one.
    void report()
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        const auto now = std::chrono::steady_clock::now();
        const ZnExample::SipStatistics::Snapshot counters = m_statistics.snapshot();
        const std::string line = ZnExample::SipStatistics::sFormatLine(
            counters, m_last, std::chrono::duration<double>(now - m_lastTime).count());
        m_last = counters;
        m_lastTime = now;
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
        TAVORIS_LOG_INFO(responderLogger(), line);
    }

private:
    const ZnExample::SipStatistics& m_statistics;
    std::mutex m_mutex;
    ZnExample::SipStatistics::Snapshot m_last;        // guarded by m_mutex
    std::chrono::steady_clock::time_point m_lastTime; // guarded by m_mutex
};

} // namespace

int main(int argc, char** argv)
{
    // SIGINT and SIGTERM are taken by one thread with sigwait: blocked here, before any thread
    // starts, so that every thread inherits the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    const Settings settings = readSettings(argc, argv);
    log4cplus::Initializer logging;
    configureLogging(settings);

    // This thread becomes the process's thread.
    ZnProcess* process = ZnProcess::sGetCurrent();

    ZnExample::SipResponseBuilder::Options options;
    options.responseCode = settings.responseCode;
    options.contactHost = settings.address;
    options.tagSeed = std::random_device()();
    options.tagSeed = (options.tagSeed << 32) ^ std::random_device()();

    ZnHandle<ZnDatagramSocket> socket;
    unsigned int port = settings.port;
    std::string address;
    try
    {
        const ZnInetAddress listening(settings.address.c_str(), nullptr, kResolveTimeoutMs);
        address = listening.getHostAddress();
        socket = new ZnDatagramSocket(settings.port, listening, false, kMaxDatagram);
        port = boundPort(*socket, settings.port);
    }
    catch (ZnHandle<ZnException>& e)
    {
        std::fprintf(stderr, "%s: cannot listen on %s:%u: %s\n", kProgram, settings.address.c_str(),
                     settings.port, e->getExceptionMessage());
        return 1;
    }
    options.contactHost = address == "0.0.0.0" ? "127.0.0.1" : address;
    options.contactPort = port;
    const ZnExample::SipResponseBuilder builder(options);
    ZnExample::SipStatistics statistics;

    // Replies leave from the listening socket, so that they come from the port the requests went
    // to.
    ZnUDPODispatcher* output = ZnUDPODispatcher::getInstance();
    output->setDatagramSocket(socket);
    ZnHandle<Responder> responder(new Responder(builder, statistics, output));
    socket->attachObserver(responder);

    std::atomic<bool> stopping{false};
    std::thread signalWaiter(
        [&stopSignals, &stopping]()
        {
            int signal = 0;
            sigwait(&stopSignals, &signal);
            if (!stopping.load())
            {
                TAVORIS_LOG_INFO(responderLogger(), "signal " << signal << ": shutting down");
                ZnThread::sAsyncShutdown();
            }
        });

    ZnMonitorThread::sMonitorObservable(socket);
    ZnHandle<StatisticsReporter> reporter(new StatisticsReporter(statistics));
    reporter->start();

    std::printf("%s: listening on udp %s:%u, answering %u %s; stop with Ctrl-C or SIGTERM\n",
                kProgram, address.c_str(), port, settings.responseCode,
                ZnExample::SipResponseBuilder::sReasonPhrase(settings.responseCode));
    std::fflush(stdout);
    TAVORIS_LOG_INFO(responderLogger(), "listening on udp " << address << ":" << port);

    // Sleeps until shutdown, then waits for every library thread to end.
    const int result = process->main();

    // The signal thread is still in sigwait when the shutdown came from elsewhere.
    stopping.store(true);
    pthread_kill(signalWaiter.native_handle(), SIGTERM);
    signalWaiter.join();

    socket->detachObserver(responder);
    socket->close();
    reporter->report();
    std::printf("%s: stopped\n", kProgram);
    std::fflush(stdout);
    TAVORIS_LOG_INFO(responderLogger(), "stopped");
    return result == 0 && !responder->failed() ? 0 : 1;
}
