#include "tavoris/AceCleanupLogger.h"

#include <ace/Object_Manager.h>

#include <new>

namespace Tavoris
{

AceCleanupLogger::AceCleanupLogger(const char* name)
    : Logger(std::string(name != nullptr ? name : ""))
{
    // If the object manager is already shutting down the logger is simply never freed: it must
    // outlive every log site that may still run.
    ACE_Object_Manager::at_exit(this, &AceCleanupLogger::sCleanup, nullptr, "AceCleanupLogger");
}

AceCleanupLogger::~AceCleanupLogger() = default;

void* AceCleanupLogger::operator new(size_t size)
{
    return ::operator new(size);
}

void AceCleanupLogger::operator delete(void* p)
{
    ::operator delete(p);
}

void AceCleanupLogger::sCleanup(void* object, void*)
{
    delete static_cast<AceCleanupLogger*>(object);
}

} // namespace Tavoris
