#include "ZnUtil/ZnObjectVector.h"

#include <algorithm>
#include <utility>

ZnObjectVector::ZnObjectVector() = default;

ZnObjectVector::ZnObjectVector(int count) : m_elements(count > 0 ? static_cast<size_t>(count) : 0)
{
}

ZnObjectVector::~ZnObjectVector() = default;

ZnHandle<ZnObject> ZnObjectVector::at(int index)
{
    return m_elements.data()[index];
}

ZnHandle<ZnObject> ZnObjectVector::at(int index) const
{
    return m_elements.data()[index];
}

void ZnObjectVector::at(int index, ZnHandle<ZnObject> object)
{
    m_elements.data()[index] = object;
}

ZnHandle<ZnObject>* ZnObjectVector::begin()
{
    return m_elements.data();
}

const ZnHandle<ZnObject>* ZnObjectVector::begin() const
{
    return m_elements.data();
}

ZnHandle<ZnObject>* ZnObjectVector::end()
{
    return m_elements.data() + m_elements.size();
}

const ZnHandle<ZnObject>* ZnObjectVector::end() const
{
    return m_elements.data() + m_elements.size();
}

void ZnObjectVector::mReserveFor(size_t n)
{
    const size_t size = m_elements.size();
    if (size + n > m_elements.capacity())
    {
        m_elements.reserve(size + std::max(size, n));
    }
}

void ZnObjectVector::push_back(const ZnHandle<ZnObject>& object)
{
    // Taken before any growth: object may be an element of this very vector.
    ZnHandle<ZnObject> copy(object);
    mReserveFor(1);
    m_elements.push_back(std::move(copy));
}

void ZnObjectVector::insert(ZnHandle<ZnObject>* position, const ZnHandle<ZnObject>& object)
{
    const ptrdiff_t index = position - begin();
    ZnHandle<ZnObject> copy(object);
    mReserveFor(1);
    m_elements.insert(m_elements.begin() + index, std::move(copy));
}

ZnHandle<ZnObject>* ZnObjectVector::erase(ZnHandle<ZnObject>* position)
{
    const ptrdiff_t index = position - begin();
    m_elements.erase(m_elements.begin() + index);
    return begin() + index;
}

ZnHandle<ZnObject>* ZnObjectVector::erase(ZnHandle<ZnObject>* first, ZnHandle<ZnObject>* last)
{
    const ptrdiff_t from = first - begin();
    const ptrdiff_t to = last - begin();
    m_elements.erase(m_elements.begin() + from, m_elements.begin() + to);
    return begin() + from;
}

void ZnObjectVector::clear()
{
    erase(begin(), end());
}

void ZnObjectVector::assign(int count, ZnHandle<ZnObject> object)
{
    if (count <= 0)
    {
        return;
    }
    const size_t n = static_cast<size_t>(count);
    if (m_elements.capacity() < n)
    {
        m_elements.reserve(n);
    }
    // The new elements go in front of the old ones: a prepend, intended.
    mReserveFor(n);
    m_elements.insert(m_elements.begin(), n, object);
}
