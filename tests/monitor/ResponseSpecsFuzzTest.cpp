// Random and mutated response specs, served by the spec test module and run through the learning of
// a response (obtainResponseSpecs, then parseResponseSpecs) on two engines in step. The seed is fixed,
// so every run sees the same texts; the sanitizer builds catch what a bad text does to memory.
#include "monitor/ZarnDataForThread.h"

#include "ResponseSpecsRig.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

using namespace spec_test;

namespace {

constexpr int kTexts = 2000;
constexpr std::size_t kLength_Max = 1100;
constexpr int kCursorSlots = 16; // more than a spec can take: at most one per filler

const std::wstring kAlphabet = L"|~`,0123456789-& \t dsuxDz";

// Specs of the grammar to mutate; among them the library's series note and an owner's spec.
const std::vector<std::wstring> kSeeds = {
    L"1~-1~2~u`s~||``This log file is #%1!u! in a series that began with %2!s!.`",
    L"2~536870912~1~u0`s1~0|36`1`2~0``Shown %1!u!|0``Logged %1!u! %2!s!",
    L"2~0||0``Plain",
    L"2~536870912~2~d`u`s~1`3|&|``%1!d! %2!u! %3!s!",
    L"1~18446744073709551615~1~d0`d1`u2`s0~0`1`2`3|~0``Dlg|``Log",
};

// What one engine made of a text.
struct Outcome
{
    int code = 0;
    std::wstring header, display, log;
    std::vector<u64> fillers;
    std::vector<int> plugIns;
    int plugInsQty = 0;
    unsigned int kind = 0;
    u64 traits = 0;
    int source = 0;

    bool operator==(const Outcome& o) const
    {
        return code == o.code && header == o.header && display == o.display && log == o.log && fillers == o.fillers
            && plugIns == o.plugIns && plugInsQty == o.plugInsQty && kind == o.kind && traits == o.traits
            && source == o.source;
    }
};

// One engine on its data set, with a cursor and recorded arguments that every text may use.
class FuzzEngine
{
public:
    explicit FuzzEngine(const SpecModule& module) : m_rig(2)
    {
        m_rig.dataSet.setResourceModule(module.get());
        for (int slot = 0; slot < kCursorSlots; ++slot)
            m_slots[slot] = slot % 3 == 2 ? fillerOf(L"text") : 0xFFFFFFF0u + u64(slot);
        for (int slot = 0; slot < kArgsQty; ++slot) {
            m_rig.engine.recordArgument(-slot, slot);
            m_rig.engine.recordArgument(unsigned(slot) + 7u, slot);
            m_rig.engine.recordArgument(L"recorded", slot);
        }
    }

    Outcome learn()
    {
        SpecEngine& engine = m_rig.engine;
        engine.forgetSelfDX_Code();
        m_cursor = reinterpret_cast<char*>(m_slots);
        engine.setDescriptionArgV(&m_cursor);
        engine.learnResponseSpecs(nullptr);

        Outcome outcome;
        outcome.code = engine.getSelfDX_Code();
        outcome.header.assign(engine.m_responseSpecHeader, ZarnDataForThread::kHeaderCharacters);
        outcome.display.assign(engine.m_descriptionForDisplay, ZarnDataForThread::kDisplayCharacters);
        outcome.log.assign(engine.m_descriptionForLogFile, ZarnDataForThread::kLogFileCharacters);
        const u64* fillers = engine.getDescriptionFillers();
        outcome.fillers.assign(fillers, fillers + m_rig.dataSet.getDescriptionFillersQty());
        outcome.plugIns.assign(engine.m_plugInsIndirectIndices, engine.m_plugInsIndirectIndices + kPlugInsQty);
        outcome.plugInsQty = engine.m_plugInsIndirectQty;
        outcome.kind = engine.m_situationApprovalKind;
        outcome.traits = engine.m_situationResponseTraits;
        outcome.source = engine.m_argSource;
        return outcome;
    }

    const SpecEngine& engine() const { return m_rig.engine; }

private:
    SpecRig m_rig;
    u64 m_slots[kCursorSlots];
    char* m_cursor = nullptr;
};

wchar_t randomCharacter(std::mt19937& random)
{
    // Mostly the grammar's own characters; now and then any character but the terminator.
    if (random() % 8 != 0)
        return kAlphabet[random() % kAlphabet.size()];
    return static_cast<wchar_t>(1 + random() % 0xD7FF);
}

std::wstring randomText(std::mt19937& random)
{
    std::wstring text(random() % (kLength_Max + 1), L' ');
    for (wchar_t& character : text)
        character = randomCharacter(random);
    return text;
}

std::wstring mutatedSeed(std::mt19937& random)
{
    std::wstring text = kSeeds[random() % kSeeds.size()];
    const int mutations = 1 + int(random() % 4);
    for (int turn = 0; turn < mutations; ++turn) {
        const std::size_t at = text.empty() ? 0 : random() % text.size();
        switch (random() % 5) {
        case 0: // replace
            if (!text.empty())
                text[at] = randomCharacter(random);
            break;
        case 1: // insert
            text.insert(at, 1, randomCharacter(random));
            break;
        case 2: // delete
            if (!text.empty())
                text.erase(at, 1);
            break;
        case 3: { // repeat a stretch, which makes long groups and many records
            const std::wstring stretch = text.substr(at, 1 + random() % 40);
            const int repeats = 1 + int(random() % 30);
            for (int repeat = 0; repeat < repeats; ++repeat)
                text.insert(at, stretch);
            if (text.size() > kLength_Max)
                text.resize(kLength_Max);
            break;
        }
        default: // cut
            text.resize(at);
            break;
        }
    }
    return text;
}

bool isCleared(const std::wstring& text)
{
    return text.find_first_not_of(L'\0') == std::wstring::npos;
}

} // namespace

TEST(ResponseSpecsFuzz, AnyTextFailsCleanlyOrParsesAndTheSameWayTwice)
{
    SpecModule module;
    FuzzEngine first(module);
    FuzzEngine second(module);
    std::mt19937 random(20240611u);
    std::set<int> codes;
    int learned = 0;

    for (int turn = 0; turn < kTexts; ++turn) {
        const std::wstring text = turn % 3 == 0 ? randomText(random) : mutatedSeed(random);
        module.serve(kSituation, text.c_str());
        const Outcome outcome = first.learn();
        const Outcome again = second.learn();
        if (HasFailure())
            break;
        SCOPED_TRACE(testing::Message() << "text " << turn << ", code " << outcome.code);
        EXPECT_TRUE(outcome == again) << "two engines differ";
        EXPECT_TRUE(isZeroed(first.engine().m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters));
        EXPECT_TRUE(isZeroed(first.engine().m_scratchpad.m_scratchB, ZarnScratchpad::kCharacters));
        codes.insert(outcome.code);
        if (outcome.code == 0) {
            ++learned;
            EXPECT_TRUE(outcome.kind == 1 || outcome.kind == 2);
            EXPECT_LE(unsigned(outcome.source), 2u);
            EXPECT_LE(outcome.plugInsQty, kPlugInsQty);
            const std::set<int> named(outcome.plugIns.begin(), outcome.plugIns.begin() + outcome.plugInsQty);
            EXPECT_EQ(named.size(), std::size_t(outcome.plugInsQty)) << "a plug-in named twice";
            continue;
        }
        EXPECT_TRUE(isCleared(outcome.header) && isCleared(outcome.display) && isCleared(outcome.log));
        if (outcome.code >= 236 && outcome.code <= 241) { // the fillers parser's own failures
            EXPECT_EQ(outcome.fillers, std::vector<u64>(outcome.fillers.size(), 0));
        }
        if (outcome.code >= 245 && outcome.code <= 250) {
            EXPECT_EQ(outcome.plugInsQty, 0);
            EXPECT_EQ(outcome.plugIns, std::vector<int>(kPlugInsQty, -1));
        }
    }
    // A generator that never got past the first check would prove nothing.
    EXPECT_GT(learned, kTexts / 20);
    EXPECT_GE(codes.size(), 15u);
}
