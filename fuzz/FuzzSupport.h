// What the fuzz targets share: a scratch directory of the process for every file a target makes,
// the environment that keeps the library's side channels inside it, wide text from fuzz bytes, and
// a pool of texts whose addresses are small numbers too.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace zmu_fuzz {

// Stops the run with a message: libFuzzer reports an abort as a crash and keeps the input.
[[noreturn]] inline void fail(const char* what)
{
    std::fprintf(stderr, "zmu fuzz check failed: %s\n", what);
    std::abort();
}

inline void check(bool condition, const char* what)
{
    if (!condition)
        fail(what);
}

// A directory of this process under $TMPDIR (else /tmp), which becomes $TMPDIR for the rest of
// the run, so that the library's temporary files land in it. It is removed at a normal exit; a
// run stopped by a crash leaves it to the caller's own scratch directory (run-fuzz.sh gives one).
class ScratchDirectory
{
public:
    static const QString& path()
    {
        static const QString s_path = QString::fromStdString(create());
        return s_path;
    }

private:
    // The name lives to the process's end, past every static: the exit handler reads it.
    static std::string& made()
    {
        static std::string* s_made = new std::string;
        return *s_made;
    }

    static std::string create()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/zmu-fuzz-XXXXXX";
        if (::mkdtemp(&pattern[0]) == nullptr)
            fail("no scratch directory");
        made() = pattern;
        ::setenv("TMPDIR", pattern.c_str(), 1);
        std::atexit(removeMade);
        return pattern;
    }

    static void removeMade()
    {
        // Only the directory made above, never an empty name (which would be the working directory).
        const std::filesystem::path directory(made());
        if (directory.filename().string().rfind("zmu-fuzz-", 0) != 0)
            return;
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
};

// Keeps the library's trace lines out of syslog (unless the caller chose a target), and points
// its registry store at an empty folder of the scratch directory: nothing is read from or written
// to the machine's own.
inline void quietEnvironment()
{
    const QString& scratch = ScratchDirectory::path();
    ::setenv("ZMU_TRACE", "/dev/null", 0);
    ::setenv("ZMU_REGISTRY_ROOT", QFile::encodeName(scratch + QStringLiteral("/registry")).constData(), 1);
}

// Wide text from fuzz bytes: UTF-8 where the bytes are valid UTF-8, any other byte as the
// character of its value. So a seed is readable text, and every character stays reachable.
inline std::wstring wideFromBytes(const std::uint8_t* data, std::size_t size)
{
    std::wstring text;
    text.reserve(size);
    std::size_t at = 0;
    while (at < size) {
        const std::uint8_t lead = data[at];
        std::size_t length = 0; // of a sequence that lead can start; 0 for none
        std::uint32_t code = lead;
        if (lead < 0x80) {
            length = 1;
        } else if (lead >= 0xC2 && lead < 0xE0) {
            length = 2;
            code = lead & 0x1Fu;
        } else if (lead >= 0xE0 && lead < 0xF0) {
            length = 3;
            code = lead & 0x0Fu;
        } else if (lead >= 0xF0 && lead < 0xF5) {
            length = 4;
            code = lead & 0x07u;
        }
        bool valid = length != 0 && at + length <= size;
        for (std::size_t next = 1; valid && next < length; ++next) {
            const std::uint8_t follow = data[at + next];
            valid = (follow & 0xC0u) == 0x80u;
            code = (code << 6) | (follow & 0x3Fu);
        }
        valid = valid && !(length == 3 && (code < 0x800 || (code >= 0xD800 && code < 0xE000)))
                && !(length == 4 && (code < 0x10000 || code > 0x10FFFF));
        if (!valid) {
            code = lead;
            length = 1;
        }
        text.push_back(static_cast<wchar_t>(code));
        at += length;
    }
    return text;
}

// Texts that an insert may read, at addresses below 2^31: an address is then also a small
// positive number, so that one slot serves as d, u or s, and a * that reads it asks for a
// modest width. The texts lie in one mapping at a fixed address where it can be had, so that
// the numbers, and with them the line layout, are the same in every run.
class TextPool
{
public:
    static const TextPool& get()
    {
        static const TextPool s_pool;
        return s_pool;
    }

    std::size_t size() const { return m_texts.size(); }
    const wchar_t* text(std::size_t index) const { return m_texts[index % m_texts.size()]; }
    std::uint64_t slot(std::size_t index) const
    {
        return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(text(index)));
    }

private:
    static constexpr std::uintptr_t kAddress = 0x20000;
    static constexpr std::size_t kBytes = 64 * 1024;

    TextPool()
    {
        void* place = ::mmap(reinterpret_cast<void*>(kAddress), kBytes, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        const bool fixed = place == reinterpret_cast<void*>(kAddress);
        if (place != MAP_FAILED && !fixed)
            ::munmap(place, kBytes); // an old kernel took the address as a hint only
        if (!fixed) {
            // Still below 2^31, where a d or u filler is the same pointer; only no longer the same one.
            std::fprintf(stderr, "zmu fuzz: texts not at their fixed address; numbers vary between runs\n");
            place = ::mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
            if (place == MAP_FAILED)
                fail("no room for the text pool below 2^31");
        }
        auto* next = static_cast<wchar_t*>(place);
        const auto add = [&](const std::wstring& text) {
            // Every text ends with a whole zero character, and a narrow reader stops at its first zero byte.
            std::wmemcpy(next, text.c_str(), text.size() + 1);
            m_texts.push_back(next);
            next += text.size() + 1;
        };
        std::wstring blanks;
        for (int word = 0; word < 220; ++word)
            blanks += L"word%1 ";
        add(L"text");
        add(L"");
        add(L"a text with blanks, long enough to be wrapped at the width of a dialog of 67 columns");
        add(L"Gr\u00FC\u00DFe \u4E16\u754C \U0001F600 \uFFFD");
        add(L"%1 %2!s! and %% stay as they are in an insert");
        add(L"line\r\nbreak\nand\rmore");
        add(blanks); // longer than every output buffer of the library
        add(L"<b>&amp;</b>\t\"quoted\"");
        ::mprotect(place, kBytes, PROT_READ);
    }

    std::vector<const wchar_t*> m_texts;
};

} // namespace zmu_fuzz
