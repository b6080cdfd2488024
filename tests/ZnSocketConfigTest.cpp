#include "ZnUtil/ZnSocketConfig.h"

#include "tavoris/Cloneable.h"
#include "tavoris/Object.h"
#include "tavoris/OutputStreamable.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>

namespace
{

static_assert(std::is_abstract<ZnSocketConfig>::value, "ZnSocketConfig is abstract");
static_assert(std::is_polymorphic<Tavoris::Object>::value, "Object is polymorphic");
static_assert(std::has_virtual_destructor<Tavoris::Object>::value, "virtual ~Object");
static_assert(std::is_base_of<Tavoris::OutputStreamable, ZnSocketConfig>::value, "streamable");
static_assert(std::is_base_of<Tavoris::Cloneable, ZnSocketConfig>::value, "cloneable");

/// Counts the settings objects alive, to see deletion through every base.
int g_alive = 0;

/// A transport's settings as a subclass would give them.
class PortConfig : public ZnSocketConfig
{
public:
    explicit PortConfig(int port) : m_port(port) { ++g_alive; }
    PortConfig(const PortConfig& other) : ZnSocketConfig(other), m_port(other.m_port) { ++g_alive; }
    PortConfig& operator=(const PortConfig& other)
    {
        ZnSocketConfig::operator=(other);
        m_port = other.m_port;
        return *this;
    }
    ~PortConfig() override { --g_alive; }

    std::ostream& write(std::ostream& out) const override { return out << "port=" << m_port; }
    PortConfig* clone() const override { return new PortConfig(*this); }

    int port() const { return m_port; }

private:
    int m_port;
};

TEST(ZnSocketConfigTest, WritesThroughBaseReference)
{
    PortConfig config(5060);
    const ZnSocketConfig& base = config;
    std::ostringstream out;
    base.write(out);
    EXPECT_EQ("port=5060", out.str());
}

TEST(ZnSocketConfigTest, StreamOperatorUsesWrite)
{
    PortConfig config(5061);
    const Tavoris::OutputStreamable& streamable = config;
    std::ostringstream out;
    out << streamable << ";";
    EXPECT_EQ("port=5061;", out.str());
}

TEST(ZnSocketConfigTest, CloneThroughBaseMakesCopyOfRunTimeClass)
{
    PortConfig config(5062);
    const ZnSocketConfig& base = config;
    std::unique_ptr<Tavoris::Cloneable> copy(base.clone());
    ASSERT_NE(nullptr, copy.get());
    EXPECT_NE(static_cast<const Tavoris::Cloneable*>(&config), copy.get());
    PortConfig* typed = dynamic_cast<PortConfig*>(copy.get());
    ASSERT_NE(nullptr, typed);
    EXPECT_EQ(5062, typed->port());
}

TEST(ZnSocketConfigTest, DeletedThroughObjectBase)
{
    int before = g_alive;
    PortConfig config(1);
    Tavoris::Object* object = static_cast<Tavoris::Cloneable&>(config).clone();
    EXPECT_EQ(before + 2, g_alive);
    delete object;
    EXPECT_EQ(before + 1, g_alive);
}

TEST(ZnSocketConfigTest, BothInterfacesShareOneObject)
{
    PortConfig config(2);
    Tavoris::Object* viaStreamable = static_cast<Tavoris::OutputStreamable*>(&config);
    Tavoris::Object* viaCloneable = static_cast<Tavoris::Cloneable*>(&config);
    EXPECT_EQ(viaStreamable, viaCloneable);
    EXPECT_EQ(&config, dynamic_cast<ZnSocketConfig*>(viaStreamable));
}

TEST(ZnSocketConfigTest, CopyAndAssignmentArePublic)
{
    static_assert(std::is_copy_constructible<PortConfig>::value, "copy");
    static_assert(std::is_copy_assignable<PortConfig>::value, "assign");
    PortConfig first(10);
    PortConfig second(first);
    EXPECT_EQ(10, second.port());
    PortConfig third(30);
    third = first;
    EXPECT_EQ(10, third.port());
    std::ostringstream out;
    out << third;
    EXPECT_EQ("port=10", out.str());
}

} // namespace
