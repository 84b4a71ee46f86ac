#include "platform/DebugOutput.h"

#include "platform/Threads.h"
#include "platform/Utf8Text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace {

// The one place this channel calls open and write: both retried on EINTR, the descriptor not
// inherited by programs the host starts.
int openForAppending(const char* path)
{
    int fd = -1;
    do {
        fd = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

void writeWhole(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return; // a debug channel never fails its caller
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

struct Channel
{
    enum class Kind { Nothing, Syslog, Stream };
    Kind kind = Kind::Nothing;
    int fd = -1;
    std::mutex writing; // whole lines, never interleaved within the process
};

Channel* openChannel()
{
    auto* channel = new Channel; // lives to the process's end: a line may come from a late destructor
    const char* target = std::getenv("ZMU_TRACE");
    if (target != nullptr && std::strcmp(target, "stderr") == 0) {
        channel->kind = Channel::Kind::Stream;
        channel->fd = STDERR_FILENO;
    } else if (target != nullptr && *target != '\0') {
        channel->fd = openForAppending(target);
        if (channel->fd >= 0)
            channel->kind = Channel::Kind::Stream;
    } else {
        // Without a syslog socket nobody can listen; then a line costs only this one test.
        struct stat socketState{};
        if (::stat("/dev/log", &socketState) == 0 && S_ISSOCK(socketState.st_mode))
            channel->kind = Channel::Kind::Syslog;
    }
    return channel;
}

// Decided at the first line of the process, from the environment at that moment.
Channel& channel()
{
    static Channel* const s_channel = openChannel();
    return *s_channel;
}

struct ListenerSlot
{
    std::recursive_mutex lock; // held across a call, so that a listener is never called after removal
    std::atomic<bool> installed{false};
    DebugOutputListener listener = nullptr;
    void* context = nullptr;
};

ListenerSlot& listenerSlot()
{
    static ListenerSlot* const s_slot = new ListenerSlot;
    return *s_slot;
}

void tellListener(const wchar_t* text)
{
    ListenerSlot& slot = listenerSlot();
    if (!slot.installed.load(std::memory_order_acquire))
        return;
    std::lock_guard<std::recursive_mutex> guard(slot.lock);
    if (slot.listener != nullptr)
        slot.listener(text, slot.context);
}

// One line: the text without its trailing line ends, after a mark of process and thread.
std::string lineOf(const wchar_t* text)
{
    std::size_t size = std::wcslen(text);
    while (size > 0 && (text[size - 1] == L'\n' || text[size - 1] == L'\r'))
        --size;
    std::string line = "zmu[" + std::to_string(GetCurrentProcessId()) + ":" + std::to_string(GetCurrentThreadId())
                       + "] ";
    line += zmu_platform::narrowToUtf8(text, size);
    return line;
}

void sendOut(const wchar_t* text)
{
    Channel& out = channel();
    if (out.kind == Channel::Kind::Nothing)
        return;
    std::string line = lineOf(text);
    if (out.kind == Channel::Kind::Syslog) {
        ::syslog(LOG_USER | LOG_DEBUG, "%s", line.c_str());
        return;
    }
    line.push_back('\n');
    std::lock_guard<std::mutex> guard(out.writing);
    writeWhole(out.fd, line.data(), line.size());
}

} // namespace

void OutputDebugStringW(const wchar_t* text)
{
    if (text == nullptr)
        return;
    const int savedErrno = errno;
    try {
        tellListener(text);
        sendOut(text);
    } catch (...) {
        // never fails: a line that cannot be built is lost
    }
    errno = savedErrno;
}

void OutputDebugStringA(const char* text)
{
    if (text == nullptr)
        return;
    try {
        const std::wstring wide = zmu_platform::widenUtf8(text);
        OutputDebugStringW(wide.c_str());
    } catch (...) {
    }
}

DebugOutputListener SetDebugOutputListener(DebugOutputListener listener, void* context, void** previousContext)
{
    ListenerSlot& slot = listenerSlot();
    std::lock_guard<std::recursive_mutex> guard(slot.lock);
    const DebugOutputListener previous = slot.listener;
    if (previousContext != nullptr)
        *previousContext = slot.context;
    slot.listener = listener;
    slot.context = context;
    slot.installed.store(listener != nullptr, std::memory_order_release);
    return previous;
}

DebugOutputListener SetDebugOutputListener(DebugOutputListener listener, void* context)
{
    return SetDebugOutputListener(listener, context, nullptr);
}
