#include "tavoris/Hostent.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

namespace
{

using Tavoris::Hostent;

std::uint32_t addr(const char* dotted)
{
    in_addr value;
    EXPECT_EQ(inet_pton(AF_INET, dotted, &value), 1) << dotted;
    return value.s_addr;
}

/// The four bytes an h_addr_list entry points to.
std::uint32_t entryAt(const hostent& entry, std::size_t index)
{
    std::uint32_t value = 0;
    std::memcpy(&value, entry.h_addr_list[index], sizeof(value));
    return value;
}

std::size_t countOf(char** list)
{
    std::size_t count = 0;
    while (list[count] != nullptr)
    {
        ++count;
    }
    return count;
}

/// True when \p pointer lies inside the object \p owner.
bool pointsInto(const void* pointer, const Hostent& owner)
{
    const char* p = static_cast<const char*>(pointer);
    const char* begin = reinterpret_cast<const char*>(&owner);
    return p >= begin && p < begin + sizeof(owner);
}

TEST(HostentTest, DefaultIsEmptyIpv4Hostent)
{
    Hostent h;
    ASSERT_NE(h.h_name, nullptr);
    EXPECT_STREQ(h.h_name, "");
    ASSERT_NE(h.h_aliases, nullptr);
    EXPECT_EQ(h.h_aliases[0], nullptr);
    EXPECT_EQ(h.h_addrtype, AF_INET);
    EXPECT_EQ(h.h_length, 4);
    ASSERT_NE(h.h_addr_list, nullptr);
    EXPECT_EQ(h.h_addr_list[0], nullptr);
    EXPECT_EQ(h.getAddressCount(), 0u);
}

TEST(HostentTest, StartsWithTheLayoutOfAHostent)
{
    Hostent h;
    h.assign("sip.example.com", {addr("10.0.0.1")});
    const hostent* raw = &h;
    EXPECT_EQ(static_cast<const void*>(raw), static_cast<const void*>(&h));
    EXPECT_STREQ(raw->h_name, "sip.example.com");
    EXPECT_EQ(entryAt(*raw, 0), addr("10.0.0.1"));
}

TEST(HostentTest, AssignFillsNullTerminatedAddressListInOrder)
{
    Hostent h;
    h.assign("sip.example.com", {addr("10.0.0.1"), addr("192.168.7.9"), addr("10.0.0.3")});
    EXPECT_STREQ(h.h_name, "sip.example.com");
    ASSERT_EQ(countOf(h.h_addr_list), 3u);
    EXPECT_EQ(entryAt(h, 0), addr("10.0.0.1"));
    EXPECT_EQ(entryAt(h, 1), addr("192.168.7.9"));
    EXPECT_EQ(entryAt(h, 2), addr("10.0.0.3"));
    EXPECT_EQ(h.getAddressCount(), 3u);
    EXPECT_EQ(h.getAddress(1), addr("192.168.7.9"));
    EXPECT_EQ(h.getAddresses(), (std::vector<std::uint32_t>{addr("10.0.0.1"), addr("192.168.7.9"),
                                                            addr("10.0.0.3")}));
    EXPECT_EQ(h.h_aliases[0], nullptr);
    EXPECT_EQ(h.h_addrtype, AF_INET);
    EXPECT_EQ(h.h_length, 4);
}

TEST(HostentTest, AddressBytesAreInNetworkOrder)
{
    Hostent h;
    h.assign("x", {addr("1.2.3.4")});
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(h.h_addr_list[0]);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[1], 2);
    EXPECT_EQ(bytes[2], 3);
    EXPECT_EQ(bytes[3], 4);
}

TEST(HostentTest, AssignNullNameGivesEmptyName)
{
    Hostent h;
    h.assign(nullptr, {addr("10.0.0.1")});
    ASSERT_NE(h.h_name, nullptr);
    EXPECT_STREQ(h.h_name, "");
    EXPECT_EQ(h.getAddressCount(), 1u);
}

TEST(HostentTest, AssignWithAliasesFillsNullTerminatedAliasList)
{
    Hostent h;
    h.assign("proxy.example.com", {"proxy", "sip"}, {addr("10.0.0.1")});
    ASSERT_EQ(countOf(h.h_aliases), 2u);
    EXPECT_STREQ(h.h_aliases[0], "proxy");
    EXPECT_STREQ(h.h_aliases[1], "sip");
}

TEST(HostentTest, AssignReplacesEverything)
{
    Hostent h;
    h.assign("first", {"a1"}, {addr("10.0.0.1"), addr("10.0.0.2")});
    h.assign("second", {addr("10.9.9.9")});
    EXPECT_STREQ(h.h_name, "second");
    EXPECT_EQ(h.h_aliases[0], nullptr);
    ASSERT_EQ(countOf(h.h_addr_list), 1u);
    EXPECT_EQ(entryAt(h, 0), addr("10.9.9.9"));
}

TEST(HostentTest, ClearGoesBackToEmpty)
{
    Hostent h;
    h.assign("sip.example.com", {"alias"}, {addr("10.0.0.1")});
    h.clear();
    EXPECT_STREQ(h.h_name, "");
    EXPECT_EQ(h.h_aliases[0], nullptr);
    EXPECT_EQ(h.h_addr_list[0], nullptr);
    EXPECT_EQ(h.getAddressCount(), 0u);
}

TEST(HostentTest, CopyIsDeep)
{
    Hostent original;
    original.assign("sip.example.com", {"alias"}, {addr("10.0.0.1"), addr("10.0.0.2")});
    Hostent copy(original);

    EXPECT_NE(copy.h_name, original.h_name);
    EXPECT_NE(copy.h_addr_list, original.h_addr_list);
    EXPECT_NE(copy.h_addr_list[0], original.h_addr_list[0]);
    EXPECT_FALSE(pointsInto(copy.h_addr_list, original));

    original.assign("other", {addr("172.16.0.1")});
    EXPECT_STREQ(copy.h_name, "sip.example.com");
    ASSERT_EQ(countOf(copy.h_aliases), 1u);
    EXPECT_STREQ(copy.h_aliases[0], "alias");
    ASSERT_EQ(countOf(copy.h_addr_list), 2u);
    EXPECT_EQ(entryAt(copy, 0), addr("10.0.0.1"));
    EXPECT_EQ(entryAt(copy, 1), addr("10.0.0.2"));
}

TEST(HostentTest, CopyOutlivesOriginal)
{
    Hostent* original = new Hostent;
    original->assign("sip.example.com", {addr("10.0.0.7")});
    Hostent copy(*original);
    delete original;
    EXPECT_STREQ(copy.h_name, "sip.example.com");
    EXPECT_EQ(entryAt(copy, 0), addr("10.0.0.7"));
}

TEST(HostentTest, AssignmentIsDeep)
{
    Hostent source;
    source.assign("sip.example.com", {addr("10.0.0.1")});
    Hostent target;
    target.assign("old", {addr("10.0.0.9"), addr("10.0.0.8")});
    target = source;
    source.clear();
    EXPECT_STREQ(target.h_name, "sip.example.com");
    ASSERT_EQ(countOf(target.h_addr_list), 1u);
    EXPECT_EQ(entryAt(target, 0), addr("10.0.0.1"));
}

TEST(HostentTest, SelfAssignmentKeepsContents)
{
    Hostent h;
    h.assign("sip.example.com", {addr("10.0.0.1")});
    Hostent& alias = h;
    h = alias;
    EXPECT_STREQ(h.h_name, "sip.example.com");
    EXPECT_EQ(entryAt(h, 0), addr("10.0.0.1"));
}

TEST(HostentTest, PreferredAddressAmongResultsIsYielded)
{
    Hostent h;
    h.assign("sip.example.com", {addr("10.0.0.1"), addr("10.0.0.2"), addr("10.0.0.3")});
    std::string result;
    EXPECT_TRUE(h.getPreferredAddressFirst(result, "10.0.0.2"));
    EXPECT_EQ(result, "10.0.0.2");
}

TEST(HostentTest, PreferredFirstAddressIsYielded)
{
    Hostent h;
    h.assign("sip.example.com", {addr("10.0.0.1"), addr("10.0.0.2")});
    std::string result;
    EXPECT_TRUE(h.getPreferredAddressFirst(result, "10.0.0.1"));
    EXPECT_EQ(result, "10.0.0.1");
}

TEST(HostentTest, PreferredAddressNotAmongResultsAnswersFalseAndLeavesResult)
{
    Hostent h;
    h.assign("sip.example.com", {addr("10.0.0.1"), addr("10.0.0.2")});
    std::string result = "untouched";
    EXPECT_FALSE(h.getPreferredAddressFirst(result, "10.0.0.9"));
    EXPECT_EQ(result, "untouched");
}

TEST(HostentTest, PreferredTextThatIsNoAddressAnswersFalse)
{
    Hostent h;
    h.assign("sip.example.com", {addr("10.0.0.1")});
    std::string result = "untouched";
    EXPECT_FALSE(h.getPreferredAddressFirst(result, "not an address"));
    EXPECT_FALSE(h.getPreferredAddressFirst(result, ""));
    EXPECT_EQ(result, "untouched");
}

TEST(HostentTest, PreferredAddressOnEmptyHostentAnswersFalse)
{
    Hostent h;
    std::string result = "untouched";
    EXPECT_FALSE(h.getPreferredAddressFirst(result, "10.0.0.1"));
    EXPECT_EQ(result, "untouched");
}

TEST(HostentTest, StatusTexts)
{
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(Hostent::GHBN_SUCCESS), "Success");
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(Hostent::GHBN_HOST_NOT_FOUND),
                 "Host not found");
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(Hostent::GHBN_TRY_AGAIN),
                 "Temporary failure, try again");
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(Hostent::GHBN_NO_RECOVERY),
                 "Non-recoverable failure");
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(Hostent::GHBN_NO_DATA),
                 "No address for this name");
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(Hostent::GHBN_TIMEOUT),
                 "Time limit reached");
    EXPECT_STREQ(Hostent::getGetHostByNameStatusString(Hostent::GHBN_INVALID_NAME),
                 "Invalid host name");
    EXPECT_STREQ(
        Hostent::getGetHostByNameStatusString(static_cast<Hostent::GetHostByNameStatus>(7)),
        "Unknown status");
}

} // namespace
