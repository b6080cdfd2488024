#include "tavoris/ParameterInfoDB.h"

#include "tavoris/Exception.h"

namespace Tavoris
{

namespace
{

class ProcessParameterInfoDB : public ParameterInfoDB
{
};

ProcessParameterInfoDB& processCatalogue()
{
    // Never destroyed: libraries may declare or read parameters from their own static
    // initialisers and destructors, in any order.
    static ProcessParameterInfoDB* s_catalogue = new ProcessParameterInfoDB;
    return *s_catalogue;
}

std::string textOrEmpty(const char* text)
{
    return text != nullptr ? std::string(text) : std::string();
}

} // namespace

ParameterInfoDB& ParameterInfoDB::getNonConstInstance()
{
    return processCatalogue();
}

const ParameterInfoDB& ParameterInfoDB::getInstance()
{
    return processCatalogue();
}

ParameterInfoDB::ParameterInfoDB() = default;

ParameterInfoDB::~ParameterInfoDB() = default;

const ParameterInfo* ParameterInfoDB::mFind(const char* name) const
{
    for (const ParameterInfo& info : m_parameters)
    {
        if (info.name == name)
        {
            return &info;
        }
    }
    return nullptr;
}

void ParameterInfoDB::addParameter(const char* name, int type, const char* defaultValue,
                                   const char* minValue, const char* maxValue, unsigned int flags,
                                   const char* helpText)
{
    if (name == nullptr || *name == '\0')
    {
        throw Exception("parameter declared without a name");
    }
    if (type != TYPE_TEXT && type != TYPE_INTEGER && type != TYPE_BOOLEAN)
    {
        throw Exception(std::string("parameter ") + name + " declared with unknown type " +
                        std::to_string(type));
    }
    ParameterInfo info{name,
                       type,
                       defaultValue != nullptr,
                       textOrEmpty(defaultValue),
                       textOrEmpty(minValue),
                       textOrEmpty(maxValue),
                       flags,
                       textOrEmpty(helpText)};

    std::lock_guard<std::mutex> lock(m_mutex);
    if (const ParameterInfo* known = mFind(name))
    {
        if (known->type != info.type || known->hasDefault != info.hasDefault ||
            known->defaultValue != info.defaultValue)
        {
            throw Exception(std::string("parameter ") + name +
                            " already declared with another type or default");
        }
        return;
    }
    m_parameters.push_back(std::move(info));
}

bool ParameterInfoDB::find(const char* name, ParameterInfo& info) const
{
    if (name == nullptr)
    {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const ParameterInfo* known = mFind(name);
    if (known == nullptr)
    {
        return false;
    }
    info = *known;
    return true;
}

std::vector<std::string> ParameterInfoDB::getNames() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> names;
    names.reserve(m_parameters.size());
    for (const ParameterInfo& info : m_parameters)
    {
        names.push_back(info.name);
    }
    return names;
}

size_t ParameterInfoDB::size() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_parameters.size();
}

bool ParameterInfoDB::removeParameter(const char* name)
{
    if (name == nullptr)
    {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_parameters.begin(); it != m_parameters.end(); ++it)
    {
        if (it->name == name)
        {
            m_parameters.erase(it);
            return true;
        }
    }
    return false;
}

} // namespace Tavoris
