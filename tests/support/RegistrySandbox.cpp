#include "support/RegistrySandbox.h"

#include <ftw.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*)
{
    return ::remove(path);
}

} // namespace

RegistrySandbox::RegistrySandbox()
{
    const char* temporary = std::getenv("TMPDIR");
    std::string pattern = std::string(temporary != nullptr && *temporary != '\0' ? temporary : "/tmp") +
                          "/zmu-registry-XXXXXX";
    if (::mkdtemp(&pattern[0]) == nullptr || ::chmod(pattern.c_str(), 0755) != 0)
        throw std::runtime_error("cannot make a registry sandbox in " + pattern);
    m_root = pattern;
    const char* previous = std::getenv("ZMU_REGISTRY_ROOT");
    m_hadPrevious = previous != nullptr;
    m_previous = previous != nullptr ? previous : "";
    ::setenv("ZMU_REGISTRY_ROOT", m_root.c_str(), 1);
}

RegistrySandbox::~RegistrySandbox()
{
    if (m_hadPrevious)
        ::setenv("ZMU_REGISTRY_ROOT", m_previous.c_str(), 1);
    else
        ::unsetenv("ZMU_REGISTRY_ROOT");
    ::nftw(m_root.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

void RegistrySandbox::setReadOnly(bool readOnly) const
{
    const std::string marker = m_root + "/readonly";
    if (!readOnly) {
        ::unlink(marker.c_str());
        return;
    }
    if (FILE* file = std::fopen(marker.c_str(), "w"))
        std::fclose(file);
}

int runWithoutRootRights(const std::function<int()>& check)
{
    const passwd* nobody = ::getpwnam("nobody");
    const uid_t user = nobody != nullptr ? nobody->pw_uid : 65534;
    const gid_t group = nobody != nullptr ? nobody->pw_gid : 65534;
    const pid_t child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setgid(group) != 0 || ::setuid(user) != 0 || ::geteuid() == 0))
            ::_exit(100);
        ::_exit(check());
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 200 + WTERMSIG(status);
}
