// The event reporter: the single writer of the product's milestone situations (sessions, log-ons,
// processes, start and shut-down) to the system's event log.
#pragma once

#include "monitor/ZarnFwd.h"
#include "platform/WinTypes.h"

class zgEL_Reporter
{
public:
    // The lone reporter, registered under `source`; null if one exists already, if `source` is null
    // or empty, or if the source cannot be registered. `server` is passed on unexamined (null: this
    // machine). The first `firstFillerIndex` fillers of a situation are not passed to its event.
    static zgEL_Reporter* create(const char* source, const char* server, unsigned long firstFillerIndex);
    static zgEL_Reporter* create(const wchar_t* source, const wchar_t* server, unsigned long firstFillerIndex);
    static zgEL_Reporter* getLoneInstance();
    // The existing reporter, whatever the arguments; else `create` with them.
    static zgEL_Reporter* getLoneInstance(const char* source, const char* server, unsigned long firstFillerIndex);
    static zgEL_Reporter* getLoneInstance(const wchar_t* source, const wchar_t* server,
                                          unsigned long firstFillerIndex);
    static void destroy();

    // Writes the event of the monitor's current situation, with its fillers as the insertion
    // strings. False if there is no reporter, or as write_ tells; it never fails the situation.
    static bool write(const Zarn* monitor);

    unsigned long getError() const;
    // Stores `error`, also as the thread's last error; returns the previous value.
    unsigned long setError(unsigned long error) const;
    bool isStatusOK() const;

    // Virtual operations in slot order: setMemberVarsToDefaults, the destructor.
    virtual bool setMemberVarsToDefaults(int passes);

protected:
    virtual ~zgEL_Reporter();
    // Both throw, after clearing up, when the source cannot be registered.
    zgEL_Reporter(const char* source, const char* server, unsigned long firstFillerIndex);
    zgEL_Reporter(const wchar_t* source, const wchar_t* server, unsigned long firstFillerIndex);
    zgEL_Reporter(const zgEL_Reporter&) = delete;
    zgEL_Reporter& operator=(const zgEL_Reporter&) = delete;

    // False with 87 for a null monitor, no source, no fillers or a situation without an event;
    // with the system's error when the report fails.
    bool write_(const Zarn* monitor) const;
    // False with 1609 if a source is registered already, 87 for a null source.
    bool registerSource(const char* source, const char* server);
    bool registerSource(const wchar_t* source, const wchar_t* server);
    // Keeps the handle if the system refuses to close it.
    bool deregisterSource();
    void zgEL_Reporter_(unsigned long firstFillerIndex);

private:
    template <class Char>
    static zgEL_Reporter* createFor(const Char* source, const Char* server, unsigned long firstFillerIndex);
    template <class Char>
    bool registerSourceFor(const Char* source, const Char* server);
    // Registers the source, or clears up and throws.
    template <class Char>
    void establish(const Char* source, const Char* server, unsigned long firstFillerIndex);

    mutable DWORD m_error;
    DWORD m_firstFillerIndex;
    HANDLE m_eventSource;

    static zgEL_Reporter* m_LoneInstance;
};
