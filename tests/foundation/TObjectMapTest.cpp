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
#include <vector>

namespace {

using ThreadMap = TObjectMap<unsigned long, void*>;

// A distinct, recognisable pointer for each number; never dereferenced.
void* pointerFor(unsigned long n)
{
    return reinterpret_cast<void*>(n * 16 + 8);
}

std::multiset<void*> valuesIn(ThreadMap& map, bool lockIt)
{
    std::multiset<void*> values;
    for (ThreadMap::Iterator it(map, lockIt); !it.atEnd(); it.next())
        values.insert(it.value());
    return values;
}

} // namespace

TEST(TObjectMap, RequestedBucketCountBecomesAPowerOfTwoOfAtLeastEight)
{
    const std::pair<unsigned long, size_t> rows[] = {{0, 8}, {1, 8}, {8, 8}, {9, 16}, {17, 32}, {1000, 1024}};
    for (const auto& [requested, expected] : rows)
        EXPECT_EQ(ThreadMap(requested).bucketCount(), expected) << "requested " << requested;
    try {
        ThreadMap map(ULONG_MAX);
        FAIL() << "built a table of " << map.bucketCount() << " buckets";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid hash bucket count");
    }
}

// Above 4 entries a bucket an insertion grows the table by eight: the 33rd entry in 8 buckets, the
// 257th in 64, the 2049th in 512. Replacing a value is no insertion; the table never shrinks.
TEST(TObjectMap, TableGrowsByEightWhenTheLoadPassesFour)
{
    ThreadMap map(0);
    std::vector<std::pair<unsigned long, size_t>> changes; // entry number, new bucket count
    size_t buckets = map.bucketCount();
    for (unsigned long entry = 1; entry <= 2049; ++entry) {
        map.add(entry, pointerFor(entry));
        map.add((entry + 1) / 2, pointerFor(entry)); // a key that is there already
        if (map.bucketCount() != buckets)
            changes.emplace_back(entry, buckets = map.bucketCount());
    }
    EXPECT_EQ(changes, (std::vector<std::pair<unsigned long, size_t>>{{33, 64}, {257, 512}, {2049, 4096}}));
    map.removeAll();
    EXPECT_TRUE(valuesIn(map, true).empty());
    EXPECT_EQ(map.bucketCount(), 4096u);
}

// Keys are the same when their low 32 bits are; key 0 is an ordinary key. An absent key leaves the
// caller's value alone; a null value pointer still gets the answer.
TEST(TObjectMap, AddReplacesAndFindAndRemoveAnswerByKey)
{
    ThreadMap map(0);
    const unsigned long sameLow32 = (1UL << 32) | 5;
    EXPECT_TRUE(map.add(5, pointerFor(1)));
    EXPECT_TRUE(map.add(sameLow32, pointerFor(2)));
    EXPECT_TRUE(map.add(0, pointerFor(0)));
    EXPECT_EQ(valuesIn(map, true), (std::multiset<void*>{pointerFor(0), pointerFor(2)}));
    void* value = nullptr;
    EXPECT_TRUE(map.find(5, &value));
    EXPECT_EQ(value, pointerFor(2));
    EXPECT_FALSE(map.find(8, &value));
    EXPECT_FALSE(map.remove(8, &value));
    EXPECT_EQ(value, pointerFor(2));
    EXPECT_TRUE(map.remove(0, &value));
    EXPECT_EQ(value, pointerFor(0));
    EXPECT_FALSE(map.find(0, nullptr));
    EXPECT_TRUE(map.find(sameLow32, nullptr));
    EXPECT_TRUE(map.remove(5, nullptr));
    EXPECT_TRUE(valuesIn(map, false).empty());
    EXPECT_FALSE(map.unlock()) << "a walk left the lock held";
}

// One step of the minimal standard generator, 16807 * key mod (2^31 - 1), computed here in 64 bits
// with the key taken as a signed 32-bit value; the upper bits of a key do not count.
TEST(TObjectMap, HashIsOneStepOfTheMinimalStandardGenerator)
{
    std::vector<std::uint32_t> keys = {0, 1, 127772, 127773, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    std::mt19937 generator(20240229);
    for (int i = 0; i < 2000; ++i)
        keys.push_back(generator());
    for (std::uint32_t key : keys) {
        const std::int64_t product = 16807 * std::int64_t(std::int32_t(key)) % 0x7FFFFFFF;
        const auto expected = std::uint32_t(product < 0 ? product + 0x7FFFFFFF : product);
        EXPECT_EQ(ThreadMap::learnHash(key), expected) << key;
        EXPECT_EQ(ThreadMap::learnHash((0xABCDUL << 32) | key), expected) << key;
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
            for (++arrived; arrived < threadQty;) // start together, so that the operations overlap
                std::this_thread::yield();
            void* value = nullptr;
            for (unsigned long key = t; key < threadQty * keyQty; key += threadQty) {
                map.add(key, pointerFor(key));
                wrongAnswers += !map.find(key, &value) || value != pointerFor(key);
            }
            for (unsigned long key = t; key < threadQty * keyQty; key += 2 * threadQty)
                wrongAnswers += !map.remove(key, &value) || value != pointerFor(key);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrongAnswers, 0);
    EXPECT_EQ(valuesIn(map, true).size(), threadQty * keyQty / 2);
    for (unsigned long key = 0; key < threadQty * keyQty; ++key)
        EXPECT_EQ(map.find(key, nullptr), (key / threadQty) % 2 == 1) << "key " << key;
    EXPECT_EQ(map.bucketCount(), 4096u);
}

// While a caller holds the map's lock another thread cannot add, and the holder can still use the map.
TEST(TObjectMapConcurrency, HeldLockKeepsOtherThreadsOut)
{
    ThreadMap map(0);
    map.lock();
    std::atomic<bool> added{false};
    std::thread adder([&] { added = map.add(1, pointerFor(1)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // a fair chance to get in wrongly
    EXPECT_FALSE(added);
    EXPECT_TRUE(map.add(2, pointerFor(2)));
    EXPECT_TRUE(map.find(2, nullptr));
    map.unlock();
    adder.join();
    EXPECT_TRUE(added);
}
