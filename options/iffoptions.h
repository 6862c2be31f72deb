#pragma once

#include <QString>

#include "options/options.h"

namespace Tessel {

// Settings of the host's IFF translators. The plug-in does not interpret them;
// it hands them on through the IFF options text file.
class IFFOptions : public Options
{
public:
    // Empties the set and lays down the 27 IFF options in catalogue order.
    void set_options_to_default();

    // Writes one "name = value" line per record, in set order, to `path`
    // (truncated); the ExportProjects line alone ends with a semicolon. False
    // only when the file cannot be opened; later write errors go unnoticed.
    bool write_IFF_options_file(QString path) const;
};

} // namespace Tessel
