#include "platform/MessageBox.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(MessageBoxW, AnswersWithTheDefaultButtonOfTheStyle)
{
    const struct { const char* name; UINT type; int answer; } rows[] = {
        {"ok", MB_OK, IDOK},
        {"yes or no", MB_YESNO, IDYES},
        {"icon bits change nothing", MB_YESNO | MB_ICONERROR, IDYES},
        {"second button of ok/cancel", MB_OKCANCEL | MB_DEFBUTTON2, IDCANCEL},
        {"third button of yes/no/cancel", MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL},
        {"second button of abort/retry/ignore", MB_ABORTRETRYIGNORE | MB_DEFBUTTON2, IDRETRY},
        {"a default the set lacks falls back to the first", MB_YESNO | MB_DEFBUTTON3, IDYES},
        {"fourth button never exists", MB_CANCELTRYCONTINUE | MB_DEFBUTTON4, IDCANCEL},
        {"unknown button set", 0xF, IDOK},
    };
    for (const auto& row : rows) {
        testing::internal::CaptureStderr();
        const int answer = MessageBoxW(nullptr, L"text", L"caption", row.type);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(answer, row.answer) << row.name;
    }
}

TEST(MessageBoxW, WritesCaptionAndTextToStandardErrorAsOneBlock)
{
    const struct { const char* name; const wchar_t* text; const wchar_t* caption; const char* written; } rows[] = {
        {"lines and non-ASCII text", L"line one\nline two", L"Caption \u00fc",
         "[Caption \xc3\xbc]\nline one\nline two\n"},
        {"a text ending in a line break gets no second one", L"done\n", L"C", "[C]\ndone\n"},
        {"null caption is Error, as on Windows", L"t", nullptr, "[Error]\nt\n"},
        {"null text", nullptr, L"C", "[C]\n"},
    };
    for (const auto& row : rows) {
        testing::internal::CaptureStderr();
        MessageBoxW(nullptr, row.text, row.caption, MB_OK);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.written) << row.name;
    }
}

} // namespace
