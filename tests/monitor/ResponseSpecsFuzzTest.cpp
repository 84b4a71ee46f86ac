// Random and mutated response specs, served by the spec test module and learned as a situation
// learns them (obtainResponseSpecs, then parseResponseSpecs). The seed is fixed, so every run sees
// the same texts; the sanitizer builds catch what a bad text does to memory.
#include "monitor/ZarnDataForThread.h"

#include "ResponseSpecsRig.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <tuple>

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

// What the engine made of a text.
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

    auto tie() const
    {
        return std::tie(code, header, display, log, fillers, plugIns, plugInsQty, kind, traits, source);
    }
};

// Learns the served text as a situation does, with a cursor and recorded arguments it may use.
Outcome learn(SpecRig& rig)
{
    SpecEngine& engine = rig.engine;
    static u64 slots[kCursorSlots];
    for (int slot = 0; slot < kCursorSlots; ++slot)
        slots[slot] = slot % 3 == 2 ? fillerOf(L"text") : 0xFFFFFFF0u + u64(slot);
    for (int slot = 0; slot < kArgsQty; ++slot) {
        engine.recordArgument(-slot, slot);
        engine.recordArgument(unsigned(slot) + 7u, slot);
        engine.recordArgument(L"recorded", slot);
    }
    static char* cursor;
    cursor = reinterpret_cast<char*>(slots);
    engine.setDescriptionArgV(&cursor);
    engine.recordSituationID(kSituation);
    engine.learnResponseSpecs(nullptr);

    Outcome outcome;
    outcome.code = engine.getSelfDX_Code();
    outcome.header.assign(engine.m_responseSpecHeader, ZarnDataForThread::kHeaderCharacters);
    outcome.display.assign(engine.m_descriptionForDisplay, ZarnDataForThread::kDisplayCharacters);
    outcome.log.assign(engine.m_descriptionForLogFile, ZarnDataForThread::kLogFileCharacters);
    const u64* fillers = engine.getDescriptionFillers();
    outcome.fillers.assign(fillers, fillers + rig.dataSet.getDescriptionFillersQty());
    outcome.plugIns.assign(engine.m_plugInsIndirectIndices, engine.m_plugInsIndirectIndices + kPlugInsQty);
    outcome.plugInsQty = engine.m_plugInsIndirectQty;
    outcome.kind = engine.m_situationApprovalKind;
    outcome.traits = engine.m_situationResponseTraits;
    outcome.source = engine.m_argSource;
    return outcome;
}

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
    for (int turn = 1 + int(random() % 4); turn > 0; --turn) {
        const std::size_t at = text.empty() ? 0 : random() % text.size();
        switch (random() % 5) {
        case 0: // replace
            if (!text.empty())
                text[at] = randomCharacter(random);
            break;
        case 1:
            text.insert(at, 1, randomCharacter(random));
            break;
        case 2:
            if (!text.empty())
                text.erase(at, 1);
            break;
        case 3: { // repeat a stretch, which makes long groups and many records
            const std::wstring stretch = text.substr(at, 1 + random() % 40);
            for (int repeat = 1 + int(random() % 30); repeat > 0; --repeat)
                text.insert(at, stretch);
            text.resize(std::min(text.size(), kLength_Max));
            break;
        }
        default: // cut
            text.resize(at);
        }
    }
    return text;
}

bool isCleared(const std::wstring& text)
{
    return text.find_first_not_of(L'\0') == std::wstring::npos;
}

} // namespace

// A text is learned twice with forgetSituation between: nothing of one situation may leak into the next.
TEST(ResponseSpecsFuzz, AnyTextFailsCleanlyOrParsesAndTheSameWayTwice)
{
    SpecModule module;
    SpecRig rig;
    rig.dataSet.setResourceModule(module.get());
    std::mt19937 random(20240611u);
    std::set<int> codes;
    int learned = 0;

    for (int turn = 0; turn < kTexts && !HasFailure(); ++turn) {
        const std::wstring text = turn % 3 == 0 ? randomText(random) : mutatedSeed(random);
        module.serve(kSituation, text.c_str());
        rig.engine.forgetSelfDX_Code();
        const Outcome outcome = learn(rig);
        rig.engine.forgetSituation();
        rig.engine.forgetSelfDX_Code();
        const Outcome again = learn(rig);
        rig.engine.forgetSituation();
        SCOPED_TRACE(testing::Message() << "text " << turn << ", code " << outcome.code);
        EXPECT_TRUE(outcome.tie() == again.tie()) << "the second learning differs";
        EXPECT_TRUE(isZeroed(rig.engine.m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters));
        EXPECT_TRUE(isZeroed(rig.engine.m_scratchpad.m_scratchB, ZarnScratchpad::kCharacters));
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
