#include "sysinfo/ZarnSysInfoFormatterHTML.h"

#include "platform/CRuntime.h"
#include "sysinfo/ZarnSysInfo.h"

#include <QDir>
#include <QFileInfo>
#include <QString>
#include <QTextStream>

#include <cwchar>
#include <memory>
#include <string>

namespace {

constexpr wchar_t kLinkFormat[] = L"<a href=\"file://%ls\">%ls</a>";
constexpr wchar_t kLinkFrame[] = L"<a href=\"file://\"></a>";
constexpr wchar_t kLineBreak[] = L"<br>";
constexpr wchar_t kListSeparator[] = L";";
// Longer paths are never linked.
constexpr size_t kLinkablePathQty = 261;

void writeText(QTextStream& stream, const wchar_t* text, size_t length)
{
    stream << QString::fromWCharArray(text, static_cast<int>(length));
}

void writeText(QTextStream& stream, const wchar_t* text)
{
    writeText(stream, text, std::wcslen(text));
}

} // namespace

ZarnSysInfoFormatterHTML::ZarnSysInfoFormatterHTML(QTextStream* stream)
    : m_stream(stream), m_lineBreakText{}, m_pathText{}, m_shortForm(false)
{
}

void ZarnSysInfoFormatterHTML::setOutputDestination(QTextStream* stream)
{
    m_stream = stream;
}

bool ZarnSysInfoFormatterHTML::reportSystemInformation(QTextStream& stream)
{
    setOutputDestination(&stream);
    return reportSystemInformation();
}

bool ZarnSysInfoFormatterHTML::useShortForm(bool shortForm)
{
    const bool previous = m_shortForm;
    m_shortForm = shortForm;
    return previous;
}

bool ZarnSysInfoFormatterHTML::reportSystemInformation()
{
    resetCurrentAffixes();
    if (m_stream == nullptr || m_sysInfo == nullptr)
        return false;

    // The platform's own separator of path lists (":" here) breaks PATH-like values; ";" is broken
    // as well, so that a list written in the other convention reads the same.
    const wchar_t platformSeparator[2] = {static_cast<wchar_t>(QDir::listSeparator().unicode()), L'\0'};
    const bool platformSeparatorDiffers = std::wcscmp(platformSeparator, kListSeparator) != 0;

    try {
        // Every text of the report, allocated once.
        enum Text { Caption, Datum, CaptionPrefix, CaptionSuffix, DatumPrefix, DatumSuffix, LastCaption, TextCount };
        const std::unique_ptr<wchar_t[]> texts(new wchar_t[static_cast<size_t>(kTextQty) * TextCount]());
        wchar_t* text[TextCount];
        for (int index = 0; index < TextCount; ++index)
            text[index] = texts.get() + static_cast<size_t>(index) * kTextQty;

        bool more = m_sysInfo->getFirstDataPair(text[Caption], text[Datum], kTextQty, kTextQty);
        while (more) {
            // An empty list gives an empty affix; one too long for its text ends the walk.
            for (int index = CaptionPrefix; index <= DatumSuffix; ++index)
                text[index][0] = L'\0';
            if (getNextCaptionPrefix(text[CaptionPrefix], kTextQty) > kTextQty ||
                getNextCaptionSuffix(text[CaptionSuffix], kTextQty) > kTextQty ||
                getNextDatumPrefix(text[DatumPrefix], kTextQty) > kTextQty ||
                getNextDatumSuffix(text[DatumSuffix], kTextQty) > kTextQty)
                break;

            const size_t plainLength = std::wcslen(text[Datum]);
            const bool linked = static_cast<size_t>(hyperlinkPath(text[Datum], kTextQty)) != plainLength;
            // A datum that became one link is one path, not a list; and its "file://" must not be
            // broken at the ":".
            if (platformSeparatorDiffers && !linked)
                addLineBreaks(text[Datum], kTextQty, platformSeparator);
            // A false result leaves the datum plain, which is all the report needs.
            addLineBreaks(text[Datum], kTextQty, kListSeparator);

            bool captionShown = true;
            size_t captionLength = std::wcslen(text[Caption]);
            if (m_shortForm) {
                // The first word decides, and must equal the last printed caption's first word: a
                // caption without a space is its own first word, and "LANG" does not match "LANGUAGE".
                const wchar_t* const space = std::wcschr(text[Caption], L' ');
                const size_t wordLength = space != nullptr ? static_cast<size_t>(space - text[Caption]) : captionLength;
                wchar_t* const last = text[LastCaption];
                captionShown = std::wcsncmp(text[Caption], last, wordLength) != 0 ||
                               (last[wordLength] != L' ' && last[wordLength] != L'\0');
                if (captionShown) {
                    std::wmemcpy(last, text[Caption], captionLength + 1);
                    captionLength = wordLength;
                }
            }

            QTextStream& stream = *m_stream;
            if (captionShown) {
                writeText(stream, text[CaptionPrefix]);
                writeText(stream, text[Caption], captionLength);
                writeText(stream, text[CaptionSuffix]);
            }
            writeText(stream, text[DatumPrefix]);
            writeText(stream, text[Datum]);
            writeText(stream, text[DatumSuffix]);

            more = m_sysInfo->getNextDataPair(text[Caption], text[Datum], kTextQty, kTextQty);
        }
    } catch (...) {
        // Out of memory: what was written stays written.
        m_stream->flush();
        return false;
    }
    m_stream->flush();
    return true;
}

int ZarnSysInfoFormatterHTML::hyperlinkPath(wchar_t* text, int size)
{
    const size_t length = std::wcslen(text);
    if (length >= kLinkablePathQty)
        return static_cast<int>(length);
    const QFileInfo info(QString::fromWCharArray(text, static_cast<int>(length)));
    if (!info.isAbsolute() || !info.exists())
        return static_cast<int>(length);
    const size_t needed = 2 * length + std::char_traits<wchar_t>::length(kLinkFrame) + 1;
    if (size < 1 || needed >= static_cast<size_t>(size))
        return static_cast<int>(length);

    std::wmemcpy(m_pathText, text, length + 1);
    const int written = _snwprintf(text, static_cast<size_t>(size), kLinkFormat, m_pathText, m_pathText);
    return written >= 0 ? written : static_cast<int>(std::wcslen(text));
}

bool ZarnSysInfoFormatterHTML::addLineBreaks(wchar_t* text, int size, const wchar_t* separator)
{
    if (text == nullptr || separator == nullptr || separator[0] == L'\0' || std::wcsstr(text, separator) == nullptr)
        return true;

    const size_t limit = static_cast<size_t>(size < kTextQty ? size : kTextQty);
    const size_t separatorLength = std::wcslen(separator);
    const size_t breakLength = std::char_traits<wchar_t>::length(kLineBreak);
    size_t built = 0;
    const wchar_t* element = text;
    for (const wchar_t* found = std::wcsstr(element, separator); found != nullptr;
         found = std::wcsstr(element, separator)) {
        const size_t elementLength = static_cast<size_t>(found - element);
        if (built + elementLength + separatorLength + breakLength >= limit)
            return false;
        wchar_t* const place = m_lineBreakText + built;
        std::wmemcpy(place, element, elementLength);
        place[elementLength] = L'\0';
        // The link may use only the room that leaves space for the separator and the break.
        built += static_cast<size_t>(hyperlinkPath(place, static_cast<int>(limit - built - separatorLength - breakLength)));
        std::wmemcpy(m_lineBreakText + built, separator, separatorLength);
        built += separatorLength;
        std::wmemcpy(m_lineBreakText + built, kLineBreak, breakLength);
        built += breakLength;
        element = found + separatorLength;
    }

    // The tail is linked in the work text too, so that a failure leaves `text` untouched.
    const size_t tailLength = std::wcslen(element);
    if (built + tailLength >= limit)
        return false;
    std::wmemcpy(m_lineBreakText + built, element, tailLength + 1);
    built += static_cast<size_t>(hyperlinkPath(m_lineBreakText + built, static_cast<int>(limit - built)));
    std::wmemcpy(text, m_lineBreakText, built + 1);
    return true;
}
