// Built with nothing but `c++ uses_zmu.cpp $(pkg-config --cflags --libs zmu)`: the header and the
// library are found, and a call into libzmu answers from its built-in string table.
#include "localize/ZRLoadStringW.h"

#include <cstdio>
#include <cwchar>

int main()
{
    // The library's text for the log that replaces a full one.
    wchar_t text[256] = {};
    const int count = ZRLoadStringW(10006, text, 256);
    if (count <= 0 || std::wcsstr(text, L"in a series that began with") == nullptr) {
        std::fprintf(stderr, "ZRLoadStringW(10006) gave %d: %ls\n", count, text);
        return 1;
    }
    std::printf("%ls\n", text);
    return 0;
}
