#include "localize/ZRLoadStringW.h"

#include "platform/LastError.h"
#include "platform/WinTypes.h"

#include <QObject>
#include <QString>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace {

// One row of the table: the texts are UTF-8, handed out as wide text.
struct ZarnBuiltInString
{
    unsigned int id;
    const char* text;
};

// Sorted by id, each id once (checked below): the look-up is a binary search.
constexpr ZarnBuiltInString kBuiltInStrings[] = {
    // Links to code references; each format uses its one number twice.
    {10001, "<a href=\"Codes/WBT.html#%lu\">WBT%lu</a>"},
    {10002, "<a href=\"Codes/WDB.html#%d\">WDB%d</a>"},
    {10003, "<a href=\"Codes/WLE.html#%lu\">WLE%lu</a>"},
    {10004, "<a href=\"Codes/WSE.html#%lu\">WSE%lu</a>"},
    {10005, "<a href=\"Codes/WSW.html#%d\">WSW%d</a>"},

    // The series note (a response spec of its own), plain words and names.
    {10006, "1~-1~2~u`s~||``This log file is #%1!u! in a series that began with %2!s!.`"},
    {10007, "Unknown"},
    {10008, "Log"},
    {10009, "bpw_template.html"},
    {10010, "aps_template.html"},
    {10011, "Templates/"},

    // The built-in log form, and the note that replaces a report dropped for lack of memory.
    // 10031 to 10033, the text log's form, are deliberately absent: only a resource module has them.
    {10021, "<!-- SituationID=[SITUATION_ID] -->[YEAR]-[MONTH]-[DAY] [HOURS]:[MINUTES]:[SECONDS].[MILLISECONDS] [SITUATION_DSCRP]<br>\n"},
    {10022, "<html><body>\n<!-- ProductVersion=[PRODUCT_VERSION] FileVersion=[FILE_VERSION] -->[YEAR]-[MONTH]-[DAY] [HOURS]:[MINUTES]:[SECONDS].[MILLISECONDS] The log template file is inaccessible, corrupt, or perhaps too large to format; will use default layout instead.<br>\n"},
    {10023, "</body><html>\n"}, // deliberately "<html>", not "</html>"
    {10034, "<tr><td><font size=\"-1\">We're sorry, but this information was discarded to overcome a memory limitation.</font></td></tr>"},

    // Section keywords of a log form.
    {11001, "BODY"},
    {11002, "HEAD"},
    {11003, "INJECT_SYS_INFO"},
    {11004, "TAIL"},

    // Form variable names; their order is the order of the form variables.
    {12001, "COMPANY_KNOW_BASE"},
    {12002, "COMPANY_NAME_LONG"},
    {12003, "COMPANY_NAME_SHORT"},
    {12004, "COMPANY_WEBSITE"},
    {12005, "DAY"},
    {12006, "ENTRY_COLOR"},
    {12007, "ENTRY_ID"},
    {12008, "FILE_VERSION"},
    {12009, "HOME_DIRECTORY"},
    {12010, "HOURS"},
    {12011, "LOGFILE_NAME"},
    {12012, "MILLISECONDS"},
    {12013, "MINUTES"},
    {12014, "MODULE_FILE_NAME"},
    {12015, "MODULE_NAME"},
    {12016, "MONTH"},
    {12017, "NAME_OF_DOMAIN"},
    {12018, "NAME_OF_HOST"},
    {12019, "NAME_OF_SESSION"},
    {12020, "NAME_OF_USER"},
    {12021, "PROCESS_ID"},
    {12022, "PRODUCT_NAME"},
    {12023, "PRODUCT_VERSION"},
    {12024, "SECONDS"},
    {12025, "SITUATION_DSCRP"},
    {12026, "SITUATION_ID"},
    {12027, "SUITE_NAME"},
    {12028, "SYS_INFO_ENV_APP"},
    {12029, "SYS_INFO_ENV_OP"},
    {12030, "SYS_INFO_VARS_ENV"},
    {12031, "YEAR"},

    // Error dialog texts, and the keys of a version resource's string table.
    {13001, "%ls Error"},
    {13002, "Internal Error %ls.%0*d"},
    {13003, "CompanyName"},
    {13004, "FileDescription"},
    {13005, "FileVersion"},
    {13006, "InternalName"},
    {13007, "LegalCopyright"},
    {13008, "LegalTrademarks"},
    {13009, "OriginalFilename"},
    {13010, "ProductName"},
    {13011, "ProductVersion"},

    // Words and number formats for reports. 14015 is empty; 14006 is one blank.
    {14001, "Yes"},
    {14002, "No"},
    {14003, "***"},
    {14004, "~"},
    {14005, "="},
    {14006, " "},
    {14007, "..."},
    {14008, "0x%0*X"},
    {14009, "0x%04X"},
    {14010, "None"},
    {14011, "%ls bytes"},
    {14012, "%ls KB"},
    {14013, "%ls MB"},
    {14014, "%ls GB"},
    {14015, ""},
    {14016, "Unavailable"},
    {14017, "Unknown"},
    {14018, "Unknown (%lu)"},
    {14019, "Not loaded"},

    // Fragments of the HTML report. In 14201 and 14202 the backslashes belong to the text.
    {14201, R"(<a href=\"file://%ls\">%ls</a>)"},
    {14202, R"(<a href=\"file://\"></a>)"},
    {14203, "<br>"},
    {14204, "%ls%ls%ls\r\n%ls%ls%ls\r\n"},
    {14205, "%ls%.*ls%ls\r\n%ls%ls%ls\r\n"},
    {14206, "%ls%ls%ls\r\n"},

    // Captions of the application environment.
    {15201, "Application Environment"},
    {15202, "%m/%d/%y"},

    // Captions and values of the operating environment. 15402 is one blank; 15435 to 15444 are unused.
    {15401, "Operating Environment"},
    {15402, " "},
    {15403, "WinSta0"},
    {15404, "USERDOMAIN"},
    {15405, "Maximum # of Desktops"},
    {15406, "Non-Interactive Heap Size"},
    {15407, "Per Desktop Heap Size"},
    {15408, "System Wide Max Heap Size"},
    {15409, "System Directory"},
    {15410, "TEMP Directory"},
    {15411, "Windows Directory"},
    {15412, "Available Space on Drive %ls"},
    {15413, "%ls Partition Type"},
    {15414, "Computer Name"},
    {15415, "Domain"},
    {15416, "Maximum Pagefile Size"},
    {15417, "Available Space in Pagefile"},
    {15418, "Available Physical Memory"},
    {15419, "Total Physical Memory"},
    {15420, "Platform"},
    {15421, "Platform Build Number"},
    {15422, "Platform Information"},
    {15423, "Platform Version"},
    {15424, "Number of Processors"},
    {15425, "Floating Point Hardware"},
    {15426, "Processor Information"},
    {15427, "MMX Support"},
    {15428, "OverDrive Processor"},
    {15429, "System Language ID"},
    {15430, "Unknown Consumer Windows"},
    {15431, "Windows"},
    {15432, "Windows XP"},
    {15433, "Windows Server 2003"},
    {15434, "Windows Server 2003 R2"},
    {15445, "Windows Vista"},
    {15446, "Windows Server 2008"},
    {15447, "Windows Server 2008 R2"},
    {15448, "Windows 7"},
    {15449, "Windows XP Professional x64 Edition"},
    {15450, "Linux"},

    // Caption of the environment variables.
    {15601, "Environment Variables"},
};

constexpr bool isSortedById()
{
    for (std::size_t i = 1; i < std::size(kBuiltInStrings); ++i) {
        if (kBuiltInStrings[i - 1].id >= kBuiltInStrings[i].id)
            return false;
    }
    return true;
}
static_assert(isSortedById(), "the built-in strings must be sorted by id, each id once");
static_assert(std::size(kBuiltInStrings) == 129, "the built-in string table has 129 rows");

const ZarnBuiltInString* findBuiltInString(unsigned int id)
{
    const auto end = std::end(kBuiltInStrings);
    const auto row = std::lower_bound(std::begin(kBuiltInStrings), end, id,
                                      [](const ZarnBuiltInString& entry, unsigned int key) { return entry.id < key; });
    return row != end && row->id == id ? row : nullptr;
}

// The length in UTF-16 units of the first `characterQty` wide characters of `text`. A wide
// character here holds a whole code point, so a surrogate pair counts once and is never split.
int learnCutLength(const QString& text, int characterQty)
{
    int units = 0;
    for (int characters = 0; characters < characterQty && units < text.size(); ++characters) {
        const bool pair = text.at(units).isHighSurrogate() && units + 1 < text.size() && text.at(units + 1).isLowSurrogate();
        units += pair ? 2 : 1;
    }
    return units;
}

} // namespace

extern "C" int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    // No codec set-up here: Qt 5 always reads C strings and tr() source texts as UTF-8, which is
    // what making the "UTF-8" codec the codec for C strings and for tr did under Qt 4. The locale
    // codec is the host's and is left alone.
    if (buffer == nullptr || bufferMax < 1) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const ZarnBuiltInString* row = findBuiltInString(id);
    if (row == nullptr) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }

    try {
        QString text = QObject::tr(row->text, nullptr);
        text.truncate(learnCutLength(text, bufferMax - 1));
        // toWCharArray writes at most text.size() wide characters, so no more than bufferMax - 1.
        const int count = text.toWCharArray(buffer);
        buffer[count] = L'\0';
        SetLastError(ERROR_SUCCESS);
        return count;
    } catch (...) {
        // Only the conversion's allocation can throw; nothing has been written to the buffer then.
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
}
