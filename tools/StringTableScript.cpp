// The reader of string-table scripts and the writer of resource module sources.
//
// What a script may hold: STRINGTABLE blocks (optional LANGUAGE, CHARACTERISTICS, VERSION and
// memory flags before BEGIN or `{`), `//` and `/* */` comments, and preprocessor lines. Of those
// only `#define NAME number` counts (and `#undef NAME`); the others are skipped unread, conditions
// included. A LANGUAGE statement may also stand alone between blocks, as resource editors write it.
// Anything else is a fault: a script that says more than we understand is not guessed at.
//
// The reader makes one pass without recursion, so its time is linear in the script's length.
#include "tools/StringTableScript.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unordered_map>

namespace {

struct ScriptFault
{
    int line;
    std::string text;
};

[[noreturn]] void fail(int line, std::string text)
{
    throw ScriptFault{line, std::move(text)};
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

int hexValue(char c)
{
    if (isDigit(c))
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool isNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isNameChar(char c)
{
    return isNameStart(c) || isDigit(c);
}

bool sameWord(const std::string& word, const char* keyword)
{
    std::size_t i = 0;
    for (; i < word.size() && keyword[i] != '\0'; ++i) {
        const char c = (word[i] >= 'a' && word[i] <= 'z') ? char(word[i] - 'a' + 'A') : word[i];
        if (c != keyword[i])
            return false;
    }
    return i == word.size() && keyword[i] == '\0';
}

// A piece of script quoted in a message: short, and with bytes outside printable ASCII as \xHH.
std::string quoted(const std::string& text, std::size_t from, std::size_t to)
{
    constexpr std::size_t kShown = 24;
    std::string out = "'";
    for (std::size_t i = from; i < to && i < from + kShown; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c < 0x7F) {
            out += char(c);
        } else {
            static const char kHex[] = "0123456789abcdef";
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    if (to > from + kShown)
        out += "...";
    return out + "'";
}

// Numbers saturate here, so that a long run of digits is still told as out of range.
constexpr std::int64_t kNumberCap = std::int64_t(1) << 40;

// A decimal or 0x number filling all of `word`; false when it is not one.
bool numberOf(const std::string& word, std::int64_t& value)
{
    std::size_t i = 0;
    const bool negative = !word.empty() && word[0] == '-';
    if (negative)
        ++i;
    const bool hex = word.size() > i + 1 && word[i] == '0' && (word[i + 1] == 'x' || word[i + 1] == 'X');
    const int base = hex ? 16 : 10;
    if (hex)
        i += 2;
    if (i == word.size())
        return false;
    value = 0;
    for (; i < word.size(); ++i) {
        const int digit = hexValue(word[i]);
        if (digit < 0 || digit >= base)
            return false;
        value = std::min(value * base + digit, kNumberCap);
    }
    if (negative)
        value = -value;
    return true;
}

// The word of `text` from `at` on, with `at` moved past it; empty after the last one.
std::string nextWord(const std::string& text, std::size_t& at)
{
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; };
    while (at < text.size() && blank(text[at]))
        ++at;
    const std::size_t start = at;
    while (at < text.size() && !blank(text[at]))
        ++at;
    return text.substr(start, at - start);
}

class ScriptReader
{
public:
    explicit ScriptReader(const std::string& script) : m_s(script)
    {
        if (m_s.compare(0, 3, "\xEF\xBB\xBF") == 0)
            m_pos = 3;
    }

    std::vector<StringTableRow> read()
    {
        for (skipBlanks(); !atEnd(); skipBlanks()) {
            const std::size_t start = m_pos;
            const std::string word = readName();
            if (sameWord(word, "STRINGTABLE"))
                readBlock();
            else if (sameWord(word, "LANGUAGE"))
                readStatement("LANGUAGE");
            else
                fail(m_line, "expected STRINGTABLE, found " + foundFrom(start));
        }
        return std::move(m_rows);
    }

private:
    const std::string& m_s;
    std::size_t m_pos = 0;
    int m_line = 1;
    // Whether a token stands before m_pos on the current line: a '#' then starts no directive.
    bool m_tokenOnLine = false;
    std::unordered_map<std::string, std::int64_t> m_symbols;
    std::unordered_map<unsigned int, int> m_firstLines;
    std::vector<StringTableRow> m_rows;

    bool atEnd() const { return m_pos >= m_s.size(); }
    char peek(std::size_t ahead = 0) const { return m_pos + ahead < m_s.size() ? m_s[m_pos + ahead] : '\0'; }
    bool atLineEnd() const { return atEnd() || peek() == '\n' || peek() == '\r'; }
    bool atString() const { return peek() == '"' || (peek() == 'L' && peek(1) == '"'); }

    // What stands at `start`, for a message: the token there, or the end of the file.
    std::string foundFrom(std::size_t start) const
    {
        if (start >= m_s.size())
            return "the end of the file";
        std::size_t end = start + 1;
        while (end < m_s.size() && isNameChar(m_s[end]) && isNameChar(m_s[start]))
            ++end;
        return quoted(m_s, start, end);
    }
    std::string found() const { return foundFrom(m_pos); }

    std::string readName()
    {
        const std::size_t start = m_pos;
        if (isNameStart(peek()))
            while (isNameChar(peek()))
                ++m_pos;
        return m_s.substr(start, m_pos - start);
    }

    // Whitespace, comments and directive lines; leaves m_pos on a token or at the end.
    void skipBlanks()
    {
        while (!atEnd()) {
            const char c = peek();
            if (c == '\n') {
                ++m_pos;
                ++m_line;
                m_tokenOnLine = false;
            } else if (c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f') {
                ++m_pos;
            } else if (c == '/' && (peek(1) == '/' || peek(1) == '*')) {
                skipComment();
            } else if (c == '#' && !m_tokenOnLine) {
                readDirective();
            } else {
                m_tokenOnLine = true;
                return;
            }
        }
    }

    void skipComment()
    {
        if (peek(1) == '/') {
            while (!atEnd() && peek() != '\n')
                ++m_pos;
            return;
        }
        const int startLine = m_line;
        const std::size_t close = m_s.find("*/", m_pos + 2);
        if (close == std::string::npos)
            fail(startLine, "unterminated comment");
        m_line += static_cast<int>(std::count(m_s.begin() + std::ptrdiff_t(m_pos), m_s.begin() + std::ptrdiff_t(close), '\n'));
        m_pos = close + 2;
    }

    // A preprocessor line, joined at backslash-newline and with comments as spaces. Only a
    // definition of a name as a number is kept; the line ends before its newline.
    void readDirective()
    {
        ++m_pos;
        std::string text;
        while (!atEnd() && peek() != '\n') {
            if (peek() == '\\' && (peek(1) == '\n' || (peek(1) == '\r' && peek(2) == '\n'))) {
                m_pos += peek(1) == '\n' ? 2 : 3;
                ++m_line;
            } else if (peek() == '/' && (peek(1) == '/' || peek(1) == '*')) {
                skipComment();
                text += ' ';
            } else {
                text += peek();
                ++m_pos;
            }
        }
        std::size_t at = 0;
        const std::string directive = nextWord(text, at);
        const std::string name = nextWord(text, at);
        const std::string value = nextWord(text, at);
        const bool more = !nextWord(text, at).empty();
        const bool nameOnly = !name.empty() && isNameStart(name[0]) &&
                              std::all_of(name.begin(), name.end(), isNameChar);
        if (directive == "undef" && nameOnly) {
            m_symbols.erase(name);
        } else if (directive == "define" && nameOnly) {
            std::int64_t number = 0;
            if (!more && numberOf(value, number))
                m_symbols[name] = number;
            else
                m_symbols.erase(name); // defined as something other than a number
        }
    }

    // A value of a statement: a number or a name, taken as written and not resolved.
    void readValue(const char* statement)
    {
        skipBlanks();
        if (peek() == '-')
            ++m_pos;
        if (!isNameChar(peek()))
            fail(m_line, std::string("expected a value after ") + statement + ", found " + found());
        while (isNameChar(peek()))
            ++m_pos;
    }

    void readStatement(const char* statement)
    {
        readValue(statement);
        if (sameWord(statement, "LANGUAGE")) {
            skipBlanks();
            if (peek() != ',')
                fail(m_line, "expected ',' between the two values of LANGUAGE, found " + found());
            ++m_pos;
            readValue(statement);
        }
    }

    void readBlock()
    {
        const int tableLine = m_line;
        for (;;) {
            skipBlanks();
            if (atEnd())
                fail(tableLine, "STRINGTABLE without BEGIN");
            const std::size_t start = m_pos;
            const int beginLine = m_line;
            if (peek() == '{') {
                ++m_pos;
                readRows(beginLine);
                return;
            }
            const std::string word = readName();
            if (sameWord(word, "BEGIN")) {
                readRows(beginLine);
                return;
            }
            if (sameWord(word, "LANGUAGE") || sameWord(word, "CHARACTERISTICS") || sameWord(word, "VERSION")) {
                readStatement(word.c_str());
                continue;
            }
            static const char* const kMemoryFlags[] = {"PRELOAD", "LOADONCALL", "MOVEABLE", "DISCARDABLE", "PURE",
                                                       "IMPURE", "FIXED", "SHARED", "NONSHARED"};
            if (std::none_of(std::begin(kMemoryFlags), std::end(kMemoryFlags),
                             [&](const char* flag) { return sameWord(word, flag); }))
                fail(m_line, "expected BEGIN after STRINGTABLE, found " + foundFrom(start));
        }
    }

    void readRows(int beginLine)
    {
        for (;;) {
            skipBlanks();
            if (atEnd())
                fail(beginLine, "BEGIN without END");
            if (peek() == '}') {
                ++m_pos;
                return;
            }
            if (isNameStart(peek()) && !atString()) {
                const std::size_t start = m_pos;
                if (sameWord(readName(), "END"))
                    return;
                m_pos = start;
            }
            readRow();
        }
    }

    unsigned int readID()
    {
        const std::size_t start = m_pos;
        std::int64_t value = 0;
        std::string shown; // the id as the message tells it
        if (atString())
            fail(m_line, "missing id before the string");
        if (isNameStart(peek())) {
            const std::string name = readName();
            const auto symbol = m_symbols.find(name);
            if (symbol == m_symbols.end())
                fail(m_line, "unknown symbol " + quoted(name, 0, name.size()));
            value = symbol->second;
            shown = quoted(name, 0, name.size()) + " (" + std::to_string(value) + ")";
        } else if (isDigit(peek()) || (peek() == '-' && isDigit(peek(1)))) {
            ++m_pos;
            while (isNameChar(peek()))
                ++m_pos;
            shown = quoted(m_s, start, m_pos);
            if (!numberOf(m_s.substr(start, m_pos - start), value))
                fail(m_line, "bad number " + shown);
        } else {
            fail(m_line, "expected a string id or END, found " + found());
        }
        if (value < 0 || value > StringTableScript::kMaxStringID)
            fail(m_line, "id " + shown + " out of range (0.." +
                             std::to_string(StringTableScript::kMaxStringID) + ")");
        return static_cast<unsigned int>(value);
    }

    void readRow()
    {
        StringTableRow row;
        row.line = m_line;
        row.id = readID();
        const auto first = m_firstLines.emplace(row.id, row.line);
        if (!first.second)
            fail(row.line, "duplicate id " + std::to_string(row.id) + " (first on line " +
                               std::to_string(first.first->second) + ")");
        skipBlanks();
        if (peek() == ',') {
            ++m_pos;
            skipBlanks();
        }
        if (!atString())
            fail(m_line, "expected a string after id " + std::to_string(row.id) + ", found " + found());
        // Literals that follow on the line where the last one ended are one text.
        do {
            readString(row.text);
            const int lastLine = m_line;
            skipBlanks();
            if (m_line != lastLine)
                break;
        } while (atString());
        m_rows.push_back(std::move(row));
    }

    void append(std::wstring& text, std::uint32_t c, int startLine)
    {
        if (text.size() >= StringTableScript::kMaxTextLength)
            fail(startLine, "string longer than " + std::to_string(StringTableScript::kMaxTextLength) + " characters");
        text += static_cast<wchar_t>(c);
    }

    // One UTF-8 character at m_pos, whose lead byte is not ASCII.
    std::uint32_t readUtf8()
    {
        const unsigned char lead = static_cast<unsigned char>(peek());
        int more = 0;
        std::uint32_t c = 0;
        unsigned char low = 0x80, high = 0xBF; // the range allowed for the second byte
        if (lead >= 0xC2 && lead <= 0xDF) {
            more = 1;
            c = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            more = 2;
            c = lead & 0x0F;
            low = lead == 0xE0 ? 0xA0 : 0x80;   // no overlong form
            high = lead == 0xED ? 0x9F : 0xBF;  // no surrogate
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            more = 3;
            c = lead & 0x07;
            low = lead == 0xF0 ? 0x90 : 0x80;
            high = lead == 0xF4 ? 0x8F : 0xBF;  // nothing above U+10FFFF
        } else {
            fail(m_line, "invalid UTF-8 in a string");
        }
        for (int i = 1; i <= more; ++i) {
            const unsigned char next = static_cast<unsigned char>(peek(std::size_t(i)));
            if (next < (i == 1 ? low : 0x80) || next > (i == 1 ? high : 0xBF))
                fail(m_line, "invalid UTF-8 in a string");
            c = (c << 6) | (next & 0x3F);
        }
        m_pos += std::size_t(more) + 1;
        return c;
    }

    // The value of the escape whose backslash is at m_pos. In a narrow string \xHH takes two hex
    // digits and means U+00HH; in a wide one it takes up to four, a UTF-16 unit.
    std::uint32_t readEscape(bool wide, int startLine)
    {
        const std::size_t start = m_pos;
        ++m_pos;
        const char c = peek();
        if (atLineEnd())
            fail(startLine, "unterminated string: a string must end on the line where it starts");
        ++m_pos;
        switch (c) {
        case 'n': return '\n';
        case 't': return '\t';
        case 'r': return '\r';
        case 'a': return '\a';
        case '\\': return '\\';
        case '"': return '"';
        case 'x': {
            std::uint32_t value = 0;
            int digits = 0;
            for (; digits < (wide ? 4 : 2) && hexValue(peek()) >= 0; ++digits, ++m_pos)
                value = value * 16 + std::uint32_t(hexValue(peek()));
            if (digits == 0)
                fail(m_line, "bad escape '\\x' without hex digits");
            return value;
        }
        default:
            if (c >= '0' && c <= '7') {
                std::uint32_t value = std::uint32_t(c - '0');
                for (int digits = 1; digits < 3 && peek() >= '0' && peek() <= '7'; ++digits, ++m_pos)
                    value = value * 8 + std::uint32_t(peek() - '0');
                return value;
            }
            fail(m_line, "bad escape " + quoted(m_s, start, start + 2));
        }
    }

    // A literal at m_pos, appended to `text`. Escaped UTF-16 surrogate pairs become one character.
    void readString(std::wstring& text)
    {
        const int startLine = m_line;
        const bool wide = peek() == 'L';
        m_pos += wide ? 2 : 1;
        std::uint32_t highSurrogate = 0;
        for (;;) {
            if (atLineEnd())
                fail(startLine, "unterminated string: a string must end on the line where it starts");
            const char c = peek();
            if (highSurrogate != 0 && c != '\\')
                fail(m_line, "bad escape: a high surrogate must be followed by an escaped low one");
            if (c == '"') {
                ++m_pos;
                if (peek() != '"')
                    return;
                ++m_pos;
                append(text, '"', startLine);
            } else if (c == '\\') {
                const std::uint32_t value = readEscape(wide, startLine);
                const bool high = value >= 0xD800 && value <= 0xDBFF;
                const bool low = value >= 0xDC00 && value <= 0xDFFF;
                if (highSurrogate != 0 && !low)
                    fail(m_line, "bad escape: a high surrogate must be followed by an escaped low one");
                if (highSurrogate == 0 && low)
                    fail(m_line, "bad escape: a low surrogate without a high one before it");
                if (high) {
                    highSurrogate = value;
                } else if (low) {
                    append(text, 0x10000 + ((highSurrogate - 0xD800) << 10) + (value - 0xDC00), startLine);
                    highSurrogate = 0;
                } else {
                    append(text, value, startLine);
                }
            } else if (static_cast<unsigned char>(c) < 0x80) {
                ++m_pos;
                append(text, std::uint32_t(c), startLine);
            } else {
                append(text, readUtf8(), startLine);
            }
        }
    }
};

std::string hex(std::uint32_t value)
{
    std::ostringstream out;
    out << std::hex << value;
    return out.str();
}

// A wide literal that the compiler reads back as exactly `text`. A hex escape would swallow the
// hex digits after it, so the literal is closed and reopened there.
std::string literalOf(const std::wstring& text)
{
    std::string out = "L\"";
    bool afterHex = false;
    for (const wchar_t wc : text) {
        const std::uint32_t c = static_cast<std::uint32_t>(wc);
        if (c == '\n' || c == '\t') {
            out += c == '\n' ? "\\n" : "\\t";
            afterHex = false;
        } else if (c >= 0x20 && c < 0x7F) {
            if (afterHex && hexValue(char(c)) >= 0)
                out += "\" L\"";
            if (c == '\\' || c == '"' || c == '?')  // '?' so that no trigraph can form
                out += '\\';
            out += char(c);
            afterHex = false;
        } else {
            out += "\\x" + hex(c);
            afterHex = true;
        }
    }
    return out + "\"";
}

} // namespace

bool StringTableScript::parse(const std::string& script)
{
    m_rows.clear();
    m_errorLine = 0;
    m_errorText.clear();
    try {
        m_rows = ScriptReader(script).read();
    } catch (const ScriptFault& fault) {
        m_errorLine = fault.line;
        m_errorText = fault.text;
        return false;
    }
    std::sort(m_rows.begin(), m_rows.end(),
              [](const StringTableRow& a, const StringTableRow& b) { return a.id < b.id; });
    return true;
}

bool StringTableScript::load(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    if (file)
        content << file.rdbuf();
    if (!file || file.bad()) {
        m_rows.clear();
        m_errorLine = 0;
        m_errorText = "cannot read the file";
        return false;
    }
    return parse(content.str());
}

const StringTableRow* StringTableScript::find(unsigned int id) const
{
    const auto row = std::lower_bound(m_rows.begin(), m_rows.end(), id,
                                      [](const StringTableRow& r, unsigned int key) { return r.id < key; });
    return row != m_rows.end() && row->id == id ? &*row : nullptr;
}

std::string StringTableScript::errorMessage(const std::string& name) const
{
    if (m_errorLine == 0)
        return name + ": " + m_errorText;
    return name + ":" + std::to_string(m_errorLine) + ": " + m_errorText;
}

std::string StringTableScript::moduleSource() const
{
    std::string out =
        "// A resource module generated by zmu-strings from a string-table script: edit the script, not this.\n"
        "namespace {\n"
        "\n"
        "struct Row\n"
        "{\n"
        "    unsigned int id;\n"
        "    int count;\n"
        "    const wchar_t* text;\n"
        "};\n"
        "\n"
        "// Sorted by id.\n"
        "const Row kRows[] = {\n";
    for (const StringTableRow& row : m_rows)
        out += "    {" + std::to_string(row.id) + "u, " + std::to_string(row.text.size()) + ", " + literalOf(row.text) +
               "}, // line " + std::to_string(row.line) + "\n";
    if (m_rows.empty())
        out += "    {0u, 0, L\"\"}, // no rows: kRowCount is 0\n";
    out += "};\n"
           "const int kRowCount = " + std::to_string(m_rows.size()) + ";\n"
           "\n"
           "} // namespace\n"
           "\n"
           "// Answers like LoadStringW: at most bufferMax - 1 characters and a terminating 0, and their count.\n"
           "// A missing id or a bad buffer gives 0 and leaves the buffer untouched.\n"
           "extern \"C\" __attribute__((visibility(\"default\"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)\n"
           "{\n"
           "    int low = 0;\n"
           "    int high = kRowCount;\n"
           "    while (low < high) {\n"
           "        const int middle = low + (high - low) / 2;\n"
           "        if (kRows[middle].id < id)\n"
           "            low = middle + 1;\n"
           "        else\n"
           "            high = middle;\n"
           "    }\n"
           "    if (low == kRowCount || kRows[low].id != id || buffer == nullptr || bufferMax < 1)\n"
           "        return 0;\n"
           "    const Row& row = kRows[low];\n"
           "    const int count = row.count < bufferMax - 1 ? row.count : bufferMax - 1;\n"
           "    for (int i = 0; i < count; ++i)\n"
           "        buffer[i] = row.text[i];\n"
           "    buffer[count] = L'\\0';\n"
           "    return count;\n"
           "}\n";
    return out;
}
