// A scoped guard that holds a `Mutex` from construction to destruction; used on the stack.
#pragma once

class Mutex;

class Synchronized
{
public:
    // Locks `mutex`, which must outlive the guard; the guard does not own it.
    explicit Synchronized(Mutex& mutex);
    // Unlocks, also when the scope is left by an exception.
    virtual ~Synchronized();

    Synchronized(const Synchronized&) = delete;
    Synchronized& operator=(const Synchronized&) = delete;

private:
    Mutex* m_mutex;
};
