// Response specs from fuzz bytes, taken as UTF-8 text: served by a resource module as the
// situation's spec, then learned as a situation learns it (the spec cut into fields, the header,
// fillers and plug-in IDs, both description specs with their affixes) and formatted with the
// arguments of the situation, from cursor slots or from recorded arguments.
//
// Every argument is a text of the pool at an address below 2^31, so a filler is a valid insert
// whatever letter the spec gives it. The spec is learned twice, with forgetSituation between, and
// must come out the same: nothing of one situation may leak into the next.
#include "FuzzSupport.h"

#include "foundation/IntegerWidths.h"
#include "monitor/ZarnData.h"
#include "monitor/ZarnDataForThread.h"
#include "platform/Modules.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr int kSituation = 4242;
constexpr int kArgsQty = 3;
constexpr int kPlugInsQty = 4;
constexpr int kAffixIDsQty = 5; // the module serves four; the fifth is missing
constexpr int kCursorSlots = 16; // more than the ten fillers a spec may name

using ServeSpec = void (*)(unsigned int, const wchar_t*);
using AffixID_Min = unsigned int (*)();

// The engine with the parts the checks read opened.
class SpecEngine : public ZarnDataForThread
{
public:
    using ZarnDataForThread::m_argSource, ZarnDataForThread::m_descriptionDisplayIsDupe,
        ZarnDataForThread::m_descriptionDisplayLineWd, ZarnDataForThread::m_descriptionForDisplay,
        ZarnDataForThread::m_descriptionForLogFile, ZarnDataForThread::m_descriptionLogFileLineWd,
        ZarnDataForThread::m_displayDlgBoxSpecA, ZarnDataForThread::m_displayDlgBoxSpecB,
        ZarnDataForThread::m_displayDlgBoxType, ZarnDataForThread::m_plugInsIndirectIndices,
        ZarnDataForThread::m_plugInsIndirectQty, ZarnDataForThread::m_responseSpecHeader,
        ZarnDataForThread::m_scratchpad, ZarnDataForThread::m_situationApprovalKind,
        ZarnDataForThread::m_situationResponseTraits;
};

struct SpecServer
{
    HMODULE module = nullptr;
    ServeSpec serve = nullptr;
    int affixID_Min = 0;
};

// Loaded once for the run; the process's end unloads it.
const SpecServer& specServer()
{
    static const SpecServer s_server = [] {
        SpecServer server;
        server.module = LoadLibraryW(L"" ZMU_FUZZ_SPEC_SERVER);
        zmu_fuzz::check(server.module != nullptr, "the spec server module does not load");
        server.serve = reinterpret_cast<ServeSpec>(GetProcAddress(server.module, "zmuFuzzServeSpec"));
        const auto affixMin = reinterpret_cast<AffixID_Min>(GetProcAddress(server.module, "zmuFuzzAffixID_Min"));
        zmu_fuzz::check(server.serve != nullptr && affixMin != nullptr, "the spec server lacks its entries");
        server.affixID_Min = static_cast<int>(affixMin());
        return server;
    }();
    return s_server;
}

// What one learning made of the spec.
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
    bool dupe = false;
    int displayLineWd = 0, logLineWd = 0;
    unsigned int dlgBoxType = 0;
    int dlgBoxSpecA = 0, dlgBoxSpecB = 0;

    bool operator==(const Outcome& o) const
    {
        return code == o.code && header == o.header && display == o.display && log == o.log && fillers == o.fillers
            && plugIns == o.plugIns && plugInsQty == o.plugInsQty && kind == o.kind && traits == o.traits
            && source == o.source && dupe == o.dupe && displayLineWd == o.displayLineWd && logLineWd == o.logLineWd
            && dlgBoxType == o.dlgBoxType && dlgBoxSpecA == o.dlgBoxSpecA && dlgBoxSpecB == o.dlgBoxSpecB;
    }
};

bool isZeroed(const wchar_t* buffer, std::size_t characters)
{
    return std::all_of(buffer, buffer + characters, [](wchar_t c) { return c == L'\0'; });
}

// A fixed buffer as a string up to its first zero; it must hold one.
std::wstring textOf(const wchar_t* buffer, std::size_t characters)
{
    const wchar_t* const end = std::find(buffer, buffer + characters, L'\0');
    zmu_fuzz::check(end != buffer + characters, "a description buffer without a terminator");
    return std::wstring(buffer, end);
}

// A data set as a product configures one, with an engine on it.
class SpecRig
{
public:
    SpecRig()
    {
        const SpecServer& server = specServer();
        m_dataSet.setCharSetExternal(2);
        m_dataSet.setArgsIntQty(kArgsQty);
        m_dataSet.setArgsStrQty(kArgsQty);
        m_dataSet.setArgsUIntQty(kArgsQty);
        m_dataSet.setDescriptionAffixID_Min(server.affixID_Min);
        m_dataSet.setDescriptionAffixIDsQty(kAffixIDsQty);
        m_dataSet.createPlugIns(kPlugInsQty);
        m_dataSet.setResourceModule(server.module);
        zmu_fuzz::check(m_engine.initialize(&m_dataSet), "the engine does not initialise");

        const zmu_fuzz::TextPool& pool = zmu_fuzz::TextPool::get();
        for (int slot = 0; slot < kCursorSlots; ++slot)
            m_slots[slot] = slot == kCursorSlots - 1 ? 0 : pool.slot(static_cast<std::size_t>(slot));
    }

    Outcome learn()
    {
        const zmu_fuzz::TextPool& pool = zmu_fuzz::TextPool::get();
        m_engine.forgetSelfDX_Code();
        m_engine.recordSituationID(kSituation);
        for (int slot = 0; slot < kArgsQty; ++slot) {
            const u64 number = pool.slot(static_cast<std::size_t>(slot) + 2);
            m_engine.recordArgument(static_cast<int>(number), slot);
            m_engine.recordArgument(static_cast<unsigned int>(number), slot);
            m_engine.recordArgument(pool.text(static_cast<std::size_t>(slot) + 4), slot);
        }
        m_cursor = reinterpret_cast<char*>(m_slots);
        m_engine.setDescriptionArgV(&m_cursor);
        m_engine.learnResponse();

        Outcome outcome;
        outcome.code = m_engine.getSelfDX_Code();
        outcome.header = textOf(m_engine.m_responseSpecHeader, ZarnDataForThread::kHeaderCharacters);
        outcome.display = textOf(m_engine.m_descriptionForDisplay, ZarnDataForThread::kDisplayCharacters);
        outcome.log = textOf(m_engine.m_descriptionForLogFile, ZarnDataForThread::kLogFileCharacters);
        const u64* const fillers = m_engine.getDescriptionFillers();
        outcome.fillers.assign(fillers, fillers + m_dataSet.getDescriptionFillersQty());
        outcome.plugIns.assign(m_engine.m_plugInsIndirectIndices, m_engine.m_plugInsIndirectIndices + kPlugInsQty);
        outcome.plugInsQty = m_engine.m_plugInsIndirectQty;
        outcome.kind = m_engine.m_situationApprovalKind;
        outcome.traits = m_engine.m_situationResponseTraits;
        outcome.source = m_engine.m_argSource;
        outcome.dupe = m_engine.m_descriptionDisplayIsDupe;
        outcome.displayLineWd = m_engine.m_descriptionDisplayLineWd;
        outcome.logLineWd = m_engine.m_descriptionLogFileLineWd;
        outcome.dlgBoxType = m_engine.m_displayDlgBoxType;
        outcome.dlgBoxSpecA = m_engine.m_displayDlgBoxSpecA;
        outcome.dlgBoxSpecB = m_engine.m_displayDlgBoxSpecB;

        zmu_fuzz::check(isZeroed(m_engine.m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters)
                            && isZeroed(m_engine.m_scratchpad.m_scratchB, ZarnScratchpad::kCharacters),
                        "a scratch buffer is left with text");
        checkOutcome(outcome);
        return outcome;
    }

    void forget()
    {
        m_engine.forgetSelfDX_Code();
        zmu_fuzz::check(m_engine.forgetSituation(), "forgetSituation fails");
    }

private:
    static void checkOutcome(const Outcome& outcome)
    {
        if (outcome.code == 0) {
            zmu_fuzz::check(outcome.kind == 1 || outcome.kind == 2, "a learned spec with a kind other than 1 or 2");
            zmu_fuzz::check(outcome.source >= 0 && outcome.source <= 2, "a learned spec with a bad argument source");
            zmu_fuzz::check(outcome.plugInsQty >= 0 && outcome.plugInsQty <= kPlugInsQty, "too many plug-ins");
            const std::set<int> named(outcome.plugIns.begin(), outcome.plugIns.begin() + outcome.plugInsQty);
            zmu_fuzz::check(named.size() == static_cast<std::size_t>(outcome.plugInsQty), "a plug-in named twice");
            for (int plugIn : named)
                zmu_fuzz::check(plugIn >= 0 && plugIn < kPlugInsQty, "a plug-in outside the table");
            return;
        }
        // A failure of formatting leaves the other description standing; any other failure clears all.
        const bool formatting = outcome.code == 48 || outcome.code == 50 || outcome.code == 51 || outcome.code == 53
                                || outcome.code == 54;
        if (!formatting)
            zmu_fuzz::check(outcome.header.empty() && outcome.display.empty() && outcome.log.empty(),
                            "a failed spec left text behind");
        if (outcome.code >= 245 && outcome.code <= 250)
            zmu_fuzz::check(outcome.plugInsQty == 0 && outcome.plugIns == std::vector<int>(kPlugInsQty, -1),
                            "a failed plug-in list left indices behind");
    }

    ZarnData m_dataSet;
    SpecEngine m_engine;
    u64 m_slots[kCursorSlots] = {};
    char* m_cursor = nullptr;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    zmu_fuzz::quietEnvironment();
    specServer();
    zmu_fuzz::TextPool::get();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::wstring spec = zmu_fuzz::wideFromBytes(data, size);
    specServer().serve(kSituation, spec.c_str());

    SpecRig rig;
    const Outcome first = rig.learn();
    rig.forget();
    const Outcome second = rig.learn();
    if (std::getenv("ZMU_FUZZ_VERBOSE") != nullptr) // for reading what a saved input does
        std::fprintf(stderr, "code %d\nheader [%ls]\ndisplay [%ls]\nlog [%ls]\n", first.code, first.header.c_str(),
                     first.display.c_str(), first.log.c_str());
    zmu_fuzz::check(first == second, "the same spec learned twice differs");
    return 0;
}
