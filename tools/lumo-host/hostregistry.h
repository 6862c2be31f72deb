#pragma once
// The registry handed to the plug-in's RegisterLibraryContents: finds the
// BRIO interface (nothing with --no-brio) and takes load errors.

#include <string>
#include <vector>

#include "lumo/pluginregistry.h"

class BRIOInterface;
class Journal;

class HostRegistry : public PluginRegistry
{
public:
    // `brio` null: no interface is found under any name. Not owned.
    HostRegistry(BRIOInterface* brio, Journal& journal);

    const std::vector<std::string>& loadErrors() const { return m_loadErrors; }

    void* find_interface(const char* name) override;
    int report_load_error(const char* text) override;

private:
    BRIOInterface* m_brio;
    Journal& m_journal;
    std::vector<std::string> m_loadErrors;
};
