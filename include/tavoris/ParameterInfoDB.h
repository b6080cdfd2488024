// The process-wide catalogue of configuration parameters: names, types, defaults, help texts.
#ifndef TAVORIS_PARAMETERINFODB_H
#define TAVORIS_PARAMETERINFODB_H

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace Tavoris
{

/// What the catalogue knows of one parameter.
struct ParameterInfo
{
    std::string name;
    int type;
    bool hasDefault;
    std::string defaultValue;
    std::string minValue;
    std::string maxValue;
    unsigned int flags;
    std::string helpText;
};

/// The catalogue in which libraries declare their parameters, so that configuration tools and
/// ROConfiguration know each one's type, default and help text.
///
/// Declaring a parameter twice with the same type and default is harmless; a declaration that
/// contradicts an earlier one is refused with a Tavoris::Exception.
/// Thread safety: every operation locks the catalogue.
class ParameterInfoDB
{
public:
    /// The types of parameters; a parameter has one of them.
    enum Type
    {
        TYPE_TEXT = 1,
        TYPE_INTEGER = 2,
        TYPE_BOOLEAN = 4
    };

    /// The process-wide catalogue, for declaring parameters.
    static ParameterInfoDB& getNonConstInstance();
    /// The process-wide catalogue, for reading.
    static const ParameterInfoDB& getInstance();

    virtual ~ParameterInfoDB();

    /// Declares one parameter.
    /// \param name the parameter's name; must not be null or empty.
    /// \param type one of Type.
    /// \param defaultValue the default as text, null when the parameter has none.
    /// \param minValue lower bound of an integer parameter as text, or null.
    /// \param maxValue upper bound of an integer parameter as text, or null.
    /// \param flags reserved, 0.
    /// \param helpText what the parameter does; null reads as empty.
    /// \throws Tavoris::Exception for a missing name, an unknown type, or a name declared before
    /// with another type or default.
    virtual void addParameter(const char* name, int type, const char* defaultValue,
                              const char* minValue, const char* maxValue, unsigned int flags,
                              const char* helpText);

    /// Looks a parameter up.
    /// \return true with \p info filled in, false when \p name was never declared.
    bool find(const char* name, ParameterInfo& info) const;

    /// The declared names, in the order of declaration.
    std::vector<std::string> getNames() const;

    /// Number of declared parameters.
    size_t size() const;

    /// Forgets one parameter. \return true when it was declared.
    bool removeParameter(const char* name);

protected:
    ParameterInfoDB();

private:
    ParameterInfoDB(const ParameterInfoDB&) = delete;
    ParameterInfoDB& operator=(const ParameterInfoDB&) = delete;

    const ParameterInfo* mFind(const char* name) const; // caller holds m_mutex

    mutable std::mutex m_mutex;
    std::vector<ParameterInfo> m_parameters; // guarded by m_mutex
};

} // namespace Tavoris

#endif // TAVORIS_PARAMETERINFODB_H
