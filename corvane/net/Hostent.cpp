#include "tavoris/Hostent.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace Tavoris
{

Hostent::Hostent() : hostent()
{
    rebuild();
}

Hostent::~Hostent() = default;

Hostent::Hostent(const Hostent& other)
    : hostent(), m_name(other.m_name), m_aliases(other.m_aliases), m_addresses(other.m_addresses)
{
    rebuild();
}

Hostent& Hostent::operator=(const Hostent& other)
{
    if (this != &other)
    {
        m_name = other.m_name;
        m_aliases = other.m_aliases;
        m_addresses = other.m_addresses;
        rebuild();
    }
    return *this;
}

void Hostent::assign(const char* name, const std::vector<std::uint32_t>& networkOrderAddresses)
{
    assign(name, std::vector<std::string>(), networkOrderAddresses);
}

void Hostent::assign(const char* name, const std::vector<std::string>& aliases,
                     const std::vector<std::uint32_t>& networkOrderAddresses)
{
    m_name = name != nullptr ? name : "";
    m_aliases = aliases;
    m_addresses = networkOrderAddresses;
    rebuild();
}

void Hostent::clear()
{
    m_name.clear();
    m_aliases.clear();
    m_addresses.clear();
    rebuild();
}

void Hostent::rebuild()
{
    m_aliasPointers.clear();
    m_aliasPointers.reserve(m_aliases.size() + 1);
    for (std::string& alias : m_aliases)
    {
        m_aliasPointers.push_back(&alias[0]);
    }
    m_aliasPointers.push_back(nullptr);

    m_addressPointers.clear();
    m_addressPointers.reserve(m_addresses.size() + 1);
    for (std::uint32_t& address : m_addresses)
    {
        m_addressPointers.push_back(reinterpret_cast<char*>(&address));
    }
    m_addressPointers.push_back(nullptr);

    h_name = &m_name[0];
    h_aliases = m_aliasPointers.data();
    h_addrtype = AF_INET;
    h_length = static_cast<int>(sizeof(std::uint32_t));
    h_addr_list = m_addressPointers.data();
}

bool Hostent::getPreferredAddressFirst(std::string& result, const std::string& preferred) const
{
    in_addr wanted;
    if (inet_pton(AF_INET, preferred.c_str(), &wanted) != 1)
    {
        return false;
    }
    for (std::uint32_t address : m_addresses)
    {
        if (address == wanted.s_addr)
        {
            char text[INET_ADDRSTRLEN];
            in_addr found;
            found.s_addr = address;
            if (inet_ntop(AF_INET, &found, text, sizeof(text)) == nullptr)
            {
                return false;
            }
            result = text;
            return true;
        }
    }
    return false;
}

const char* Hostent::getGetHostByNameStatusString(GetHostByNameStatus status)
{
    switch (status)
    {
    case GHBN_SUCCESS:
        return "Success";
    case GHBN_HOST_NOT_FOUND:
        return "Host not found";
    case GHBN_TRY_AGAIN:
        return "Temporary failure, try again";
    case GHBN_NO_RECOVERY:
        return "Non-recoverable failure";
    case GHBN_NO_DATA:
        return "No address for this name";
    case GHBN_TIMEOUT:
        return "Time limit reached";
    case GHBN_INVALID_NAME:
        return "Invalid host name";
    }
    return "Unknown status";
}

} // namespace Tavoris
