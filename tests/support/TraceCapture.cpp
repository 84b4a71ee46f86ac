#include "TraceCapture.h"

#include <algorithm>

TraceCapture::TraceCapture()
{
    m_previous = SetDebugOutputListener(&TraceCapture::record, this, &m_previousContext);
}

TraceCapture::~TraceCapture()
{
    SetDebugOutputListener(m_previous, m_previousContext);
}

void TraceCapture::record(const wchar_t* text, void* context)
{
    auto* capture = static_cast<TraceCapture*>(context);
    std::wstring line(text);
    while (!line.empty() && (line.back() == L'\n' || line.back() == L'\r'))
        line.pop_back();
    {
        std::lock_guard<std::mutex> guard(capture->m_lock);
        capture->m_lines.push_back(std::move(line));
    }
    if (capture->m_previous != nullptr)
        capture->m_previous(text, capture->m_previousContext);
}

std::vector<std::wstring> TraceCapture::lines() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_lines;
}

bool TraceCapture::contains(const std::wstring& text) const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return std::any_of(m_lines.begin(), m_lines.end(),
                       [&text](const std::wstring& line) { return line.find(text) != std::wstring::npos; });
}

void TraceCapture::clear()
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_lines.clear();
}
