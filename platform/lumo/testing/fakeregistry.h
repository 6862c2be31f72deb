#pragma once
// A plug-in registry for unit tests.

#include <string>
#include <vector>

#include "lumo/pluginregistry.h"

class BRIOInterface;

class FakeRegistry : public PluginRegistry
{
public:
    // `brio` is what a lookup of "BRIO" finds (may be null); not owned.
    explicit FakeRegistry(BRIOInterface* brio) : m_brio(brio) {}

    void* find_interface(const char* name) override;
    int report_load_error(const char* text) override;

    std::vector<std::string> lookups;
    std::vector<std::string> loadErrors;
    int loadErrorResult = 7;

private:
    BRIOInterface* m_brio;
};
