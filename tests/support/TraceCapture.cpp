#include "TraceCapture.h"

#include <algorithm>

TraceCapture::TraceCapture()
{
    // The previous context is written under the channel's own lock, before any line reaches record();
    // the previous listener is published afterwards, so a line arriving in between is not passed on.
    m_previous.store(SetDebugOutputListener(&TraceCapture::record, this, &m_previousContext));
}

TraceCapture::~TraceCapture()
{
    SetDebugOutputListener(m_previous.load(), m_previousContext);
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
    const DebugOutputListener previous = capture->m_previous.load();
    if (previous != nullptr)
        previous(text, capture->m_previousContext);
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
