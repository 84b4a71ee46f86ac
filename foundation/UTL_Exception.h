// The exception object that the foundation classes throw, by value, with a numeric code.
// Callers catch it with a catch-all and do not read it.
#pragma once

class UTL_Exception
{
public:
    explicit UTL_Exception(unsigned code) : m_code(code) {}
    UTL_Exception(const UTL_Exception& other) : m_code(other.m_code) {}
    UTL_Exception& operator=(const UTL_Exception&) = default;
    virtual ~UTL_Exception() { m_code = 0; }

private:
    friend struct UTL_ExceptionAccess; // for tests that check which code was thrown
    unsigned m_code;
};

// Reads the code of a caught exception. The library itself never inspects it.
struct UTL_ExceptionAccess
{
    static unsigned codeOf(const UTL_Exception& e) { return e.m_code; }
};
