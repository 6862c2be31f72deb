#pragma once
// The host's design-library service.

#include <set>
#include <string>

#include "lumo/lumoexport.h"

// Adds the names of every open, writable design library to *libraries.
LUMO_SDK_EXPORT void get_open_writable_libraries(std::set<std::string>* libraries);
