#include "ZnUtil/ZnTimer.h"

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <type_traits>

namespace
{

TEST(ZnTimerTest, ConvertsToTheTimeItWasMadeWith)
{
    const int64_t values[] = {0,
                              1,
                              -1,
                              13423456789012345LL, // a due time of this century, in microseconds
                              std::numeric_limits<int64_t>::max(),
                              std::numeric_limits<int64_t>::min()};
    for (int64_t value : values)
    {
        const ZnTimer timer(value);
        const int64_t converted = timer;
        EXPECT_EQ(value, converted);
        EXPECT_EQ(value, static_cast<int64_t>(timer));
    }
}

TEST(ZnTimerTest, TakesPartInArithmeticAsItsTime)
{
    const ZnTimer timer(13423456789012345LL);
    EXPECT_EQ(13423456789013345LL, timer + 1000);
    EXPECT_TRUE(timer > 13423456789012344LL);
    EXPECT_TRUE(timer < 13423456789012346LL);
}

TEST(ZnTimerTest, IsMadeOnlyExplicitly)
{
    EXPECT_TRUE((std::is_constructible<ZnTimer, int64_t>::value));
    EXPECT_FALSE((std::is_convertible<int64_t, ZnTimer>::value));
    EXPECT_TRUE((std::is_convertible<const ZnTimer&, int64_t>::value));
}

TEST(ZnTimerTest, IsACountedObject)
{
    ZnTimer* timer = new ZnTimer(42);
    EXPECT_EQ(0UL, timer->getRefCount());
    {
        ZnHandle<ZnObject> held(timer);
        EXPECT_EQ(1UL, timer->getRefCount());
        EXPECT_STREQ("ZnTimer", held->getClassName());
        const ZnTimer* back = dynamic_cast<const ZnTimer*>(static_cast<ZnObject*>(held));
        ASSERT_EQ(timer, back);
        EXPECT_EQ(42, static_cast<int64_t>(*back));
    }
}

TEST(ZnTimerTest, EqualTimesAreDistinctObjects)
{
    ZnHandle<ZnTimer> first(new ZnTimer(7));
    ZnHandle<ZnTimer> second(new ZnTimer(7));
    EXPECT_EQ(static_cast<int64_t>(*static_cast<ZnTimer*>(first)),
              static_cast<int64_t>(*static_cast<ZnTimer*>(second)));
    EXPECT_NE(0, first->compareWith(second));
    EXPECT_EQ(0, first->compareWith(first));
}

} // namespace
