#pragma once

#include <set>
#include <string>

#include "options/options.h"

namespace Tessel {

// Where received designs go: the target library, a library left out of the
// choice, and whether existing cells are overwritten on import.
class GeneralOptions : public Options
{
public:
    // Empties the set and lays down ExcludeLibrary, TargetLib and
    // OverwriteDesigns in that order. TargetLib is computed from the libraries
    // that the host has open at this moment.
    void set_options_to_default();

    // Adds the host's open writable libraries to *result (not cleared first),
    // then removes the one named exactly `excluded`, if present.
    void get_writable_libraries_except(std::set<std::string>* result, std::string excluded) const;
    // The smallest name in byte order among the open writable libraries other
    // than ExcludeLibrary; empty when there is none.
    std::string get_default_target_library() const;
};

} // namespace Tessel
