// The answer of a host name look-up.
#ifndef TAVORIS_HOSTENT_H
#define TAVORIS_HOSTENT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <netdb.h>

namespace Tavoris
{

/// The result of a look-up of a host name by the process's resolver.
///
/// The object begins with a `struct hostent` (its public base), so its fields are read directly:
/// `h_name`, `h_aliases` (null-terminated), `h_addrtype` (AF_INET), `h_length` (4) and
/// `h_addr_list`, a null-terminated list of pointers to four-byte IPv4 addresses in network byte
/// order. Every text and address the fields point to is owned by the object; a copy is deep, and
/// the pointers of one object never point into another. A default object has the empty name, no
/// aliases and no address.
///
/// Thread safety: a plain value; distinct objects may be used from any threads, one object from
/// one thread at a time (const operations from several).
class Hostent : public hostent
{
public:
    /// How a look-up ended.
    enum GetHostByNameStatus
    {
        GHBN_SUCCESS = 0,
        GHBN_HOST_NOT_FOUND = 1,
        GHBN_TRY_AGAIN = 2,
        GHBN_NO_RECOVERY = 3,
        GHBN_NO_DATA = 4,
        GHBN_TIMEOUT = 5,
        GHBN_INVALID_NAME = 6
    };

    /// The empty name, no alias, no address.
    Hostent();
    ~Hostent();

    /// A deep copy of \p other.
    Hostent(const Hostent& other);
    /// Replaces the contents by a deep copy of \p other.
    Hostent& operator=(const Hostent& other);

    /// Replaces the contents: the name \p name (null is taken as empty), no alias, and the
    /// addresses \p networkOrderAddresses in their order.
    void assign(const char* name, const std::vector<std::uint32_t>& networkOrderAddresses);

    /// Replaces the contents: the name \p name (null is taken as empty), the aliases \p aliases
    /// and the addresses \p networkOrderAddresses, each in its order.
    void assign(const char* name, const std::vector<std::string>& aliases,
                const std::vector<std::uint32_t>& networkOrderAddresses);

    /// Back to the state of a default object.
    void clear();

    /// The number of entries of h_addr_list before its terminating null.
    std::size_t getAddressCount() const { return m_addresses.size(); }

    /// The address at \p index of h_addr_list, in network byte order; \p index must be below
    /// getAddressCount().
    std::uint32_t getAddress(std::size_t index) const { return m_addresses[index]; }

    /// The addresses of h_addr_list in their order, in network byte order.
    const std::vector<std::uint32_t>& getAddresses() const { return m_addresses; }

    /// The dotted text of the address to use when the caller prefers \p preferred.
    /// \param result receives the dotted text of the preferred address when the answer holds it;
    ///        untouched otherwise.
    /// \param preferred a dotted IPv4 address.
    /// \return true when \p preferred is a dotted address and one of h_addr_list; false when it is
    /// not among them (the caller then keeps the first address) or is no address at all.
    bool getPreferredAddressFirst(std::string& result, const std::string& preferred) const;

    /// The text of a status, for reports; an unknown value gives "Unknown status".
    static const char* getGetHostByNameStatusString(GetHostByNameStatus status);

private:
    /// Points the hostent fields at this object's own storage.
    void rebuild();

    std::string m_name;
    std::vector<std::string> m_aliases;
    std::vector<std::uint32_t> m_addresses; // network byte order
    std::vector<char*> m_aliasPointers;     // into m_aliases, then null
    std::vector<char*> m_addressPointers;   // into m_addresses, then null
};

} // namespace Tavoris

#endif // TAVORIS_HOSTENT_H
