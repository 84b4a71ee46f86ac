#include "platform/Registry.h"

#include "support/RegistrySandbox.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

const wchar_t kAppServer[] = L"SOFTWARE\\Quorvane\\Farrowlink\\AppServer";
const wchar_t kLevel[] = L"ZM_Assertiveness";

// A key made (or opened) below HKEY_LOCAL_MACHINE, closed at the end of the scope.
struct Key
{
    explicit Key(const wchar_t* path, REGSAM access = KEY_ALL_ACCESS)
    {
        result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, access, nullptr, &handle, nullptr);
    }
    ~Key() { RegCloseKey(handle); }
    LONG result;
    HKEY handle = nullptr;
};

LONG setLevel(HKEY key, DWORD level)
{
    return RegSetValueExW(key, kLevel, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), sizeof level);
}

// Each type keeps its bytes: the size query, a buffer one short (234, the size needed, the type,
// the buffer untouched) and an exact one; the key and value names in other case find them.
TEST(Registry, ValuesKeepTheirTypeAndBytes)
{
    const RegistrySandbox sandbox;
    const wchar_t text[] = L"Farrowlink";
    const auto* t = reinterpret_cast<const BYTE*>(text);
    const struct { const wchar_t* name; const wchar_t* otherCase; DWORD type; std::vector<BYTE> bytes; } rows[] = {
        {L"Dword", L"DWORD", REG_DWORD, {7, 0, 0, 0}},
        {L"Text", L"tEXT", REG_SZ, {t, t + sizeof text}},
        {L"Binary", L"binary", REG_BINARY, {0x00, '\n', 0xFF, '=', 0x00}},
        {L"", L"", REG_BINARY, {}}, // the default value, empty
    };
    const Key writer(kAppServer);
    ASSERT_EQ(writer.result, LONG(ERROR_SUCCESS));
    for (const auto& row : rows)
        ASSERT_EQ(RegSetValueExW(writer.handle, row.name, 0, row.type, row.bytes.data(), DWORD(row.bytes.size())), 0);
    HKEY reader = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"software\\QUORVANE\\farrowlink\\appserver\\", 0, KEY_READ, &reader),
              0);
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ", " << row.bytes.size() << " bytes");
        const auto size = DWORD(row.bytes.size());
        DWORD type = REG_NONE;
        DWORD room = 0;
        EXPECT_EQ(RegQueryValueExW(reader, row.otherCase, nullptr, &type, nullptr, &room), 0);
        EXPECT_EQ(type, row.type);
        EXPECT_EQ(room, size);
        std::vector<BYTE> buffer(size + 1, 0xAB);
        if (size > 0) {
            room = size - 1;
            type = REG_NONE;
            EXPECT_EQ(RegQueryValueExW(reader, row.otherCase, nullptr, &type, buffer.data(), &room),
                      LONG(ERROR_MORE_DATA));
            EXPECT_EQ(room, size);
            EXPECT_EQ(type, row.type);
            EXPECT_EQ(buffer, std::vector<BYTE>(size + 1, 0xAB));
        }
        room = size;
        EXPECT_EQ(RegQueryValueExW(reader, row.otherCase, nullptr, nullptr, buffer.data(), &room), 0);
        EXPECT_EQ(std::vector<BYTE>(buffer.begin(), buffer.begin() + room), row.bytes);
    }
    // The documented file of a value; other content reads as 1015.
    const std::string file = sandbox.root() + "/hkey_local_machine/software/quorvane/farrowlink/appserver/=dword";
    std::ifstream stored(file, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stored), {}), std::string("zmu-registry-value 1 type=4 size=4\n\7\0\0\0", 39));
    std::ofstream(file, std::ios::binary | std::ios::trunc) << "zmu-registry-value 1 type=4 size=9\nabc";
    DWORD room = 4;
    EXPECT_EQ(RegQueryValueExW(reader, L"Dword", nullptr, nullptr, nullptr, &room), LONG(ERROR_REGISTRY_CORRUPT));
    RegCloseKey(reader);
}

// Missing keys and values, handles, reserved arguments, key paths and the rights of a handle.
// A failed open leaves a null handle.
TEST(Registry, ArgumentsHandlesAndRightsGiveWindowsCodes)
{
    const RegistrySandbox sandbox;
    const Key full(L"A\\B");
    HKEY readOnly = nullptr, writeOnly = nullptr, closed = nullptr, opened = HKEY_CURRENT_USER;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"A", 0, KEY_READ, &readOnly), 0);
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"A", 0, KEY_SET_VALUE, &writeOnly), 0);
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"A", 0, KEY_READ, &closed), 0);
    ASSERT_EQ(RegCloseKey(closed), 0);
    ASSERT_EQ(setLevel(full.handle, 1), 0);
    const BYTE data[4] = {};
    DWORD reserved = 0, size = 8;
    // Braced rows run in order: "close twice" follows the other uses of `closed`.
    const struct { const char* call; LONG result; DWORD expected; } rows[] = {
        {"open closed", RegOpenKeyExW(closed, L"", 0, KEY_READ, &opened), ERROR_INVALID_HANDLE},
        {"query closed", RegQueryValueExW(closed, L"v", nullptr, nullptr, nullptr, &size), ERROR_INVALID_HANDLE},
        {"close twice", RegCloseKey(closed), ERROR_INVALID_HANDLE},
        {"close predefined", RegCloseKey(HKEY_LOCAL_MACHINE), ERROR_SUCCESS},
        {"null result", RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"A", 0, KEY_READ, nullptr), ERROR_INVALID_PARAMETER},
        {"reserved query", RegQueryValueExW(full.handle, kLevel, &reserved, nullptr, nullptr, &size), ERROR_INVALID_PARAMETER},
        {"long name", RegSetValueExW(full.handle, std::wstring(300, L'n').c_str(), 0, REG_DWORD, data, 4),
         ERROR_INVALID_PARAMETER},
        {"leading backslash", RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"\\A", 0, KEY_READ, &opened), ERROR_BAD_PATHNAME},
        {"empty part", RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"A\\\\B", 0, KEY_READ, &opened), ERROR_BAD_PATHNAME},
        {"missing key", RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"A\\C", 0, KEY_READ, &opened), ERROR_FILE_NOT_FOUND},
        {"missing value", RegQueryValueExW(readOnly, kLevel, nullptr, nullptr, nullptr, &size), ERROR_FILE_NOT_FOUND},
        {"value is no key", RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"A\\B\\ZM_Assertiveness", 0, KEY_READ, &opened),
         ERROR_FILE_NOT_FOUND},
        {"set, no right", RegSetValueExW(readOnly, L"v", 0, REG_DWORD, data, 4), ERROR_ACCESS_DENIED},
        {"query, no right", RegQueryValueExW(writeOnly, L"v", nullptr, nullptr, nullptr, &size), ERROR_ACCESS_DENIED},
        {"set, right", RegSetValueExW(writeOnly, L"v", 0, REG_DWORD, data, 4), ERROR_SUCCESS},
        {"query, right", RegQueryValueExW(readOnly, L"v", nullptr, nullptr, nullptr, &size), ERROR_SUCCESS},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.result, LONG(row.expected)) << row.call;
    EXPECT_EQ(opened, nullptr);
    RegCloseKey(readOnly);
    RegCloseKey(writeOnly);
}

// Subkeys come in order of their lower-case names, which keep every character ("/", "=", "~",
// "%", a leading "."); too small a buffer is 234, past the end 259; the counts match.
TEST(Registry, EnumeratesSubKeysAndCountsValues)
{
    const RegistrySandbox sandbox;
    for (const wchar_t* path : {L"Top\\Beta", L"Top\\alpha", L"Top\\.x=1/~2%3", L"Top\\Beta\\Inner"})
        ASSERT_EQ(Key(path).result, 0);
    DWORD disposition = 0;
    HKEY again = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"TOP\\ALPHA", 0, nullptr, 0, KEY_READ, nullptr, &again, &disposition), 0);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    RegCloseKey(again);
    const Key top(L"Top");
    const BYTE blob[10] = {};
    ASSERT_EQ(RegSetValueExW(top.handle, L"Longer name", 0, REG_BINARY, blob, sizeof blob), 0);
    ASSERT_EQ(RegSetValueExW(top.handle, nullptr, 0, REG_BINARY, blob, 3), 0);

    std::vector<std::wstring> names;
    wchar_t name[16] = L"#";
    DWORD size = 9; // no room for the terminator of the first name
    EXPECT_EQ(RegEnumKeyExW(top.handle, 0, name, &size, nullptr, nullptr, nullptr, nullptr), LONG(ERROR_MORE_DATA));
    EXPECT_EQ(std::wstring(name), L"#");
    for (DWORD index = 0;; ++index) {
        size = 16;
        const LONG result = RegEnumKeyExW(top.handle, index, name, &size, nullptr, nullptr, nullptr, nullptr);
        if (result != 0) {
            EXPECT_EQ(result, LONG(ERROR_NO_MORE_ITEMS));
            break;
        }
        names.emplace_back(name, size);
    }
    EXPECT_EQ(names, (std::vector<std::wstring>{L".x=1/~2%3", L"alpha", L"beta"}));
    DWORD counts[5] = {};
    EXPECT_EQ(RegQueryInfoKeyW(top.handle, nullptr, nullptr, nullptr, &counts[0], &counts[1], nullptr, &counts[2],
                               &counts[3], &counts[4], nullptr, nullptr), 0);
    // Subkeys, longest subkey name, values (the default one counts), longest value name, largest value.
    EXPECT_EQ(std::vector<DWORD>(counts, counts + 5), (std::vector<DWORD>{3, 9, 2, 11, 10}));
}

// A store is read-only by its "readonly" marker (which binds root too) or by a folder that the
// user may not write: writing through a handle opened before, and opening with a write right,
// give 5; reading goes on.
int refusedWritesFailAt(HKEY writable)
{
    if (setLevel(writable, 9) != LONG(ERROR_ACCESS_DENIED))
        return 1;
    HKEY key = nullptr;
    for (const REGSAM access : {KEY_ALL_ACCESS, KEY_READ | KEY_SET_VALUE, KEY_CREATE_SUB_KEY}) {
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAppServer, 0, access, &key) != LONG(ERROR_ACCESS_DENIED))
            return 2;
    }
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"New", 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr) !=
        LONG(ERROR_ACCESS_DENIED))
        return 3;
    DWORD level = 0, size = 4;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAppServer, 0, KEY_READ, &key) != 0 ||
        RegQueryValueExW(key, kLevel, nullptr, nullptr, reinterpret_cast<BYTE*>(&level), &size) != 0 || level != 3)
        return 4;
    RegCloseKey(key);
    return 0;
}

TEST(Registry, ReadOnlyStoreRefusesWrites)
{
    for (const bool byMarker : {true, false}) {
        SCOPED_TRACE(byMarker ? "marker" : "folder permissions");
        const RegistrySandbox sandbox;
        const Key key(kAppServer);
        ASSERT_EQ(setLevel(key.handle, 3), 0);
        if (byMarker) {
            sandbox.setReadOnly(true);
            EXPECT_EQ(refusedWritesFailAt(key.handle), 0);
            sandbox.setReadOnly(false);
            EXPECT_EQ(setLevel(key.handle, 3), 0);
        } else {
            const std::string folders[] = {sandbox.root() + "/hkey_local_machine",
                                           sandbox.root() + "/hkey_local_machine/software/quorvane/farrowlink/appserver"};
            for (const std::string& folder : folders)
                ASSERT_EQ(::chmod(folder.c_str(), 0555), 0);
            EXPECT_EQ(runWithoutRootRights([&key] { return refusedWritesFailAt(key.handle); }), 0);
            for (const std::string& folder : folders)
                ::chmod(folder.c_str(), 0755);
        }
    }
}

// A reader never sees a value half written: every read is one of the two values written in turn.
TEST(RegistryConcurrency, ReadersSeeWholeValues)
{
    const RegistrySandbox sandbox;
    const Key key(L"Race");
    const std::vector<BYTE> small(4, 0x11), large(300, 0x22);
    ASSERT_EQ(RegSetValueExW(key.handle, L"v", 0, REG_BINARY, small.data(), 4), 0);
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 2; ++reader) {
        readers.emplace_back([&] {
            while (!done.load()) {
                std::vector<BYTE> buffer(300);
                DWORD size = 300;
                const LONG result = RegQueryValueExW(key.handle, L"v", nullptr, nullptr, buffer.data(), &size);
                buffer.resize(size);
                if (result != 0 || (buffer != small && buffer != large))
                    ++torn;
            }
        });
    }
    for (int round = 0; round < 30; ++round) {
        const std::vector<BYTE>& next = round % 2 == 0 ? large : small;
        EXPECT_EQ(RegSetValueExW(key.handle, L"v", 0, REG_BINARY, next.data(), DWORD(next.size())), 0);
    }
    done = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(torn.load(), 0);
}

} // namespace
