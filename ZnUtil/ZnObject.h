// The root object of the library: polymorphic, with an intrusive atomic reference count.
#ifndef ZNUTIL_ZNOBJECT_H
#define ZNUTIL_ZNOBJECT_H

#include <atomic>
#include <cstdint>

class ZnOutputStream;

/// Root of almost every class of the library.
///
/// An object is born with count 0: it belongs to nobody until the first ZnHandle takes it, and
/// it deletes itself when a Release(true) takes the count from 1 to 0. Destroying an object whose
/// count is not 0 is a fatal programming error, reported by a ZnAssertionFailure thrown from the
/// destructor.
/// Thread safety: AddRef and Release are atomic and may be called from any thread; nothing else
/// of the object is synchronised.
class ZnObject
{
public:
    ZnObject() : m_refCount(0) {}
    /// A copy is a new object: its count starts at 0.
    ZnObject(const ZnObject&) : m_refCount(0) {}
    /// The count is not assigned: it belongs to the object, not to its value.
    ZnObject& operator=(const ZnObject&) { return *this; }

    /// \throws ZnHandle<ZnException> (a ZnAssertionFailure) when the count is not 0.
    virtual ~ZnObject() noexcept(false);

    /// A copy of the object; classes that can be copied override it.
    /// \throws ZnHandle<ZnException> "cloning is not supported" here.
    virtual ZnObject* clone() const;

    /// Identity order: the low 32 bits of this address minus those of \p other.
    /// \return 0 only for the same address.
    virtual int compareWith(const ZnObject* other) const;

    /// The low 32 bits of the object's address.
    virtual unsigned int hashCode() const;

    /// Prints the count, with \p showAddress the address, and the class name on \p out.
    virtual void display(ZnOutputStream& out, bool showAddress) const;

    /// Adds one reference.
    /// \return the new count.
    virtual unsigned long AddRef();

    /// Drops one reference; at 0 with \p deleteAtZero the object deletes itself. With
    /// \p deleteAtZero false an owner that holds the object otherwise lends it to handles.
    /// \return the new count; the object must not be touched after a result of 0.
    virtual unsigned long Release(bool deleteAtZero = true);

    /// compareWith, after asserting that this is not null.
    int compare(const ZnObject* other) const;

    /// True when compareWith(other) is 0, after asserting that this is not null.
    bool equals(const ZnObject* other) const;

    /// The bare name of the object's run-time class, "ZnObject" for a plain object.
    /// \return a static text.
    const char* getClassName() const;

    /// True when both objects have the same run-time class.
    bool isSameClass(const ZnObject* other) const;

    /// The current count, as read at this moment.
    unsigned long getRefCount() const
    {
        return static_cast<uint32_t>(m_refCount.load(std::memory_order_acquire));
    }

protected:
    /// True when \p p is null. Member functions that accept a null receiver test `this` here:
    /// the compiler would drop a plain `this == nullptr` test as always false.
    static bool sIsNullReceiver(const void* p)
    {
        const void* hidden = p;
        asm("" : "+r"(hidden));
        return hidden == nullptr;
    }

    /// Throws "this != 0" when \p self is null.
    static void sAssertNotNull(const ZnObject* self);

private:
    std::atomic<int32_t> m_refCount;
};

#endif // ZNUTIL_ZNOBJECT_H
