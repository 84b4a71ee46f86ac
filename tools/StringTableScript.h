// A string table written in the resource script form in which a product keeps its response specs:
//
//     STRINGTABLE
//     BEGIN
//         3001, "2~536870912~2~u|~0``Shown %1!u!|0``Logged %1!u!"
//         3002  L"text with \"quotes\", ""doubled"" quotes and \t escapes"
//     END
//
// The reader turns it into rows of string ids and wide texts, or stops at the first fault with the
// line it is on. The rows then become the C++ source of a resource module: a shared object that
// serves them through an exported ZRLoadStringW, as every resource module does.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct StringTableRow
{
    unsigned int id = 0;
    std::wstring text;
    int line = 0; // where the row starts in the script, from 1
};

class StringTableScript
{
public:
    // The largest string id a resource module can hold.
    static constexpr unsigned int kMaxStringID = 65535;
    // Our limit on one text, in characters: the longest string a Windows string table holds.
    static constexpr std::size_t kMaxTextLength = 4097;

    // Reads a script held in memory (UTF-8). True when the whole script is good; the rows are then
    // sorted by id. On a fault the rows read so far are dropped and errorLine/errorText say why.
    bool parse(const std::string& script);
    // Reads the script from a file; an unreadable file is a fault on line 0.
    bool load(const std::string& path);

    const std::vector<StringTableRow>& rows() const { return m_rows; }
    // The row with this id, or null.
    const StringTableRow* find(unsigned int id) const;

    int errorLine() const { return m_errorLine; }
    const std::string& errorText() const { return m_errorText; }
    // "name:line: text", the form compilers use, so editors can jump to the line.
    std::string errorMessage(const std::string& name) const;

    // The C++ source of a resource module serving these rows through ZRLoadStringW.
    std::string moduleSource() const;

private:
    std::vector<StringTableRow> m_rows;
    int m_errorLine = 0;
    std::string m_errorText;
};
