// A writer of a ZarnSysInfo source as text: holds the four cycling lists of affixes that go before
// and behind each caption and datum; a subclass chooses the output and the form.
#pragma once

class QTextStream;
class ZarnSysInfo;

class ZarnSysInfoFormatter
{
public:
    // Values of m_error, set by the last add.
    static constexpr int kErrorAddFailed = -2;
    static constexpr int kErrorListNotAllocated = -3;
    static constexpr int kErrorTextNotAllocated = -4;
    static constexpr int kErrorNullText = -5;

    ZarnSysInfoFormatter();
    virtual ~ZarnSysInfoFormatter();
    ZarnSysInfoFormatter(const ZarnSysInfoFormatter&) = delete;
    ZarnSysInfoFormatter& operator=(const ZarnSysInfoFormatter&) = delete;

    // Writes every pair of the source.
    virtual bool reportSystemInformation() = 0;
    // The stream the report goes to; not owned, may be null.
    virtual void setOutputDestination(QTextStream* stream) = 0;

    // Each appends a copy of `text` to its list and returns the list's new count, or -1 with
    // m_error set and the list as it was.
    int addCaptionPrefix(const wchar_t* text);
    int addCaptionSuffix(const wchar_t* text);
    int addDatumPrefix(const wchar_t* text);
    int addDatumSuffix(const wchar_t* text);

    // Stores the source, not owned, and returns the previous one.
    ZarnSysInfo* setSysInfo(ZarnSysInfo* source);

    int getError() const { return m_error; }

protected:
    // Each takes the next affix of its list, which cycles by itself, and copies it to `buffer`:
    // -1 with an empty list, otherwise the affix's length with terminator, copied only if `size`
    // holds it. The cycle moves on even when nothing was copied.
    int getNextCaptionPrefix(wchar_t* buffer, int size);
    int getNextCaptionSuffix(wchar_t* buffer, int size);
    int getNextDatumPrefix(wchar_t* buffer, int size);
    int getNextDatumSuffix(wchar_t* buffer, int size);
    // Every list starts again at its first affix.
    void resetCurrentAffixes();

    int m_captionPrefixCount;
    wchar_t** m_captionPrefixes;
    int m_captionSuffixCount;
    wchar_t** m_captionSuffixes;
    int m_currentCaptionPrefix;
    int m_currentCaptionSuffix;
    int m_currentDatumPrefix;
    int m_currentDatumSuffix;
    int m_datumPrefixCount;
    wchar_t** m_datumPrefixes;
    int m_datumSuffixCount;
    wchar_t** m_datumSuffixes;
    int m_error;
    ZarnSysInfo* m_sysInfo;

private:
    int addAffix(int& count, wchar_t**& list, const wchar_t* text);
    static int copyString(wchar_t* destination, int size, const wchar_t* text);
    static wchar_t* getNextAffix(int count, int& current, wchar_t** list);
    static void free_Affixes(int& count, wchar_t**& list);
};
