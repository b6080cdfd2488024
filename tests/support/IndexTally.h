// Per-number counters that many threads bump at once, for the concurrency tests.
#ifndef ZNUTIL_TESTS_INDEXTALLY_H
#define ZNUTIL_TESTS_INDEXTALLY_H

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

namespace ZnTest
{

/// Counts, per number from 0 to size - 1, how often it was bumped; numbers out of that range
/// are counted apart. Thread safe: every counter is atomic.
class IndexTally
{
public:
    explicit IndexTally(int size) : m_counts(new std::atomic<int>[size]), m_size(size)
    {
        for (int i = 0; i < size; ++i)
        {
            m_counts[i].store(0);
        }
    }

    void bump(int index)
    {
        m_total.fetch_add(1);
        if (index >= 0 && index < m_size)
        {
            m_counts[index].fetch_add(1);
        }
        else
        {
            m_outOfRange.fetch_add(1);
        }
    }

    /// Every bump, in range or not.
    int total() const { return m_total.load(); }
    int outOfRange() const { return m_outOfRange.load(); }
    int countOf(int index) const { return m_counts[index].load(); }

    /// The numbers not counted exactly once, at most \p limit of them.
    std::vector<int> notOnce(size_t limit) const
    {
        std::vector<int> wrong;
        for (int i = 0; i < m_size && wrong.size() < limit; ++i)
        {
            if (m_counts[i].load() != 1)
            {
                wrong.push_back(i);
            }
        }
        return wrong;
    }

    /// The first number not counted exactly once, or -1.
    int firstNotOnce() const
    {
        const std::vector<int> wrong = notOnce(1);
        return wrong.empty() ? -1 : wrong.front();
    }

private:
    std::unique_ptr<std::atomic<int>[]> m_counts;
    const int m_size;
    std::atomic<int> m_total{0};
    std::atomic<int> m_outOfRange{0};
};

} // namespace ZnTest

#endif // ZNUTIL_TESTS_INDEXTALLY_H
