#include "ZnUtil/ZnUtilParamDefs.h"

#include "tavoris/Exception.h"
#include "tavoris/LogSite.h"
#include "tavoris/ParameterInfoDB.h"
#include "tavoris/SingletonRegistry.h"

namespace
{

TAVORIS_DEFINE_STATIC_LOGGER(paramDefsLogger, "corvane.infra.ParamDefs")

struct ParameterRow
{
    const char* name;
    int type;
    const char* defaultValue;
    const char* helpText;
};

const ParameterRow kParameters[] = {
    {"corvane.sip.tls.supportSSLv2ClientHello", Tavoris::ParameterInfoDB::TYPE_BOOLEAN, "false",
     "A TLS connection established when this parameter is set to true will understand the SSLv2, "
     "SSLv3, and TLSv1 protocol. A client will send out SSLv2 client hello messages and will "
     "indicate that it also understands SSLv3 and TLSv1. A server will understand SSLv2, SSLv3, "
     "and TLSv1 client hello messages. This is the best choice when compatibility is a concern to "
     "negotiate with all possible clients, but only allow TLSv1 protocol transport.  By default "
     "is parameter is set to false to be aligned with the SIP specification."},
    {"corvane.sip.tls.cypherSuites", Tavoris::ParameterInfoDB::TYPE_TEXT,
     "TLS_RSA_WITH_AES_128_CBC_SHA,TLS_RSA_WITH_3DES_EDE_CBC_SHA",
     "A comma-separated list of cypher suites. Available cypher suite are: "
     "TLS_RSA_WITH_AES_128_CBC_SHA (recommended), TLS_RSA_WITH_3DES_EDE_CBC_SHA (required for "
     "backward compatibility)"},
    {"corvane.sip.tls.serverCertificateFile", Tavoris::ParameterInfoDB::TYPE_TEXT, nullptr,
     "File path to the certificate to be used by the gateway during the TLS authentication "
     "process."},
    {"corvane.sip.tls.serverCertificatePrivateKeyFile", Tavoris::ParameterInfoDB::TYPE_TEXT,
     nullptr,
     "File path to a file containing an encrypted version of the private key used to generate "
     "the server certificate."},
    {"corvane.sip.tls.trustedRootCertificatesStore", Tavoris::ParameterInfoDB::TYPE_TEXT, nullptr,
     "Path to a Base64 encoded DER file containing a certificate for each trusted certificate "
     "authorities."},
    {"corvane.sip.tls.revokedCertificatesStore", Tavoris::ParameterInfoDB::TYPE_TEXT, nullptr,
     "Path to a Base64 encoded DER file containing a revocation list. Remove this parameter from "
     "the configuration file if you don't want to check certificates with the revocation list."},
    {"corvane.sip.tcpTls.asynchronousIO.enable", Tavoris::ParameterInfoDB::TYPE_BOOLEAN, "true",
     "Enable TCP/TLS asynchronous IO requests"},
    {"corvane.sip.tcpTls.asynchronousIO.numberOfTasks", Tavoris::ParameterInfoDB::TYPE_INTEGER,
     "10", "Set how many task will be used to perform TCP/TLS IO requests"},
};

/// The one-byte object the registry owns for the library's parameter set; making it declares
/// the parameters.
struct ParamDefsMarker
{
    ParamDefsMarker() { Tavoris::ZnUtil::addParametersToDB(); }

    static void sDestroy(void* marker) { delete static_cast<ParamDefsMarker*>(marker); }
};

static_assert(sizeof(ParamDefsMarker) == 1, "the marker is one byte");

const char* const kMarkerKey = "ParamDefs::Singleton";

/// Declares the parameters and hands the marker to the registry. When another copy of this code
/// registered first, its marker is kept and ours goes.
ParamDefsMarker* registerParameterSet()
{
    ParamDefsMarker* marker = new ParamDefsMarker;
    void* registered = Tavoris::SingletonRegistry::getInstance().registerSingleton(
        kMarkerKey, marker, &ParamDefsMarker::sDestroy);
    if (registered != marker)
    {
        delete marker;
    }
    return static_cast<ParamDefsMarker*>(registered);
}

/// Runs once per load; the loader runs static initialisers on one thread, so the guard is a
/// plain flag.
ParamDefsMarker* registerOnce()
{
    static bool s_done = false;
    static ParamDefsMarker* s_marker = nullptr;
    if (!s_done)
    {
        s_done = true;
        s_marker = registerParameterSet();
    }
    return s_marker;
}

bool s_registeredAtLoad = (registerOnce(), true);

} // namespace

namespace Tavoris
{
namespace ZnUtil
{

bool addParametersToDB()
{
    ParameterInfoDB& catalogue = ParameterInfoDB::getNonConstInstance();
    try
    {
        for (const ParameterRow& row : kParameters)
        {
            catalogue.addParameter(row.name, row.type, row.defaultValue, 0, 0, 0, row.helpText);
        }
    }
    catch (const Tavoris::Exception& e)
    {
        TAVORIS_LOG_AT(paramDefsLogger(), ERROR_LOG_LEVEL, "ZnUtilParamDefs", 40, e);
        return false;
    }
    return true;
}

bool areParametersRegistered()
{
    return s_registeredAtLoad;
}

} // namespace ZnUtil
} // namespace Tavoris
