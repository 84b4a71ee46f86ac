// A source of system information: a sequence of caption-and-datum pairs, walked position by
// position. Subclasses know how to produce the pair at a position and how to move on.
#pragma once

class ZarnSysInfo
{
public:
    static constexpr int kScratchCharacters = 2048;

    // Sticky values of m_error.
    static constexpr int kErrorNumberNotFormatted = -9;
    static constexpr int kErrorDrivesNotListed = -11;

    ZarnSysInfo();
    virtual ~ZarnSysInfo();
    ZarnSysInfo(const ZarnSysInfo&) = delete;
    ZarnSysInfo& operator=(const ZarnSysInfo&) = delete;

    // The pair at `position`; false ends a walk.
    virtual bool getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) = 0;
    // The pair at position 0, then learnNextPosition. Position 0 is not stored in m_position.
    virtual bool getFirstDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize);
    // The pair at m_position, then learnNextPosition.
    virtual bool getNextDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize);

    // -1 with no category; otherwise its length with terminator, copied only if `size` holds it.
    int getCategory(wchar_t* buffer, int size) const;
    bool shouldUpdateCurrentPosition() const { return m_updatePosition; }
    bool setShouldUpdateCurrentPosition(bool update);

    // A text pair: the caption first, the datum only if the caption was written. false if m_error is set.
    bool formatDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize, const wchar_t* captionText,
                        const wchar_t* datumText);
    // A pair whose datum is `value`, as "%d" or as "0x%08X".
    bool formatDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize, const wchar_t* captionText,
                        int value, bool hex);

    int getError() const { return m_error; }

protected:
    virtual bool learnNextPosition() = 0;

    // Sets the category once, in a subclass's constructor.
    void recordCategory(const wchar_t* category);

    wchar_t* m_category;
    int m_position;
    int m_error;
    wchar_t m_scratch[kScratchCharacters];
    bool m_updatePosition;

private:
    // One side of a pair: cut to size - 1 characters, a cut text ending in "..." when size is above 3.
    // A null destination writes nothing. false if m_error is set.
    bool formatDataItem(wchar_t* destination, int size, const wchar_t* text);
};
