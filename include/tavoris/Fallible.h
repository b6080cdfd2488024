// A value that may be missing: the result of a look-up or a conversion that can fail.
#ifndef TAVORIS_FALLIBLE_H
#define TAVORIS_FALLIBLE_H

#include "tavoris/Assertion.h"
#include "tavoris/Exception.h"

#include <optional>
#include <utility>

namespace Tavoris
{

/// Either a value of T ("valid") or nothing ("unset"), for operations whose failure is an
/// ordinary answer rather than an error: a parse of a name, a conversion between enumerations.
///
/// A default Fallible is unset; one made from a T holds it, so a function can simply return a T
/// or Fallible<T>(). Reading the value of an unset Fallible is a programming error: it is reported
/// through the assertion service (text "isValid()", source "Fallible") and then throws
/// Tavoris::Exception, so no caller goes on with an undefined value.
///
/// Comparisons follow std::optional: two unset values are equal, an unset value is less than any
/// valid one and equal to no T, and two valid ones compare by their values.
/// Thread safety: a plain value; one object is used by one thread at a time.
template <typename T>
class Fallible
{
public:
    typedef T value_type;

    /// Unset.
    Fallible() = default;
    /// Holds \p value. Not explicit: a T converts, so that a function can return it directly.
    Fallible(const T& value) : m_value(value) {}
    Fallible(T&& value) : m_value(std::move(value)) {}

    /// \return true when a value is held.
    bool isValid() const { return m_value.has_value(); }

    /// The value held.
    /// \throws Tavoris::Exception, after an assertion report, when unset.
    const T& value() const
    {
        checkValid();
        return *m_value;
    }
    T& value()
    {
        checkValid();
        return *m_value;
    }

    /// The value held, or \p fallback when unset; never fails.
    T valueOr(const T& fallback) const { return m_value.has_value() ? *m_value : fallback; }

    /// Makes the object hold \p value.
    void set(const T& value) { m_value = value; }
    /// Makes the object unset.
    void reset() { m_value.reset(); }

    Fallible& operator=(const T& value)
    {
        m_value = value;
        return *this;
    }

    friend bool operator==(const Fallible& a, const Fallible& b) { return a.m_value == b.m_value; }
    friend bool operator!=(const Fallible& a, const Fallible& b) { return a.m_value != b.m_value; }
    friend bool operator<(const Fallible& a, const Fallible& b) { return a.m_value < b.m_value; }
    friend bool operator<=(const Fallible& a, const Fallible& b) { return a.m_value <= b.m_value; }
    friend bool operator>(const Fallible& a, const Fallible& b) { return a.m_value > b.m_value; }
    friend bool operator>=(const Fallible& a, const Fallible& b) { return a.m_value >= b.m_value; }

    /// A valid object equal to \p b; an unset one equals no T.
    friend bool operator==(const Fallible& a, const T& b) { return a.m_value == b; }
    friend bool operator==(const T& a, const Fallible& b) { return a == b.m_value; }
    friend bool operator!=(const Fallible& a, const T& b) { return a.m_value != b; }
    friend bool operator!=(const T& a, const Fallible& b) { return a != b.m_value; }

private:
    void checkValid() const
    {
        if (!m_value.has_value())
        {
            Assertion(false, "isValid()", "Fallible", __LINE__);
            throw Exception("Fallible::value() of an unset value");
        }
    }

    std::optional<T> m_value;
};

} // namespace Tavoris

#endif // TAVORIS_FALLIBLE_H
