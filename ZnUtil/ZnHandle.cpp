#include "ZnUtil/ZnHandle.h"

#include "ZnUtil/ZnAssertionFailure.h"

#include "tavoris/Assertion.h"

namespace
{

const char* const kSource = "ZnHandle";

} // namespace

void ZnHandleBase::sReadCastFailed(unsigned int line)
{
    Tavoris::Assertion(false, "pObj!=0", kSource, static_cast<int>(line));
}

void ZnHandleBase::sConstructionCastFailed()
{
    ZnAssertionFailure::sThrow("dynamic_cast failed on ZnHandle construction", kSource, 47,
                               ZN_COMPILED);
}

void ZnHandleBase::sAssignmentCastFailed()
{
    ZnAssertionFailure::sThrow("dynamic_cast failed on ZnHandle assignment", kSource, 82,
                               ZN_COMPILED);
}
