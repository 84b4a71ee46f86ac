#include "support/JournalSandbox.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <thread>

#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// Where libsystemd sends every entry; it has no other address.
constexpr const char kSocketPath[] = "/run/systemd/journal/socket";

std::string failure(const char* step)
{
    return std::string(step) + ": " + std::strerror(errno);
}

// Gives the calling thread a mount namespace of its own and an empty, writable folder at the
// socket's place. A tmpfs goes over the deepest folder of the path that exists, so that nothing is
// created on the machine itself; it vanishes with the thread's namespace.
std::string makePrivateJournalFolder()
{
    if (unshare(CLONE_NEWNS) != 0)
        return failure("unshare(CLONE_NEWNS)");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return failure("making the mounts private");
    for (const char* folder : {"/run/systemd/journal", "/run/systemd", "/run"}) {
        struct stat status;
        if (stat(folder, &status) != 0 || !S_ISDIR(status.st_mode))
            continue;
        if (mount("zmu-test-journal", folder, "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, "mode=0755") != 0)
            return failure("mounting a tmpfs");
        for (const char* inner : {"/run/systemd", "/run/systemd/journal"}) {
            if (mkdir(inner, 0755) != 0 && errno != EEXIST)
                return failure("making the journal folder");
        }
        return std::string();
    }
    return "there is no /run to put a journal socket in";
}

std::string readWholeFile(int fd)
{
    std::string bytes;
    char block[65536];
    for (off_t at = 0;;) {
        const ssize_t got = pread(fd, block, sizeof block, at);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return bytes;
        bytes.append(block, static_cast<size_t>(got));
        at += got;
    }
}

// The native protocol: "NAME=value\n", or for a value that may hold line breaks
// "NAME\n" followed by its size as a little-endian 64-bit number, the bytes and "\n".
JournalEntry parseEntry(const std::string& payload)
{
    JournalEntry entry;
    size_t at = 0;
    while (at < payload.size()) {
        size_t lineEnd = payload.find('\n', at);
        if (lineEnd == std::string::npos)
            lineEnd = payload.size();
        const size_t equals = payload.find('=', at);
        if (equals < lineEnd) {
            entry.fields.emplace_back(payload.substr(at, equals - at), payload.substr(equals + 1, lineEnd - equals - 1));
            at = lineEnd + 1;
            continue;
        }
        std::string name = payload.substr(at, lineEnd - at);
        at = lineEnd + 1;
        std::uint64_t size = 0;
        for (int byte = 0; byte < 8 && at + byte < payload.size(); ++byte)
            size |= static_cast<std::uint64_t>(static_cast<unsigned char>(payload[at + byte])) << (8 * byte);
        at += 8;
        entry.fields.emplace_back(std::move(name), at < payload.size() ? payload.substr(at, size) : std::string());
        at += size + 1;
    }
    return entry;
}

} // namespace

std::string JournalEntry::value(const std::string& name) const
{
    const std::string* found = nullptr;
    for (const auto& field : fields) {
        if (field.first != name)
            continue;
        if (found != nullptr)
            return "<repeated>";
        found = &field.second;
    }
    return found != nullptr ? *found : "<missing>";
}

bool JournalEntry::has(const std::string& name) const
{
    for (const auto& field : fields) {
        if (field.first == name)
            return true;
    }
    return false;
}

const std::string& JournalSandbox::whyUnavailable()
{
    static const std::string why = [] {
        std::string reason;
        std::thread([&reason] {
            JournalSandbox probe;
            reason = probe.open();
        }).join();
        return reason.empty() ? reason : "no private journal can be made here: " + reason;
    }();
    return why;
}

void JournalSandbox::run(const std::function<void(JournalSandbox&)>& body)
{
    std::thread([&body] {
        JournalSandbox sandbox;
        const std::string why = sandbox.open();
        if (!why.empty()) {
            ADD_FAILURE() << "the private journal failed: " << why;
            return;
        }
        body(sandbox);
    }).join();
}

JournalSandbox::~JournalSandbox()
{
    if (m_socket >= 0)
        close(m_socket);
}

std::string JournalSandbox::open()
{
    std::string why = makePrivateJournalFolder();
    if (!why.empty())
        return why;
    m_socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_socket < 0)
        return failure("socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, kSocketPath, sizeof kSocketPath);
    if (bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return failure("binding the journal socket");
    return std::string();
}

std::vector<JournalEntry> JournalSandbox::takeEntries()
{
    std::vector<JournalEntry> entries;
    while (m_socket >= 0) {
        int pending = 0;
        if (ioctl(m_socket, FIONREAD, &pending) != 0)
            pending = 0;
        std::string payload(static_cast<size_t>(pending > 0 ? pending : 1), '\0');
        iovec part{payload.data(), payload.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t got = recvmsg(m_socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            break; // nothing more is waiting
        payload.resize(static_cast<size_t>(got));
        // An entry too large for one datagram comes as a memory file instead.
        for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
            if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
                continue;
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
            payload = readWholeFile(fd);
            close(fd);
        }
        entries.push_back(parseEntry(payload));
    }
    return entries;
}

void JournalSandbox::stopReceiving(bool removeSocket)
{
    if (m_socket >= 0)
        close(m_socket);
    m_socket = -1;
    if (removeSocket)
        unlink(kSocketPath);
}
