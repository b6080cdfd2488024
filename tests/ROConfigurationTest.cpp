#include "tavoris/ROConfiguration.h"

#include "tavoris/Exception.h"
#include "tavoris/ParameterInfoDB.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

using Tavoris::ParameterInfoDB;
using Tavoris::ROConfiguration;

/// A properties file in the test's temporary folder, removed at the end of the scope.
class TempPropertiesFile
{
public:
    explicit TempPropertiesFile(const std::string& contents)
    {
        std::string pattern = ::testing::TempDir() + "roconfigtest.XXXXXX";
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        const int fd = ::mkstemp(name.data());
        if (fd < 0)
        {
            ADD_FAILURE() << "mkstemp failed for " << pattern;
            return;
        }
        m_path = name.data();
        const ssize_t written = ::write(fd, contents.data(), contents.size());
        EXPECT_EQ(static_cast<ssize_t>(contents.size()), written);
        ::close(fd);
    }
    ~TempPropertiesFile()
    {
        if (!m_path.empty())
        {
            std::remove(m_path.c_str());
        }
    }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

/// Declares a parameter in the process catalogue for the scope.
class DeclaredParameter
{
public:
    DeclaredParameter(const char* name, int type, const char* defaultValue) : m_name(name)
    {
        ParameterInfoDB::getNonConstInstance().addParameter(name, type, defaultValue, nullptr,
                                                            nullptr, 0, "declared by a test");
    }
    ~DeclaredParameter() { ParameterInfoDB::getNonConstInstance().removeParameter(m_name.c_str()); }

private:
    std::string m_name;
};

ROConfiguration withValue(const std::string& key, const std::string& value)
{
    return ROConfiguration(std::map<std::string, std::string>{{key, value}});
}

TEST(ROConfigurationTest, MapValueIsReadAsText)
{
    const ROConfiguration config(
        std::map<std::string, std::string>{{"a.key", "a value"}, {"b.key", ""}});
    std::string value;
    ASSERT_TRUE(config.getString("a.key", value));
    EXPECT_EQ("a value", value);
    ASSERT_TRUE(config.getString("b.key", value));
    EXPECT_EQ("", value);
}

TEST(ROConfigurationTest, MissingKeyAnswersFalseAndLeavesTheArgument)
{
    const ROConfiguration config(std::map<std::string, std::string>{{"present", "1"}});
    std::string text = "kept";
    int32_t number = 17;
    bool flag = true;
    EXPECT_FALSE(config.getString("roconfigtest.absent", text));
    EXPECT_FALSE(config.getInt32("roconfigtest.absent", number));
    EXPECT_FALSE(config.getBool("roconfigtest.absent", flag));
    EXPECT_FALSE(config.getString(nullptr, text));
    EXPECT_EQ("kept", text);
    EXPECT_EQ(17, number);
    EXPECT_TRUE(flag);
}

TEST(ROConfigurationTest, PropertiesFileIsLoaded)
{
    TempPropertiesFile file("# a comment line\n"
                            "corvane.sip.tls.cypherSuites=TLS_RSA_WITH_AES_128_CBC_SHA\n"
                            "roconfigtest.count=12\n"
                            "\n"
                            "roconfigtest.flag=yes\n");
    ASSERT_FALSE(file.path().empty());
    const ROConfiguration config = ROConfiguration::sLoadFile(file.path());
    std::string text;
    ASSERT_TRUE(config.getString("corvane.sip.tls.cypherSuites", text));
    EXPECT_EQ("TLS_RSA_WITH_AES_128_CBC_SHA", text);
    int32_t count = 0;
    ASSERT_TRUE(config.getInt32("roconfigtest.count", count));
    EXPECT_EQ(12, count);
    bool flag = false;
    ASSERT_TRUE(config.getBool("roconfigtest.flag", flag));
    EXPECT_TRUE(flag);
    EXPECT_FALSE(config.hasOwnValue("# a comment line"));
    EXPECT_FALSE(config.getString("# a comment line", text));
}

TEST(ROConfigurationTest, PropertiesFileKeysAndValuesAreTrimmed)
{
    TempPropertiesFile file("  roconfigtest.spaced  =  some text  \n");
    ASSERT_FALSE(file.path().empty());
    const ROConfiguration config = ROConfiguration::sLoadFile(file.path());
    std::string text;
    ASSERT_TRUE(config.getString("roconfigtest.spaced", text));
    EXPECT_EQ("some text", text);
}

TEST(ROConfigurationTest, MissingFileThrows)
{
    TempPropertiesFile file("");
    ASSERT_FALSE(file.path().empty());
    const std::string missing = file.path() + ".missing";
    try
    {
        ROConfiguration::sLoadFile(missing);
        FAIL() << "no exception for " << missing;
    }
    catch (const Tavoris::Exception& e)
    {
        EXPECT_NE(std::string::npos, e.getMessage().find(missing)) << e.getMessage();
    }
}

TEST(ROConfigurationTest, FileValuesFollowTheDefaultsChoice)
{
    DeclaredParameter declared("roconfigtest.file.default", ParameterInfoDB::TYPE_INTEGER, "33");
    TempPropertiesFile file("roconfigtest.other=1\n");
    ASSERT_FALSE(file.path().empty());
    int32_t value = 0;
    EXPECT_TRUE(
        ROConfiguration::sLoadFile(file.path()).getInt32("roconfigtest.file.default", value));
    EXPECT_EQ(33, value);
    value = 0;
    EXPECT_FALSE(ROConfiguration::sLoadFile(file.path(), ROConfiguration::WITHOUT_DEFAULTS)
                     .getInt32("roconfigtest.file.default", value));
    EXPECT_EQ(0, value);
}

TEST(ROConfigurationTest, Int32ReadsSignedDecimals)
{
    const ROConfiguration config(std::map<std::string, std::string>{
        {"plain", "42"}, {"negative", "-17"}, {"plus", "+5"}, {"zero", "0"}, {"padded", "007"}});
    int32_t value = 0;
    ASSERT_TRUE(config.getInt32("plain", value));
    EXPECT_EQ(42, value);
    ASSERT_TRUE(config.getInt32("negative", value));
    EXPECT_EQ(-17, value);
    ASSERT_TRUE(config.getInt32("plus", value));
    EXPECT_EQ(5, value);
    ASSERT_TRUE(config.getInt32("zero", value));
    EXPECT_EQ(0, value);
    ASSERT_TRUE(config.getInt32("padded", value));
    EXPECT_EQ(7, value);
}

TEST(ROConfigurationTest, Int32ReadsBothBounds)
{
    const ROConfiguration config(std::map<std::string, std::string>{
        {"max", std::to_string(INT32_MAX)}, {"min", std::to_string(INT32_MIN)}});
    int32_t value = 0;
    ASSERT_TRUE(config.getInt32("max", value));
    EXPECT_EQ(INT32_MAX, value);
    ASSERT_TRUE(config.getInt32("min", value));
    EXPECT_EQ(INT32_MIN, value);
}

TEST(ROConfigurationTest, Int32OutsideTheBoundsIsRefused)
{
    const std::vector<std::string> outside = {std::to_string(static_cast<int64_t>(INT32_MAX) + 1),
                                              std::to_string(static_cast<int64_t>(INT32_MIN) - 1),
                                              "99999999999999999999999",
                                              "-99999999999999999999999"};
    for (const std::string& text : outside)
    {
        int32_t value = 3;
        EXPECT_FALSE(withValue("n", text).getInt32("n", value)) << text;
        EXPECT_EQ(3, value) << text;
    }
}

TEST(ROConfigurationTest, Int32GarbageIsRefused)
{
    const std::vector<std::string> garbage = {"",   "-",    "+",   "12a", "a12", " 5",
                                              "5 ", "0x10", "1.5", "--1", "1e3", "ten"};
    for (const std::string& text : garbage)
    {
        int32_t value = 9;
        EXPECT_FALSE(withValue("n", text).getInt32("n", value)) << "'" << text << "'";
        EXPECT_EQ(9, value) << "'" << text << "'";
    }
}

TEST(ROConfigurationTest, BoolReadsTheTrueWordsInAnyCase)
{
    for (const char* text : {"true", "TRUE", "True", "yes", "YES", "on", "On", "1"})
    {
        bool value = false;
        EXPECT_TRUE(withValue("b", text).getBool("b", value)) << text;
        EXPECT_TRUE(value) << text;
    }
}

TEST(ROConfigurationTest, BoolReadsTheFalseWordsInAnyCase)
{
    for (const char* text : {"false", "FALSE", "False", "no", "NO", "off", "OFF", "0"})
    {
        bool value = true;
        EXPECT_TRUE(withValue("b", text).getBool("b", value)) << text;
        EXPECT_FALSE(value) << text;
    }
}

TEST(ROConfigurationTest, BoolRefusesOtherWords)
{
    for (const char* text : {"", "maybe", "2", "truex", "tru", "y", "n", " true", "oN1"})
    {
        bool value = true;
        EXPECT_FALSE(withValue("b", text).getBool("b", value)) << "'" << text << "'";
        EXPECT_TRUE(value) << text;
    }
}

TEST(ROConfigurationTest, KeyWithoutValueAnswersTheCatalogueDefault)
{
    DeclaredParameter declared("roconfigtest.default", ParameterInfoDB::TYPE_INTEGER, "25");
    const ROConfiguration config;
    int32_t value = 0;
    ASSERT_TRUE(config.getInt32("roconfigtest.default", value));
    EXPECT_EQ(25, value);
    EXPECT_FALSE(config.hasOwnValue("roconfigtest.default"));
}

TEST(ROConfigurationTest, OwnValueWinsOverTheCatalogueDefault)
{
    DeclaredParameter declared("roconfigtest.override", ParameterInfoDB::TYPE_BOOLEAN, "false");
    const ROConfiguration config = withValue("roconfigtest.override", "on");
    bool value = false;
    ASSERT_TRUE(config.getBool("roconfigtest.override", value));
    EXPECT_TRUE(value);
    EXPECT_TRUE(config.hasOwnValue("roconfigtest.override"));
}

TEST(ROConfigurationTest, WithoutDefaultsIgnoresTheCatalogue)
{
    DeclaredParameter declared("roconfigtest.nodefaults", ParameterInfoDB::TYPE_TEXT, "catalogue");
    const ROConfiguration config(std::map<std::string, std::string>{},
                                 ROConfiguration::WITHOUT_DEFAULTS);
    std::string value = "kept";
    EXPECT_FALSE(config.getString("roconfigtest.nodefaults", value));
    EXPECT_EQ("kept", value);
    const ROConfiguration withDefaults(std::map<std::string, std::string>{},
                                       ROConfiguration::WITH_CATALOGUE_DEFAULTS);
    ASSERT_TRUE(withDefaults.getString("roconfigtest.nodefaults", value));
    EXPECT_EQ("catalogue", value);
}

TEST(ROConfigurationTest, ParameterWithoutDefaultHasNoValue)
{
    DeclaredParameter declared("roconfigtest.nodefault", ParameterInfoDB::TYPE_TEXT, nullptr);
    const ROConfiguration config;
    std::string value = "kept";
    EXPECT_FALSE(config.getString("roconfigtest.nodefault", value));
    EXPECT_EQ("kept", value);
}

TEST(ROConfigurationTest, CatalogueDefaultIsConvertedLikeAnOwnValue)
{
    DeclaredParameter declared("roconfigtest.badint", ParameterInfoDB::TYPE_TEXT, "not a number");
    const ROConfiguration config;
    int32_t value = 4;
    EXPECT_FALSE(config.getInt32("roconfigtest.badint", value));
    EXPECT_EQ(4, value);
}

} // namespace
