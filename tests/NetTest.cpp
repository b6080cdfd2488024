// The counted set-up of the network library.
#include "tavoris/Net.h"

#include <gtest/gtest.h>

#include "support/RunTogether.h"

namespace
{

using Tavoris::Net;

/// Closes every set-up still open, so that a test starts from none.
void closeAll()
{
    while (Net::getInitializeCount() > 0)
    {
        Net::closeLibrary();
    }
}

TEST(NetTest, NothingIsSetUpAtFirst)
{
    closeAll();
    EXPECT_EQ(0, Net::getInitializeCount());
    EXPECT_FALSE(Net::isInitialized());
}

TEST(NetTest, InitializeCountsAndCloseCountsDown)
{
    closeAll();
    EXPECT_TRUE(Net::initializeLibrary());
    EXPECT_EQ(1, Net::getInitializeCount());
    EXPECT_TRUE(Net::isInitialized());
    EXPECT_TRUE(Net::initializeLibrary());
    EXPECT_EQ(2, Net::getInitializeCount());
    Net::closeLibrary();
    // Still set up until every set-up has had its close.
    EXPECT_EQ(1, Net::getInitializeCount());
    EXPECT_TRUE(Net::isInitialized());
    Net::closeLibrary();
    EXPECT_EQ(0, Net::getInitializeCount());
    EXPECT_FALSE(Net::isInitialized());
}

TEST(NetTest, CloseWithoutInitializeIsIgnored)
{
    closeAll();
    Net::closeLibrary();
    Net::closeLibrary();
    EXPECT_EQ(0, Net::getInitializeCount());
    EXPECT_FALSE(Net::isInitialized());
    // The ignored closes do not eat a later set-up.
    EXPECT_TRUE(Net::initializeLibrary());
    EXPECT_EQ(1, Net::getInitializeCount());
    Net::closeLibrary();
    EXPECT_EQ(0, Net::getInitializeCount());
}

TEST(NetTest, PairsFromManyThreadsBalance)
{
    closeAll();
    constexpr int kThreads = 8;
    constexpr int kRounds = 2000;
    ZnTest::runTogether(kThreads,
                        [](int)
                        {
                            for (int i = 0; i < kRounds; ++i)
                            {
                                Net::initializeLibrary();
                                Net::closeLibrary();
                            }
                        });
    EXPECT_EQ(0, Net::getInitializeCount());
    ZnTest::runTogether(kThreads,
                        [](int)
                        {
                            for (int i = 0; i < kRounds; ++i)
                            {
                                Net::initializeLibrary();
                            }
                        });
    EXPECT_EQ(kThreads * kRounds, Net::getInitializeCount());
    ZnTest::runTogether(kThreads,
                        [](int)
                        {
                            // One close more than each thread's share: the surplus is ignored.
                            for (int i = 0; i <= kRounds; ++i)
                            {
                                Net::closeLibrary();
                            }
                        });
    EXPECT_EQ(0, Net::getInitializeCount());
    EXPECT_FALSE(Net::isInitialized());
}

} // namespace
