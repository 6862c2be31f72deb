#include "fakeregistry.h"

#include <cstring>

void* FakeRegistry::find_interface(const char* name)
{
    lookups.emplace_back(name ? name : "");
    return name && std::strcmp(name, "BRIO") == 0 ? m_brio : nullptr;
}

int FakeRegistry::report_load_error(const char* text)
{
    loadErrors.emplace_back(text ? text : "");
    return loadErrorResult;
}
