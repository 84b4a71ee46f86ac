#include "foundation/TObjectMap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace {

using ThreadMap = TObjectMap<unsigned long, void*>;

// A distinct, recognisable pointer for each number; never dereferenced.
void* pointerFor(unsigned long n)
{
    return reinterpret_cast<void*>(n * 16 + 8);
}

int countEntries(ThreadMap& map)
{
    int count = 0;
    for (ThreadMap::Iterator it(map, true); !it.atEnd(); it.next())
        ++count;
    return count;
}

// The generator step computed the long way, in 64 bits: 16807 * key mod (2^31 - 1), where the key
// is taken as a signed 32-bit value.
std::uint32_t minimalStandardStep(std::uint32_t key)
{
    const std::int64_t modulus = 0x7FFFFFFF;
    const std::int64_t product = 16807 * static_cast<std::int64_t>(static_cast<std::int32_t>(key));
    return static_cast<std::uint32_t>((product % modulus + modulus) % modulus);
}

} // namespace

TEST(TObjectMap, RequestedBucketCountBecomesAPowerOfTwoOfAtLeastEight)
{
    const struct
    {
        unsigned long requested;
        std::size_t expected;
    } rows[] = {{0, 8}, {1, 8}, {8, 8}, {9, 16}, {16, 16}, {17, 32}, {1000, 1024}, {1UL << 16, 1UL << 16}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.requested);
        ThreadMap map(row.requested);
        EXPECT_EQ(map.bucketCount(), row.expected);
    }
}

TEST(TObjectMap, UnreachableBucketCountThrowsOutOfRange)
{
    try {
        ThreadMap map(ULONG_MAX);
        FAIL() << "built a table of " << map.bucketCount() << " buckets";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid hash bucket count");
    }
}

// Growth happens only when an insertion takes the load above 4 entries a bucket, and then by
// eight: the 33rd entry in 8 buckets, the 257th in 64, the 2049th in 512. Replacing a value is
// no insertion.
TEST(TObjectMap, TableGrowsByEightWhenTheLoadPassesFour)
{
    ThreadMap map(0);
    std::vector<std::pair<unsigned long, std::size_t>> changes; // entry number, new bucket count
    std::size_t buckets = map.bucketCount();
    for (unsigned long entry = 1; entry <= 2049; ++entry) {
        map.add(entry, pointerFor(entry));
        map.add((entry + 1) / 2, pointerFor(entry)); // a key that is there already
        if (map.bucketCount() != buckets) {
            buckets = map.bucketCount();
            changes.emplace_back(entry, buckets);
        }
    }
    const std::vector<std::pair<unsigned long, std::size_t>> expected = {{33, 64}, {257, 512}, {2049, 4096}};
    EXPECT_EQ(changes, expected);
}

TEST(TObjectMap, TableNeverShrinks)
{
    ThreadMap map(0);
    for (unsigned long key = 1; key <= 33; ++key)
        map.add(key, pointerFor(key));
    ASSERT_EQ(map.bucketCount(), 64u);
    EXPECT_TRUE(map.remove(1, nullptr));
    EXPECT_EQ(map.bucketCount(), 64u);
    map.removeAll();
    EXPECT_EQ(countEntries(map), 0);
    EXPECT_EQ(map.bucketCount(), 64u);
    EXPECT_FALSE(map.find(2, nullptr));
}

TEST(TObjectMap, AddReplacesTheValueOfAnExistingKey)
{
    ThreadMap map(0);
    EXPECT_TRUE(map.add(42, pointerFor(1)));
    EXPECT_TRUE(map.add(42, pointerFor(2)));
    void* value = nullptr;
    EXPECT_TRUE(map.find(42, &value));
    EXPECT_EQ(value, pointerFor(2));
    EXPECT_EQ(countEntries(map), 1);
}

// A null value pointer still gets the answer; an absent key leaves the caller's value alone.
TEST(TObjectMap, FindAndRemoveHandBackValuesOnlyForPresentKeys)
{
    ThreadMap map(0);
    map.add(7, pointerFor(7));
    EXPECT_TRUE(map.find(7, nullptr));
    EXPECT_FALSE(map.find(8, nullptr));

    void* value = pointerFor(99);
    EXPECT_FALSE(map.find(8, &value));
    EXPECT_FALSE(map.remove(8, &value));
    EXPECT_EQ(value, pointerFor(99));

    EXPECT_TRUE(map.remove(7, &value));
    EXPECT_EQ(value, pointerFor(7));
    EXPECT_FALSE(map.find(7, nullptr));
    EXPECT_FALSE(map.remove(7, nullptr));
}

TEST(TObjectMap, KeyZeroIsAnOrdinaryKeyWithHashZero)
{
    EXPECT_EQ(ThreadMap::learnHash(0), 0u);
    ThreadMap map(0);
    map.add(0, pointerFor(0));
    void* value = nullptr;
    EXPECT_TRUE(map.find(0, &value));
    EXPECT_EQ(value, pointerFor(0));
    EXPECT_TRUE(map.remove(0, nullptr));
}

TEST(TObjectMap, KeysAreComparedByTheir32BitValue)
{
    ThreadMap map(0);
    const unsigned long key = 5;
    const unsigned long sameLow32 = (1UL << 32) | key;
    map.add(key, pointerFor(1));
    void* value = nullptr;
    EXPECT_TRUE(map.find(sameLow32, &value));
    EXPECT_EQ(value, pointerFor(1));
    map.add(sameLow32, pointerFor(2));
    EXPECT_EQ(countEntries(map), 1);
    EXPECT_TRUE(map.find(key, &value));
    EXPECT_EQ(value, pointerFor(2));
}

TEST(TObjectMap, HashIsOneStepOfTheMinimalStandardGenerator)
{
    std::vector<std::uint32_t> keys = {0, 1, 2, 127772, 127773, 127774, 16807, 0x7FFFFFFE, 0x7FFFFFFF,
                                       0x80000000, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
    std::mt19937 generator(20240229);
    for (int i = 0; i < 2000; ++i)
        keys.push_back(generator());
    for (std::uint32_t key : keys) {
        SCOPED_TRACE(key);
        const std::uint32_t hash = ThreadMap::learnHash(key);
        EXPECT_EQ(hash, minimalStandardStep(key));
        EXPECT_LT(hash, 0x7FFFFFFFu);
        EXPECT_EQ(ThreadMap::learnHash((0xABCDUL << 32) | key), hash); // upper bits do not count
    }
}

TEST(TObjectMap, IteratorVisitsEveryEntryOnce)
{
    ThreadMap map(0);
    std::set<void*> added;
    for (unsigned long key = 0; key < 100; ++key) {
        map.add(key * 7919, pointerFor(key));
        added.insert(pointerFor(key));
    }
    for (bool lockIt : {true, false}) {
        SCOPED_TRACE(lockIt ? "locked walk" : "unlocked walk");
        std::multiset<void*> seen;
        for (ThreadMap::Iterator it(map, lockIt); !it.atEnd(); it.next())
            seen.insert(it.value());
        EXPECT_EQ(seen, std::multiset<void*>(added.begin(), added.end()));
        EXPECT_FALSE(map.unlock()) << "the iterator left the lock held";
    }
}

TEST(TObjectMapConcurrency, ThreadsAddFindAndRemoveTheirOwnKeys)
{
    ThreadMap map(0);
    constexpr unsigned long threadQty = 4;
    constexpr unsigned long keyQty = 1024; // enough for the table to grow three times while others read
    std::atomic<int> wrongAnswers{0};
    std::atomic<unsigned long> arrived{0};
    std::vector<std::thread> threads;
    for (unsigned long t = 0; t < threadQty; ++t) {
        threads.emplace_back([&, t] {
            ++arrived;
            while (arrived < threadQty) // start together, so that the operations overlap
                std::this_thread::yield();
            for (unsigned long i = 0; i < keyQty; ++i) {
                const unsigned long key = i * threadQty + t;
                map.add(key, pointerFor(key));
                void* value = nullptr;
                if (!map.find(key, &value) || value != pointerFor(key))
                    ++wrongAnswers;
            }
            for (unsigned long i = 0; i < keyQty; i += 2) {
                const unsigned long key = i * threadQty + t;
                void* value = nullptr;
                if (!map.remove(key, &value) || value != pointerFor(key))
                    ++wrongAnswers;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrongAnswers, 0);
    EXPECT_EQ(countEntries(map), int(threadQty * keyQty / 2));
    for (unsigned long key = 0; key < threadQty * keyQty; ++key)
        EXPECT_EQ(map.find(key, nullptr), (key / threadQty) % 2 == 1) << "key " << key;
    EXPECT_EQ(map.bucketCount(), 4096u);
}

// While a caller holds the map's lock, two walks see the same entries although other threads
// keep adding; the holder itself can still use the single operations.
TEST(TObjectMapConcurrency, HeldLockGivesAStableView)
{
    ThreadMap map(0);
    std::atomic<bool> stop{false};
    std::atomic<unsigned long> added{0};
    std::thread adder([&] {
        for (unsigned long key = 1; !stop; ++key) {
            map.add(key, pointerFor(key));
            added = key;
        }
    });
    while (added < 50)
        std::this_thread::yield();

    map.lock();
    const int first = countEntries(map);
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // the adder keeps trying meanwhile
    EXPECT_EQ(countEntries(map), first);
    EXPECT_TRUE(map.find(1, nullptr));
    map.unlock();

    stop = true;
    adder.join();
}
