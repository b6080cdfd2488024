#include "ZnUtil/ZnUtilParamDefs.h"

#include "tavoris/Exception.h"
#include "tavoris/ParameterInfoDB.h"
#include "tavoris/ROConfiguration.h"
#include "tavoris/SingletonRegistry.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/CapturingAppender.h"

namespace
{

using Tavoris::ParameterInfo;
using Tavoris::ParameterInfoDB;

/// One parameter as the library must declare it.
struct ExpectedRow
{
    const char* name;
    int type;
    const char* defaultValue; // null: no default
    const char* helpText;
};

const ExpectedRow kRows[] = {
    {"corvane.sip.tls.supportSSLv2ClientHello", 4, "false",
     "A TLS connection established when this parameter is set to true will understand the SSLv2, "
     "SSLv3, and TLSv1 protocol. A client will send out SSLv2 client hello messages and will "
     "indicate that it also understands SSLv3 and TLSv1. A server will understand SSLv2, SSLv3, "
     "and TLSv1 client hello messages. This is the best choice when compatibility is a concern to "
     "negotiate with all possible clients, but only allow TLSv1 protocol transport.  By default "
     "is parameter is set to false to be aligned with the SIP specification."},
    {"corvane.sip.tls.cypherSuites", 1,
     "TLS_RSA_WITH_AES_128_CBC_SHA,TLS_RSA_WITH_3DES_EDE_CBC_SHA",
     "A comma-separated list of cypher suites. Available cypher suite are: "
     "TLS_RSA_WITH_AES_128_CBC_SHA (recommended), TLS_RSA_WITH_3DES_EDE_CBC_SHA (required for "
     "backward compatibility)"},
    {"corvane.sip.tls.serverCertificateFile", 1, nullptr,
     "File path to the certificate to be used by the gateway during the TLS authentication "
     "process."},
    {"corvane.sip.tls.serverCertificatePrivateKeyFile", 1, nullptr,
     "File path to a file containing an encrypted version of the private key used to generate "
     "the server certificate."},
    {"corvane.sip.tls.trustedRootCertificatesStore", 1, nullptr,
     "Path to a Base64 encoded DER file containing a certificate for each trusted certificate "
     "authorities."},
    {"corvane.sip.tls.revokedCertificatesStore", 1, nullptr,
     "Path to a Base64 encoded DER file containing a revocation list. Remove this parameter from "
     "the configuration file if you don't want to check certificates with the revocation list."},
    {"corvane.sip.tcpTls.asynchronousIO.enable", 4, "true",
     "Enable TCP/TLS asynchronous IO requests"},
    {"corvane.sip.tcpTls.asynchronousIO.numberOfTasks", 2, "10",
     "Set how many task will be used to perform TCP/TLS IO requests"},
};

const size_t kRowCount = sizeof(kRows) / sizeof(kRows[0]);

ParameterInfoDB& catalogue()
{
    return ParameterInfoDB::getNonConstInstance();
}

/// The library's parameters in the order the catalogue lists them.
std::vector<std::string> declaredRowNames()
{
    std::set<std::string> ours;
    for (const ExpectedRow& row : kRows)
    {
        ours.insert(row.name);
    }
    std::vector<std::string> names;
    for (const std::string& name : catalogue().getNames())
    {
        if (ours.count(name) != 0)
        {
            names.push_back(name);
        }
    }
    return names;
}

/// Puts the library's rows back as declared at load, whatever a test did to them.
class CatalogueRestorer
{
public:
    explicit CatalogueRestorer(const char* extra = nullptr) : m_extra(extra != nullptr ? extra : "")
    {
    }
    ~CatalogueRestorer() { restore(); }

    bool restore()
    {
        for (const ExpectedRow& row : kRows)
        {
            catalogue().removeParameter(row.name);
        }
        if (!m_extra.empty())
        {
            catalogue().removeParameter(m_extra.c_str());
        }
        return Tavoris::ZnUtil::addParametersToDB();
    }

private:
    std::string m_extra;
};

TEST(ZnUtilParamDefsTest, ParametersAreDeclaredAtLoad)
{
    EXPECT_TRUE(Tavoris::ZnUtil::areParametersRegistered());
    for (const ExpectedRow& row : kRows)
    {
        ParameterInfo info;
        EXPECT_TRUE(ParameterInfoDB::getInstance().find(row.name, info)) << row.name;
    }
}

TEST(ZnUtilParamDefsTest, TypesAreTextIntegerOrBoolean)
{
    for (const ExpectedRow& row : kRows)
    {
        ParameterInfo info;
        ASSERT_TRUE(ParameterInfoDB::getInstance().find(row.name, info)) << row.name;
        EXPECT_EQ(row.type, info.type) << row.name;
    }
}

TEST(ZnUtilParamDefsTest, DefaultsAreAsDeclared)
{
    for (const ExpectedRow& row : kRows)
    {
        ParameterInfo info;
        ASSERT_TRUE(ParameterInfoDB::getInstance().find(row.name, info)) << row.name;
        EXPECT_EQ(row.defaultValue != nullptr, info.hasDefault) << row.name;
        EXPECT_EQ(row.defaultValue != nullptr ? row.defaultValue : "", info.defaultValue)
            << row.name;
    }
}

TEST(ZnUtilParamDefsTest, BoundsAndFlagsAreLeftEmpty)
{
    for (const ExpectedRow& row : kRows)
    {
        ParameterInfo info;
        ASSERT_TRUE(ParameterInfoDB::getInstance().find(row.name, info)) << row.name;
        EXPECT_EQ("", info.minValue) << row.name;
        EXPECT_EQ("", info.maxValue) << row.name;
        EXPECT_EQ(0u, info.flags) << row.name;
    }
}

TEST(ZnUtilParamDefsTest, HelpTextsAreExact)
{
    for (const ExpectedRow& row : kRows)
    {
        ParameterInfo info;
        ASSERT_TRUE(ParameterInfoDB::getInstance().find(row.name, info)) << row.name;
        EXPECT_EQ(row.helpText, info.helpText) << row.name;
    }
}

TEST(ZnUtilParamDefsTest, HelpTextKeepsTheDoubleBlank)
{
    ParameterInfo info;
    ASSERT_TRUE(
        ParameterInfoDB::getInstance().find("corvane.sip.tls.supportSSLv2ClientHello", info));
    EXPECT_NE(std::string::npos, info.helpText.find("transport.  By default"));
}

TEST(ZnUtilParamDefsTest, ParametersAreDeclaredInOrder)
{
    std::vector<std::string> expected;
    for (const ExpectedRow& row : kRows)
    {
        expected.push_back(row.name);
    }
    EXPECT_EQ(expected, declaredRowNames());
}

TEST(ZnUtilParamDefsTest, MarkerIsRegisteredAsParamDefsSingleton)
{
    EXPECT_NE(nullptr, Tavoris::SingletonRegistry::getInstance().lookup("ParamDefs::Singleton"));
}

TEST(ZnUtilParamDefsTest, DeclaringAgainIsHarmless)
{
    ZnTest::LogCapture cap("corvane.infra.ParamDefs", Tavoris::TRACE_LOG_LEVEL);
    const size_t before = catalogue().size();
    EXPECT_TRUE(Tavoris::ZnUtil::addParametersToDB());
    EXPECT_EQ(before, catalogue().size());
    EXPECT_TRUE(cap.events().empty());
}

TEST(ZnUtilParamDefsTest, DeclarationInAnEmptiedCatalogueSucceeds)
{
    CatalogueRestorer restorer;
    for (const ExpectedRow& row : kRows)
    {
        catalogue().removeParameter(row.name);
    }
    ASSERT_TRUE(declaredRowNames().empty());
    EXPECT_TRUE(Tavoris::ZnUtil::addParametersToDB());
    EXPECT_EQ(kRowCount, declaredRowNames().size());
}

TEST(ZnUtilParamDefsTest, RefusedRowStopsTheDeclarationAndIsLogged)
{
    const size_t kFailing = 3;
    const ExpectedRow& failing = kRows[kFailing];
    CatalogueRestorer restorer(failing.name);

    // Every row out, then the failing one back with a type that contradicts the library's.
    for (const ExpectedRow& row : kRows)
    {
        catalogue().removeParameter(row.name);
    }
    catalogue().addParameter(failing.name, ParameterInfoDB::TYPE_INTEGER, nullptr, nullptr, nullptr,
                             0, "conflicting declaration");

    // The text the catalogue's refusal prints as.
    std::string expectedText;
    try
    {
        catalogue().addParameter(failing.name, failing.type, failing.defaultValue, nullptr, nullptr,
                                 0, failing.helpText);
    }
    catch (const Tavoris::Exception& e)
    {
        std::ostringstream out;
        out << e;
        expectedText = out.str();
    }
    ASSERT_FALSE(expectedText.empty()) << "the catalogue accepted the conflicting row";

    ZnTest::LogCapture cap("corvane.infra.ParamDefs", Tavoris::TRACE_LOG_LEVEL);
    EXPECT_FALSE(Tavoris::ZnUtil::addParametersToDB());

    for (size_t i = 0; i < kRowCount; ++i)
    {
        ParameterInfo info;
        const bool found = catalogue().find(kRows[i].name, info);
        if (i < kFailing)
        {
            EXPECT_TRUE(found) << kRows[i].name;
            EXPECT_EQ(kRows[i].type, info.type) << kRows[i].name;
        }
        else if (i == kFailing)
        {
            ASSERT_TRUE(found);
            EXPECT_EQ(ParameterInfoDB::TYPE_INTEGER, info.type);
            EXPECT_EQ("conflicting declaration", info.helpText);
        }
        else
        {
            EXPECT_FALSE(found) << kRows[i].name;
        }
    }

    const auto events = cap.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("corvane.infra.ParamDefs", events[0].logger);
    EXPECT_EQ(Tavoris::ERROR_LOG_LEVEL, events[0].level);
    EXPECT_EQ(expectedText, events[0].message);
    EXPECT_EQ(0u, events[0].message.find("Tavoris::Exception: ")) << events[0].message;
    EXPECT_NE(std::string::npos, events[0].message.find(failing.name)) << events[0].message;
    EXPECT_EQ("ZnUtilParamDefs", events[0].file);
    EXPECT_EQ(40, events[0].line);

    EXPECT_TRUE(restorer.restore());
    std::vector<std::string> expected;
    for (const ExpectedRow& row : kRows)
    {
        expected.push_back(row.name);
    }
    EXPECT_EQ(expected, declaredRowNames());
    ParameterInfo restored;
    ASSERT_TRUE(catalogue().find(failing.name, restored));
    EXPECT_EQ(failing.type, restored.type);
}

TEST(ZnUtilParamDefsTest, RefusalIsNotLoggedWhenNobodyListens)
{
    CatalogueRestorer restorer("corvane.sip.tcpTls.asynchronousIO.numberOfTasks");
    catalogue().removeParameter("corvane.sip.tcpTls.asynchronousIO.numberOfTasks");
    catalogue().addParameter("corvane.sip.tcpTls.asynchronousIO.numberOfTasks",
                             ParameterInfoDB::TYPE_INTEGER, "11", nullptr, nullptr, 0, "");
    ZnTest::LogCapture cap("corvane.infra.ParamDefs", Tavoris::ERROR_LOG_LEVEL + 10000);
    EXPECT_FALSE(Tavoris::ZnUtil::addParametersToDB());
    EXPECT_TRUE(cap.events().empty());
}

TEST(ZnUtilParamDefsTest, ConfigurationAnswersTheDeclaredDefaults)
{
    const Tavoris::ROConfiguration config;
    bool sslv2 = true;
    ASSERT_TRUE(config.getBool("corvane.sip.tls.supportSSLv2ClientHello", sslv2));
    EXPECT_FALSE(sslv2);
    bool asyncEnabled = false;
    ASSERT_TRUE(config.getBool("corvane.sip.tcpTls.asynchronousIO.enable", asyncEnabled));
    EXPECT_TRUE(asyncEnabled);
    int32_t tasks = 0;
    ASSERT_TRUE(config.getInt32("corvane.sip.tcpTls.asynchronousIO.numberOfTasks", tasks));
    EXPECT_EQ(10, tasks);
    std::string file = "unset";
    EXPECT_FALSE(config.getString("corvane.sip.tls.serverCertificateFile", file));
    EXPECT_EQ("unset", file);
}

} // namespace
