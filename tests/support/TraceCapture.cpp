#include "TraceCapture.h"

#include <algorithm>

TraceCapture::TraceCapture()
{
    // Held while installing, so that a line arriving at once waits until the previous listener is known.
    std::lock_guard<std::mutex> guard(m_lock);
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
    DebugOutputListener previous = nullptr;
    void* previousContext = nullptr;
    {
        std::lock_guard<std::mutex> guard(capture->m_lock);
        capture->m_lines.push_back(std::move(line));
        previous = capture->m_previous;
        previousContext = capture->m_previousContext;
    }
    if (previous != nullptr)
        previous(text, previousContext);
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
