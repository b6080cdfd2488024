#include "tavoris/ROConfiguration.h"

#include "tavoris/Exception.h"
#include "tavoris/ParameterInfoDB.h"

#include <log4cplus/helpers/property.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>

namespace Tavoris
{

namespace
{

bool equalsNoCase(const std::string& text, const char* word)
{
    size_t i = 0;
    for (; i < text.size() && word[i] != '\0'; ++i)
    {
        char c = text[i];
        if (c >= 'A' && c <= 'Z')
        {
            c = static_cast<char>(c - 'A' + 'a');
        }
        if (c != word[i])
        {
            return false;
        }
    }
    return i == text.size() && word[i] == '\0';
}

} // namespace

ROConfiguration::ROConfiguration() : m_defaults(WITH_CATALOGUE_DEFAULTS) {}

ROConfiguration::ROConfiguration(const std::map<std::string, std::string>& values,
                                 Defaults defaults)
    : m_values(values), m_defaults(defaults)
{
}

ROConfiguration::~ROConfiguration() = default;

ROConfiguration ROConfiguration::sLoadFile(const std::string& path, Defaults defaults)
{
    // log4cplus reads a file it cannot open as an empty one; a missing configuration file is
    // an error here, so the file is tried first.
    if (!std::ifstream(path).is_open())
    {
        throw Exception("cannot read configuration file " + path);
    }
    log4cplus::helpers::Properties properties(path);
    std::map<std::string, std::string> values;
    for (const std::string& name : properties.propertyNames())
    {
        values[name] = properties.getProperty(name);
    }
    return ROConfiguration(values, defaults);
}

bool ROConfiguration::getString(const char* key, std::string& value) const
{
    if (key == nullptr)
    {
        return false;
    }
    auto own = m_values.find(key);
    if (own != m_values.end())
    {
        value = own->second;
        return true;
    }
    if (m_defaults == WITHOUT_DEFAULTS)
    {
        return false;
    }
    ParameterInfo info;
    if (!ParameterInfoDB::getInstance().find(key, info) || !info.hasDefault)
    {
        return false;
    }
    value = info.defaultValue;
    return true;
}

bool ROConfiguration::getInt32(const char* key, int32_t& value) const
{
    std::string text;
    if (!getString(key, text) || text.empty())
    {
        return false;
    }
    size_t i = (text[0] == '-' || text[0] == '+') ? 1 : 0;
    if (i == text.size())
    {
        return false;
    }
    for (size_t j = i; j < text.size(); ++j)
    {
        if (text[j] < '0' || text[j] > '9')
        {
            return false;
        }
    }
    errno = 0;
    const long long parsed = std::strtoll(text.c_str(), nullptr, 10);
    if (errno == ERANGE || parsed < INT32_MIN || parsed > INT32_MAX)
    {
        return false;
    }
    value = static_cast<int32_t>(parsed);
    return true;
}

bool ROConfiguration::getBool(const char* key, bool& value) const
{
    std::string text;
    if (!getString(key, text))
    {
        return false;
    }
    if (equalsNoCase(text, "true") || equalsNoCase(text, "yes") || equalsNoCase(text, "on") ||
        text == "1")
    {
        value = true;
        return true;
    }
    if (equalsNoCase(text, "false") || equalsNoCase(text, "no") || equalsNoCase(text, "off") ||
        text == "0")
    {
        value = false;
        return true;
    }
    return false;
}

bool ROConfiguration::hasOwnValue(const char* key) const
{
    return key != nullptr && m_values.count(key) != 0;
}

} // namespace Tavoris
