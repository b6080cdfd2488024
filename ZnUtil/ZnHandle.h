// The counted reference through which ZnObjects are held, passed and returned.
#ifndef ZNUTIL_ZNHANDLE_H
#define ZNUTIL_ZNHANDLE_H

#include "ZnUtil/ZnObject.h"

#include <type_traits>
#include <utility>

/// The untyped half of every handle: one pointer to a ZnObject and all the counting.
///
/// A handle is exactly one pointer wide and is passed, stored and thrown by value. A nil handle
/// holds null. Thread safety: two threads may hold separate handles on one object; one handle
/// variable must not be written by one thread while another uses it.
class ZnHandleBase
{
public:
    /// True when the handle holds no object.
    bool isNil() const { return m_pObj == nullptr; }

protected:
    ZnHandleBase() noexcept : m_pObj(nullptr) {}

    /// Holds \p obj (which may be null) and adds a reference to it.
    explicit ZnHandleBase(const ZnObject* obj) : m_pObj(const_cast<ZnObject*>(obj))
    {
        if (m_pObj != nullptr)
        {
            m_pObj->AddRef();
        }
    }

    /// Holds \p casted, the result of a checked cast of \p uncast.
    /// \throws ZnHandle<ZnException> "dynamic_cast failed on ZnHandle construction" when the
    /// cast failed on a non-null object.
    ZnHandleBase(const ZnObject* uncast, const ZnObject* casted)
        : m_pObj(const_cast<ZnObject*>(casted))
    {
        if (m_pObj != nullptr)
        {
            m_pObj->AddRef();
        }
        else if (uncast != nullptr)
        {
            sConstructionCastFailed();
        }
    }

    ZnHandleBase(const ZnHandleBase& other) : m_pObj(other.m_pObj)
    {
        if (m_pObj != nullptr)
        {
            m_pObj->AddRef();
        }
    }

    ZnHandleBase(ZnHandleBase&& other) noexcept : m_pObj(other.m_pObj) { other.m_pObj = nullptr; }

    /// Releases the object; the pointer is left as it was.
    ~ZnHandleBase()
    {
        if (m_pObj != nullptr)
        {
            m_pObj->Release(true);
        }
    }

    /// Holds \p obj instead. The new object gains its reference before the old one loses its
    /// own, so an object reachable only through the old one stays alive. Assigning the object
    /// already held costs nothing.
    void assign(const ZnObject* obj)
    {
        ZnObject* fresh = const_cast<ZnObject*>(obj);
        if (fresh == m_pObj)
        {
            return;
        }
        ZnObject* old = m_pObj;
        m_pObj = fresh;
        if (fresh != nullptr)
        {
            fresh->AddRef();
        }
        if (old != nullptr)
        {
            old->Release(true);
        }
    }

    /// Holds \p casted, the result of a checked cast of \p uncast, instead.
    /// A failed cast assigned to a nil handle leaves it nil and reports nothing.
    /// \throws ZnHandle<ZnException> "dynamic_cast failed on ZnHandle assignment" when the cast
    /// failed on a non-null object; the handle is then nil and the old object keeps the
    /// reference it had (it is lost on purpose).
    void assign(const ZnObject* uncast, const ZnObject* casted)
    {
        ZnObject* fresh = const_cast<ZnObject*>(casted);
        if (fresh == m_pObj)
        {
            return;
        }
        ZnObject* old = m_pObj;
        m_pObj = fresh;
        if (fresh != nullptr)
        {
            fresh->AddRef();
        }
        else if (uncast != nullptr)
        {
            sAssignmentCastFailed();
        }
        if (old != nullptr)
        {
            old->Release(true);
        }
    }

    /// Takes over the object of \p other, which becomes nil.
    void moveFrom(ZnHandleBase& other) noexcept
    {
        if (this == &other)
        {
            return;
        }
        ZnObject* old = m_pObj;
        m_pObj = other.m_pObj;
        other.m_pObj = nullptr;
        if (old != nullptr)
        {
            old->Release(true);
        }
    }

    /// Reports "pObj!=0" at \p line on the assertion service: a read found an object that is
    /// not of the handle's type.
    static void sReadCastFailed(unsigned int line);

    ZnObject* m_pObj;

private:
    [[noreturn]] static void sConstructionCastFailed();
    [[noreturn]] static void sAssignmentCastFailed();
};

namespace ZnHandleDetail
{

/// True when a ZnObject* can be turned into a T* by a static cast, that is when ZnObject is not
/// a virtual base of T.
template <class T, class = void>
struct CanStaticDowncast : std::false_type
{
};

template <class T>
struct CanStaticDowncast<T, std::void_t<decltype(static_cast<T*>(std::declval<ZnObject*>()))>>
    : std::true_type
{
};

} // namespace ZnHandleDetail

/// A counted reference on an object of class T (which derives from ZnObject, possibly through a
/// virtual base).
///
/// Construction from a T* or a handle of the same type takes a reference; construction from a
/// handle of another type does a checked cast first. Reading a nil handle gives null and reports
/// nothing.
template <class T>
class ZnHandle : public ZnHandleBase
{
public:
    ZnHandle() noexcept {}

    /// Holds \p obj, which may be null, and adds a reference.
    ZnHandle(T* obj) : ZnHandleBase(static_cast<const ZnObject*>(obj)) {}

    ZnHandle(const ZnHandle& other) : ZnHandleBase(other) {}
    ZnHandle(ZnHandle&& other) noexcept : ZnHandleBase(std::move(other)) {}

    /// Holds the object of \p other when it is a T.
    /// \throws ZnHandle<ZnException> "dynamic_cast failed on ZnHandle construction" when it is not.
    template <class U>
    ZnHandle(const ZnHandle<U>& other) : ZnHandleBase(other.m_pObj, sCastFrom<U>(other.m_pObj))
    {
    }

    ZnHandle& operator=(const ZnHandle& other)
    {
        assign(other.m_pObj);
        return *this;
    }

    ZnHandle& operator=(ZnHandle&& other) noexcept
    {
        moveFrom(other);
        return *this;
    }

    ZnHandle& operator=(T* obj)
    {
        assign(static_cast<const ZnObject*>(obj));
        return *this;
    }

    /// \throws ZnHandle<ZnException> "dynamic_cast failed on ZnHandle assignment" when the
    /// object of \p other is not a T and this handle held an object.
    template <class U>
    ZnHandle& operator=(const ZnHandle<U>& other)
    {
        assign(other.m_pObj, sCastFrom<U>(other.m_pObj));
        return *this;
    }

    /// Member access; null for a nil handle.
    T* operator->() const { return sRead(m_pObj, 285); }

    /// The object, or null for a nil handle.
    operator T*() const { return sRead(m_pObj, 323); }

    /// The object. A nil handle gives a reference to nothing: test isNil() first.
    operator T&() const { return *sRead(m_pObj, 357); }

private:
    template <class U>
    friend class ZnHandle;

    /// The object of a handle of type U seen as a T, or null when it is not a T.
    template <class U>
    static const ZnObject* sCastFrom(const ZnObject* uncast)
    {
        if constexpr (std::is_convertible_v<U*, T*>)
        {
            // An upcast always succeeds, and the object keeps its one ZnObject part.
            return uncast;
        }
        else
        {
            return static_cast<const ZnObject*>(dynamic_cast<const T*>(uncast));
        }
    }

    static T* sRead(ZnObject* obj, unsigned int line)
    {
        if (obj == nullptr)
        {
            return nullptr;
        }
        if constexpr (ZnHandleDetail::CanStaticDowncast<T>::value)
        {
            // Every way into a ZnHandle<T> checks that the object is a T, so a non-virtual
            // base can be cast down without asking the run-time type again.
            return static_cast<T*>(obj);
        }
        else
        {
            T* result = dynamic_cast<T*>(obj);
            if (result == nullptr)
            {
                sReadCastFailed(line);
            }
            return result;
        }
    }
};

#endif // ZNUTIL_ZNHANDLE_H
