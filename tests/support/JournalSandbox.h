// A system journal of the test's own: runs a test body on a thread whose mount namespace has a
// receiver of the test's in place of the journal's socket, so that what the body sends to the
// journal can be read back, whether or not a journald runs on the machine.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

// One entry as the journal's native protocol carried it: its fields in the order sent.
struct JournalEntry
{
    std::vector<std::pair<std::string, std::string>> fields;

    // The value of a field sent once; "<missing>" or "<repeated>" otherwise.
    std::string value(const std::string& name) const;
    bool has(const std::string& name) const;
};

class JournalSandbox
{
public:
    // Empty if sandboxes can be made here, else why not (checked once per process).
    static const std::string& whyUnavailable();

    // Runs `body` on a thread of its own, in a private mount namespace where the journal's socket
    // is this sandbox's receiver, and waits for it.
    static void run(const std::function<void(JournalSandbox&)>& body);

    // The entries received since the last call, in the order they were sent.
    std::vector<JournalEntry> takeEntries();
    // Closes the receiver, so that sends fail: as with a journal that has stopped, or, with
    // `removeSocket`, as with no journal at all.
    void stopReceiving(bool removeSocket);

private:
    JournalSandbox() = default;
    ~JournalSandbox();
    // Empty on success, else the failed step and its error.
    std::string open();

    int m_socket = -1;
};
