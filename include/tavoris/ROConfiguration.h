// Read-only access to configuration values by parameter name.
#ifndef TAVORIS_ROCONFIGURATION_H
#define TAVORIS_ROCONFIGURATION_H

#include <cstdint>
#include <map>
#include <string>

namespace Tavoris
{

/// A read-only set of configuration values, as the host hands it to the library.
///
/// Values come from a properties file (key=value lines, '#' comments, as log4cplus reads them)
/// or from a map. A key with no value of its own answers the default declared in the
/// ParameterInfoDB, unless the configuration was made without defaults. Each read answers false
/// when no value can be read (missing, or not of the asked type) and leaves its argument as it
/// was. Thread safety: immutable after construction; any thread may read.
class ROConfiguration
{
public:
    /// Whether keys without a value of their own fall back on the catalogue's defaults.
    enum Defaults
    {
        WITH_CATALOGUE_DEFAULTS,
        WITHOUT_DEFAULTS
    };

    /// No values of its own: every read answers the catalogue's default, if any.
    ROConfiguration();
    /// The values of \p values.
    explicit ROConfiguration(const std::map<std::string, std::string>& values,
                             Defaults defaults = WITH_CATALOGUE_DEFAULTS);
    virtual ~ROConfiguration();

    /// Reads a properties file.
    /// \throws Tavoris::Exception "cannot read configuration file <path>" when the file cannot
    /// be opened.
    static ROConfiguration sLoadFile(const std::string& path,
                                     Defaults defaults = WITH_CATALOGUE_DEFAULTS);

    /// Reads a text value. \return false when the key has no value.
    virtual bool getString(const char* key, std::string& value) const;

    /// Reads a signed 32-bit integer: optional sign and decimal digits, nothing else.
    /// \return false when the key has no value or the value is not such a number.
    virtual bool getInt32(const char* key, int32_t& value) const;

    /// Reads a boolean: true, yes, on or 1, and false, no, off or 0, in any case.
    /// \return false when the key has no value or the value is none of those.
    virtual bool getBool(const char* key, bool& value) const;

    /// True when the key has a value of its own (not a default).
    bool hasOwnValue(const char* key) const;

private:
    std::map<std::string, std::string> m_values;
    Defaults m_defaults;
};

} // namespace Tavoris

#endif // TAVORIS_ROCONFIGURATION_H
