#include "ZnUtil/ZnOutputSink.h"

ZnOutputSink::ZnOutputSink() = default;

ZnOutputSink::~ZnOutputSink() = default;

void ZnOutputSink::write(void const*, unsigned int, unsigned int) {}

void ZnOutputSink::write(int) {}

void ZnOutputSink::flush() {}

ZnOutputSink& ZnOutputSink::sGetInstance()
{
    // Made once and never destroyed: debug output may be written to it from late destructors.
    // It lends itself to handles without ever being deleted by them.
    static ZnOutputSink* s_sink = []
    {
        ZnOutputSink* sink = new ZnOutputSink;
        sink->AddRef();
        return sink;
    }();
    return *s_sink;
}

namespace
{

// Made when the library is loaded. It is never destroyed: output may reach it from destructors
// that run after any clean-up at unload could.
ZnOutputSink& s_loadedSink = ZnOutputSink::sGetInstance();

} // namespace
