#pragma once
// The registry object the host hands to a plug-in's RegisterLibraryContents.

#include "lumo/lumoexport.h"

class LUMO_SDK_EXPORT PluginRegistry
{
public:
    // The host object registered under `name`, or null.
    virtual void* find_interface(const char* name) = 0;
    // Tells the host that the plug-in could not load; the plug-in returns the result.
    virtual int report_load_error(const char* text) = 0;

protected:
    ~PluginRegistry() = default;
};
