// A growable array of counted objects, each element holding one reference.
#ifndef ZNUTIL_ZNOBJECTVECTOR_H
#define ZNUTIL_ZNOBJECTVECTOR_H

#include "ZnUtil/ZnHandle.h"
#include "ZnUtil/ZnObject.h"

#include <cstddef>
#include <vector>

/// An array of ZnHandle<ZnObject> with the operations of a standard vector.
///
/// Every element is a handle and holds one reference on its object (or is nil); removing or
/// overwriting an element releases its object. When an insertion of n elements does not fit,
/// the capacity becomes size + max(size, n): 1, 2, 4, 8, ... for single insertions. Raw element
/// pointers from begin() and end() are invalidated by any growth.
/// Indexes and positions are not checked: a negative or too large index, or a position outside
/// [begin(), end()], is the caller's error.
/// Thread safety: none. Callers that share a vector guard it themselves.
class ZnObjectVector : public ZnObject
{
public:
    /// An empty vector with no capacity.
    ZnObjectVector();

    /// \p count nil handles, with a capacity of exactly \p count; none for a count below 1.
    explicit ZnObjectVector(int count);

    /// Releases every element.
    ~ZnObjectVector() override;

    /// A handle on the element at \p index (not checked).
    ZnHandle<ZnObject> at(int index);
    ZnHandle<ZnObject> at(int index) const;

    /// Makes the element at \p index (not checked) hold \p object; its old object is released.
    void at(int index, ZnHandle<ZnObject> object);

    /// The first element; equal to end() when the vector is empty.
    ZnHandle<ZnObject>* begin();
    const ZnHandle<ZnObject>* begin() const;

    /// Just past the last element.
    ZnHandle<ZnObject>* end();
    const ZnHandle<ZnObject>* end() const;

    /// Appends a handle on the object of \p object.
    void push_back(const ZnHandle<ZnObject>& object);

    /// Inserts a handle on the object of \p object before \p position; the elements from
    /// \p position on move up by one, by handle assignment.
    void insert(ZnHandle<ZnObject>* position, const ZnHandle<ZnObject>& object);

    /// Removes the element at \p position: the elements behind it move down by one, by handle
    /// assignment, and the last one is destroyed.
    /// \return \p position, now the element that followed the removed one, or end().
    ZnHandle<ZnObject>* erase(ZnHandle<ZnObject>* position);

    /// Removes the elements of [\p first, \p last).
    /// \return \p first.
    ZnHandle<ZnObject>* erase(ZnHandle<ZnObject>* first, ZnHandle<ZnObject>* last);

    /// Removes every element and keeps the capacity.
    void clear();

    /// Makes room for \p count elements, then inserts \p count handles on \p object at the
    /// beginning. The elements already there are kept behind the new ones: this prepends, it
    /// does not replace. Nothing for a count below 1.
    void assign(int count, ZnHandle<ZnObject> object);

private:
    /// Grows the array to size + max(size, n) when \p n more elements do not fit.
    void mReserveFor(size_t n);

    std::vector<ZnHandle<ZnObject>> m_elements;
};

#endif // ZNUTIL_ZNOBJECTVECTOR_H
