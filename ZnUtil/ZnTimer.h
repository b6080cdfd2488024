// The argument a timer delivers when its user gave none: the timer's due time.
#ifndef ZNUTIL_ZNTIMER_H
#define ZNUTIL_ZNTIMER_H

#include "ZnUtil/ZnObject.h"

#include <cstdint>

/// A due time in microseconds on the clock of ZnTime::sGetCurrentTime, which is also the key
/// that scheduled it.
class ZnTimer : public ZnObject
{
public:
    explicit ZnTimer(int64_t aTime) : m_time(aTime) {}
    ~ZnTimer() override;

    operator int64_t() const { return m_time; }

private:
    int64_t m_time;
};

#endif // ZNUTIL_ZNTIMER_H
