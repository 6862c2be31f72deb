#include "plugin/commands.h"

#include <cstdint>
#include <ctime>
#include <iterator>
#include <string>

#include <QApplication>
#include <QString>

#include "options/optionnames.h"
#include "plugin/brioconstants.h"
#include "plugin/commandarguments.h"
#include "plugin/pluginstate.h"
#include "server/xserverlumo.h"
#include "ui/kivasettingsdialog.h"

namespace Commands {
namespace {

using CommandArguments::allStrings;
using CommandArguments::fetchString;
using CommandArguments::release;

constexpr char SchematicApplication[] = "DXD";
constexpr char LayoutApplication[] = "BSXE";

// Runs a command's body; nothing thrown inside may reach the host.
template <typename Body> BRIOValueHandle guarded(Body body) noexcept
{
    BRIOInterface* brio = PluginState::brio();
    XServerLUMO* server = PluginState::server();
    if (!brio || !server)
        return nullptr;
    try {
        return body(*brio, *server);
    } catch (RFMsgExp::IXException* error) {
        error->Destroy();
    } catch (...) {
    }
    return nullptr;
}

// The string argument of the two option commands, decoded as UTF-8. Their
// handle is never released.
QString optionCommandText(BRIOInterface& brio)
{
    BRIOValueHandle handle = nullptr;
    const char* data = fetchString(brio, 0, handle);
    const std::string text = data ? data : "";
    return QString::fromUtf8(text.c_str());
}

// The two highlight commands: the first argument twice, then the second, as
// the ignored pointers, and the third as the region. They differ on purpose:
// send_push_into_message checks every fetch (leaving the handles fetched so
// far unreleased when one fails) and gives the script no value.
BRIOValueHandle highlightCommand(bool strict)
{
    return guarded([&](BRIOInterface& brio, XServerLUMO& server) -> BRIOValueHandle {
        if (!allStrings(brio, 3))
            return nullptr;
        BRIOValueHandle handles[3] = {};
        const void* data[3] = {};
        for (int index = 0; index < 3; ++index) {
            data[index] = fetchString(brio, index, handles[index]);
            if (strict && !handles[index])
                return nullptr;
        }
        server.SendHighlightRequest(data[0], data[0], data[1], static_cast<const char*>(data[2]));
        for (BRIOValueHandle handle : handles)
            release(brio, handle);
        return strict ? nullptr : brio.return_integer(1);
    });
}

// The two IFF send commands: five strings to a server send operation, whose
// outcome the script is not told.
using IffSend = bool (XServerLUMO::*)(const char*, const char*, const char*, const char*,
                                      const char*);
BRIOValueHandle iffSendCommand(IffSend send, bool keepSecondValue)
{
    return guarded([&](BRIOInterface& brio, XServerLUMO& server) -> BRIOValueHandle {
        if (!allStrings(brio, 5))
            return nullptr;
        BRIOValueHandle handles[5] = {};
        const char* texts[5] = {};
        for (int index = 0; index < 5; ++index)
            texts[index] = fetchString(brio, index, handles[index]);
        (server.*send)(texts[0], texts[1], texts[2], texts[3], texts[4]);
        for (int index = 0; index < 5; ++index)
            if (!(keepSecondValue && index == 1))
                release(brio, handles[index]);
        return brio.return_integer(1);
    });
}

} // namespace

BRIOValueHandle mgcconnect_get_current_timestamp()
{
    return guarded([](BRIOInterface& brio, XServerLUMO&) {
        // Only the low 32 bits: from 2038 on the value wraps negative.
        const auto seconds = static_cast<std::uint32_t>(std::time(nullptr));
        return brio.return_integer(static_cast<std::int32_t>(seconds));
    });
}

BRIOValueHandle mgcconnect_send_push_into_message()
{
    return highlightCommand(true);
}

BRIOValueHandle mgcconnect_initialize()
{
    return guarded([](BRIOInterface& brio, XServerLUMO& server) -> BRIOValueHandle {
        int values[2] = {};
        for (int index = 0; index < 2; ++index) {
            BRIOValueHandle handle = nullptr;
            if (!brio.get_argument(index, brio.integer_type(), &handle) || !handle)
                return nullptr;
            const auto* integer = static_cast<const std::int32_t*>(brio.value_data(handle));
            values[index] = integer ? *integer : 0;
            brio.free_value(handle);
        }
        server.Initialize(values[0], values[1]);
        return brio.return_integer(1);
    });
}

BRIOValueHandle mgcconnect_disconnect()
{
    return guarded([](BRIOInterface& brio, XServerLUMO& server) {
        server.Disconnect();
        return brio.return_integer(1);
    });
}

BRIOValueHandle mgcconnect_show_connections()
{
    return guarded([](BRIOInterface&, XServerLUMO& server) -> BRIOValueHandle {
        server.ShowConnections();
        return nullptr;
    });
}

BRIOValueHandle mgcconnect_netlist_command()
{
    return guarded([](BRIOInterface& brio, XServerLUMO& server) -> BRIOValueHandle {
        if (!allStrings(brio, 4))
            return nullptr;
        BRIOValueHandle handles[4] = {};
        const char* texts[4] = {};
        for (int index = 0; index < 4; ++index)
            texts[index] = fetchString(brio, index, handles[index]);
        server.SendNetlistRequest(texts[0], texts[1], texts[2], texts[3]);
        for (BRIOValueHandle handle : handles)
            release(brio, handle);
        return brio.return_integer(1);
    });
}

BRIOValueHandle mgcconnect_instance_command()
{
    return guarded([](BRIOInterface& brio, XServerLUMO& server) {
        server.SendInstanceRequest();
        return brio.return_integer(1);
    });
}

BRIOValueHandle mgcconnect_update_command()
{
    return guarded([](BRIOInterface& brio, XServerLUMO&) { return brio.return_integer(1); });
}

BRIOValueHandle mgcconnect_push_command()
{
    return highlightCommand(false);
}

BRIOValueHandle mgcconnect_layoutsend_command()
{
    // The second argument's value is deliberately left unreleased.
    return iffSendCommand(&XServerLUMO::SendLayoutIff, true);
}

BRIOValueHandle mgcconnect_designsend_command()
{
    return iffSendCommand(&XServerLUMO::SendDesignIff, false);
}

BRIOValueHandle mgcconnect_is_connected_to_schematic()
{
    return guarded([](BRIOInterface& brio, XServerLUMO& server) {
        return brio.return_integer(server.IsConnectedToApplication(SchematicApplication) ? 1 : 0);
    });
}

BRIOValueHandle mgcconnect_is_connected_to_layout()
{
    return guarded([](BRIOInterface& brio, XServerLUMO& server) {
        return brio.return_integer(server.IsConnectedToApplication(LayoutApplication) ? 1 : 0);
    });
}

BRIOValueHandle mgcconnect_set_IFF_project_list()
{
    return guarded([](BRIOInterface& brio, XServerLUMO& server) -> BRIOValueHandle {
        if (!allStrings(brio, 1))
            return nullptr;
        server.GetOptions().iff().set_option(Tessel::OptionName::ExportProjects,
                                             optionCommandText(brio), QString());
        return brio.return_integer(1);
    });
}

BRIOValueHandle mgcconnect_write_IFF_options_file()
{
    return guarded([](BRIOInterface& brio, XServerLUMO& server) -> BRIOValueHandle {
        if (!allStrings(brio, 1))
            return nullptr;
        const bool written =
            server.GetOptions().iff().write_IFF_options_file(optionCommandText(brio));
        return brio.return_integer(written ? 1 : 0);
    });
}

BRIOValueHandle mgcconnect_open_options_dialog()
{
    return guarded([](BRIOInterface&, XServerLUMO& server) -> BRIOValueHandle {
        // Widgets need the host's QApplication; without one there is nothing to show on.
        if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
            return nullptr;
        KivaSettingsDialog dialog(server.GetOptions(), nullptr, Qt::WindowFlags());
        dialog.exec();
        return nullptr;
    });
}

namespace {
// Writable static storage, as the host expects; constant-initialised, so no
// constructor runs at load time.
BRIOCommandRow commandRows[] = {
    {"mgcconnect_get_current_timestamp", 0, &mgcconnect_get_current_timestamp, 0, 0, 0, 0},
    {"mgcconnect_send_push_into_message", 0, &mgcconnect_send_push_into_message, 0, 0, 0, 0},
    {"mgcconnect_initialize", 0, &mgcconnect_initialize, 0, 0, 0, 0},
    {"mgcconnect_disconnect", 0, &mgcconnect_disconnect, 0, 0, 0, 0},
    {"mgcconnect_show_connections", 0, &mgcconnect_show_connections, 0, 0, 0, 0},
    {"mgcconnect_netlist_command", 0, &mgcconnect_netlist_command, 0, 0, 0, 0},
    {"mgcconnect_instance_command", 0, &mgcconnect_instance_command, 0, 0, 0, 0},
    {"mgcconnect_update_command", 0, &mgcconnect_update_command, 0, 0, 0, 0},
    {"mgcconnect_push_command", 0, &mgcconnect_push_command, 0, 0, 0, 0},
    {"mgcconnect_layoutsend_command", 0, &mgcconnect_layoutsend_command, 0, 0, 0, 0},
    {"mgcconnect_designsend_command", 0, &mgcconnect_designsend_command, 0, 0, 0, 0},
    {"mgcconnect_is_connected_to_schematic", 0, &mgcconnect_is_connected_to_schematic, 0, 0, 0, 0},
    {"mgcconnect_is_connected_to_layout", 0, &mgcconnect_is_connected_to_layout, 0, 0, 0, 0},
    {"mgcconnect_set_IFF_project_list", 0, &mgcconnect_set_IFF_project_list, 0, 0, 0, 0},
    {"mgcconnect_write_IFF_options_file", 0, &mgcconnect_write_IFF_options_file, 0, 0, 0, 0},
    {"mgcconnect_open_options_dialog", 0, &mgcconnect_open_options_dialog, 0, 0, 0, 0},
};

BRIOLibraryBlock commandLibrary = {BrioConstants::LibraryName, BrioConstants::InterfaceName,
                                   commandRows, std::size(commandRows)};
} // namespace

BRIOLibraryBlock* CommandLibraryBlock()
{
    return &commandLibrary;
}

} // namespace Commands
