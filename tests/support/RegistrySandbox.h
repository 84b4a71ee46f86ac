// A registry store of the test's own: points ZMU_REGISTRY_ROOT at a new, empty folder for the
// sandbox's life, then puts the variable back and removes the folder. Make one before the
// threads that use the registry start.
#pragma once

#include <functional>
#include <string>

class RegistrySandbox
{
public:
    RegistrySandbox();
    ~RegistrySandbox();
    RegistrySandbox(const RegistrySandbox&) = delete;
    RegistrySandbox& operator=(const RegistrySandbox&) = delete;

    // The store's root folder (readable by every user, so that a test may drop root's rights).
    const std::string& root() const { return m_root; }
    // Puts down or takes away the store's "readonly" marker file.
    void setReadOnly(bool readOnly) const;

private:
    std::string m_root;
    bool m_hadPrevious = false;
    std::string m_previous;
};

// For checks that permissions must refuse, which root passes: runs `check` in a forked child that
// has given up root for the user "nobody" (or runs as it is, if not root) and returns the child's
// exit code, `check`'s result; 100 if the rights could not be dropped, 200 + n for signal n.
int runWithoutRootRights(const std::function<int()>& check);
