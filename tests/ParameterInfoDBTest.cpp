#include "tavoris/ParameterInfoDB.h"

#include "tavoris/Exception.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Tavoris::ParameterInfo;
using Tavoris::ParameterInfoDB;

/// A catalogue of the test's own, apart from the process's.
class LocalCatalogue : public ParameterInfoDB
{
public:
    LocalCatalogue() = default;
};

TEST(ParameterInfoDBTest, BothAccessorsGiveTheProcessCatalogue)
{
    const ParameterInfoDB& reading = ParameterInfoDB::getInstance();
    ParameterInfoDB& writing = ParameterInfoDB::getNonConstInstance();
    EXPECT_EQ(&reading, &writing);
    EXPECT_EQ(&writing, &ParameterInfoDB::getNonConstInstance());
}

TEST(ParameterInfoDBTest, DeclaredParameterIsFoundWithAllItsFields)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.port", ParameterInfoDB::TYPE_INTEGER, "5060", "1", "65535", 3,
                           "Listening port");
    ParameterInfo info;
    ASSERT_TRUE(catalogue.find("pidbtest.port", info));
    EXPECT_EQ("pidbtest.port", info.name);
    EXPECT_EQ(2, info.type);
    EXPECT_TRUE(info.hasDefault);
    EXPECT_EQ("5060", info.defaultValue);
    EXPECT_EQ("1", info.minValue);
    EXPECT_EQ("65535", info.maxValue);
    EXPECT_EQ(3u, info.flags);
    EXPECT_EQ("Listening port", info.helpText);
}

TEST(ParameterInfoDBTest, TypeNumbersAreOneTwoAndFour)
{
    EXPECT_EQ(1, ParameterInfoDB::TYPE_TEXT);
    EXPECT_EQ(2, ParameterInfoDB::TYPE_INTEGER);
    EXPECT_EQ(4, ParameterInfoDB::TYPE_BOOLEAN);
}

TEST(ParameterInfoDBTest, NullDefaultMeansNoDefault)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.file", ParameterInfoDB::TYPE_TEXT, nullptr, nullptr, nullptr,
                           0, "A file");
    ParameterInfo info;
    ASSERT_TRUE(catalogue.find("pidbtest.file", info));
    EXPECT_FALSE(info.hasDefault);
    EXPECT_EQ("", info.defaultValue);
    EXPECT_EQ("", info.minValue);
    EXPECT_EQ("", info.maxValue);
}

TEST(ParameterInfoDBTest, EmptyDefaultIsADefault)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.empty", ParameterInfoDB::TYPE_TEXT, "", nullptr, nullptr, 0,
                           nullptr);
    ParameterInfo info;
    ASSERT_TRUE(catalogue.find("pidbtest.empty", info));
    EXPECT_TRUE(info.hasDefault);
    EXPECT_EQ("", info.defaultValue);
    EXPECT_EQ("", info.helpText);
}

TEST(ParameterInfoDBTest, UnknownNameIsNotFound)
{
    LocalCatalogue catalogue;
    ParameterInfo info;
    info.name = "untouched";
    EXPECT_FALSE(catalogue.find("pidbtest.missing", info));
    EXPECT_FALSE(catalogue.find(nullptr, info));
    EXPECT_EQ("untouched", info.name);
}

TEST(ParameterInfoDBTest, NamesComeInTheOrderOfDeclaration)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.c", ParameterInfoDB::TYPE_TEXT, nullptr, 0, 0, 0, "");
    catalogue.addParameter("pidbtest.a", ParameterInfoDB::TYPE_BOOLEAN, "true", 0, 0, 0, "");
    catalogue.addParameter("pidbtest.b", ParameterInfoDB::TYPE_INTEGER, "1", 0, 0, 0, "");
    const std::vector<std::string> expected = {"pidbtest.c", "pidbtest.a", "pidbtest.b"};
    EXPECT_EQ(expected, catalogue.getNames());
    EXPECT_EQ(3u, catalogue.size());
}

TEST(ParameterInfoDBTest, RepeatedIdenticalDeclarationIsHarmless)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.same", ParameterInfoDB::TYPE_BOOLEAN, "false", 0, 0, 0, "x");
    EXPECT_NO_THROW(catalogue.addParameter("pidbtest.same", ParameterInfoDB::TYPE_BOOLEAN, "false",
                                           0, 0, 0, "x"));
    EXPECT_EQ(1u, catalogue.size());
}

TEST(ParameterInfoDBTest, DeclarationWithAnotherTypeThrows)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.type", ParameterInfoDB::TYPE_TEXT, "10", 0, 0, 0, "");
    EXPECT_THROW(
        catalogue.addParameter("pidbtest.type", ParameterInfoDB::TYPE_INTEGER, "10", 0, 0, 0, ""),
        Tavoris::Exception);
    ParameterInfo info;
    ASSERT_TRUE(catalogue.find("pidbtest.type", info));
    EXPECT_EQ(ParameterInfoDB::TYPE_TEXT, info.type);
}

TEST(ParameterInfoDBTest, DeclarationWithAnotherDefaultThrows)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.default", ParameterInfoDB::TYPE_INTEGER, "10", 0, 0, 0, "");
    EXPECT_THROW(catalogue.addParameter("pidbtest.default", ParameterInfoDB::TYPE_INTEGER, "11", 0,
                                        0, 0, ""),
                 Tavoris::Exception);
    EXPECT_THROW(catalogue.addParameter("pidbtest.default", ParameterInfoDB::TYPE_INTEGER, nullptr,
                                        0, 0, 0, ""),
                 Tavoris::Exception);
    EXPECT_EQ(1u, catalogue.size());
}

TEST(ParameterInfoDBTest, DeclarationWithoutANameThrows)
{
    LocalCatalogue catalogue;
    EXPECT_THROW(catalogue.addParameter(nullptr, ParameterInfoDB::TYPE_TEXT, nullptr, 0, 0, 0, ""),
                 Tavoris::Exception);
    EXPECT_THROW(catalogue.addParameter("", ParameterInfoDB::TYPE_TEXT, nullptr, 0, 0, 0, ""),
                 Tavoris::Exception);
    EXPECT_EQ(0u, catalogue.size());
}

TEST(ParameterInfoDBTest, DeclarationWithAnUnknownTypeThrows)
{
    LocalCatalogue catalogue;
    EXPECT_THROW(catalogue.addParameter("pidbtest.bad", 3, nullptr, 0, 0, 0, ""),
                 Tavoris::Exception);
    EXPECT_THROW(catalogue.addParameter("pidbtest.bad", 0, nullptr, 0, 0, 0, ""),
                 Tavoris::Exception);
    ParameterInfo info;
    EXPECT_FALSE(catalogue.find("pidbtest.bad", info));
}

TEST(ParameterInfoDBTest, RefusalMessageNamesTheParameter)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.named", ParameterInfoDB::TYPE_TEXT, nullptr, 0, 0, 0, "");
    try
    {
        catalogue.addParameter("pidbtest.named", ParameterInfoDB::TYPE_BOOLEAN, nullptr, 0, 0, 0,
                               "");
        FAIL() << "no exception";
    }
    catch (const Tavoris::Exception& e)
    {
        EXPECT_NE(std::string::npos, e.getMessage().find("pidbtest.named")) << e.getMessage();
        EXPECT_EQ(e.getMessage(), e.what());
    }
}

TEST(ParameterInfoDBTest, RemoveParameterForgetsIt)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.gone", ParameterInfoDB::TYPE_TEXT, nullptr, 0, 0, 0, "");
    catalogue.addParameter("pidbtest.kept", ParameterInfoDB::TYPE_TEXT, nullptr, 0, 0, 0, "");
    EXPECT_TRUE(catalogue.removeParameter("pidbtest.gone"));
    EXPECT_FALSE(catalogue.removeParameter("pidbtest.gone"));
    EXPECT_FALSE(catalogue.removeParameter(nullptr));
    const std::vector<std::string> expected = {"pidbtest.kept"};
    EXPECT_EQ(expected, catalogue.getNames());
}

TEST(ParameterInfoDBTest, RemovedParameterMayBeDeclaredAnew)
{
    LocalCatalogue catalogue;
    catalogue.addParameter("pidbtest.again", ParameterInfoDB::TYPE_TEXT, nullptr, 0, 0, 0, "");
    catalogue.removeParameter("pidbtest.again");
    EXPECT_NO_THROW(
        catalogue.addParameter("pidbtest.again", ParameterInfoDB::TYPE_INTEGER, "3", 0, 0, 0, ""));
    ParameterInfo info;
    ASSERT_TRUE(catalogue.find("pidbtest.again", info));
    EXPECT_EQ(ParameterInfoDB::TYPE_INTEGER, info.type);
}

TEST(ParameterInfoDBTest, ProcessCatalogueKeepsWhatIsDeclaredInIt)
{
    ParameterInfoDB& catalogue = ParameterInfoDB::getNonConstInstance();
    catalogue.addParameter("pidbtest.process", ParameterInfoDB::TYPE_BOOLEAN, "true", 0, 0, 0,
                           "process-wide");
    ParameterInfo info;
    const bool found = ParameterInfoDB::getInstance().find("pidbtest.process", info);
    catalogue.removeParameter("pidbtest.process");
    ASSERT_TRUE(found);
    EXPECT_EQ("process-wide", info.helpText);
}

TEST(ParameterInfoDBTest, ConcurrentDeclarationsAreAllKept)
{
    LocalCatalogue catalogue;
    const int kThreads = 6;
    const int kEach = 50;
    std::mutex mutex;
    std::condition_variable ready;
    int waiting = 0;
    bool go = false;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                {
                    std::unique_lock<std::mutex> lock(mutex);
                    ++waiting;
                    ready.notify_all();
                    ready.wait(lock, [&] { return go; });
                }
                for (int i = 0; i < kEach; ++i)
                {
                    const std::string name =
                        "pidbtest.thread" + std::to_string(t) + "." + std::to_string(i);
                    catalogue.addParameter(name.c_str(), ParameterInfoDB::TYPE_INTEGER,
                                           std::to_string(i).c_str(), 0, 0, 0, "");
                    // Every thread also declares one shared parameter, identically.
                    catalogue.addParameter("pidbtest.shared", ParameterInfoDB::TYPE_TEXT, "s", 0, 0,
                                           0, "");
                }
            });
    }
    {
        std::unique_lock<std::mutex> lock(mutex);
        ready.wait(lock, [&] { return waiting == kThreads; });
        go = true;
        ready.notify_all();
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(static_cast<size_t>(kThreads * kEach + 1), catalogue.size());
    ParameterInfo info;
    ASSERT_TRUE(catalogue.find("pidbtest.thread5.49", info));
    EXPECT_EQ("49", info.defaultValue);
}

} // namespace
