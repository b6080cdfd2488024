// The declaration of the library's configuration parameters to the process's catalogue.
#ifndef ZNUTIL_ZNUTILPARAMDEFS_H
#define ZNUTIL_ZNUTILPARAMDEFS_H

namespace Tavoris
{
namespace ZnUtil
{

/// Declares the library's eight parameters to ParameterInfoDB, in order. Runs by itself when the
/// library is loaded; hosts need not call it.
/// \return true when all were declared; false when the catalogue refused one (logged at ERROR on
/// "corvane.infra.ParamDefs"): those before it stay declared, those after it are not.
bool addParametersToDB();

/// True when the load-time declaration has run (whatever its result).
bool areParametersRegistered();

} // namespace ZnUtil
} // namespace Tavoris

#endif // ZNUTIL_ZNUTILPARAMDEFS_H
