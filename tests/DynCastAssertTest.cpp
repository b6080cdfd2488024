#include "tavoris/DynCastAssert.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::DynCastAssertNoT;

class Base
{
public:
    virtual ~Base() = default;
};

class Derived : public Base
{
public:
    int value = 42;
};

class Other : public Base
{
};

/// Puts the default assertion handler back at the end of a test.
class DefaultHandlerRestorer
{
public:
    ~DefaultHandlerRestorer() { Tavoris::Assertion::setHandler(nullptr); }
};

TEST(DynCastAssertTest, LoggerIsCorvaneCoreDynCastAssert)
{
    EXPECT_EQ("corvane.core.DynCastAssert", DynCastAssertNoT::getLogger().getName());
}

TEST(DynCastAssertTest, SuccessfulCastReturnsTheObjectAndReportsNothing)
{
    ZnTest::LogCapture cap("corvane.core.DynCastAssert");
    std::unique_ptr<Base> ptr(new Derived);
    const Derived* derived = TAVORIS_DYNCAST_ASSERT(const Derived, &*ptr);
    ASSERT_EQ(static_cast<const Base*>(ptr.get()), static_cast<const Base*>(derived));
    EXPECT_EQ(42, derived->value);
    EXPECT_TRUE(cap.events().empty());
}

TEST(DynCastAssertTest, WrongTypeReportsTheActualTypeAndAsserts)
{
    DefaultHandlerRestorer restore;
    ZnTest::LogCapture cap("corvane.core.DynCastAssert");
    std::unique_ptr<Base> ptr(new Other);
    const int line = __LINE__ + 1;
    const Derived* derived = TAVORIS_DYNCAST_ASSERT(const Derived, &*ptr);
    EXPECT_EQ(nullptr, derived);
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());

    const std::string actualType = DynCastAssertNoT::demangle(typeid(Other));
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_NE(std::string::npos, events[0].message.find(actualType)) << events[0].message;
    EXPECT_NE(std::string::npos, events[0].message.find("&*ptr")) << events[0].message;
    EXPECT_EQ("DynCastAssertTest", events[0].file);
    EXPECT_EQ(line, events[0].line);

    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[1].level);
    EXPECT_EQ("Assertion failed: TAVORIS_DYNCAST_ASSERT(const Derived, &*ptr) != 0",
              events[1].message);
    EXPECT_EQ("DynCastAssertTest", events[1].file);
    EXPECT_EQ(line, events[1].line);
}

TEST(DynCastAssertTest, NullPointerReportsNullBaseAndAsserts)
{
    DefaultHandlerRestorer restore;
    ZnTest::LogCapture cap("corvane.core.DynCastAssert");
    Base* nothing = nullptr;
    const int line = __LINE__ + 1;
    Derived* derived = TAVORIS_DYNCAST_ASSERT(Derived, nothing);
    EXPECT_EQ(nullptr, derived);
    const auto events = cap.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_NE(std::string::npos, events[0].message.find("nothing")) << events[0].message;
    EXPECT_NE(std::string::npos, events[0].message.find("null")) << events[0].message;
    EXPECT_EQ(line, events[0].line);
    EXPECT_EQ("Assertion failed: TAVORIS_DYNCAST_ASSERT(Derived, nothing) != 0", events[1].message);
    EXPECT_EQ("DynCastAssertTest", events[1].file);
    EXPECT_EQ(line, events[1].line);
}

TEST(DynCastAssertTest, TypeIdErrorNamesExpressionAndType)
{
    ZnTest::LogCapture cap("dyncasttest.typeid");
    DynCastAssertNoT::typeIdError("Sample::Kind", "&*in_pConfig", "ZnFile", 17,
                                  Tavoris::Logger("dyncasttest.typeid"));
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_NE(std::string::npos, events[0].message.find("Sample::Kind"));
    EXPECT_NE(std::string::npos, events[0].message.find("&*in_pConfig"));
    EXPECT_EQ("ZnFile", events[0].file);
    EXPECT_EQ(17, events[0].line);
}

TEST(DynCastAssertTest, NullBaseErrorNamesTheExpression)
{
    ZnTest::LogCapture cap("dyncasttest.nullbase");
    DynCastAssertNoT::nullBaseError("pSocket", "ZnFile", 18,
                                    Tavoris::Logger("dyncasttest.nullbase"));
    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_NE(std::string::npos, events[0].message.find("pSocket"));
    EXPECT_EQ("ZnFile", events[0].file);
    EXPECT_EQ(18, events[0].line);
}

TEST(DynCastAssertTest, OwnLoggerReceivesTheReports)
{
    DefaultHandlerRestorer restore;
    ZnTest::LogCapture onDefault("corvane.core.DynCastAssert");
    ZnTest::LogCapture onOwn("dyncasttest.own");
    const Tavoris::Logger logger("dyncasttest.own");
    std::unique_ptr<Base> ptr(new Other);
    Derived* derived = TAVORIS_DYNCAST_ASSERT_LOGGER(Derived, ptr.get(), logger);
    EXPECT_EQ(nullptr, derived);
    EXPECT_TRUE(onDefault.events().empty());
    const auto events = onOwn.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ("Assertion failed: TAVORIS_DYNCAST_ASSERT(Derived, ptr.get()) != 0",
              events[1].message);
}

/// Records the text of the failed assertion instead of logging it.
std::string s_assertedText;

void recordText(const char* text, const char*, int, const Tavoris::Logger&)
{
    s_assertedText = text;
}

TEST(DynCastAssertTest, AssertionServiceReceivesTheCallText)
{
    DefaultHandlerRestorer restore;
    s_assertedText.clear();
    Tavoris::Assertion::setHandler(&recordText);
    std::unique_ptr<Base> ptr(new Other);
    Derived* derived = TAVORIS_DYNCAST_ASSERT(Derived, ptr.get());
    EXPECT_EQ(nullptr, derived);
    EXPECT_EQ("TAVORIS_DYNCAST_ASSERT(Derived, ptr.get()) != 0", s_assertedText);
}

TEST(DynCastAssertTest, DemangleGivesTheReadableName)
{
    EXPECT_EQ("int", DynCastAssertNoT::demangle(typeid(int)));
    const std::string name = DynCastAssertNoT::demangle(typeid(Derived));
    EXPECT_NE(std::string::npos, name.find("Derived")) << name;
    EXPECT_EQ(std::string::npos, name.find("7Derived")) << name;
}

} // namespace
