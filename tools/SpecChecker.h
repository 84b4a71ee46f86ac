// Runs the response specs of a resource module or of a string-table script through the library's
// own parsers and formatter, one spec at a time, on an engine over a bare data set, and says for
// each whether the library accepts it, with the DX code it would hold if not.
//
// Nothing here creates a monitor: no log file is written and no dialog is shown. The display
// function of the data set records what it is given, and the log stage keeps the text instead
// of writing it.
#pragma once

#include "platform/WinTypes.h"
#include "tools/StringTableScript.h"

#include <string>
#include <utility>
#include <vector>

// The data set a spec is checked on. The defaults are those of the product's owner data set; the
// affix and plug-in numbers are the owner's own, and a bare data set has none.
struct SpecCheckSettings
{
    int descriptionFillersQty = 20; // 5 to 99
    int argsQty = 10;               // slots of each recorded kind, 0 to 99
    int plugInsQty = 0;
    int descriptionAffixID_Min = 0; // 0 leaves it unset
    int descriptionAffixIDsQty = 0;
};

// Inclusive ranges of string ids; an empty list stands for every id.
using SpecIdRanges = std::vector<std::pair<unsigned int, unsigned int>>;

struct SpecCheckResult
{
    unsigned int id = 0;
    // The engine's DX code; 0 when the library took the spec.
    int dxCode = 0;
    // What the checker found wrong with a spec the library took: an insert whose filler would be
    // read as the wrong kind, or is missing. Empty when there is nothing.
    std::string finding;
    // An argument given for rendering that does not fit its filler; the spec is then not run.
    std::string argumentError;

    // What the display function was given, and the log text, both formatted.
    bool displayShown = false;
    unsigned int displayStyle = 0;
    std::wstring displayText;
    std::wstring logText;

    bool passed() const { return dxCode == 0 && finding.empty() && argumentError.empty(); }
};

class SpecChecker
{
public:
    explicit SpecChecker(const SpecCheckSettings& settings = SpecCheckSettings());
    ~SpecChecker();
    SpecChecker(const SpecChecker&) = delete;
    SpecChecker& operator=(const SpecChecker&) = delete;

    // False with the reason if a setting is one the data set refuses.
    static bool isValid(const SpecCheckSettings& settings, std::string& error);

    // The input, opened once. A module by path or by name as LoadLibraryW takes it ("strings.dll");
    // it must serve strings. A script is served through the checker's own string module, so that
    // the library loads its specs and affixes as it would from a module built from it.
    bool openModule(const std::string& name, std::string& error);
    bool openScript(const std::string& path, std::string& error);

    // The ids, ascending, whose text begins like a response spec header, within `ranges`.
    std::vector<unsigned int> learnSpecIDs(const SpecIdRanges& ranges) const;

    // Runs spec `id` through the library. `args` are taken in filler order, a number for a d or
    // u filler and a text for an s filler; fillers without one get 0 or "sample".
    SpecCheckResult checkSpec(unsigned int id, const std::vector<std::string>& args = {}) const;

    // Digits and then ~: how a response spec header starts.
    static bool looksLikeResponseSpec(const wchar_t* text);
    // What a DX code of the spec parsers and the formatter means; null for any other code.
    static const char* explainDxCode(int code);
    // "3000-3999,4100": ids and ranges, each within 0 to 65535. False on anything else.
    static bool parseIdRanges(const std::string& text, SpecIdRanges& ranges);

private:
    bool serveScriptRows(std::string& error);

    SpecCheckSettings m_settings;
    HMODULE m_module = nullptr;
    StringTableScript m_script;
    bool m_isScript = false;
    // The script's rows as the string module serves them; they must live as long as the serving.
    std::vector<unsigned int> m_servedIDs;
    std::vector<const wchar_t*> m_servedTexts;
    std::vector<unsigned long> m_servedLengths;
};
