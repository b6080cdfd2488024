#include "ZnUtil/ZnObjectVector.h"

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

/// An object that records its destruction.
class Probe : public ZnObject
{
public:
    explicit Probe(bool* destroyed = nullptr) : m_destroyed(destroyed) {}
    ~Probe() override
    {
        if (m_destroyed != nullptr)
        {
            *m_destroyed = true;
        }
    }

private:
    bool* m_destroyed;
};

ZnHandle<ZnObject> makeProbe(bool* destroyed = nullptr)
{
    return ZnHandle<ZnObject>(new Probe(destroyed));
}

/// The objects of the elements, in order.
std::vector<ZnObject*> objectsOf(const ZnObjectVector& vector)
{
    std::vector<ZnObject*> objects;
    for (const ZnHandle<ZnObject>* p = vector.begin(); p != vector.end(); ++p)
    {
        objects.push_back(*p);
    }
    return objects;
}

/// The number of pushes, from 1 to \p pushes, after which the element array had moved: each is
/// the push that found the array full.
std::vector<int> growthPoints(ZnObjectVector& vector, int pushes, const ZnHandle<ZnObject>& x)
{
    std::vector<int> points;
    const ZnHandle<ZnObject>* before = vector.begin();
    for (int i = 1; i <= pushes; ++i)
    {
        vector.push_back(x);
        if (vector.begin() != before)
        {
            points.push_back(i);
            before = vector.begin();
        }
    }
    return points;
}

TEST(ZnObjectVectorTest, DefaultIsEmpty)
{
    ZnObjectVector vector;
    EXPECT_EQ(vector.begin(), vector.end());
}

TEST(ZnObjectVectorTest, CountConstructorGivesNilHandles)
{
    ZnObjectVector vector(3);
    EXPECT_TRUE(vector.at(0).isNil());
    EXPECT_TRUE(vector.at(2).isNil());
    EXPECT_EQ(vector.begin() + 3, vector.end());
}

TEST(ZnObjectVectorTest, CountConstructorGivesExactlyThatCapacity)
{
    // The array holds exactly three: the first push moves it to room for 3 + 3, and the fourth
    // push, the seventh element, moves it again.
    ZnObjectVector vector(3);
    const ZnHandle<ZnObject> x = makeProbe();
    EXPECT_EQ(growthPoints(vector, 4, x), (std::vector<int>{1, 4}));
}

TEST(ZnObjectVectorTest, NegativeCountGivesAnEmptyVector)
{
    ZnObjectVector vector(-2);
    EXPECT_EQ(vector.begin(), vector.end());
}

TEST(ZnObjectVectorTest, PushBackRaisesTheCountAndClearLowersIt)
{
    const ZnHandle<ZnObject> object = makeProbe();
    ZnObjectVector vector;
    vector.push_back(object);
    EXPECT_EQ(object->getRefCount(), 2u);
    EXPECT_EQ(static_cast<ZnObject*>(vector.at(0)), static_cast<ZnObject*>(object));
    vector.clear();
    EXPECT_EQ(object->getRefCount(), 1u);
    EXPECT_EQ(vector.begin(), vector.end());
}

TEST(ZnObjectVectorTest, ClearKeepsTheCapacity)
{
    const ZnHandle<ZnObject> object = makeProbe();
    ZnObjectVector vector;
    for (int i = 0; i < 4; ++i)
    {
        vector.push_back(object);
    }
    const ZnHandle<ZnObject>* array = vector.begin();
    vector.clear();
    EXPECT_EQ(object->getRefCount(), 1u);
    // Four elements fit again without moving the array.
    for (int i = 0; i < 4; ++i)
    {
        vector.push_back(object);
        EXPECT_EQ(vector.begin(), array);
    }
}

TEST(ZnObjectVectorTest, RepeatedPushBackGivesCapacitiesOneTwoFourEight)
{
    // The array moves when the 1st, 2nd, 3rd, 5th, 9th and 17th elements come: capacities 1, 2,
    // 4, 8 and 16 were full.
    ZnObjectVector vector;
    const ZnHandle<ZnObject> x = makeProbe();
    EXPECT_EQ(growthPoints(vector, 17, x), (std::vector<int>{1, 2, 3, 5, 9, 17}));
    EXPECT_EQ(x->getRefCount(), 18u);
}

TEST(ZnObjectVectorTest, GrowthKeepsTheObjectsAndTheirCounts)
{
    ZnObjectVector vector;
    std::vector<ZnHandle<ZnObject>> objects;
    for (int i = 0; i < 9; ++i)
    {
        objects.push_back(makeProbe());
        vector.push_back(objects.back());
    }
    for (int i = 0; i < 9; ++i)
    {
        EXPECT_EQ(static_cast<ZnObject*>(vector.at(i)), static_cast<ZnObject*>(objects[i]));
        EXPECT_EQ(objects[i]->getRefCount(), 2u);
    }
}

TEST(ZnObjectVectorTest, EraseOfTheOnlyElementLeavesItEmpty)
{
    bool destroyed = false;
    ZnObjectVector vector;
    vector.push_back(makeProbe(&destroyed));
    ZnHandle<ZnObject>* next = vector.erase(vector.begin());
    EXPECT_EQ(vector.begin(), vector.end());
    EXPECT_EQ(next, vector.end());
    EXPECT_TRUE(destroyed);
}

TEST(ZnObjectVectorTest, EraseMovesTheTailDownAndReleasesTheErased)
{
    bool bDestroyed = false;
    const ZnHandle<ZnObject> a = makeProbe();
    const ZnHandle<ZnObject> c = makeProbe();
    ZnObjectVector vector;
    vector.push_back(a);
    vector.push_back(makeProbe(&bDestroyed));
    vector.push_back(c);
    ZnHandle<ZnObject>* next = vector.erase(vector.begin() + 1);
    EXPECT_TRUE(bDestroyed);
    EXPECT_EQ(next, vector.begin() + 1);
    EXPECT_EQ(static_cast<ZnObject*>(*next), static_cast<ZnObject*>(c));
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{a, c}));
    EXPECT_EQ(a->getRefCount(), 2u);
    EXPECT_EQ(c->getRefCount(), 2u);
}

TEST(ZnObjectVectorTest, EraseOfARangeReturnsItsFirst)
{
    std::vector<ZnHandle<ZnObject>> objects;
    ZnObjectVector vector;
    for (int i = 0; i < 4; ++i)
    {
        objects.push_back(makeProbe());
        vector.push_back(objects.back());
    }
    ZnHandle<ZnObject>* next = vector.erase(vector.begin() + 1, vector.begin() + 3);
    EXPECT_EQ(next, vector.begin() + 1);
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{objects[0], objects[3]}));
    EXPECT_EQ(objects[1]->getRefCount(), 1u);
    EXPECT_EQ(objects[2]->getRefCount(), 1u);
    EXPECT_EQ(objects[3]->getRefCount(), 2u);
}

TEST(ZnObjectVectorTest, EraseOfAnEmptyRangeChangesNothing)
{
    const ZnHandle<ZnObject> a = makeProbe();
    ZnObjectVector vector;
    vector.push_back(a);
    EXPECT_EQ(vector.erase(vector.begin(), vector.begin()), vector.begin());
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{a}));
}

TEST(ZnObjectVectorTest, AtAssignReleasesTheOldElement)
{
    bool oldDestroyed = false;
    const ZnHandle<ZnObject> a = makeProbe();
    const ZnHandle<ZnObject> x = makeProbe();
    ZnObjectVector vector;
    vector.push_back(a);
    vector.push_back(makeProbe(&oldDestroyed));
    vector.at(1, x);
    EXPECT_TRUE(oldDestroyed);
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{a, x}));
    EXPECT_EQ(x->getRefCount(), 2u);
    EXPECT_EQ(a->getRefCount(), 2u);
}

TEST(ZnObjectVectorTest, AtGivesAHandleThatCounts)
{
    const ZnHandle<ZnObject> a = makeProbe();
    ZnObjectVector vector;
    vector.push_back(a);
    const ZnObjectVector& constVector = vector;
    {
        const ZnHandle<ZnObject> held = constVector.at(0);
        EXPECT_EQ(a->getRefCount(), 3u);
    }
    EXPECT_EQ(a->getRefCount(), 2u);
}

TEST(ZnObjectVectorTest, AssignPrependsToWhatIsThere)
{
    const ZnHandle<ZnObject> a = makeProbe();
    const ZnHandle<ZnObject> x = makeProbe();
    ZnObjectVector vector;
    vector.push_back(a);
    vector.assign(2, x);
    // Not a replacement: the old element stays behind the new ones, intended.
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{x, x, a}));
    EXPECT_EQ(x->getRefCount(), 3u);
    EXPECT_EQ(a->getRefCount(), 2u);
}

TEST(ZnObjectVectorTest, AssignOnAVectorOfTwoGivesCountPlusTwo)
{
    const ZnHandle<ZnObject> a = makeProbe();
    const ZnHandle<ZnObject> b = makeProbe();
    const ZnHandle<ZnObject> x = makeProbe();
    ZnObjectVector vector;
    vector.push_back(a);
    vector.push_back(b);
    vector.assign(3, x);
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{x, x, x, a, b}));
    // Room for 3 first, then 2 + max(2, 3): five fit, the sixth moves the array.
    EXPECT_EQ(growthPoints(vector, 1, x), (std::vector<int>{1}));
}

TEST(ZnObjectVectorTest, AssignOnAnEmptyVectorFillsItToExactCapacity)
{
    const ZnHandle<ZnObject> x = makeProbe();
    ZnObjectVector vector;
    vector.assign(3, x);
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{x, x, x}));
    EXPECT_EQ(growthPoints(vector, 1, x), (std::vector<int>{1}));
}

TEST(ZnObjectVectorTest, AssignWithRoomEnoughKeepsTheArray)
{
    const ZnHandle<ZnObject> x = makeProbe();
    ZnObjectVector vector;
    for (int i = 0; i < 5; ++i)
    {
        vector.push_back(x); // capacity 8
    }
    vector.clear();
    const ZnHandle<ZnObject>* array = vector.begin();
    vector.assign(8, x);
    EXPECT_EQ(vector.begin(), array);
    EXPECT_EQ(vector.begin() + 8, vector.end());
}

TEST(ZnObjectVectorTest, AssignOfNothingChangesNothing)
{
    const ZnHandle<ZnObject> x = makeProbe();
    ZnObjectVector vector;
    vector.assign(0, x);
    vector.assign(-1, x);
    EXPECT_EQ(vector.begin(), vector.end());
    EXPECT_EQ(x->getRefCount(), 1u);
}

TEST(ZnObjectVectorTest, InsertPutsTheObjectBeforeThePosition)
{
    const ZnHandle<ZnObject> a = makeProbe();
    const ZnHandle<ZnObject> b = makeProbe();
    const ZnHandle<ZnObject> x = makeProbe();
    const ZnHandle<ZnObject> y = makeProbe();
    const ZnHandle<ZnObject> z = makeProbe();
    ZnObjectVector vector;
    vector.push_back(a);
    vector.push_back(b);
    vector.insert(vector.begin() + 1, x);
    vector.insert(vector.begin(), y);
    vector.insert(vector.end(), z);
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{y, a, x, b, z}));
    EXPECT_EQ(x->getRefCount(), 2u);
}

TEST(ZnObjectVectorTest, InsertIntoAFullArrayDoublesIt)
{
    const ZnHandle<ZnObject> x = makeProbe();
    ZnObjectVector vector;
    vector.push_back(x);
    vector.push_back(x);
    const ZnHandle<ZnObject>* full = vector.begin();
    vector.insert(vector.begin() + 1, x);
    EXPECT_NE(vector.begin(), full);
    // Room for 4 now: one more fits, the fifth does not.
    EXPECT_EQ(growthPoints(vector, 2, x), (std::vector<int>{2}));
}

TEST(ZnObjectVectorTest, PushBackOfItsOwnElementSurvivesGrowth)
{
    const ZnHandle<ZnObject> a = makeProbe();
    ZnObjectVector vector;
    vector.push_back(a);
    vector.push_back(*vector.begin());
    vector.insert(vector.begin(), *(vector.end() - 1));
    EXPECT_EQ(objectsOf(vector), (std::vector<ZnObject*>{a, a, a}));
    EXPECT_EQ(a->getRefCount(), 4u);
}

TEST(ZnObjectVectorTest, NilHandlesAreElementsToo)
{
    ZnObjectVector vector;
    vector.push_back(ZnHandle<ZnObject>());
    EXPECT_EQ(vector.begin() + 1, vector.end());
    EXPECT_TRUE(vector.at(0).isNil());
}

TEST(ZnObjectVectorTest, DestroyingTheVectorReleasesItsElements)
{
    bool destroyed = false;
    const ZnHandle<ZnObject> kept = makeProbe();
    {
        ZnHandle<ZnObjectVector> vector(new ZnObjectVector());
        vector->push_back(makeProbe(&destroyed));
        vector->push_back(kept);
        EXPECT_EQ(kept->getRefCount(), 2u);
        EXPECT_FALSE(destroyed);
    }
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(kept->getRefCount(), 1u);
}

TEST(ZnObjectVectorTest, IsAnObjectWithCountZero)
{
    ZnObjectVector* raw = new ZnObjectVector();
    EXPECT_EQ(raw->getRefCount(), 0u);
    const ZnHandle<ZnObjectVector> vector(raw);
    EXPECT_STREQ(vector->getClassName(), "ZnObjectVector");
}

} // namespace
