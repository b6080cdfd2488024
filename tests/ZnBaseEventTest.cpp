#include "ZnUtil/ZnBaseEvent.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

namespace
{

/// An event that notes its destruction and carries a value, to see copies apart.
class NotingEvent : public ZnBaseEvent
{
public:
    NotingEvent(int value, int* destructions) : m_value(value), m_destructions(destructions) {}
    NotingEvent(const NotingEvent&) = default;
    NotingEvent& operator=(const NotingEvent&) = default;
    ~NotingEvent() override { ++*m_destructions; }

    int getValue() const { return m_value; }
    void setValue(int value) { m_value = value; }

private:
    int m_value;
    int* m_destructions;
};

TEST(ZnBaseEventTest, DestructorIsVirtual)
{
    EXPECT_TRUE(std::has_virtual_destructor<ZnBaseEvent>::value);
    EXPECT_TRUE(std::is_polymorphic<ZnBaseEvent>::value);
}

TEST(ZnBaseEventTest, DeletingThroughTheBaseRunsTheDerivedDestructor)
{
    int destructions = 0;
    ZnBaseEvent* event = new NotingEvent(1, &destructions);
    delete event;
    EXPECT_EQ(1, destructions);
}

TEST(ZnBaseEventTest, OwnedThroughTheBaseIsDestroyedOnce)
{
    int destructions = 0;
    {
        std::unique_ptr<ZnBaseEvent> event(new NotingEvent(2, &destructions));
        EXPECT_NE(nullptr, dynamic_cast<NotingEvent*>(event.get()));
    }
    EXPECT_EQ(1, destructions);
}

TEST(ZnBaseEventTest, HasNoDataButItsTypeInformation)
{
    // No field: the object is its virtual table pointer alone.
    EXPECT_EQ(sizeof(void*), sizeof(ZnBaseEvent));
}

TEST(ZnBaseEventTest, IsCopyConstructibleAndAssignable)
{
    EXPECT_TRUE(std::is_copy_constructible<ZnBaseEvent>::value);
    EXPECT_TRUE(std::is_copy_assignable<ZnBaseEvent>::value);
    EXPECT_TRUE(std::is_default_constructible<ZnBaseEvent>::value);

    const ZnBaseEvent original;
    ZnBaseEvent copy(original);
    ZnBaseEvent assigned;
    assigned = copy;
    EXPECT_NE(&original, &copy);
    EXPECT_NE(&copy, &assigned);
}

TEST(ZnBaseEventTest, DerivedEventsCopyTheirOwnData)
{
    int destructions = 0;
    {
        NotingEvent first(7, &destructions);
        NotingEvent second(first);
        EXPECT_EQ(7, second.getValue());
        second.setValue(8);
        EXPECT_EQ(7, first.getValue());
        NotingEvent third(0, &destructions);
        third = second;
        EXPECT_EQ(8, third.getValue());
    }
    EXPECT_EQ(3, destructions);
}

} // namespace
