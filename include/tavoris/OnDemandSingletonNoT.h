// The lock and the logger shared by every on-demand singleton.
#ifndef TAVORIS_ONDEMANDSINGLETONNOT_H
#define TAVORIS_ONDEMANDSINGLETONNOT_H

#include "tavoris/Logger.h"

#include <ace/Recursive_Thread_Mutex.h>

namespace Tavoris
{

/// Non-template half of OnDemandSingleton.
class OnDemandSingletonNoT
{
public:
    /// The one recursive lock taken on a thread's first access to any on-demand singleton.
    static ACE_Recursive_Thread_Mutex& sGetMutex();

    /// The logger of the singletons: "corvane.infra.OnDemandSingleton".
    static const Logger& sGetLogger();
};

} // namespace Tavoris

#endif // TAVORIS_ONDEMANDSINGLETONNOT_H
