#pragma once

#include <string>

#include "options/generaloptions.h"
#include "options/iffoptions.h"

namespace Tessel {

// The plug-in's one options object: the general and IFF sets and the XML file
// that keeps them between runs. Owned by the connection server; used on the
// host's main thread only. Nothing here reports a failure to the user.
class TesselOptions
{
public:
    TesselOptions();
    TesselOptions(const TesselOptions&) = delete;
    TesselOptions& operator=(const TesselOptions&) = delete;

    GeneralOptions& general() { return m_general; }
    IFFOptions& iff() { return m_iff; }

    // "./Tessel.opt" unless an embedder changes it; relative to the process's
    // working directory.
    const std::string& get_option_file_name() const { return m_option_file_name; }
    void set_option_file_name(std::string name);

    // Reads the file; a file that cannot be opened or parsed gives the defaults
    // of both sets (not written back). A readable file is taken as it is:
    // options it lacks stay absent. Only a regular file of at most 16 MiB is
    // read; anything else counts as unreadable.
    void load();
    // Writes both sets; false when the file cannot be opened for writing, is
    // not a regular file, or is one that load refused as irregular or too large.
    bool save();
    void set_options_to_default();

private:
    bool read_xml_file(std::string name);
    bool write_xml_file(std::string name);

    std::string m_option_file_name;
    // The last load refused the file as irregular or too large.
    bool m_keep_refused_file = false;
    GeneralOptions m_general;
    IFFOptions m_iff;
};

} // namespace Tessel
