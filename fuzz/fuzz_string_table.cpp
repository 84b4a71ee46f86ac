// String-table scripts from fuzz bytes: read by the reader that the string-module tool and the
// spec checker share, and, when the script is good, turned into the source of a resource module.
//
// A good script gives rows sorted by id within the ids a module can hold, each found again by its
// id, and a module source whose rows a compiler reads back as the same ids and texts; a bad one
// gives no rows and a line to blame. Reading the same script again gives the same.
#include "FuzzSupport.h"

#include "tools/StringTableScript.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void checkRead(const StringTableScript& table, bool good)
{
    if (!good) {
        zmu_fuzz::check(table.rows().empty(), "a bad script kept rows");
        zmu_fuzz::check(table.errorLine() >= 0, "a fault on a negative line");
        zmu_fuzz::check(!table.errorText().empty(), "a fault without a text");
        zmu_fuzz::check(!table.errorMessage("fuzz.rc").empty(), "a fault without a message");
        return;
    }
    const StringTableRow* previous = nullptr;
    for (const StringTableRow& row : table.rows()) {
        zmu_fuzz::check(row.id <= StringTableScript::kMaxStringID, "an id beyond what a module holds");
        zmu_fuzz::check(row.line >= 1, "a row without its line");
        zmu_fuzz::check(previous == nullptr || previous->id < row.id, "rows out of order, or an id twice");
        zmu_fuzz::check(row.text.size() <= StringTableScript::kMaxTextLength, "a text beyond the longest");
        const StringTableRow* const found = table.find(row.id);
        zmu_fuzz::check(found != nullptr && found->id == row.id, "a row not found by its id");
        previous = &row;
    }
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Reads back the adjacent wide literals at `at` as a compiler joins and decodes them: the simple
// escapes, and \x with every hex digit behind it. False for anything else.
bool readLiterals(const std::string& source, std::size_t& at, std::wstring& text)
{
    bool any = false;
    for (;;) {
        while (at < source.size() && source[at] == ' ')
            ++at;
        if (source.compare(at, 2, "L\"") != 0)
            return any;
        at += 2;
        any = true;
        while (at < source.size() && source[at] != '"') {
            const char c = source[at++];
            if (c != '\\') {
                text.push_back(static_cast<wchar_t>(c));
                continue;
            }
            if (at >= source.size())
                return false;
            const char escaped = source[at++];
            if (escaped == 'n' || escaped == 't') {
                text.push_back(escaped == 'n' ? L'\n' : L'\t');
            } else if (escaped == '\\' || escaped == '"' || escaped == '?') {
                text.push_back(static_cast<wchar_t>(escaped));
            } else if (escaped == 'x') {
                std::uint64_t value = 0;
                std::size_t digits = 0;
                for (; at < source.size() && hexDigit(source[at]) >= 0 && digits <= 8; ++at, ++digits)
                    value = value * 16 + static_cast<std::uint64_t>(hexDigit(source[at]));
                if (digits == 0 || digits > 8 || value > 0x10FFFF)
                    return false;
                text.push_back(static_cast<wchar_t>(value));
            } else {
                return false;
            }
        }
        if (at >= source.size())
            return false;
        ++at;
    }
}

// The rows of a module source, "    {id u, count, literals}, // line n", against the table's.
void checkModuleSource(const StringTableScript& table, const std::string& source)
{
    zmu_fuzz::check(std::all_of(source.begin(), source.end(), [](char c) { return (c & 0x80) == 0; }),
                    "a module source that is not plain ASCII");
    std::size_t at = source.find("const Row kRows[] = {\n");
    zmu_fuzz::check(at != std::string::npos, "a module source without its rows");
    at += std::strlen("const Row kRows[] = {\n");
    for (const StringTableRow& row : table.rows()) {
        const std::string head = "    {" + std::to_string(row.id) + "u, " + std::to_string(row.text.size()) + ", ";
        zmu_fuzz::check(source.compare(at, head.size(), head) == 0, "a row of the source with another id or count");
        at += head.size();
        std::wstring text;
        zmu_fuzz::check(readLiterals(source, at, text), "a literal a compiler would not read");
        zmu_fuzz::check(text == row.text, "a literal that reads back as another text");
        const std::string tail = "}, // line " + std::to_string(row.line) + "\n";
        zmu_fuzz::check(source.compare(at, tail.size(), tail) == 0, "a row of the source without its line");
        at += tail.size();
    }
    const std::string count = "const int kRowCount = " + std::to_string(table.rows().size()) + ";";
    zmu_fuzz::check(source.find(count, at) != std::string::npos, "a module source with another row count");
}

bool sameRows(const StringTableScript& left, const StringTableScript& right)
{
    if (left.rows().size() != right.rows().size())
        return false;
    for (std::size_t index = 0; index < left.rows().size(); ++index) {
        const StringTableRow& a = left.rows()[index];
        const StringTableRow& b = right.rows()[index];
        if (a.id != b.id || a.text != b.text || a.line != b.line)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string script(reinterpret_cast<const char*>(data), size);
    StringTableScript table;
    const bool good = table.parse(script);
    if (std::getenv("ZMU_FUZZ_VERBOSE") != nullptr) // for reading what a saved input does
        std::fprintf(stderr, "%zu rows; %s\n", table.rows().size(),
                     good ? "good" : table.errorMessage("input").c_str());
    checkRead(table, good);
    if (good)
        checkModuleSource(table, table.moduleSource());

    // The same reader again: a second parse drops what the first one read.
    const bool again = table.parse(script);
    StringTableScript fresh;
    fresh.parse(script);
    zmu_fuzz::check(again == good && sameRows(table, fresh), "the same script read twice differs");
    zmu_fuzz::check(table.errorLine() == fresh.errorLine() && table.errorText() == fresh.errorText(),
                    "the same fault told twice differs");
    return 0;
}
