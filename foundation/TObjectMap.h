// A map from a key to an object pointer with a lock of its own, so that several threads can add,
// find and remove entries without taking a lock themselves. It does not own what the values point
// to: the owner deletes the objects, and `removeAll` only forgets the pointers.
#pragma once

#include "foundation/Mutex.h"
#include "foundation/Synchronized.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <unordered_map>

template <class K, class V>
class TObjectMap
{
    struct KeyHash
    {
        std::size_t operator()(const K& key) const { return learnHash(key); }
    };
    // Keys are the same when their 32-bit values are: a thread id is 32 bits wide.
    struct KeyEqual
    {
        bool operator()(const K& left, const K& right) const
        {
            return static_cast<std::uint32_t>(left) == static_cast<std::uint32_t>(right);
        }
    };
    using Table = std::unordered_map<K, V, KeyHash, KeyEqual>;

public:
    // Walks the map in whatever order the table gives. With `lockIt` the iterator holds the map's
    // lock for its whole life; without it the caller must keep other threads away.
    class Iterator
    {
    public:
        Iterator(TObjectMap& map, bool lockIt);
        ~Iterator();

        Iterator(const Iterator&) = delete;
        Iterator& operator=(const Iterator&) = delete;

        bool atEnd() const;
        V& value();
        void next();

    private:
        TObjectMap* m_owner;
        typename Table::iterator m_position;
        bool m_locked;
    };

    // Builds a table of at least `bucketCount` buckets. Throws std::out_of_range "invalid hash
    // bucket count" when that many cannot be had.
    explicit TObjectMap(unsigned long bucketCount);
    virtual ~TObjectMap();

    TObjectMap(const TObjectMap&) = delete;
    TObjectMap& operator=(const TObjectMap&) = delete;

    // The value for `key` becomes `value`, replacing any value there. Always true; a failed
    // allocation leaves by the container's own exception.
    bool add(const K& key, const V& value);
    // True if `key` is present; then `*value` receives its value unless `value` is null.
    bool find(const K& key, V* value);
    // True if `key` was present; its value goes to `*value` unless `value` is null, and the entry
    // is erased. `*value` is left alone when the key is absent.
    bool remove(const K& key, V* value);
    void removeAll();

    // The map's lock, for a caller who walks the map or joins several operations. It is recursive,
    // so the single operations still work while it is held.
    int lock();
    bool unlock();

    // The number of buckets the table's rules have chosen: a power of two, never below 8, never
    // shrinking.
    std::size_t bucketCount();

    // One step of the minimal standard generator on the key's 32-bit value, by Schrage's method
    // in 32-bit arithmetic: 16807 * key mod (2^31 - 1), never negative. The key 0 hashes to 0.
    static std::uint32_t learnHash(const K& key);

private:
    static constexpr std::size_t k_bucketCount_Min = 8;
    static constexpr double k_loadQty = 4.0;
    // The container must never rehash on its own: our rules keep at most 4 entries per bucket of
    // ours, and the container always has at least as many buckets, so any limit well above 4
    // will do. Not infinity or FLT_MAX: libstdc++ multiplies the limit by its bucket count and
    // converts the product to size_t, which must not overflow.
    static constexpr float k_containerLoadQty = 1024.0f;

    std::size_t learnMaxBuckets() const;
    bool isOverloaded(std::size_t buckets) const;
    void learnGrowth();
    void recordBucketCount(std::size_t buckets);

    // A standard hash map serves as the table. It spreads entries over its own buckets (libstdc++
    // rounds their number up to a prime and takes the hash modulo it), which decides only the
    // order of a walk, and nobody relies on that order. The bucket count that the table's rules
    // govern - powers of two, load limit, growth by eight - is kept in `m_bucketCount`, and the
    // container is rehashed to at least that many buckets whenever it changes, so the container's
    // load never exceeds ours.
    Table m_map;
    Mutex m_mutex;
    std::size_t m_bucketCount;
};

template <class K, class V>
std::uint32_t TObjectMap<K, V>::learnHash(const K& key)
{
    // No step below overflows 32 bits, for any 32-bit seed.
    const std::int32_t seed = static_cast<std::int32_t>(static_cast<std::uint32_t>(key));
    const std::int32_t quotient = seed / 127773;
    const std::int32_t remainder = seed % 127773;
    std::int32_t hash = 16807 * remainder - 2836 * quotient;
    if (hash < 0)
        hash += 0x7FFFFFFF;
    return static_cast<std::uint32_t>(hash);
}

template <class K, class V>
TObjectMap<K, V>::TObjectMap(unsigned long bucketCount)
    : m_map(k_bucketCount_Min), m_mutex(), m_bucketCount(k_bucketCount_Min)
{
    m_map.max_load_factor(k_containerLoadQty);
    const std::size_t maxBuckets = learnMaxBuckets();
    std::size_t buckets = k_bucketCount_Min;
    while (buckets < bucketCount && buckets < maxBuckets)
        buckets *= 2;
    if (buckets < bucketCount)
        throw std::out_of_range("invalid hash bucket count");
    while (isOverloaded(buckets) && buckets < maxBuckets)
        buckets *= 2;
    recordBucketCount(buckets);
}

template <class K, class V>
TObjectMap<K, V>::~TObjectMap()
{
    removeAll();
}

template <class K, class V>
bool TObjectMap<K, V>::add(const K& key, const V& value)
{
    Synchronized guard(m_mutex);
    if (m_map.insert_or_assign(key, value).second)
        learnGrowth();
    return true;
}

template <class K, class V>
bool TObjectMap<K, V>::find(const K& key, V* value)
{
    Synchronized guard(m_mutex);
    const auto position = m_map.find(key);
    if (position == m_map.end())
        return false;
    if (value != nullptr)
        *value = position->second;
    return true;
}

template <class K, class V>
bool TObjectMap<K, V>::remove(const K& key, V* value)
{
    Synchronized guard(m_mutex);
    const auto position = m_map.find(key);
    if (position == m_map.end())
        return false;
    if (value != nullptr)
        *value = position->second;
    m_map.erase(position);
    return true;
}

template <class K, class V>
void TObjectMap<K, V>::removeAll()
{
    Synchronized guard(m_mutex);
    m_map.clear();
}

template <class K, class V>
int TObjectMap<K, V>::lock()
{
    return m_mutex.lock();
}

template <class K, class V>
bool TObjectMap<K, V>::unlock()
{
    return m_mutex.unlock();
}

template <class K, class V>
std::size_t TObjectMap<K, V>::bucketCount()
{
    Synchronized guard(m_mutex);
    return m_bucketCount;
}

// Half of what the container's bucket array could hold at most.
template <class K, class V>
std::size_t TObjectMap<K, V>::learnMaxBuckets() const
{
    return m_map.max_bucket_count() / 2;
}

template <class K, class V>
bool TObjectMap<K, V>::isOverloaded(std::size_t buckets) const
{
    return static_cast<double>(m_map.size()) / static_cast<double>(buckets) > k_loadQty;
}

// After an insertion: above the load limit the bucket count is multiplied by eight at most,
// stopping at the limit. The table never shrinks.
template <class K, class V>
void TObjectMap<K, V>::learnGrowth()
{
    if (!isOverloaded(m_bucketCount))
        return;
    const std::size_t maxBuckets = learnMaxBuckets();
    std::size_t buckets = m_bucketCount;
    for (int doubling = 0; doubling < 3 && buckets < maxBuckets; ++doubling)
        buckets *= 2;
    if (buckets != m_bucketCount)
        recordBucketCount(buckets);
}

template <class K, class V>
void TObjectMap<K, V>::recordBucketCount(std::size_t buckets)
{
    m_map.rehash(buckets); // may throw; then the recorded count stays as it was
    m_bucketCount = buckets;
}

template <class K, class V>
TObjectMap<K, V>::Iterator::Iterator(TObjectMap& map, bool lockIt) : m_owner(&map), m_position(), m_locked(lockIt)
{
    if (m_locked)
        m_owner->lock();
    // Taken after the lock, so that a locked walk starts from what is true under it.
    m_position = m_owner->m_map.begin();
}

template <class K, class V>
TObjectMap<K, V>::Iterator::~Iterator()
{
    if (m_locked)
        m_owner->unlock();
}

template <class K, class V>
bool TObjectMap<K, V>::Iterator::atEnd() const
{
    return m_position == m_owner->m_map.end();
}

template <class K, class V>
V& TObjectMap<K, V>::Iterator::value()
{
    return m_position->second;
}

template <class K, class V>
void TObjectMap<K, V>::Iterator::next()
{
    ++m_position;
}
