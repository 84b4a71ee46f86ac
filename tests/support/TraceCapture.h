// Captures the lines written to the debug output channel while it lives (RAII), for tests whose
// only visible effect is a trace line.
#pragma once

#include "platform/DebugOutput.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

class TraceCapture
{
public:
    // Installs its listener; the one it replaces still sees every line, and comes back at the end.
    TraceCapture();
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    // The texts written so far, each without its trailing line ends, in the order they came.
    std::vector<std::wstring> lines() const;
    // Whether some captured line holds `text`.
    bool contains(const std::wstring& text) const;
    void clear();

private:
    static void record(const wchar_t* text, void* context);

    mutable std::mutex m_lock;
    std::vector<std::wstring> m_lines;
    std::atomic<DebugOutputListener> m_previous{nullptr};
    void* m_previousContext = nullptr;
};
