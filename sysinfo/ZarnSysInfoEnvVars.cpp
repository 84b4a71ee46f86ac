#include "sysinfo/ZarnSysInfoEnvVars.h"

#include "localize/ZRLoadStringW.h"

#include <QProcessEnvironment>

#include <memory>

namespace {

constexpr unsigned int kCategoryStringId = 15601; // "Environment Variables"
constexpr int kCategoryQty = 64;

// A wide copy of `text` that lives for one pair.
std::unique_ptr<wchar_t[]> obtainWideCopy(const QString& text)
{
    std::unique_ptr<wchar_t[]> copy(new wchar_t[static_cast<size_t>(text.size()) + 1]);
    const int length = text.toWCharArray(copy.get());
    copy[static_cast<size_t>(length)] = L'\0';
    return copy;
}

} // namespace

ZarnSysInfoEnvVars::ZarnSysInfoEnvVars()
{
    wchar_t category[kCategoryQty] = {};
    if (ZRLoadStringW(kCategoryStringId, category, kCategoryQty) > 0)
        recordCategory(category);
    else
        recordCategory(L"Environment Variables");
    m_variables = QProcessEnvironment::systemEnvironment().toStringList();
}

ZarnSysInfoEnvVars::~ZarnSysInfoEnvVars() = default;

bool ZarnSysInfoEnvVars::getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize)
{
    if (position < 0 || position >= m_variables.size())
        return false;
    m_position = position;

    try {
        // Deliberately only the text between the first and the second "=" is the datum: a value
        // that holds an "=" is reported cut there.
        const QStringList parts =
            m_variables.at(position).split(QLatin1Char('='), Qt::KeepEmptyParts, Qt::CaseSensitive);
        const std::unique_ptr<wchar_t[]> name = obtainWideCopy(parts.at(0));
        // The system environment has no entry without "="; one put into the list by other means
        // has an empty value rather than a missing one.
        const std::unique_ptr<wchar_t[]> value = obtainWideCopy(parts.size() > 1 ? parts.at(1) : QString());
        return formatDataPair(caption, datum, captionSize, datumSize, name.get(), value.get());
    } catch (...) {
        // Out of memory for one pair's copies: the walk ends here.
        return false;
    }
}

bool ZarnSysInfoEnvVars::learnNextPosition()
{
    ++m_position;
    return true;
}
