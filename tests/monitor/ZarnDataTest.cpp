#include "monitor/ZarnData.h"

#include "MonitorRig.h"
#include "foundation/UTL_String.h"
#include "platform/LastError.h"
#include "platform/MessageBox.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <QString>
#include <QTemporaryDir>
#include <QTextStream>

#include <climits>
#include <cstdarg>
#include <cstdlib>

using namespace monitor_test;

namespace {

std::wstring widen(const std::string& text)
{
    return std::wstring(text.begin(), text.end());
}

bool respondVariadic(ZarnData* data, ...)
{
    va_list args;
    va_start(args, data);
    const bool responded = data->respondToSituation(&args);
    va_end(args);
    return responded;
}

} // namespace

TEST(ZarnData, ConstructorTakesTheBootstrapModuleAndTheSystemDisplay)
{
    ZarnData data;
    EXPECT_EQ(data.getResourceModule(), GetModuleHandleW(nullptr));
    EXPECT_EQ(data.getDisplayDlgBoxFunction(), &MessageBoxW);
    EXPECT_EQ(data.getBehaviorCriteria(), 0xE00001E1E0000000ULL);
    EXPECT_EQ(data.getLogFileByteCountLimit(), 20971520u);
    EXPECT_EQ(data.getFileLog()->m_formMarker, L'^');
    EXPECT_EQ(data.getFileLog()->m_entryColorOdd, 0xf7f7ffu);
    EXPECT_FALSE(data.isValid()); // neither a log name nor a character set
}

// The configuring setters take their range before initialize, and nothing afterwards.
TEST(ZarnData, ConfiguringSettersTakeTheirRangeOnlyBeforeInitialize)
{
    struct Row { bool (ZarnData::*set)(int); int (ZarnData::*get)() const; int value; bool accepted; };
    const Row rows[] = {
        {&ZarnData::setArgsIntQty, &ZarnData::getArgsIntQty, -1, false},
        {&ZarnData::setArgsIntQty, &ZarnData::getArgsIntQty, 99, true},
        {&ZarnData::setArgsIntQty, &ZarnData::getArgsIntQty, 100, false},
        {&ZarnData::setArgsStrQty, &ZarnData::getArgsStrQty, 0, true},
        {&ZarnData::setArgsStrQty, &ZarnData::getArgsStrQty, 100, false},
        {&ZarnData::setArgsUIntQty, &ZarnData::getArgsUIntQty, 99, true},
        {&ZarnData::setArgsUIntQty, &ZarnData::getArgsUIntQty, 100, false},
        {&ZarnData::setDescriptionFillersQty, &ZarnData::getDescriptionFillersQty, 4, false},
        {&ZarnData::setDescriptionFillersQty, &ZarnData::getDescriptionFillersQty, 5, true},
        {&ZarnData::setDescriptionFillersQty, &ZarnData::getDescriptionFillersQty, 99, true},
        {&ZarnData::setDescriptionFillersQty, &ZarnData::getDescriptionFillersQty, 100, false},
        {&ZarnData::setCharSetExternal, &ZarnData::getCharSetExternal, -1, false},
        {&ZarnData::setCharSetExternal, &ZarnData::getCharSetExternal, 0, true},
        {&ZarnData::setCharSetExternal, &ZarnData::getCharSetExternal, 2, true},
        {&ZarnData::setCharSetExternal, &ZarnData::getCharSetExternal, 3, false},
        // These two are not frozen by initialize.
        {&ZarnData::setDescriptionAffixID_Min, &ZarnData::getDescriptionAffixID_Min, 0, false},
        {&ZarnData::setDescriptionAffixID_Min, &ZarnData::getDescriptionAffixID_Min, 32767, true},
        {&ZarnData::setDescriptionAffixID_Min, &ZarnData::getDescriptionAffixID_Min, 32768, false},
        {&ZarnData::setDescriptionAffixIDsQty, &ZarnData::getDescriptionAffixIDsQty, -5, true},
        {&ZarnData::setDescriptionAffixIDsQty, &ZarnData::getDescriptionAffixIDsQty, 32768, false},
    };
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE("row " + std::to_string(i) + ", value " + std::to_string(row.value));
        const bool frozen = i < 15;
        for (const bool initialized : {false, true}) {
            ZarnData data;
            ASSERT_TRUE(!initialized || data.initialize());
            const int before = (data.*row.get)();
            const bool accepted = row.accepted && !(initialized && frozen);
            EXPECT_EQ((data.*row.set)(row.value), accepted) << "initialized " << initialized;
            EXPECT_EQ((data.*row.get)(), accepted ? row.value : before);
        }
    }
}

TEST(ZarnData, ValueSettersReturnThePreviousValueAndStoreOnlyWhatTheyAccept)
{
    ZarnData data;
    EXPECT_EQ(data.setSelfDX_FaultTolerance(Zarn_TOLERANCE_RESERVED), Zarn_TOLERANCE_NONE);
    EXPECT_EQ(data.setSelfDX_FaultTolerance(Zarn_TOLERANCE_FORGIVING), Zarn_TOLERANCE_NONE);
    EXPECT_EQ(data.setSelfDX_FaultTolerance(Zarn_TOLERANCE_UNSET), Zarn_TOLERANCE_FORGIVING);
    EXPECT_EQ(data.getSelfDX_FaultTolerance(), Zarn_TOLERANCE_FORGIVING);

    const ZarnSituationResponseTraitsAssessor standard = data.getSituationResponseTraitsAssessor();
    const ZarnSituationResponseTraitsAssessor never = [](const u64&, const u64&) { return false; };
    EXPECT_EQ(data.setSituationResponseTraitsAssessor(nullptr), standard);
    EXPECT_EQ(data.setSituationResponseTraitsAssessor(never), standard);
    EXPECT_EQ(data.getSituationResponseTraitsAssessor(), never);

    EXPECT_EQ(data.sizeMapOfDataForThreads(0), 17u);
    EXPECT_EQ(data.sizeMapOfDataForThreads(31), 17u);
    EXPECT_EQ(data.sizeMapOfDataForThreads(5), 31u);

    EXPECT_EQ(data.setSituationMode(4), 0);
    ASSERT_TRUE(data.initialize());
    EXPECT_EQ(data.setSituationMode(9), 4); // refused once initialised, but answers all the same
    EXPECT_EQ(data.getSituationMode(), 4);
}

TEST(ZarnData, TagsAndCaptionAreOwnedCopies)
{
    ZarnData data;
    std::wstring company = L"Quorvane";
    EXPECT_TRUE(data.recordTag(company.c_str(), Zarn_FORM_TAG_COMPANY_NAME_SHORT));
    company[0] = L'X';
    EXPECT_STREQ(data.getTag(Zarn_FORM_TAG_COMPANY_NAME_SHORT), L"Quorvane");
    EXPECT_TRUE(data.recordTag("Z\xC3\xBCrich", Zarn_FORM_TAG_NAME_OF_HOST)); // narrow text is UTF-8
    EXPECT_STREQ(data.getTag(Zarn_FORM_TAG_NAME_OF_HOST), L"Z\u00FCrich");
    EXPECT_FALSE(data.recordTag(L"x", static_cast<Zarn_FORM_TAG>(15)));
    EXPECT_FALSE(data.recordTag("x", static_cast<Zarn_FORM_TAG>(-1)));

    // The copying forms cut to size - 1 and terminate; a missing tag leaves an empty buffer.
    wchar_t wide[4] = {L'?', L'?', L'?', L'?'};
    EXPECT_TRUE(data.getTag(Zarn_FORM_TAG_COMPANY_NAME_SHORT, wide, 4));
    EXPECT_STREQ(wide, L"Quo");
    char narrow[5] = "????";
    EXPECT_TRUE(data.getTag(Zarn_FORM_TAG_NAME_OF_HOST, narrow, 5));
    EXPECT_STREQ(narrow, "Z\xC3\xBCr");
    EXPECT_FALSE(data.getTag(Zarn_FORM_TAG_SUITE_NAME, wide, 4));
    EXPECT_STREQ(wide, L"");
    EXPECT_TRUE(data.recordTag(static_cast<const wchar_t*>(nullptr), Zarn_FORM_TAG_COMPANY_NAME_SHORT));
    EXPECT_EQ(data.getTag(Zarn_FORM_TAG_COMPANY_NAME_SHORT), nullptr);

    EXPECT_TRUE(data.recordDialogBoxCaption("\xC3\x84rger"));
    EXPECT_STREQ(data.getDisplayDlgBoxCaption(), L"\u00C4rger");
    EXPECT_TRUE(data.recordDialogBoxCaption(static_cast<const char*>(nullptr)));
    EXPECT_EQ(data.getDisplayDlgBoxCaption(), nullptr);

    // duplicate_String frees the old text only when asked; ASan reports it if it frees too much.
    wchar_t* target = nullptr;
    ASSERT_TRUE(ZarnData::duplicate_String(&target, L"first", true));
    ASSERT_TRUE(ZarnData::duplicate_String(&target, target, true)); // its own text: copied before freed
    wchar_t* kept = target;
    ASSERT_TRUE(ZarnData::duplicate_String(&target, nullptr, false));
    EXPECT_EQ(target, nullptr);
    EXPECT_STREQ(kept, L"first");
    delete[] kept;
}

TEST(ZarnData, LogDirectoryFallsBackToTheTemporaryDirectory)
{
    ZarnData::setLogVariables(L"/var/log/farrowlink/", 3, false, 40, 14);
    EXPECT_TRUE(ZarnData::isLogInformationInitialized());
    EXPECT_STREQ(ZarnData::getLogDirectory(), L"/var/log/farrowlink/");
    EXPECT_FALSE(ZarnData::getLogBackupEnabled());
    EXPECT_EQ(ZarnData::getLogOutputLevel(), 3u);
    EXPECT_EQ(ZarnData::getLogMaxFileAge(), 14u);

    const char* saved = std::getenv("TMPDIR");
    const std::string previous = saved != nullptr ? saved : "";
    ::setenv("TMPDIR", "/srv/zmu-temp", 1);
    ZarnData::setLogVariables(nullptr, 1, true, 20, 7);
    EXPECT_STREQ(ZarnData::getLogDirectory(), L"/srv/zmu-temp/");
    saved != nullptr ? ::setenv("TMPDIR", previous.c_str(), 1) : ::unsetenv("TMPDIR");
    ZarnData::setLogVariables(nullptr, 1, true, 20, 7);
}

TEST(ZarnData, InitializeRunsOnceAndKeepsTheCodeOfItsFailure)
{
    OpenData once;
    ASSERT_TRUE(once.initialize());
    EXPECT_EQ(once.getSelfResourceModule(), GetModuleHandleW(L"zmu.dll"));
    ZarnDataForThread* engine = once.findDataForCurrentThread();
    ASSERT_NE(engine, nullptr);
    EXPECT_TRUE(once.initialize());
    EXPECT_EQ(once.findDataForCurrentThread(), engine);

    struct Row { const char* name; std::function<void(OpenData&)> prepare; int code; };
    const Row rows[] = {
        {"held code", [](OpenData& d) { d.setSelfDX_Code(42); }, 42},
        {"map size 0", [](OpenData& d) { d.m_sizeMapOfDataForThreads = 0; }, 278},
        {"impossible map size", [](OpenData& d) { d.sizeMapOfDataForThreads(ULONG_MAX); }, 274},
        {"lock refused", [](OpenData& d) { d.refuseLock = true; }, 262},
        {"lock not left", [](OpenData& d) { d.refuseLeave = true; }, 263},
        {"no engine", [](OpenData& d) { d.makeEngine = []() -> ZarnDataForThread* { return nullptr; }; }, 270},
        {"engine fails: strings, no character set", [](OpenData& d) { d.setArgsStrQty(2); }, 7},
        {"proxy module without the entry",
         [](OpenData& d) {
             d.setNonnativeInstantiatorID(kNonnative);
             d.m_proxyModule = loadTestModule("libzmu_test_plain.so");
         },
         1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        OpenData data;
        row.prepare(data);
        EXPECT_FALSE(data.initialize());
        EXPECT_EQ(data.getSelfDX_Code(), row.code);
        // A failed engine is not kept; only the failure to leave the lock comes after the keeping.
        EXPECT_EQ(data.findDataForCurrentThread() != nullptr, row.code == 263);
    }
}

TEST(ZarnData, NonnativeInitializeNeedsTheProxyModule)
{
    if (GetModuleHandleW(L"cs4s3.dll") != nullptr)
        GTEST_SKIP() << "the proxy module is loaded already in this process";
    OpenData data(kNonnative);
    EXPECT_FALSE(data.initialize());
    EXPECT_EQ(data.getSelfDX_Code(), 2);
}

TEST(ZarnData, HeldCodesAreStickyUnlessTheToleranceForgivesThem)
{
    ZarnData data;
    data.setSelfDX_Code(5);
    EXPECT_FALSE(data.isSelfApproving());
    data.setSelfDX_FaultTolerance(Zarn_TOLERANCE_RESERVED); // not stored: still none
    EXPECT_FALSE(data.isSelfApproving());
    EXPECT_EQ(data.getSelfDX_Code(), 5);
    data.setSelfDX_FaultTolerance(Zarn_TOLERANCE_FORGIVING);
    EXPECT_TRUE(data.isSelfApproving());
    EXPECT_EQ(data.getSelfDX_Code(), 0);

    // The engine's code is the data set's code for its thread, behind the data set's own.
    OpenData live;
    ASSERT_TRUE(live.initialize());
    live.findDataForCurrentThread()->setSelfDX_Code(8);
    EXPECT_EQ(live.getSelfDX_Code(), 8);
    live.setSelfDX_Code(3);
    EXPECT_EQ(live.getSelfDX_Code(), 3);
    live.forgetSelfDX_Code();
    EXPECT_EQ(live.getSelfDX_Code(), 0);
}

TEST(ZarnData, ForwardersAnswerEmptyWithoutAnEngine)
{
    const std::vector<std::pair<const char*, std::function<bool(ZarnData&)>>> rows = {
        {"describeSituation", [](ZarnData& d) { return !d.describeSituation(); }},
        {"forgetSituation", [](ZarnData& d) { return !d.forgetSituation(); }},
        {"learnResponse", [](ZarnData& d) { return !d.learnResponse(); }},
        {"reportDescriptions", [](ZarnData& d) { return !d.reportDescriptions(); }},
        {"respondToSituation()", [](ZarnData& d) { return !d.respondToSituation(); }},
        {"respondToSituation(argV)", [](ZarnData& d) { return !d.respondToSituation(static_cast<char**>(nullptr)); }},
        {"respondToSituation(...)", [](ZarnData& d) { return !respondVariadic(&d, 1u); }},
        {"recordArgument", [](ZarnData& d) {
             return d.recordArgument("a", 0) == -1 && d.recordArgument(L"w", 0) == -1 && d.recordArgument(1, 0) == -1
                 && d.recordArgument(1u, 0) == -1;
         }},
        {"recordSituationID", [](ZarnData& d) { return d.recordSituationID(9) == 0 && d.getSituationID() == 0; }},
        {"recordSituationID_Remote", [](ZarnData& d) { return d.recordSituationID_Remote(9) == 0; }},
        {"getters", [](ZarnData& d) {
             return d.getArg_UInt(0) == 0 && d.getDescriptionFillers() == nullptr && d.getDisplayDlgBoxResult() == 0
                 && d.getDescriptionForDisplay() == nullptr && d.getDescriptionForLogFile() == nullptr;
         }},
        {"isSituationNormal", [](ZarnData& d) { return d.isSituationNormal(); }},
        {"formatLogHyperlinkWinSDK", [](ZarnData& d) { return d.formatLogHyperlinkWinSDK(5) == nullptr; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        ZarnData uninitialized; // no thread map yet
        EXPECT_TRUE(row.second(uninitialized));
        EXPECT_EQ(uninitialized.getSelfDX_Code(), 0);
        // A code held by the data set makes every engine unobtainable, and stays as it was.
        ZarnData failed;
        ASSERT_TRUE(failed.initialize());
        failed.setSelfDX_Code(19);
        EXPECT_TRUE(row.second(failed));
        EXPECT_EQ(failed.getSelfDX_Code(), 19);
    }
}

// The vector cursor stays with a failed situation; a variadic list is retired with its call.
TEST(ZarnData, RespondFormsHandTheirCursorToTheEngine)
{
    Script script;
    script.failures = {{"describeSituation", 66}};
    OpenData data;
    data.makeEngine = [&script] { return new ScriptedEngine(script); };
    data.setSelfDX_FaultTolerance(Zarn_TOLERANCE_FORGIVING);
    ASSERT_TRUE(data.initialize());
    ZarnDataForThread* engine = data.findDataForCurrentThread();

    u64 argSlots[] = {4242, 7, 0};
    char* cursor = reinterpret_cast<char*>(argSlots);
    EXPECT_FALSE(data.respondToSituation(&cursor));
    EXPECT_EQ(script.firstArg, 4242u);
    EXPECT_EQ(cursor, reinterpret_cast<char*>(argSlots) + 16); // the caller's cursor moved
    EXPECT_FALSE(engine->getDescriptionArgV()->isEmpty());

    EXPECT_FALSE(respondVariadic(&data, 31337, L"text"));
    EXPECT_EQ(script.firstArg, 31337u);
    EXPECT_TRUE(engine->getDescriptionArgV()->isEmpty());
}

TEST(ZarnData, RemoveThreadDeletesOnlyTheCallersEngine)
{
    OpenData data;
    EXPECT_FALSE(data.removeThread());
    EXPECT_EQ(data.getSelfDX_Code(), 275);

    OpenData live;
    ASSERT_TRUE(live.initialize());
    ZarnDataForThread* engine = live.findDataForCurrentThread();
    engine->setSelfDX_Code(31); // a thread with a failed situation cannot leave without forgiveness
    EXPECT_FALSE(live.removeThread());
    EXPECT_EQ(live.findDataForCurrentThread(), engine);
    engine->forgetSelfDX_Code();
    EXPECT_EQ(live.getSelfDX_Code(), 0); // the engine's code was not copied into the data set

    EXPECT_TRUE(live.removeThread());
    EXPECT_EQ(live.findDataForCurrentThread(), nullptr);
    EXPECT_TRUE(live.removeThread()); // nothing to remove is a success
    EXPECT_EQ(live.getSituationID(), 0); // and the next request makes a new engine
    EXPECT_NE(live.findDataForCurrentThread(), nullptr);
}

TEST(ZarnData, TraitApprovalNeedsTheRespondBitsAndALevelNotAboveTheCriteria)
{
    struct LevelRow { u64 criteria, traits, shift; bool approved; };
    const LevelRow levels[] = {
        {2ull << 29, 3ull << 29, 29, false}, {2ull << 29, 2ull << 29, 29, true}, {15ull << 49, 1ull << 49, 49, true},
        {0, 1ull << 33, 33, false},          {15ull << 33, 0, 33, false},        {15ull << 25, 1ull << 29, 25, false},
        {4ull << 25, 4ull << 25, 64 + 25, true}, // the shift is taken modulo 64
    };
    for (const LevelRow& row : levels) {
        SCOPED_TRACE(std::to_string(row.criteria) + " / " + std::to_string(row.traits));
        EXPECT_EQ(ZarnData::approveSituationResponseTraitsLevel(row.criteria, row.traits, 15, row.shift), row.approved);
    }
    EXPECT_EQ(ZarnData::canRespondToSituations(0), Zarn_FUZZY_NO);
    EXPECT_EQ(ZarnData::canRespondToSituations(0x2000000000000000ULL), Zarn_FUZZY_YES);

    struct Row
    {
        const char* name;
        u64 criteria;
        u64 traits;
        bool approved;
        unsigned int kind2; // what kind 2 speaks to the proxy
    };
    const Row rows[] = {
        {"defaults", ZARN_DEFAULT_BEHAVIOR_CRITERIA, ZARN_DEFAULT_RESPONSE_TRAITS, true, 2},
        {"no respond bits", ZARN_DEFAULT_BEHAVIOR_CRITERIA & ~ZARN_RESPOND_MASK, ~0ull, false, 0},
        {"level only in a closed field", ZARN_DEFAULT_BEHAVIOR_CRITERIA, 1ull << 45, false, 0},
        {"every trait bit, default criteria", ZARN_DEFAULT_BEHAVIOR_CRITERIA, ~0ull, true, 1 | 2},
        {"every field open", ~0ull, ~0ull, true, 8 | 2 | 32 | 1 | 16 | 4},
        {"the field at 41 approves but has no bit", ZARN_RESPOND_MASK | (15ull << 41), 1ull << 41, true, 0},
        {"level above the criteria", ZARN_RESPOND_MASK | (3ull << 49), 5ull << 49, false, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(ZarnData::approveSituationResponseTraits(row.criteria, row.traits), row.approved);
        ZarnData data;
        data.setBehaviorCriteria(row.criteria);
        EXPECT_EQ(data.approveSituationResponseTraits(row.traits), row.approved); // through the assessor
        unsigned int enablements = 12345;
        EXPECT_EQ(data.approveSituationResponseTraits(2, row.traits, enablements), row.kind2 != 0);
        EXPECT_EQ(enablements, row.kind2);
        const unsigned int kind1 = ZarnData::canRespondToSituations(row.criteria) == Zarn_FUZZY_YES ? 11 : 0;
        EXPECT_EQ(data.approveSituationResponseTraits(1, 0, enablements), kind1 != 0); // whatever the traits
        EXPECT_EQ(enablements, kind1);
        EXPECT_FALSE(data.approveSituationResponseTraits(3, row.traits, enablements));
        EXPECT_EQ(enablements, 0u);
    }
}

TEST(ZarnData, CriteriaAndResourceModuleChangeOnlyUnderTheLock)
{
    OpenData data;
    const HMODULE bootstrap = data.getResourceModule();
    const HMODULE other = GetModuleHandleW(L"zmu.dll");
    EXPECT_EQ(data.setBehaviorCriteria(7), ZARN_DEFAULT_BEHAVIOR_CRITERIA);
    EXPECT_EQ(data.setResourceModule(nullptr), nullptr);
    EXPECT_EQ(data.setResourceModule(other), bootstrap);

    data.refuseLock = true;
    EXPECT_EQ(data.setBehaviorCriteria(11), 7u); // the previous word comes back, nothing is stored
    EXPECT_EQ(data.getBehaviorCriteria(), 7u);
    EXPECT_EQ(data.setResourceModule(bootstrap), nullptr);
    EXPECT_EQ(data.getResourceModule(), other);
}

TEST(ZarnData, AssimilationMovesEverythingAndLeavesAShell)
{
    int standIn = 0;
    Zarn* const owner = reinterpret_cast<Zarn*>(&standIn);
    const HWND parent = reinterpret_cast<HWND>(&standIn);
    const ZarnDisplayDlgBoxFunction display = [](HWND, const wchar_t*, const wchar_t*, unsigned int) { return 3; };

    OpenData source(kNonnative);
    wchar_t logName[] = L"/tmp/zmu-moved.htm";
    ASSERT_TRUE(source.recordLogFileNomenclature(logName, L"/tmp/form.htm", Zarn_LOG_HTML));
    source.setCharSetExternal(2);
    source.setArgsIntQty(4);
    source.setBehaviorCriteria(0x2000000000000001ULL); // also makes the source's lock
    source.recordDialogBoxCaption(L"Caption");
    source.setDisplayDlgBoxFunction(display);
    source.setDisplayDlgBoxParent(parent);
    source.setOwner(owner);
    source.setSelfResourceModule(GetModuleHandleW(L"zmu.dll"));
    source.recordTag(L"Farrowlink", Zarn_FORM_TAG_PRODUCT_NAME);
    source.incrementSituationsCount(6);
    ZarnPlugIn* plugIns = source.createPlugIns(2);
    std::wcscpy(source.m_scratchpad.m_scratchA, L"draft");
    const void* lock = source.m_criticalSection;
    const wchar_t* tag = source.getTag(Zarn_FORM_TAG_PRODUCT_NAME);

    OpenData target;
    ASSERT_TRUE(target.assimilateDataSetContents(&source)) << target.getSelfDX_Code();
    EXPECT_STREQ(target.getFileLogName(), L"/tmp/zmu-moved.htm");
    EXPECT_STREQ(target.getFileLog()->m_formName, L"/tmp/form.htm");
    EXPECT_EQ(target.getNonnativeInstantiatorID(), kNonnative);
    EXPECT_EQ(target.getArgsIntQty(), 4);
    EXPECT_EQ(target.getBehaviorCriteria(), 0x2000000000000001ULL);
    EXPECT_STREQ(target.getDisplayDlgBoxCaption(), L"Caption");
    EXPECT_EQ(target.getDisplayDlgBoxFunction(), display);
    EXPECT_EQ(target.getDisplayDlgBoxParent(), parent);
    EXPECT_EQ(target.getOwner(), owner);
    EXPECT_EQ(target.getSelfResourceModule(), GetModuleHandleW(L"zmu.dll"));
    EXPECT_EQ(target.getTag(Zarn_FORM_TAG_PRODUCT_NAME), tag);
    EXPECT_EQ(target.getSituationsCount(), 6u);
    EXPECT_EQ(target.getPlugIns(), plugIns);
    EXPECT_EQ(target.getPlugInsQty(), 2);
    EXPECT_EQ(target.m_criticalSection, lock);
    EXPECT_STREQ(target.m_scratchpad.m_scratchA, L"draft");
    EXPECT_TRUE(target.isValid());

    EXPECT_EQ(source.getFileLogName(), nullptr);
    EXPECT_EQ(source.getFileLog()->m_formName, nullptr);
    EXPECT_EQ(source.getDisplayDlgBoxCaption(), nullptr);
    EXPECT_EQ(source.getDisplayDlgBoxFunction(), nullptr);
    EXPECT_EQ(source.getDisplayDlgBoxParent(), nullptr);
    EXPECT_EQ(source.getOwner(), nullptr);
    EXPECT_EQ(source.getSelfResourceModule(), nullptr);
    EXPECT_EQ(source.getResourceModule(), nullptr);
    EXPECT_EQ(source.getTag(Zarn_FORM_TAG_PRODUCT_NAME), nullptr);
    EXPECT_EQ(source.getPlugIns(), nullptr);
    EXPECT_EQ(source.m_criticalSection, nullptr);
    EXPECT_STREQ(source.m_scratchpad.m_scratchA, L"");
}

TEST(ZarnData, AssimilationRefusesAReceiverInUse)
{
    ZarnData source;
    ZarnData target;
    EXPECT_FALSE(target.assimilateDataSetContents(nullptr));
    EXPECT_EQ(target.getSelfDX_Code(), 268);

    ZarnData locked;
    ASSERT_TRUE(locked.enterCriticalSection());
    locked.leaveCriticalSection();
    EXPECT_FALSE(locked.assimilateDataSetContents(&source));
    EXPECT_EQ(locked.getSelfDX_Code(), 268);

    QString text;
    QTextStream stream(&text);
    ZarnData open;
    open.getFileLog()->m_logStream = &stream;
    EXPECT_FALSE(open.assimilateDataSetContents(&source));
    EXPECT_EQ(open.getSelfDX_Code(), 268);
    open.getFileLog()->m_logStream = nullptr;

    source.setSelfDX_Code(17); // the source's code travels with its contents
    ZarnData receiver;
    EXPECT_FALSE(receiver.assimilateDataSetContents(&source));
    EXPECT_EQ(receiver.getSelfDX_Code(), 17);
}

TEST(ZarnData, PlugInTableIsMadeOnceWithEmptyRows)
{
    ZarnData data;
    EXPECT_EQ(data.createPlugIns(0), nullptr);
    ZarnPlugIn* table = data.createPlugIns(3);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(data.getPlugInsQty(), 3);
    EXPECT_TRUE(table[0] == nullptr && table[1] == nullptr && table[2] == nullptr);
    table[1] = [](const Zarn*) { return true; };
    EXPECT_EQ(data.createPlugIns(5), table); // the table stands, whatever the new quantity
    EXPECT_EQ(data.getPlugInsQty(), 3);
    EXPECT_NE(table[1], nullptr);
}

TEST(ZarnData, ProxyRoadSpeaksToTheProxyModule)
{
    ProxyModule proxy;
    ASSERT_TRUE(proxy.loaded());
    OpenData data(kNonnative);
    ASSERT_TRUE(data.initialize()) << data.getSelfDX_Code(); // finds the loaded module by its name
    EXPECT_EQ(reinterpret_cast<FARPROC>(data.m_proxyRespondToSituation),
              GetProcAddress(proxy.module, "ProxyRespondToSituation"));
    EXPECT_TRUE(data.logSituationDescriptionViaProxy(5, 1, 0, L"the description"));
    EXPECT_EQ(proxy.count(), 1);
    EXPECT_EQ(proxy.enablements(), 11u);
    EXPECT_EQ(proxy.instantiator(), kNonnative);
    EXPECT_EQ(proxy.negatedID(), -5);
    EXPECT_STREQ(proxy.format(), L"%s");
    EXPECT_STREQ(proxy.description(), L"the description");

    proxy.refuses() = 1;
    EXPECT_FALSE(data.logSituationDescriptionViaProxy(8, 1, 0, L"refused"));
    EXPECT_EQ(data.getSelfDX_Code(), 207);
    EXPECT_FALSE(data.logSituationDescriptionViaProxy(9, 1, 0, L"blocked")); // the code is held
    EXPECT_EQ(proxy.count(), 2);
}

TEST(ZarnData, ProxyRoadRefusesWith209)
{
    struct Row { i64 instantiator; bool proxy; int situationID; unsigned int kind; const wchar_t* description; };
    const Row rows[] = {
        {0, true, 5, 1, L"d"},         {kNonnative, false, 5, 1, L"d"}, {kNonnative, true, 0, 1, L"d"},
        {kNonnative, true, 5, 0, L"d"}, {kNonnative, true, 5, 3, L"d"}, {kNonnative, true, 5, 1, nullptr},
        {kNonnative, true, 5, 1, L""},
    };
    static int calls = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        OpenData data(row.instantiator);
        if (row.proxy)
            data.m_proxyRespondToSituation = [](unsigned int, i64, int, const wchar_t*, const wchar_t*) { return ++calls; };
        EXPECT_FALSE(data.logSituationDescriptionViaProxy(row.situationID, row.kind, 0, row.description));
        EXPECT_EQ(data.getSelfDX_Code(), 209);
    }
    EXPECT_EQ(calls, 0);
}

TEST(ZarnData, LogHyperlinkPrintsTheCodeTwiceAs32Bits)
{
    ZarnData data;
    ASSERT_TRUE(data.initialize()); // learns its own module, whose table has the link templates
    UTL_String out;
    EXPECT_STREQ(data.formatLogHyperlink(0xFFFFFFFFul, 10001, out),
                 L"<a href=\"Codes/WBT.html#4294967295\">WBT4294967295</a>");
    EXPECT_STREQ(out.wideText(), L"<a href=\"Codes/WBT.html#4294967295\">WBT4294967295</a>");
    EXPECT_STREQ(data.formatLogHyperlink(0xFFFFFFFFul, 10002, out), L"<a href=\"Codes/WDB.html#-1\">WDB-1</a>");

    struct Row { const char* name; std::function<void(OpenData&)> prepare; unsigned int stringID; int code; };
    const Row rows[] = {
        {"no own module", [](OpenData& d) { d.setSelfResourceModule(nullptr); }, 10001, 231},
        {"lock refused", [](OpenData& d) { d.refuseLock = true; }, 10001, 56},
        {"lock not left", [](OpenData& d) { d.refuseLeave = true; }, 10001, 57},
        {"no such string", [](OpenData&) {}, 9, 59},
        {"empty string", [](OpenData& d) { d.setSelfResourceModule(loadTestModule("libzmu_test_strings.so")); }, 2,
         59},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        OpenData failing;
        failing.setSelfResourceModule(GetModuleHandleW(L"zmu.dll"));
        row.prepare(failing);
        UTL_String stale(L"stale");
        SetLastError(5);
        EXPECT_EQ(failing.formatLogHyperlink(1, row.stringID, stale), nullptr);
        EXPECT_EQ(failing.getSelfDX_Code(), row.code);
        EXPECT_EQ(stale.length(), 0u);
        EXPECT_EQ(GetLastError(), 0u);
        if (row.stringID == 2)
            FreeLibrary(failing.getSelfResourceModule());
    }
}

TEST(ZarnData, NomenclatureValidationTakesTheFirstRuleThatApplies)
{
    struct Row { i64 instantiator; Zarn_LOG kind; const char* logName; const char* formName; int code; };
    const Row rows[] = {
        {0, Zarn_LOG_UNSET, nullptr, nullptr, 143},
        {0, Zarn_LOG_HTML, nullptr, "form.htm", 134},
        {0, Zarn_LOG_HTML, "", nullptr, 132},
        {kNonnative, Zarn_LOG_HTML, "", "form.htm", 0}, // blank is no name for a nonnative log
        {0, Zarn_LOG_HTML, "/Tmp/Log.HTM", "/tmp/log.htm", 135},
        {kNonnative, Zarn_LOG_HTML, "/tmp/log.htm", "/TMP/LOG.htm", 135},
        {0, Zarn_LOG_HTML, "/tmp/log.htm", "", 0},
        {0, Zarn_LOG_TEXT, "/tmp/log.txt", "/tmp/form.txt", 0}, // the text kind passes validation
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        OpenData data(row.instantiator);
        const std::wstring log = widen(row.logName != nullptr ? row.logName : "");
        const std::wstring form = widen(row.formName != nullptr ? row.formName : "");
        int code = -1;
        EXPECT_EQ(data.isValidLogFileNomenclature(row.logName != nullptr ? log.c_str() : nullptr,
                                                  row.formName != nullptr ? form.c_str() : nullptr, row.kind, 2, code),
                  row.code == 0);
        EXPECT_EQ(code, row.code);
        EXPECT_EQ(data.isValidLogFileNomenclature(row.logName, row.formName, row.kind, 0, code), row.code == 0);
        EXPECT_EQ(code, row.code);
    }
}

TEST(ZarnData, RecordingNomenclatureStoresCopiesAndOnlyTheHtmlKind)
{
    ZarnData data;
    data.setSelfDX_Code(9); // recording starts from a clean code
    wchar_t log[] = L"/tmp/zmu-a.htm";
    ASSERT_TRUE(data.recordLogFileNomenclature(log, L"/tmp/zmu-form.htm", Zarn_LOG_HTML));
    EXPECT_NE(data.getFileLogName(), log);
    EXPECT_STREQ(data.getFileLogName(), L"/tmp/zmu-a.htm");
    EXPECT_FALSE(data.isValid()); // no character set yet
    data.setCharSetExternal(0);
    EXPECT_TRUE(data.isValid());

    char narrowLog[] = "/tmp/Z\xC3\xBCrich.htm"; // UTF-8; a null form clears the recorded one
    ASSERT_TRUE(data.recordLogFileNomenclature(narrowLog, nullptr, Zarn_LOG_HTML));
    EXPECT_STREQ(data.getFileLogName(), L"/tmp/Z\u00FCrich.htm");
    EXPECT_EQ(data.getFileLog()->m_formName, nullptr);

    wchar_t same[] = L"/tmp/FORM.htm";
    EXPECT_FALSE(data.recordLogFileNomenclature(same, L"/tmp/form.HTM", Zarn_LOG_HTML));
    EXPECT_EQ(data.getSelfDX_Code(), 135);
    EXPECT_STREQ(data.getFileLogName(), L"/tmp/Z\u00FCrich.htm");

    wchar_t text[] = L"/tmp/zmu-b.txt"; // kind 1 is refused after the names were stored
    EXPECT_FALSE(data.recordLogFileNomenclature(text, nullptr, Zarn_LOG_TEXT));
    EXPECT_EQ(data.getSelfDX_Code(), 143);
    EXPECT_STREQ(data.getFileLogName(), L"/tmp/zmu-b.txt");
    EXPECT_EQ(data.getFileLog()->m_logKind, Zarn_LOG_HTML);
}

TEST(ZarnData, FileLogNameIsCopiedOnlyFromAnOpenLog)
{
    struct Row { bool named, open, buffer; size_t size; int code; };
    const wchar_t* kName = L"/tmp/zmu-name.htm"; // 17 characters
    const Row rows[] = {
        {true, true, false, 32, 63}, {true, false, true, 32, 61}, {false, true, true, 32, 62},
        {true, true, true, 17, 64},  {true, true, true, 18, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        ZarnData data;
        std::wstring name = kName;
        ASSERT_TRUE(!row.named || data.recordLogFileNomenclature(&name[0], nullptr, Zarn_LOG_HTML));
        QString text;
        QTextStream stream(&text);
        data.getFileLog()->m_logStream = row.open ? &stream : nullptr;
        std::vector<wchar_t> buffer(32, L'?');
        EXPECT_EQ(data.getFileLogName(row.buffer ? buffer.data() : nullptr, row.size), row.code == 0);
        EXPECT_EQ(data.getSelfDX_Code(), row.code);
        EXPECT_EQ(std::wstring(buffer.data(), 18), row.code == 0 ? std::wstring(kName) + L'\0'
                                                   : row.buffer    ? L'\0' + std::wstring(17, L'?')
                                                                   : std::wstring(18, L'?'));
        data.getFileLog()->m_logStream = nullptr;
    }
    OpenData locked;
    locked.refuseLock = true;
    wchar_t buffer[8];
    EXPECT_FALSE(locked.getFileLogName(buffer, 8));
    EXPECT_EQ(locked.getSelfDX_Code(), 262);
}

TEST(ZarnData, ByteCountLimitKeepsItsBounds)
{
    struct Row { i64 instantiator; bool refuseLock; unsigned long long limit; int code; };
    const Row rows[] = {
        {0, false, 1048576, 0},   {0, false, 78643200, 0},         {0, false, 1048575, 117},
        {0, false, 78643201, 116}, {kNonnative, false, 2097152, 115}, {0, true, 2097152, 262},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.limit);
        OpenData data(row.instantiator);
        data.refuseLock = row.refuseLock;
        TraceCapture capture;
        unsigned long long previous = 12345;
        EXPECT_EQ(data.setLogFileByteCountLimit(row.limit, previous), row.code == 0);
        EXPECT_EQ(data.getSelfDX_Code(), row.code);
        EXPECT_EQ(previous, row.code == 0 ? ZarnData::kDefaultLogFileByteCountLimit : 0u);
        EXPECT_EQ(data.getLogFileByteCountLimit(), row.code == 0 ? row.limit : ZarnData::kDefaultLogFileByteCountLimit);
        EXPECT_EQ(capture.contains(L"ZarnData::setLogFileByteCountLimit () caught exception #"
                                   + std::to_wstring(row.code) + L"."),
                  row.code != 0);
    }
}

TEST(ZarnData, EstablishLogFileInitializesOnceAndTracesAFailure)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    std::wstring log = (dir.path() + QStringLiteral("/log.html")).toStdWString();
    ZarnData data;
    ASSERT_TRUE(data.recordLogFileNomenclature(&log[0], nullptr, Zarn_LOG_HTML));
    EXPECT_TRUE(data.establishLogFile(true)) << data.getSelfDX_Code();
    EXPECT_TRUE(data.isInitialized());

    ZarnData failing;
    failing.sizeMapOfDataForThreads(ULONG_MAX);
    TraceCapture capture;
    EXPECT_FALSE(failing.establishLogFile(true));
    EXPECT_EQ(failing.getSelfDX_Code(), 274);
    EXPECT_TRUE(capture.contains(L"ZarnData::establishLogFile (true) caught exception #274."));
}

TEST(ZarnData, SituationsCountSaturatesBothWays)
{
    struct Row
    {
        unsigned long start;
        long long change; // added or taken away by its sign
        unsigned long expected;
    };
    const Row rows[] = {
        {0, 5, 5}, {0xFFFFFFFE, 1, 0xFFFFFFFF}, {0xFFFFFFFE, 2, 0xFFFFFFFF}, {1, LLONG_MAX, 0xFFFFFFFF},
        {5, -2, 3}, {5, -5, 0},                {5, -6, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.start) + " " + std::to_string(row.change));
        ZarnData data;
        ASSERT_EQ(data.incrementSituationsCount(row.start), row.start);
        const unsigned long result = row.change >= 0 ? data.incrementSituationsCount(row.change)
                                                     : data.decrementSituationsCount(-row.change);
        EXPECT_EQ(result, row.expected);
        EXPECT_EQ(data.getSituationsCount(), row.expected);
        EXPECT_EQ(data.getSituationsQty(), 0u);
    }
}

TEST(ZarnScratchpad, BuffersAreZeroedByTheirRecordedSizes)
{
    ZarnScratchpad pad;
    EXPECT_EQ(pad.m_scratchB_Bytes, 1024 * sizeof(wchar_t));
    std::wcscpy(pad.m_scratchA, L"a");
    pad.m_scratchB[ZarnScratchpad::kCharacters - 1] = L'b';
    EXPECT_FALSE(pad.setMemberVarsToDefaults(0, 8));
    EXPECT_TRUE(pad.setMemberVarsToDefaults(1, 4)); // no bit of this class but 8
    EXPECT_STREQ(pad.m_scratchA, L"a");
    EXPECT_TRUE(pad.setMemberVarsToDefaults(1, 8));
    EXPECT_STREQ(pad.m_scratchA, L"");
    EXPECT_EQ(pad.m_scratchB[ZarnScratchpad::kCharacters - 1], L'\0');

    pad.m_scratchA[5] = L'x'; // an empty first character means a cleared text: the rest stays
    ZarnScratchpad::clearIfNotEmpty(pad.m_scratchA, pad.m_scratchA_Bytes);
    EXPECT_EQ(pad.m_scratchA[5], L'x');
    pad.m_scratchA[0] = L'y';
    ZarnScratchpad::clearIfNotEmpty(pad.m_scratchA, pad.m_scratchA_Bytes);
    EXPECT_EQ(pad.m_scratchA[5], L'\0');
}
