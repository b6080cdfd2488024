#include "tavoris/OnDemandSingletonNoT.h"

#include "tavoris/LogSite.h"

namespace Tavoris
{

ACE_Recursive_Thread_Mutex& OnDemandSingletonNoT::sGetMutex()
{
    // Never destroyed: a singleton may be reached from a late destructor.
    static ACE_Recursive_Thread_Mutex* s_mutex = new ACE_Recursive_Thread_Mutex;
    return *s_mutex;
}

TAVORIS_DEFINE_STATIC_LOGGER(onDemandSingletonLogger, "corvane.infra.OnDemandSingleton")

const Logger& OnDemandSingletonNoT::sGetLogger()
{
    return onDemandSingletonLogger();
}

} // namespace Tavoris
