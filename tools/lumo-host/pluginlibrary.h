#pragma once
// The plug-in's shared library: opened once and never closed (its code may
// still run on threads of its own until the process ends).

#include <string>

class PluginRegistry;

class PluginLibrary
{
public:
    // False and a reason naming the path when the file is missing, cannot be
    // loaded, or lacks the two entry points.
    bool load(const std::string& path, std::string* error);

    int libraryVersion() const { return m_version(); }
    int registerContents(PluginRegistry* registry) const { return m_register(registry); }

private:
    using VersionFunction = int (*)();
    using RegisterFunction = int (*)(PluginRegistry*);

    void* m_handle = nullptr;
    VersionFunction m_version = nullptr;
    RegisterFunction m_register = nullptr;
};
