// The HTML report of a ZarnSysInfo source, written to a text stream: paths in a datum become
// file links, and lists of paths are broken into lines. The markup around captions and data comes
// entirely from the affixes.
#pragma once

#include "sysinfo/ZarnSysInfoFormatter.h"

class ZarnSysInfoFormatterHTML : public ZarnSysInfoFormatter
{
public:
    // Room of every text of a report, and of the work texts of links and line breaks.
    static constexpr int kTextQty = 4096;

    // `stream` is not owned and may be null.
    explicit ZarnSysInfoFormatterHTML(QTextStream* stream);

    void setOutputDestination(QTextStream* stream) override;
    // Walks the source from its first pair and writes every pair; false only without a stream or
    // a source. A walk cut short by an affix that doesn't fit still counts as written.
    bool reportSystemInformation() override;
    // setOutputDestination, then reportSystemInformation.
    bool reportSystemInformation(QTextStream& stream);
    // In the short form a caption's first word is printed once for a run of pairs that share it.
    // Returns the old setting.
    bool useShortForm(bool shortForm);

private:
    // Breaks `text` after each `separator` with "<br>", making each element a link where it names
    // an existing path. false, with `text` as it was, when the result would not fit.
    bool addLineBreaks(wchar_t* text, int size, const wchar_t* separator);
    // Rewrites `text` as a file link when it names an existing absolute path and the link fits in
    // `size`; returns the text's length afterwards.
    int hyperlinkPath(wchar_t* text, int size);

    QTextStream* m_stream;
    wchar_t m_lineBreakText[kTextQty];
    wchar_t m_pathText[kTextQty];
    bool m_shortForm;
};
