#pragma once
// The script commands of the "CmdOp" library. The host calls each on its main
// thread; each reads its arguments through the BRIO interface and returns what
// return_integer returned, or null when it gives the script no value.

#include "lumo/brio.h"

namespace Commands {
BRIOValueHandle mgcconnect_get_current_timestamp();
BRIOValueHandle mgcconnect_send_push_into_message();
BRIOValueHandle mgcconnect_initialize();
BRIOValueHandle mgcconnect_disconnect();
BRIOValueHandle mgcconnect_show_connections();
BRIOValueHandle mgcconnect_netlist_command();
BRIOValueHandle mgcconnect_instance_command();
BRIOValueHandle mgcconnect_update_command();
BRIOValueHandle mgcconnect_push_command();
BRIOValueHandle mgcconnect_layoutsend_command();
BRIOValueHandle mgcconnect_designsend_command();
BRIOValueHandle mgcconnect_is_connected_to_schematic();
BRIOValueHandle mgcconnect_is_connected_to_layout();
BRIOValueHandle mgcconnect_set_IFF_project_list();
BRIOValueHandle mgcconnect_write_IFF_options_file();
BRIOValueHandle mgcconnect_open_options_dialog();

// The block handed to the host's register_library: library "CmdOp", interface
// "BRIO", the rows above in this order.
BRIOLibraryBlock* CommandLibraryBlock();
} // namespace Commands
