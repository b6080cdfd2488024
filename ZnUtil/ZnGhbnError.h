// The exception of a failed host name look-up.
#ifndef ZNUTIL_ZNGHBNERROR_H
#define ZNUTIL_ZNGHBNERROR_H

#include "ZnUtil/ZnSocketError.h"

#include "tavoris/Hostent.h"

/// A host name that the resolver could not turn into an address, with the resolver's status.
class ZnGhbnError : public ZnSocketError
{
public:
    ZnGhbnError(const char* message, Tavoris::Hostent::GetHostByNameStatus status);
    ~ZnGhbnError() override;

    [[noreturn]] static void sThrow(const char* message,
                                    Tavoris::Hostent::GetHostByNameStatus status);

    Tavoris::Hostent::GetHostByNameStatus getStatus() const { return m_status; }

    /// Prints ": message (status text)": a leading ": " and no number, unlike its parents.
    void display(ZnOutputStream& out) const override;

private:
    Tavoris::Hostent::GetHostByNameStatus m_status;
};

#endif // ZNUTIL_ZNGHBNERROR_H
