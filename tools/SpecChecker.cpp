#include "tools/SpecChecker.h"

#include "foundation/IntegerWidths.h"
#include "monitor/ZarnData.h"
#include "monitor/ZarnDataForThread.h"
#include "platform/Modules.h"
#include "platform/Utf8Text.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cwctype>
#include <deque>
#include <iterator>

namespace {

constexpr unsigned int kLastStringID = 65535;
// The spec is loaded as the engine loads it: at most what its work buffer holds.
constexpr int kSpecCharacters = ZarnScratchpad::kCharacters;
constexpr int kHeadCharacters = 64; // enough to see how a text starts
constexpr const wchar_t* kSampleText = L"sample";
// Insert 99 with two stars reads slot 100 at most.
constexpr int kInsertSlotsQty = 101;
constexpr const char* kStringModuleFile = "libzmu_speccheck_strings.so";

using ServeRows = void (*)(const unsigned int*, const wchar_t* const*, const unsigned long*, std::size_t);

struct DxCodeText
{
    int code;
    const char* text;
};

// Every code that fetching, parsing and formatting a response spec can leave, in the parsers' terms.
const DxCodeText kDxCodeTexts[] = {
    {3, "describing the situation failed unexpectedly"},
    {11, "the display description parser failed unexpectedly"},
    {12, "a dialog spec number is too large, or the dialog spec parser failed"},
    {13, "the dialog spec has more than three records (`)"},
    {14, "the dialog spec has a record past the third"},
    {15, "the third dialog spec record (spec A) does not start with a digit"},
    {17, "the second dialog spec record (spec B) does not start with a digit"},
    {19, "the dialog style record (the first) does not start with a digit"},
    {22, "the display description has a group past the second"},
    {23, "the display description has no message format"},
    {24, "the display description is neither & nor a dialog spec and a message format joined by one ~"},
    {25, "the log description parser failed unexpectedly"},
    {27, "the log description has a group past the first"},
    {28, "the log description is not exactly one group"},
    {29, "the log description is not one group: it holds a ~"},
    {30, "the affix parser failed unexpectedly"},
    {31, "an affix has no room left in its target"},
    {32, "an affix number does not start with a digit"},
    {33, "an affix number is not below the data set's affix quantity (--affix-qty)"},
    {34, "an affix string is missing or empty in the resource module (--affix-min)"},
    {35, "the message format parser failed unexpectedly"},
    {36, "the message format names no known target"},
    {37, "the message text with its affixes is too long for its buffer"},
    {38, "the line width does not start with a digit"},
    {39, "the line width is above 255"},
    {40, "the message format has a record past the fourth"},
    {41, "the message format does not have 3 or 4 records (`)"},
    {48, "formatting the display text failed unexpectedly"},
    {50, "the display text cannot be formatted: a bad insert, or nothing comes of it"},
    {51, "formatting the log text failed unexpectedly"},
    {53, "the log text cannot be formatted: a bad insert, or nothing comes of it"},
    {54, "formatting the descriptions failed unexpectedly"},
    {55, "formatting a log hyperlink failed unexpectedly"},
    {56, "the data set's lock could not be entered for a log hyperlink"},
    {57, "the data set's lock could not be left after a log hyperlink"},
    {58, "the log hyperlink string could not be printed"},
    {59, "the log hyperlink string is missing from the library's own module"},
    {113, "learning the response failed unexpectedly"},
    {231, "the library's own resource module is unknown"},
    {233, "the header parser failed unexpectedly"},
    {234, "the response traits (group 1) have no digit or minus sign, or pass 64 bits"},
    {235, "the header is empty"},
    {236, "the filler parser failed unexpectedly, or the data set has no fillers"},
    {237, "the fillers come from the argument cursor, and the caller gave no arguments"},
    {238, "there are more filler records than the data set's fillers quantity (--fillers)"},
    {239, "a filler of a recorded argument has no slot number, as in u0"},
    {240, "a filler's slot is not below the data set's quantity of its kind (--args)"},
    {241, "a filler record is not d, s or u (with its slot for recorded arguments)"},
    {242, "the argument source (group 2) is not 0, 1 or 2, or source 0 names fillers"},
    {243, "the header has a group past the fifth"},
    {244, "the header does not have 2 to 5 groups (~)"},
    {245, "a plug-in ID is named twice"},
    {246, "a plug-in record has no digit"},
    {247, "a plug-in ID is not below the data set's plug-in quantity (--plug-ins)"},
    {248, "the plug-in ID parser failed unexpectedly"},
    {249, "there are more plug-in records than the data set has plug-ins (--plug-ins)"},
    {250, "plug-in IDs are named, and the data set has no plug-ins (--plug-ins)"},
    {251, "the approval kind (group 0) has no digit"},
    {252, "the approval kind (group 0) is not 1 or 2"},
    {253, "learning the response spec failed unexpectedly"},
    {254, "obtaining the response spec failed unexpectedly"},
    {255, "the response spec cannot be loaded from the resource module"},
    {256, "the response spec is too long for the work buffer"},
    {257, "the response spec has a field past the third"},
    {258, "the display description is longer than 511 characters"},
    {259, "the header is empty or longer than 255 characters"},
    {260, "the log description is empty or longer than 1023 characters"},
    {261, "the response spec does not have exactly three fields (two |)"},
    {265, "the engine has no data set"},
};

bool isDigit(wchar_t character)
{
    return character >= L'0' && character <= L'9';
}

std::wstring widen(const std::string& text)
{
    return zmu_platform::widenUtf8(text.c_str(), text.size());
}

// Splits at every `separator`: two in a row give an empty piece, as the engine's tokeniser does.
std::vector<std::wstring> splitAt(const std::wstring& text, wchar_t separator)
{
    std::vector<std::wstring> pieces;
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = text.find(separator, start);
        pieces.push_back(text.substr(start, at == std::wstring::npos ? std::wstring::npos : at - start));
        if (at == std::wstring::npos)
            return pieces;
        start = at + 1;
    }
}

// The fillers a spec's header names, read the way the header parser reads them. Only consulted
// for a spec the library took, so a record is well formed when it is used.
struct FillerPlan
{
    struct Filler
    {
        wchar_t letter = L'\0'; // d, s, u, or 0 for anything else
        int slot = -1;          // the recorded argument's slot, with argument source 1
    };
    int argSource = 0;
    std::vector<Filler> fillers;

    bool isText(std::size_t filler) const { return fillers[filler].letter == L's'; }
};

FillerPlan learnFillerPlan(const std::wstring& spec)
{
    FillerPlan plan;
    const std::vector<std::wstring> groups = splitAt(spec.substr(0, spec.find(L'|')), L'~');
    if (groups.size() > 2) {
        const std::size_t digits = groups[2].find_first_of(L"0123456789");
        if (digits != std::wstring::npos)
            plan.argSource = static_cast<int>(std::wcstol(groups[2].c_str() + digits, nullptr, 10));
    }
    if (groups.size() < 4)
        return plan;
    std::size_t first = 0;
    while (first < groups[3].size() && std::iswspace(static_cast<wint_t>(groups[3][first])))
        ++first;
    if (first == groups[3].size())
        return plan;
    for (const std::wstring& record : splitAt(groups[3].substr(first), L'`')) {
        FillerPlan::Filler filler;
        std::wstring letter = record;
        if (plan.argSource == 1) {
            const std::size_t digits = record.find_first_of(L"0123456789");
            letter = record.substr(0, digits);
            if (digits != std::wstring::npos)
                filler.slot = static_cast<int>(std::wcstol(record.c_str() + digits, nullptr, 10));
        }
        if (letter == L"d" || letter == L"s" || letter == L"u")
            filler.letter = letter[0];
        plan.fillers.push_back(filler);
    }
    return plan;
}

// One insert of a message template: the filler slot that holds its value (after the slots that
// its stars take), and whether the formatter reads that value as the address of a text.
struct InsertUse
{
    int number;
    std::size_t valueSlot;
    bool readsText;
};

// The inserts of a template, in the order the formatter meets them. It stops where the formatter
// stops: at %0, and at a format without its closing !, which the formatter refuses.
std::vector<InsertUse> learnInsertUses(const wchar_t* text)
{
    std::vector<InsertUse> uses;
    for (const wchar_t* at = text; *at != L'\0'; ++at) {
        if (*at != L'%')
            continue;
        const wchar_t escaped = at[1];
        if (escaped == L'\0' || escaped == L'0')
            break;
        ++at;
        if (escaped < L'1' || escaped > L'9')
            continue;
        int number = escaped - L'0';
        if (isDigit(at[1]))
            number = number * 10 + (*++at - L'0');
        std::size_t stars = 0;
        bool readsText = true; // an insert without a format is a text
        if (at[1] == L'!') {
            const wchar_t* const formatEnd = std::wcschr(at + 2, L'!');
            if (formatEnd == nullptr)
                break;
            const std::wstring format(at + 2, formatEnd);
            for (wchar_t character : format)
                stars += character == L'*' ? 1 : 0;
            readsText = !format.empty() && (format.back() == L's' || format.back() == L'S');
            at = formatEnd;
        }
        uses.push_back({number, static_cast<std::size_t>(number - 1) + stars, readsText});
    }
    return uses;
}

// What is wrong with the inserts of a template for these fillers, or nothing. Such a spec passes
// the parsers, but formatting it would read a number as a text's address, or past the fillers.
std::string learnInsertFinding(const wchar_t* text, const FillerPlan& plan, int fillersQty)
{
    for (const InsertUse& use : learnInsertUses(text)) {
        const std::string insert = "insert %" + std::to_string(use.number);
        if (use.valueSlot >= static_cast<std::size_t>(fillersQty))
            return insert + " reads past the data set's " + std::to_string(fillersQty) + " fillers";
        if (use.valueSlot >= plan.fillers.size())
            return insert + " has no filler in the header";
        // A star takes a width or precision from the slot before the value's.
        for (std::size_t star = static_cast<std::size_t>(use.number - 1); star < use.valueSlot; ++star) {
            if (plan.isText(star))
                return insert + " takes a width from filler " + std::to_string(star + 1) + ", which is a text";
        }
        const std::string filler = "filler " + std::to_string(use.valueSlot + 1);
        if (use.readsText && !plan.isText(use.valueSlot))
            return insert + " formats a text, but " + filler + " is a number";
        if (!use.readsText && plan.isText(use.valueSlot))
            return insert + " formats a number, but " + filler + " is a text";
    }
    return std::string();
}

// The display function of a checked data set: it records what it is shown, on this thread.
thread_local SpecCheckResult* t_shownTo = nullptr;

int recordDisplay(HWND, const wchar_t* text, const wchar_t*, unsigned int type)
{
    if (t_shownTo != nullptr) {
        t_shownTo->displayShown = true;
        t_shownTo->displayText = text != nullptr ? text : L"";
        t_shownTo->displayStyle = type;
    }
    return 1; // the dialog's OK
}

// The library's engine, with the stages that would touch the outside replaced: the log text is
// kept rather than written, and the templates are looked over before they are formatted.
class CheckEngine : public ZarnDataForThread
{
public:
    CheckEngine(const FillerPlan& plan, int fillersQty, SpecCheckResult& result)
        : m_plan(plan), m_fillersQty(fillersQty), m_result(result)
    {
    }

    bool formatDescriptions() override
    {
        if (!m_descriptionDisplayIsDupe)
            m_result.finding = learnInsertFinding(m_descriptionForDisplay, m_plan, m_fillersQty);
        if (m_result.finding.empty())
            m_result.finding = learnInsertFinding(m_descriptionForLogFile, m_plan, m_fillersQty);
        if (m_result.finding.empty())
            return ZarnDataForThread::formatDescriptions();

        // The formatter would follow a number as a text's address, or read past the fillers. It
        // still runs, so that a code of its own comes first, but on zeros that it reads safely:
        // every slot an insert can name, with a null for every text.
        u64 zeros[kInsertSlotsQty] = {};
        u64* const fillers = m_descriptionFillers;
        m_descriptionFillers = zeros;
        const bool formatted = ZarnDataForThread::formatDescriptions();
        m_descriptionFillers = fillers;
        return formatted;
    }

    bool reportDescriptionToLogFileDirectly() override
    {
        m_result.logText = m_descriptionForLogFile;
        return isSelfSatisfied();
    }

private:
    const FillerPlan& m_plan;
    const int m_fillersQty;
    SpecCheckResult& m_result;
};

// A number for a d (signed) or u (unsigned) filler: decimal, within 32 bits.
bool readArgumentNumber(const std::string& text, wchar_t letter, u64& value)
{
    if (text.empty() || std::iswspace(static_cast<wint_t>(static_cast<unsigned char>(text[0]))))
        return false;
    errno = 0;
    char* end = nullptr;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || *end != '\0')
        return false;
    if (letter == L'd' && (number < INT32_MIN || number > INT32_MAX))
        return false;
    if (letter == L'u' && (number < 0 || number > static_cast<long long>(UINT32_MAX)))
        return false;
    value = letter == L'd' ? static_cast<u64>(static_cast<i64>(number)) : static_cast<u64>(number);
    return true;
}

std::string programDirectory()
{
    wchar_t path[1024] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
    if (length == 0 || length >= std::size(path))
        return std::string();
    const std::string program = zmu_platform::narrowToUtf8(path, length);
    const std::size_t slash = program.rfind('/');
    return slash == std::string::npos ? std::string() : program.substr(0, slash + 1);
}

// The checker's string module: beside the program, where an installation puts it, or where the
// build made it.
HMODULE loadStringModule()
{
    std::vector<std::string> candidates;
    const std::string directory = programDirectory();
    if (!directory.empty()) {
        candidates.push_back(directory + kStringModuleFile);
#ifdef ZMU_SPECCHECK_STRINGS_INSTALLED
        candidates.push_back(directory + ZMU_SPECCHECK_STRINGS_INSTALLED);
#endif
    }
#ifdef ZMU_SPECCHECK_STRINGS_MODULE
    candidates.push_back(ZMU_SPECCHECK_STRINGS_MODULE);
#endif
    for (const std::string& candidate : candidates) {
        if (HMODULE module = LoadLibraryW(widen(candidate).c_str()))
            return module;
    }
    return nullptr;
}

} // namespace

SpecChecker::SpecChecker(const SpecCheckSettings& settings) : m_settings(settings) {}

SpecChecker::~SpecChecker()
{
    if (m_module == nullptr)
        return;
    if (m_isScript) {
        if (auto serve = reinterpret_cast<ServeRows>(GetProcAddress(m_module, "zmuSpecCheckServeRows")))
            serve(nullptr, nullptr, nullptr, 0);
    }
    FreeLibrary(m_module);
}

bool SpecChecker::isValid(const SpecCheckSettings& settings, std::string& error)
{
    ZarnData dataSet;
    if (!dataSet.setDescriptionFillersQty(settings.descriptionFillersQty))
        error = "the fillers quantity must be 5 to 99";
    else if (!dataSet.setArgsIntQty(settings.argsQty))
        error = "the argument slots must be 0 to 99";
    else if (settings.plugInsQty < 0)
        error = "the plug-in quantity must not be negative";
    else if (settings.descriptionAffixID_Min != 0 && !dataSet.setDescriptionAffixID_Min(settings.descriptionAffixID_Min))
        error = "the first affix id must be 1 to 32767";
    else if (settings.descriptionAffixIDsQty < 0 || !dataSet.setDescriptionAffixIDsQty(settings.descriptionAffixIDsQty))
        error = "the affix quantity must be 0 to 32767";
    else
        return true;
    return false;
}

bool SpecChecker::openModule(const std::string& name, std::string& error)
{
    m_module = LoadLibraryW(widen(name).c_str());
    if (m_module == nullptr) {
        error = "cannot load the module " + name;
        return false;
    }
    if (GetProcAddress(m_module, "ZRLoadStringW") == nullptr) {
        error = name + " holds no strings: it exports no ZRLoadStringW";
        FreeLibrary(m_module);
        m_module = nullptr;
        return false;
    }
    return true;
}

bool SpecChecker::openScript(const std::string& path, std::string& error)
{
    if (!m_script.load(path)) {
        error = m_script.errorMessage(path);
        return false;
    }
    m_isScript = true;
    return serveScriptRows(error);
}

bool SpecChecker::serveScriptRows(std::string& error)
{
    m_module = loadStringModule();
    const auto serve =
        m_module != nullptr ? reinterpret_cast<ServeRows>(GetProcAddress(m_module, "zmuSpecCheckServeRows")) : nullptr;
    if (serve == nullptr) {
        error = std::string("cannot load the checker's string module ") + kStringModuleFile;
        return false;
    }
    for (const StringTableRow& row : m_script.rows()) {
        m_servedIDs.push_back(row.id);
        m_servedTexts.push_back(row.text.c_str());
        m_servedLengths.push_back(static_cast<unsigned long>(row.text.size()));
    }
    serve(m_servedIDs.data(), m_servedTexts.data(), m_servedLengths.data(), m_servedIDs.size());
    return true;
}

std::vector<unsigned int> SpecChecker::learnSpecIDs(const SpecIdRanges& ranges) const
{
    const auto isWanted = [&ranges](unsigned int id) {
        if (ranges.empty())
            return true;
        for (const auto& range : ranges) {
            if (id >= range.first && id <= range.second)
                return true;
        }
        return false;
    };
    std::vector<unsigned int> ids;
    if (m_isScript) {
        for (const StringTableRow& row : m_script.rows()) {
            if (isWanted(row.id) && looksLikeResponseSpec(row.text.c_str()))
                ids.push_back(row.id);
        }
        return ids;
    }
    if (m_module == nullptr)
        return ids;
    wchar_t head[kHeadCharacters];
    for (unsigned int id = 0; id <= kLastStringID; ++id) {
        if (isWanted(id) && LoadStringW(m_module, id, head, kHeadCharacters) > 0 && looksLikeResponseSpec(head))
            ids.push_back(id);
    }
    return ids;
}

SpecCheckResult SpecChecker::checkSpec(unsigned int id, const std::vector<std::string>& args) const
{
    SpecCheckResult result;
    result.id = id;

    std::wstring spec(kSpecCharacters, L'\0');
    spec.resize(static_cast<std::size_t>(LoadStringW(m_module, id, &spec[0], kSpecCharacters)));
    const FillerPlan plan = learnFillerPlan(spec);

    // The arguments: a cursor of 8-byte slots for source 2, the recorded slots for source 1. Every
    // slot holds a sample unless an argument is given for it.
    const int fillersQty = m_settings.descriptionFillersQty;
    std::vector<u64> cursorSlots(std::max(plan.fillers.size(), static_cast<std::size_t>(fillersQty)), 0);
    std::deque<std::wstring> texts; // stable addresses for the string fillers
    for (std::size_t filler = 0; filler < plan.fillers.size(); ++filler) {
        if (plan.isText(filler))
            cursorSlots[filler] = static_cast<u64>(reinterpret_cast<std::uintptr_t>(kSampleText));
    }
    std::vector<int> recordedInt(static_cast<std::size_t>(m_settings.argsQty), 0);
    std::vector<unsigned int> recordedUInt(recordedInt.size(), 0);
    std::vector<const wchar_t*> recordedStr(recordedInt.size(), kSampleText);

    if (args.size() > plan.fillers.size()) {
        result.argumentError = std::to_string(args.size()) + " arguments given, and spec " + std::to_string(id)
                               + " names " + std::to_string(plan.fillers.size()) + " fillers";
        return result;
    }
    for (std::size_t filler = 0; filler < args.size(); ++filler) {
        const FillerPlan::Filler& named = plan.fillers[filler];
        if (named.letter == L'\0')
            continue; // a record the parser refuses: the spec fails whatever is given
        u64 value = 0;
        if (named.letter == L's') {
            texts.push_back(widen(args[filler]));
            value = static_cast<u64>(reinterpret_cast<std::uintptr_t>(texts.back().c_str()));
        } else if (!readArgumentNumber(args[filler], named.letter, value)) {
            result.argumentError = "argument " + std::to_string(filler + 1) + " (\"" + args[filler] + "\") is no "
                                   + (named.letter == L'd' ? "signed" : "unsigned") + " 32-bit number";
            return result;
        }
        cursorSlots[filler] = value;
        const std::size_t slot = static_cast<std::size_t>(named.slot);
        if (plan.argSource == 1 && named.slot >= 0 && slot < recordedInt.size()) {
            if (named.letter == L'd')
                recordedInt[slot] = static_cast<int>(static_cast<i64>(value));
            else if (named.letter == L'u')
                recordedUInt[slot] = static_cast<unsigned int>(value);
            else
                recordedStr[slot] = texts.back().c_str();
        }
    }

    ZarnData dataSet;
    dataSet.setCharSetExternal(2);
    dataSet.setDescriptionFillersQty(fillersQty);
    dataSet.setArgsIntQty(m_settings.argsQty);
    dataSet.setArgsStrQty(m_settings.argsQty);
    dataSet.setArgsUIntQty(m_settings.argsQty);
    if (m_settings.descriptionAffixID_Min != 0)
        dataSet.setDescriptionAffixID_Min(m_settings.descriptionAffixID_Min);
    dataSet.setDescriptionAffixIDsQty(m_settings.descriptionAffixIDsQty);
    if (m_settings.plugInsQty > 0)
        dataSet.createPlugIns(m_settings.plugInsQty);
    dataSet.setResourceModule(m_module);
    dataSet.setDisplayDlgBoxFunction(&recordDisplay);

    CheckEngine engine(plan, fillersQty, result);
    if (!engine.initialize(&dataSet)) {
        result.dxCode = engine.getSelfDX_Code();
        return result;
    }
    engine.recordSituationID(static_cast<int>(id));
    for (std::size_t slot = 0; slot < recordedInt.size(); ++slot) {
        engine.recordArgument(recordedInt[slot], static_cast<int>(slot));
        engine.recordArgument(recordedUInt[slot], static_cast<int>(slot));
        engine.recordArgument(recordedStr[slot], static_cast<int>(slot));
    }
    char* cursor = reinterpret_cast<char*>(cursorSlots.data());
    engine.setDescriptionArgV(&cursor);

    t_shownTo = &result;
    engine.describeSituation();
    t_shownTo = nullptr;
    result.dxCode = engine.getSelfDX_Code();
    if (!result.passed()) {
        result.displayShown = false;
        result.displayStyle = 0;
        result.displayText.clear();
        result.logText.clear();
    }
    return result;
}

bool SpecChecker::looksLikeResponseSpec(const wchar_t* text)
{
    if (text == nullptr || !isDigit(*text))
        return false;
    while (isDigit(*text))
        ++text;
    return *text == L'~';
}

const char* SpecChecker::explainDxCode(int code)
{
    for (const DxCodeText& row : kDxCodeTexts) {
        if (row.code == code)
            return row.text;
    }
    return nullptr;
}

bool SpecChecker::parseIdRanges(const std::string& text, SpecIdRanges& ranges)
{
    ranges.clear();
    const auto readID = [](const std::string& digits, unsigned int& id) {
        if (digits.empty() || digits.size() > 5 || digits.find_first_not_of("0123456789") != std::string::npos)
            return false;
        const unsigned long value = std::strtoul(digits.c_str(), nullptr, 10);
        id = static_cast<unsigned int>(value);
        return value <= kLastStringID;
    };
    std::size_t start = 0;
    for (;;) {
        const std::size_t comma = text.find(',', start);
        const std::string item = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        const std::size_t dash = item.find('-');
        unsigned int first = 0;
        unsigned int last = 0;
        if (!readID(item.substr(0, dash), first)
            || !readID(dash == std::string::npos ? item : item.substr(dash + 1), last) || last < first) {
            ranges.clear();
            return false;
        }
        ranges.emplace_back(first, last);
        if (comma == std::string::npos)
            return true;
        start = comma + 1;
    }
}
