#include "pluginlibrary.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <sys/stat.h>

bool PluginLibrary::load(const std::string& path, std::string* error)
{
    auto fail = [error](const std::string& reason) {
        if (error)
            *error = reason;
        return false;
    };
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0)
        return fail("cannot load the plug-in " + path + ": " + std::strerror(errno));
    if (S_ISDIR(status.st_mode))
        return fail("cannot load the plug-in " + path + ": it is a folder");

    m_handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_handle) {
        const char* reason = ::dlerror();
        return fail("cannot load the plug-in " + path + ": " +
                    (reason ? reason : "unknown reason"));
    }
    m_version = reinterpret_cast<VersionFunction>(::dlsym(m_handle, "GetLibraryVersion"));
    m_register = reinterpret_cast<RegisterFunction>(::dlsym(m_handle, "RegisterLibraryContents"));
    if (!m_version || !m_register) {
        std::string missing = !m_version ? "GetLibraryVersion" : "";
        if (!m_register)
            missing += std::string(missing.empty() ? "" : " and ") + "RegisterLibraryContents";
        return fail(path + " is not a Lumo plug-in: it does not export " + missing);
    }
    return true;
}
