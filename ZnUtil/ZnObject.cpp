#include "ZnUtil/ZnObject.h"

#include "ZnUtil/ZnAssertionFailure.h"
#include "ZnUtil/ZnOutputStream.h"

#include "tavoris/DynCastAssert.h"

#include <map>
#include <mutex>
#include <string>
#include <typeindex>
#include <typeinfo>

namespace
{

const char* const kSource = "ZnObject";

/// Where the bare class name begins in a demangled name: after the last "::" that is not inside
/// template arguments or parentheses, so namespaces and enclosing classes go and the arguments
/// of a template stay whole ("Box<Shapes::Circle>", not "Circle>").
size_t bareNameStart(const std::string& name)
{
    size_t start = 0;
    int depth = 0;
    for (size_t i = 0; i < name.size(); ++i)
    {
        const char c = name[i];
        if (c == '<' || c == '(')
        {
            ++depth;
        }
        else if ((c == '>' || c == ')') && depth > 0)
        {
            --depth;
        }
        else if (depth == 0 && c == ':' && i + 1 < name.size() && name[i + 1] == ':')
        {
            start = i + 2;
            ++i;
        }
    }
    return start;
}

/// The bare names of the run-time classes seen so far. Entries are never removed, so the
/// texts handed out stay valid.
class ClassNames
{
public:
    const char* get(const std::type_info& type)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto found = m_names.find(std::type_index(type));
        if (found != m_names.end())
        {
            return found->second.c_str();
        }
        std::string name = Tavoris::DynCastAssertNoT::demangle(type);
        name.erase(0, bareNameStart(name));
        return m_names.emplace(std::type_index(type), std::move(name)).first->second.c_str();
    }

private:
    std::mutex m_mutex;
    std::map<std::type_index, std::string> m_names; // guarded by m_mutex
};

ClassNames& classNames()
{
    static ClassNames* s_names = new ClassNames;
    return *s_names;
}

uint32_t low32(const void* p)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p));
}

} // namespace

ZnObject::~ZnObject() noexcept(false)
{
    if (m_refCount.load(std::memory_order_acquire) != 0)
    {
        // Deliberately thrown from a destructor: destroying a referenced object is fatal.
        ZnAssertionFailure::sThrow("Destructing ZnObject with live references", kSource, 52,
                                   ZN_COMPILED);
    }
}

ZnObject* ZnObject::clone() const
{
    ZnAssertionFailure::sThrow("cloning is not supported", kSource, 87, ZN_COMPILED);
}

int ZnObject::compareWith(const ZnObject* other) const
{
    return static_cast<int>(static_cast<int32_t>(low32(this) - low32(other)));
}

unsigned int ZnObject::hashCode() const
{
    return low32(this);
}

void ZnObject::display(ZnOutputStream& out, bool showAddress) const
{
    out << static_cast<unsigned int>(getRefCount());
    if (showAddress)
    {
        out << " \t(" << static_cast<const void*>(this) << ")";
    }
    out << "\t" << getClassName();
}

unsigned long ZnObject::AddRef()
{
    return static_cast<uint32_t>(m_refCount.fetch_add(1, std::memory_order_acq_rel) + 1);
}

unsigned long ZnObject::Release(bool deleteAtZero)
{
    const int32_t count = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (count == 0 && deleteAtZero)
    {
        delete this;
    }
    return static_cast<uint32_t>(count);
}

void ZnObject::sAssertNotNull(const ZnObject* self)
{
    if (sIsNullReceiver(self))
    {
        ZnAssertionFailure::sThrow("this != 0", kSource, 87, ZN_COMPILED);
    }
}

int ZnObject::compare(const ZnObject* other) const
{
    sAssertNotNull(this);
    return compareWith(other);
}

bool ZnObject::equals(const ZnObject* other) const
{
    sAssertNotNull(this);
    return compareWith(other) == 0;
}

const char* ZnObject::getClassName() const
{
    return classNames().get(typeid(*this));
}

bool ZnObject::isSameClass(const ZnObject* other) const
{
    return other != nullptr && typeid(*this) == typeid(*other);
}
