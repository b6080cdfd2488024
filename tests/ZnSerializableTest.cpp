#include "ZnUtil/ZnSerializable.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

namespace
{

/// Records where it was asked to write itself, and counts its destructions.
class Recording : public ZnSerializable
{
public:
    explicit Recording(int* destructions = nullptr, int value = 0)
        : m_destructions(destructions), m_value(value)
    {
    }
    ~Recording() override
    {
        if (m_destructions != nullptr)
        {
            ++*m_destructions;
        }
    }

    void serialize(ZnOutputStream* out) const override { m_targets.push_back(out); }

    int value() const { return m_value; }
    const std::vector<ZnOutputStream*>& targets() const { return m_targets; }

private:
    int* m_destructions;
    int m_value;
    mutable std::vector<ZnOutputStream*> m_targets;
};

TEST(ZnSerializableTest, IsAbstract)
{
    EXPECT_TRUE(std::is_abstract_v<ZnSerializable>);
}

TEST(ZnSerializableTest, DestructorIsVirtual)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<ZnSerializable>);
}

TEST(ZnSerializableTest, DeletingThroughBaseRunsDerivedDestructor)
{
    int destructions = 0;
    ZnSerializable* object = new Recording(&destructions);
    delete object;
    EXPECT_EQ(destructions, 1);
}

TEST(ZnSerializableTest, SerializeReachesImplementationWithTheStream)
{
    Recording recording;
    const ZnSerializable& asSerializable = recording;
    // The stream is only passed along, never used, so any address names it.
    int placeholder = 0;
    ZnOutputStream* out = reinterpret_cast<ZnOutputStream*>(&placeholder);
    asSerializable.serialize(out);
    asSerializable.serialize(nullptr);
    ASSERT_EQ(recording.targets().size(), 2u);
    EXPECT_EQ(recording.targets()[0], out);
    EXPECT_EQ(recording.targets()[1], nullptr);
}

TEST(ZnSerializableTest, HasNoFieldButItsTable)
{
    EXPECT_TRUE(std::is_polymorphic_v<ZnSerializable>);
    EXPECT_EQ(sizeof(ZnSerializable), sizeof(void*));
}

TEST(ZnSerializableTest, CopyIsSerializableWithItsOwnState)
{
    Recording original(nullptr, 7);
    original.serialize(nullptr);
    Recording copy(original);
    EXPECT_EQ(copy.value(), 7);
    copy.serialize(nullptr);
    EXPECT_EQ(copy.targets().size(), 2u);
    EXPECT_EQ(original.targets().size(), 1u);
}

TEST(ZnSerializableTest, AssignedObjectIsSerializableWithItsOwnState)
{
    Recording source(nullptr, 5);
    Recording target(nullptr, 1);
    target = source;
    EXPECT_EQ(target.value(), 5);
    const ZnSerializable& asSerializable = target;
    asSerializable.serialize(nullptr);
    EXPECT_EQ(target.targets().size(), 1u);
    EXPECT_TRUE(source.targets().empty());
}

} // namespace
