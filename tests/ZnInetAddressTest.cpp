#include "ZnUtil/ZnInetAddress.h"

#include "ZnUtil/ZnByteArray.h"
#include "ZnUtil/ZnByteArrayOutputStream.h"
#include "ZnUtil/ZnException.h"
#include "ZnUtil/ZnGhbnError.h"
#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnSocketError.h"
#include "ZnUtil/ZnString.h"

#include "tavoris/HostNameServer.h"
#include "tavoris/Hostent.h"
#include "tavoris/LogLevel.h"

#include <ace/Time_Value.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <ios>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/CapturingAppender.h"
#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

using Tavoris::Hostent;
using Tavoris::HostNameServer;
using Status = Tavoris::Hostent::GetHostByNameStatus;

const char kLogger[] = "corvane.zn.ZnInetAddress";

std::uint32_t addr(const char* dotted)
{
    in_addr value;
    EXPECT_EQ(inet_pton(AF_INET, dotted, &value), 1) << dotted;
    return value.s_addr;
}

/// A resolver that records what it is asked and answers what the test set.
class RecordingServer : public HostNameServer
{
public:
    RecordingServer() = default;

    bool resolve(const char* name, Hostent& result, Status& status, ACE_Time_Value timeout,
                 bool flag) override
    {
        ++calls;
        lastName = name != nullptr ? name : "(null)";
        lastTimeout = timeout;
        lastFlag = flag;
        if (answerStatus != Hostent::GHBN_SUCCESS)
        {
            status = answerStatus;
            return false;
        }
        result.assign(name, answer);
        status = Hostent::GHBN_SUCCESS;
        return true;
    }

    int calls = 0;
    std::string lastName;
    ACE_Time_Value lastTimeout;
    bool lastFlag = false;
    std::vector<std::uint32_t> answer;
    Status answerStatus = Hostent::GHBN_SUCCESS;
};

/// Makes \p server the process's resolver for the life of the object.
class InstalledServer
{
public:
    explicit InstalledServer(HostNameServer* server)
        : m_previous(HostNameServer::setInstance(server))
    {
    }
    ~InstalledServer() { HostNameServer::setInstance(m_previous); }

private:
    HostNameServer* m_previous;
};

template <class Action>
ZnHandle<ZnException> catchThrown(Action&& action)
{
    try
    {
        action();
    }
    catch (ZnHandle<ZnException>& e)
    {
        return e;
    }
    return ZnHandle<ZnException>();
}

std::string displayed(const ZnHandle<ZnException>& e)
{
    ZnByteArrayOutputStream out;
    e->display(out);
    ZnHandle<ZnByteArray> bytes = out.toByteArray();
    return std::string(reinterpret_cast<const char*>(bytes->getBytes()), bytes->length());
}

std::string hex(std::uint32_t value)
{
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
}

/// The first name /etc/hosts gives \p dotted, as the files look-up answers it.
std::string hostsFileNameOf(const std::string& dotted)
{
    std::ifstream hosts("/etc/hosts");
    std::string line;
    while (std::getline(hosts, line))
    {
        line = line.substr(0, line.find('#'));
        std::istringstream fields(line);
        std::string address;
        std::string name;
        if (fields >> address >> name && address == dotted)
        {
            return name;
        }
    }
    return std::string();
}

/// The first IPv4 address of \p name by a plain getaddrinfo, or INADDR_NONE.
std::uint32_t firstAddressOf(const char* name)
{
    addrinfo hints;
    std::memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* result = nullptr;
    if (getaddrinfo(name, nullptr, &hints, &result) != 0 || result == nullptr)
    {
        return INADDR_NONE;
    }
    sockaddr_in address;
    std::memcpy(&address, result->ai_addr, sizeof(address));
    freeaddrinfo(result);
    return address.sin_addr.s_addr;
}

TEST(ZnInetAddressTest, IsFourBytesAndNoObject)
{
    EXPECT_EQ(sizeof(ZnInetAddress), 4u);
    EXPECT_FALSE(std::is_polymorphic<ZnInetAddress>::value);
    EXPECT_TRUE(std::is_trivially_copyable<ZnInetAddress>::value);
}

TEST(ZnInetAddressTest, DefaultIsZero)
{
    ZnInetAddress a;
    EXPECT_EQ(a.getAddress(), 0u);
    EXPECT_STREQ(a.getHostAddress(), "0.0.0.0");
}

TEST(ZnInetAddressTest, DottedAddressMakesNoCallToResolver)
{
    RecordingServer server;
    InstalledServer installed(&server);
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ZnInetAddress a("10.1.2.3", nullptr, 1000);
    EXPECT_EQ(server.calls, 0);
    EXPECT_EQ(a.getAddress(), addr("10.1.2.3"));
    EXPECT_TRUE(cap.find("HostNameServer::resolve()").empty());
}

TEST(ZnInetAddressTest, DottedAddressLeavesProcessResolverUntouched)
{
    HostNameServer& process = HostNameServer::getInstance();
    const unsigned long before = process.getResolveCount();
    ZnInetAddress a("10.1.2.3", nullptr, 1000);
    EXPECT_EQ(process.getResolveCount(), before);
    EXPECT_EQ(a.getAddress(), addr("10.1.2.3"));
}

TEST(ZnInetAddressTest, DottedAddressIgnoresPreferredAddress)
{
    RecordingServer server;
    InstalledServer installed(&server);
    ZnInetAddress a("10.1.2.3", "10.9.9.9", 1000);
    EXPECT_EQ(server.calls, 0);
    EXPECT_EQ(a.getAddress(), addr("10.1.2.3"));
}

TEST(ZnInetAddressTest, AllOnesAddressGoesToResolver)
{
    HostNameServer& process = HostNameServer::getInstance();
    const unsigned long before = process.getResolveCount();
    ZnInetAddress a = ZnInetAddress::sGetByName("255.255.255.255", 1000);
    EXPECT_EQ(process.getResolveCount(), before + 1);
    EXPECT_EQ(a.getAddress(), 0xFFFFFFFFu);
}

TEST(ZnInetAddressTest, AllOnesAddressIsAskedOfResolverByName)
{
    RecordingServer server;
    server.answer = {addr("255.255.255.255")};
    InstalledServer installed(&server);
    ZnInetAddress a = ZnInetAddress::sGetByName("255.255.255.255", 1000);
    EXPECT_EQ(server.calls, 1);
    EXPECT_EQ(server.lastName, "255.255.255.255");
    EXPECT_EQ(a.getAddress(), 0xFFFFFFFFu);
}

TEST(ZnInetAddressTest, DigitLedNameGoesToResolver)
{
    RecordingServer server;
    server.answer = {addr("10.3.3.3")};
    InstalledServer installed(&server);
    ZnInetAddress a("3abc", nullptr, 1000);
    EXPECT_EQ(server.calls, 1);
    EXPECT_EQ(server.lastName, "3abc");
    EXPECT_EQ(a.getAddress(), addr("10.3.3.3"));
}

TEST(ZnInetAddressTest, TimeoutIsSplitIntoSecondsAndMicroseconds)
{
    RecordingServer server;
    server.answer = {addr("10.0.0.1")};
    InstalledServer installed(&server);

    ZnInetAddress a("sip.example.com", nullptr, 2500);
    EXPECT_EQ(server.lastTimeout.sec(), 2);
    EXPECT_EQ(server.lastTimeout.usec(), 500000);

    EXPECT_EQ(ZnInetAddress::sGetByName("sip.example.com", 999).getAddress(), addr("10.0.0.1"));
    EXPECT_EQ(server.lastTimeout.sec(), 0);
    EXPECT_EQ(server.lastTimeout.usec(), 999000);

    ZnInetAddress c("sip.example.com", "10.0.0.1", 1000);
    EXPECT_EQ(server.lastTimeout.sec(), 1);
    EXPECT_EQ(server.lastTimeout.usec(), 0);
    EXPECT_EQ(server.calls, 3);
    EXPECT_TRUE(a == c);
}

TEST(ZnInetAddressTest, ResolverIsAlwaysAskedWithFlagTrue)
{
    RecordingServer server;
    server.answer = {addr("10.0.0.1")};
    InstalledServer installed(&server);
    ZnInetAddress a("sip.example.com", nullptr, 1000);
    EXPECT_TRUE(server.lastFlag);
    server.lastFlag = false;
    ZnInetAddress b("sip.example.com", "10.0.0.1", 1000);
    EXPECT_TRUE(server.lastFlag);
}

TEST(ZnInetAddressTest, FirstAddressOfAnswerIsTaken)
{
    RecordingServer server;
    server.answer = {addr("10.0.0.1"), addr("10.0.0.2")};
    InstalledServer installed(&server);
    ZnInetAddress a("sip.example.com", nullptr, 1000);
    EXPECT_EQ(a.getAddress(), addr("10.0.0.1"));
}

TEST(ZnInetAddressTest, ResolvedAddressIsLogged)
{
    RecordingServer server;
    server.answer = {addr("10.0.0.1"), addr("10.0.0.2")};
    InstalledServer installed(&server);
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ZnInetAddress a("sip.example.com", nullptr, 1000);
    const std::vector<ZnTest::CapturedEvent> found = cap.find("HostNameServer::resolve() returned");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].message,
              "ZnInetAddress ctor : HostNameServer::resolve() returned inetAddress: 0x" +
                  hex(addr("10.0.0.1")));
    EXPECT_EQ(found[0].level, Tavoris::DEBUG_LOG_LEVEL);
    EXPECT_EQ(found[0].logger, kLogger);
    EXPECT_EQ(found[0].file, "ZnInetAddress");
    EXPECT_EQ(found[0].line, 85);
    // No preferred address: neither of its lines.
    EXPECT_TRUE(cap.find("getPreferredAddressFirst").empty());
}

TEST(ZnInetAddressTest, PreferredAddressAmongAnswerIsTaken)
{
    RecordingServer server;
    server.answer = {addr("10.0.0.1"), addr("10.0.0.2"), addr("10.0.0.3")};
    InstalledServer installed(&server);
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ZnInetAddress a("sip.example.com", "10.0.0.2", 1000);
    EXPECT_EQ(a.getAddress(), addr("10.0.0.2"));

    const std::vector<ZnTest::CapturedEvent> ok = cap.find("getPreferredAddressFirst OK");
    ASSERT_EQ(ok.size(), 1u);
    EXPECT_EQ(ok[0].message, "ZnInetAddress ctor : getPreferredAddressFirst OK, result: 10.0.0.2 "
                             "Preferred Address: 10.0.0.2");
    EXPECT_EQ(ok[0].file, "ZnInetAddress");
    EXPECT_EQ(ok[0].line, 97);
    EXPECT_TRUE(cap.find("getPreferredAddressFirst failed").empty());
    // The first address is still what the resolver's line reports.
    ASSERT_EQ(cap.find("HostNameServer::resolve() returned").size(), 1u);
}

TEST(ZnInetAddressTest, PreferredAddressNotInAnswerLeavesFirstAddress)
{
    RecordingServer server;
    server.answer = {addr("10.0.0.1"), addr("10.0.0.2")};
    InstalledServer installed(&server);
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ZnInetAddress a("sip.example.com", "10.9.9.9", 1000);
    EXPECT_EQ(a.getAddress(), addr("10.0.0.1"));

    const std::vector<ZnTest::CapturedEvent> failed = cap.find("getPreferredAddressFirst failed");
    ASSERT_EQ(failed.size(), 1u);
    EXPECT_EQ(failed[0].message, "ZnInetAddress ctor : lHostent.getPreferredAddressFirst failed");
    EXPECT_EQ(failed[0].file, "ZnInetAddress");
    EXPECT_EQ(failed[0].line, 93);
    EXPECT_TRUE(cap.find("getPreferredAddressFirst OK").empty());
}

TEST(ZnInetAddressTest, ResolverFailureThrowsGhbnError)
{
    RecordingServer server;
    server.answerStatus = Hostent::GHBN_HOST_NOT_FOUND;
    InstalledServer installed(&server);
    ZnHandle<ZnException> e = catchThrown([] { ZnInetAddress a("x", nullptr, 1000); });
    ASSERT_FALSE(e.isNil());
    ZnHandle<ZnGhbnError> ghbnError(e);
    ASSERT_FALSE(ghbnError.isNil());
    EXPECT_EQ(ghbnError->getStatus(), Hostent::GHBN_HOST_NOT_FOUND);
    EXPECT_STREQ(e->getExceptionMessage(), "HostNameServer::resolve() failed on host x");
    EXPECT_EQ(displayed(e), ": HostNameServer::resolve() failed on host x (Host not found)");
}

TEST(ZnInetAddressTest, ResolverTimeoutThrowsGhbnErrorWithTimeoutStatus)
{
    RecordingServer server;
    server.answerStatus = Hostent::GHBN_TIMEOUT;
    InstalledServer installed(&server);
    ZnHandle<ZnException> e =
        catchThrown([] { ZnInetAddress::sGetByName("sip.example.com", 100); });
    ZnHandle<ZnGhbnError> ghbnError(e);
    ASSERT_FALSE(ghbnError.isNil());
    EXPECT_EQ(ghbnError->getStatus(), Hostent::GHBN_TIMEOUT);
    EXPECT_EQ(displayed(e),
              ": HostNameServer::resolve() failed on host sip.example.com (Time limit reached)");
}

TEST(ZnInetAddressTest, ResolverSuccessWithoutAddressThrowsNoData)
{
    RecordingServer server;
    InstalledServer installed(&server);
    ZnHandle<ZnException> e =
        catchThrown([] { ZnInetAddress a("empty.example.com", nullptr, 100); });
    ZnHandle<ZnGhbnError> ghbnError(e);
    ASSERT_FALSE(ghbnError.isNil());
    EXPECT_EQ(ghbnError->getStatus(), Hostent::GHBN_NO_DATA);
    EXPECT_EQ(displayed(e), ": HostNameServer::resolve() failed on host empty.example.com (No "
                            "address for this name)");
}

TEST(ZnInetAddressTest, NameThatCannotExistThrowsGhbnError)
{
    ZnHandle<ZnException> e =
        catchThrown([] { ZnInetAddress::sGetByName("nonexistent.invalid", 5000); });
    ZnHandle<ZnGhbnError> ghbnError(e);
    ASSERT_FALSE(ghbnError.isNil());
    EXPECT_NE(ghbnError->getStatus(), Hostent::GHBN_SUCCESS);
    EXPECT_NE(ghbnError->getStatus(), Hostent::GHBN_INVALID_NAME);
    EXPECT_STREQ(e->getExceptionMessage(),
                 "HostNameServer::resolve() failed on host nonexistent.invalid");
}

TEST(ZnInetAddressTest, LocalhostResolvesToLoopback)
{
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    ZnInetAddress a("localhost", nullptr, 5000);
    EXPECT_EQ(a.getAddress(), addr("127.0.0.1"));
    const std::vector<ZnTest::CapturedEvent> found = cap.find("HostNameServer::resolve() returned");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].message,
              "ZnInetAddress ctor : HostNameServer::resolve() returned inetAddress: 0x" +
                  hex(addr("127.0.0.1")));
}

TEST(ZnInetAddressTest, LocalhostWithLoopbackPreferredTakesIt)
{
    ZnInetAddress a("localhost", "127.0.0.1", 5000);
    EXPECT_EQ(a.getAddress(), addr("127.0.0.1"));
}

TEST(ZnInetAddressTest, LocalHostNameIsGethostname)
{
    char expected[256];
    ASSERT_EQ(gethostname(expected, sizeof(expected)), 0);
    const ZnString name = ZnInetAddress::sGetLocalHostName();
    EXPECT_STREQ(name.c_str(), expected);
}

TEST(ZnInetAddressTest, LocalHostResolvesLocalHostName)
{
    char name[256];
    ASSERT_EQ(gethostname(name, sizeof(name)), 0);
    const std::uint32_t expected = firstAddressOf(name);
    ASSERT_NE(expected, INADDR_NONE) << name;
    ZnInetAddress a = ZnInetAddress::sGetLocalHost(5000);
    EXPECT_EQ(a.getAddress(), expected);
}

TEST(ZnInetAddressTest, LocalHostAsksResolverForLocalHostName)
{
    char name[256];
    ASSERT_EQ(gethostname(name, sizeof(name)), 0);
    RecordingServer server;
    server.answer = {addr("10.7.7.7")};
    InstalledServer installed(&server);
    ZnInetAddress a = ZnInetAddress::sGetLocalHost(1500);
    if (name[0] >= '0' && name[0] <= '9' && inet_addr(name) != INADDR_NONE)
    {
        // A host named by its address needs no resolver.
        EXPECT_EQ(server.calls, 0);
    }
    else
    {
        EXPECT_EQ(server.calls, 1);
        EXPECT_EQ(server.lastName, name);
        EXPECT_EQ(server.lastTimeout.sec(), 1);
        EXPECT_EQ(server.lastTimeout.usec(), 500000);
        EXPECT_EQ(a.getAddress(), addr("10.7.7.7"));
    }
}

TEST(ZnInetAddressTest, InitFromAddressStoresDottedAddress)
{
    ZnInetAddress a;
    EXPECT_TRUE(a.initFromAddress("192.168.1.20"));
    EXPECT_EQ(a.getAddress(), addr("192.168.1.20"));
}

TEST(ZnInetAddressTest, InitFromAddressOnBadTextAnswersFalseAndStoresAllOnes)
{
    ZnInetAddress a;
    ASSERT_TRUE(a.initFromAddress("10.1.2.3"));
    EXPECT_FALSE(a.initFromAddress("not an address"));
    EXPECT_EQ(a.getAddress(), 0xFFFFFFFFu);
}

TEST(ZnInetAddressTest, InitFromAddressOnAllOnesAnswersFalse)
{
    ZnInetAddress a;
    EXPECT_FALSE(a.initFromAddress("255.255.255.255"));
    EXPECT_EQ(a.getAddress(), 0xFFFFFFFFu);
}

TEST(ZnInetAddressTest, GetAddressIsInNetworkOrder)
{
    ZnInetAddress a;
    ASSERT_TRUE(a.initFromAddress("1.2.3.4"));
    EXPECT_EQ(a.getAddress(), static_cast<unsigned long>(htonl(0x01020304)));
}

TEST(ZnInetAddressTest, GetHostAddressGivesDottedTextAndLogsIt)
{
    ZnInetAddress a;
    ASSERT_TRUE(a.initFromAddress("10.1.2.3"));
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    EXPECT_STREQ(a.getHostAddress(), "10.1.2.3");
    const std::vector<ZnTest::CapturedEvent> found = cap.find("getHostAddress: ");
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].message, "ZnInetAddress::getHostAddress : getHostAddress: 10.1.2.3");
    EXPECT_EQ(found[0].level, Tavoris::DEBUG_LOG_LEVEL);
    EXPECT_EQ(found[0].file, "ZnInetAddress");
    EXPECT_EQ(found[0].line, 136);
}

TEST(ZnInetAddressTest, GetHostAddressTextBelongsToCallingThread)
{
    ZnInetAddress mine;
    ASSERT_TRUE(mine.initFromAddress("10.1.2.3"));
    const char* text = mine.getHostAddress();
    std::string theirs;
    std::thread other(
        [&theirs]
        {
            ZnInetAddress address;
            address.initFromAddress("192.168.200.201");
            theirs = address.getHostAddress();
        });
    other.join();
    EXPECT_STREQ(text, "10.1.2.3");
    EXPECT_EQ(theirs, "192.168.200.201");
}

TEST(ZnInetAddressTest, GetHostNameLooksUpLoopbackInHostsFile)
{
    const std::string expected = hostsFileNameOf("127.0.0.1");
    ASSERT_FALSE(expected.empty()) << "/etc/hosts names no 127.0.0.1";
    ZnInetAddress a;
    ASSERT_TRUE(a.initFromAddress("127.0.0.1"));
    ZnTest::LogCapture cap(kLogger, Tavoris::DEBUG_LOG_LEVEL);
    const ZnString name = a.getHostName();
    EXPECT_STREQ(name.c_str(), expected.c_str());

    const std::vector<ZnTest::CapturedEvent> before = cap.find("getHostName() m_Address=");
    ASSERT_EQ(before.size(), 1u);
    EXPECT_EQ(before[0].message, "getHostName() m_Address=127.0.0.1");
    EXPECT_EQ(before[0].file, "ZnInetAddress");
    EXPECT_EQ(before[0].line, 161);
    const std::vector<ZnTest::CapturedEvent> after = cap.find("getHostName() h_name=");
    ASSERT_EQ(after.size(), 1u);
    EXPECT_EQ(after[0].message, "getHostName() h_name=" + expected);
    EXPECT_EQ(after[0].file, "ZnInetAddress");
    EXPECT_EQ(after[0].line, 194);
}

TEST(ZnInetAddressTest, GetHostNameMakesNoCallToResolver)
{
    RecordingServer server;
    InstalledServer installed(&server);
    ZnInetAddress a;
    ASSERT_TRUE(a.initFromAddress("127.0.0.1"));
    EXPECT_FALSE(a.getHostName().empty());
    EXPECT_EQ(server.calls, 0);
}

TEST(ZnInetAddressTest, IsMulticastAddressIsNotImplemented)
{
    const char* const addresses[] = {"0.0.0.0", "10.1.2.3", "224.0.0.1", "239.255.255.250"};
    for (const char* dotted : addresses)
    {
        ZnInetAddress a;
        a.initFromAddress(dotted);
        ZnHandle<ZnException> e = catchThrown([&a] { a.isMulticastAddress(); });
        ASSERT_FALSE(e.isNil()) << dotted;
        EXPECT_STREQ(e->getExceptionMessage(), "Not yet implemented") << dotted;
        EXPECT_STREQ(e->getClassName(), "ZnException") << dotted;
    }
}

TEST(ZnInetAddressTest, CompareCopyAndAssign)
{
    ZnInetAddress a;
    ZnInetAddress b;
    ASSERT_TRUE(a.initFromAddress("10.1.2.3"));
    ASSERT_TRUE(b.initFromAddress("10.1.2.4"));
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a != b);

    ZnInetAddress copy(a);
    EXPECT_TRUE(copy == a);
    EXPECT_FALSE(copy != a);
    EXPECT_EQ(copy.getAddress(), a.getAddress());

    copy = b;
    EXPECT_TRUE(copy == b);
    EXPECT_EQ(copy.getAddress(), addr("10.1.2.4"));
    EXPECT_EQ(a.getAddress(), addr("10.1.2.3"));
}

TEST(ZnInetAddressTest, ConstructorAndLookUpsAreTraced)
{
    RecordingServer server;
    server.answer = {addr("10.0.0.1")};
    InstalledServer installed(&server);
    ZnTest::LogCapture cap(kLogger, Tavoris::TRACE_LOG_LEVEL);
    ZnInetAddress a("sip.example.com", nullptr, 1000);
    a.getHostAddress();
    ZnInetAddress::sGetLocalHostName();

    const std::vector<ZnTest::CapturedEvent> events = cap.events();
    auto has = [&events](const std::string& message)
    {
        for (const ZnTest::CapturedEvent& event : events)
        {
            if (event.message == message && event.level == Tavoris::TRACE_LOG_LEVEL)
            {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(has("ENTER: ZnInetAddress ctor"));
    EXPECT_TRUE(has("EXIT: ZnInetAddress ctor"));
    EXPECT_TRUE(has("ENTER: ZnInetAddress::getHostAddress"));
    EXPECT_TRUE(has("EXIT: ZnInetAddress::getHostAddress"));
    EXPECT_TRUE(has("ENTER: ZnInetAddress::sGetLocalHostName"));
}

} // namespace
