// A heap logger that lives until the very end of the process.
#ifndef TAVORIS_ACECLEANUPLOGGER_H
#define TAVORIS_ACECLEANUPLOGGER_H

#include "tavoris/Logger.h"

#include <cstddef>

namespace Tavoris
{

/// A Logger made on the heap and destroyed by ACE_Object_Manager's clean-up at process exit.
///
/// The log sites of the library keep one in a function-level static, so that logging works in
/// late destructors too. Ownership: the ACE object manager owns every instance; never delete one.
class AceCleanupLogger : public Logger
{
public:
    /// Looks up the logger \p name and registers the new object for clean-up at exit.
    explicit AceCleanupLogger(const char* name);
    ~AceCleanupLogger() override;

    static void* operator new(size_t size);
    static void operator delete(void* p);

    /// The clean-up hook given to ACE_Object_Manager.
    static void sCleanup(void* object, void* param);

private:
    AceCleanupLogger(const AceCleanupLogger&) = delete;
    AceCleanupLogger& operator=(const AceCleanupLogger&) = delete;
};

} // namespace Tavoris

#endif // TAVORIS_ACECLEANUPLOGGER_H
