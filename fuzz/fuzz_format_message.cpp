// Zarn::formatMessage, the library's one road to FormatMessageW, with a message text, a line
// width, an output size and an array of insert slots, all from fuzz bytes.
//
// The last bytes give the width, the output size, whether inserts are read, and up to eight 64-bit
// values that fill the slots in turn; the rest is the text, as UTF-8. A slot that the text reads
// as a string holds a text of the pool instead (or null), chosen by its value: an insert array,
// like a printf argument list, must give a string where the text asks for one. The array has a
// slot for every insert a text can name (%99 with two stars reads the 101st).
//
// Each text is formatted twice, into the buffer the bytes chose and into a far larger one, and
// what the smaller buffer shows must be the start of what the larger one shows.
#include "FuzzSupport.h"

#include "foundation/IntegerWidths.h"
#include "monitor/Zarn.h"
#include "platform/FormatMessage.h"
#include "platform/LastError.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kSlots = 101;
constexpr int kEngineOutputCharacters = 1024; // what the engine passes: one scratch buffer
constexpr unsigned long kEngineFlags = 0x2400; // from a string, inserts from an array of 64-bit slots
constexpr wchar_t kUntouched = L'\x2603';

bool isDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9';
}

// The slots that the text reads as string pointers, found by walking it as the formatter does:
// an insert without a format is a string, and so is one whose format ends in s or S, its value
// coming after the slots its stars read.
std::vector<bool> findTextSlots(const wchar_t* text)
{
    std::vector<bool> isText(kSlots, false);
    const wchar_t* at = text;
    while (*at != L'\0') {
        if (*at != L'%') {
            ++at;
            continue;
        }
        const wchar_t escaped = at[1];
        if (escaped == L'\0')
            break;
        if (escaped < L'1' || escaped > L'9') {
            at += 2;
            continue;
        }
        std::size_t number = static_cast<std::size_t>(escaped - L'0');
        at += 2;
        if (isDigit(*at))
            number = number * 10 + static_cast<std::size_t>(*at++ - L'0');
        if (*at != L'!') {
            isText[number - 1] = true;
            continue;
        }
        const wchar_t* const begin = at + 1;
        const wchar_t* end = begin;
        while (*end != L'\0' && *end != L'!')
            ++end;
        if (*end == L'\0')
            break; // an unclosed format: the formatter stops here
        if (end > begin && (end[-1] == L's' || end[-1] == L'S')) {
            const std::size_t stars = std::min<std::size_t>(std::count(begin, end, L'*'), 2);
            isText[number - 1 + stars] = true;
        }
        at = end + 1;
    }
    return isText;
}

// What one call gave: the buffer of exactly the room it was told of (a write past it is caught),
// the count and the last error.
struct Delivery
{
    std::vector<wchar_t> buffer;
    DWORD room = 0;
    DWORD count = 0;
    DWORD error = 0;

    // The text up to the first zero, which a text with a zero of its own (%1!c! of 0) cuts early.
    std::wstring text() const { return std::wstring(buffer.data(), ::wcsnlen(buffer.data(), room)); }
};

Delivery formatInto(unsigned long flags, std::wstring text, int outputCharacters, u64* inserts)
{
    Delivery delivery;
    delivery.room = outputCharacters < 0 ? 0 : static_cast<DWORD>(outputCharacters);
    delivery.buffer.assign(delivery.room == 0 ? 1 : delivery.room, kUntouched);
    SetLastError(kUntouched);
    delivery.count = Zarn::formatMessage(flags, &text[0], delivery.buffer.data(), outputCharacters, inserts);
    delivery.error = GetLastError();

    const wchar_t* const buffer = delivery.buffer.data();
    if (delivery.room == 0) {
        zmu_fuzz::check(delivery.count == 0, "text delivered into no room");
        zmu_fuzz::check(buffer[0] == kUntouched, "a buffer of no characters was written");
        return delivery;
    }
    zmu_fuzz::check(std::find(buffer, buffer + delivery.room, L'\0') != buffer + delivery.room,
                    "output without a terminator");
    if (delivery.count != 0) {
        zmu_fuzz::check(delivery.error == kUntouched, "success changed the last error");
        zmu_fuzz::check(delivery.count < delivery.room, "a count that does not fit the buffer");
        zmu_fuzz::check(buffer[delivery.count] == L'\0', "the terminator is not behind the count");
    }
    return delivery;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    zmu_fuzz::quietEnvironment();
    zmu_fuzz::TextPool::get();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider provider(data, size);
    const auto width = provider.ConsumeIntegral<std::uint8_t>();
    const auto sizeChoice = provider.ConsumeIntegral<std::uint8_t>();
    const auto mode = provider.ConsumeIntegral<std::uint8_t>();
    std::vector<u64> values(provider.ConsumeIntegralInRange<std::size_t>(0, 8));
    for (u64& value : values)
        value = provider.ConsumeIntegral<u64>();
    const std::vector<std::uint8_t> textBytes = provider.ConsumeRemainingBytes<std::uint8_t>();
    std::wstring text = zmu_fuzz::wideFromBytes(textBytes.data(), textBytes.size());

    // Mostly the engine's buffer; else a small one, which cuts the text, or none at all.
    const int outputCharacters = sizeChoice < 128 ? kEngineOutputCharacters : sizeChoice - 128 - 8;
    const bool ignoresInserts = (mode & 1) != 0;

    const zmu_fuzz::TextPool& pool = zmu_fuzz::TextPool::get();
    std::vector<u64> inserts(kSlots, 0);
    const std::vector<bool> isText = findTextSlots(text.c_str());
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
        const u64 value = values.empty() ? 0 : values[slot % values.size()];
        if (!isText[slot])
            inserts[slot] = value;
        else
            inserts[slot] = value % (pool.size() + 1) == pool.size() ? 0 : pool.slot(value % pool.size());
    }

    unsigned long flags = width | kEngineFlags;
    if (ignoresInserts)
        flags |= FORMAT_MESSAGE_IGNORE_INSERTS;

    // The same text into a far larger buffer: the smaller one must show the start of what the
    // larger one shows, and fail or succeed as it does unless the text outgrows the smaller one.
    const Delivery delivery = formatInto(flags, text, outputCharacters, inserts.data());
    const int referenceCharacters = 4 * kEngineOutputCharacters + 64;
    const Delivery reference = formatInto(flags, text, referenceCharacters, inserts.data());
    if (std::getenv("ZMU_FUZZ_VERBOSE") != nullptr) { // for reading what a saved input does
        for (const Delivery* shown : {&delivery, &reference})
            std::fprintf(stderr, "room %u: count %u, last error %u\n[%ls]\n", shown->room, shown->count,
                         shown->error, shown->text().c_str());
    }
    const bool fits = reference.count != 0 && reference.count < delivery.room;
    if (fits) {
        zmu_fuzz::check(delivery.count == reference.count, "the smaller buffer counts another text");
    } else {
        const DWORD expected = reference.count != 0 || reference.error == ERROR_INSUFFICIENT_BUFFER
                                   ? ERROR_INSUFFICIENT_BUFFER
                                   : reference.error;
        zmu_fuzz::check(delivery.count == 0 && delivery.error == expected, "the smaller buffer fails otherwise");
    }
    if (delivery.room > 0) {
        const std::wstring shown = reference.text().substr(0, delivery.room - 1);
        zmu_fuzz::check(delivery.text() == shown, "the smaller buffer shows another text");
    }
    return 0;
}
