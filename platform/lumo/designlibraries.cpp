#include "lumo/designlibraries.h"

#include "lumo/hostbackend.h"

void get_open_writable_libraries(std::set<std::string>* libraries)
{
    HostBackend* host = LumoHost::backend();
    if (host && libraries)
        host->openWritableLibraries(*libraries);
}
