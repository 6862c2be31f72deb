// A small plug-in for testing lumo-host in isolation: the two entry points of
// a Lumo plug-in and a library "TestOp" of commands that read their
// arguments, return integers or null, keep or over-release handles, and
// post idle requests from threads of their own and inside a modal dialog.

#include <QDialog>
#include <QTimer>

#include <stdexcept>
#include <string>
#include <thread>

#include "lumo/brio.h"
#include "lumo/brioscript.h"
#include "lumo/idlerequest.h"
#include "lumo/pluginregistry.h"

namespace {

struct PluginState
{
    BRIOInterface* brio = nullptr;
    std::thread::id mainThread;
};

PluginState& state()
{
    static PluginState plugin;
    return plugin;
}

BRIOInterface& brio()
{
    return *state().brio;
}

void info(const std::string& text)
{
    brio().evaluate_text("Tessel_Voc", ("de_info(\"" + text + "\");").c_str());
}

// Shows `text`, followed by where it was performed, from the main loop; then
// closes the dialog, if given one. Throws instead when asked to.
class InfoRequest : public IdleRequestC
{
public:
    explicit InfoRequest(std::string text, QDialog* dialog = nullptr, bool throws = false)
        : m_text(std::move(text)), m_dialog(dialog), m_throws(throws)
    {
    }
    void perform() override
    {
        if (m_throws)
            throw std::runtime_error(m_text + " threw");
        const bool main = std::this_thread::get_id() == state().mainThread;
        info(m_text + (main ? " ran on the main thread" : " ran on another thread"));
        if (m_dialog)
            m_dialog->accept();
    }

private:
    std::string m_text;
    QDialog* m_dialog;
    bool m_throws;
};

// Reads argument `index` as `type`; the handle is released `releases` times.
bool argument(int index, BRIOTypeCode type, void* out, int releases = 1)
{
    BRIOValueHandle value = nullptr;
    if (!brio().get_argument(index, type, &value))
        return false;
    const void* data = brio().value_data(value);
    if (type == brio().string_type())
        *static_cast<std::string*>(out) = static_cast<const char*>(data);
    else
        *static_cast<int*>(out) = *static_cast<const int*>(data);
    for (int i = 0; i < releases; ++i)
        brio().free_value(value);
    return true;
}

// tp_integer(i): i.
BRIOValueHandle integerCommand()
{
    int number = 0;
    return argument(0, brio().integer_type(), &number) ? brio().return_integer(number) : nullptr;
}

// tp_null(): no value.
BRIOValueHandle nullCommand()
{
    return nullptr;
}

// tp_release(s, n): the length of s, whose handle is released n times.
BRIOValueHandle releaseCommand()
{
    int releases = 0;
    std::string value;
    if (!argument(1, brio().integer_type(), &releases) ||
        !argument(0, brio().string_type(), &value, releases))
        return nullptr;
    return brio().return_integer(static_cast<int>(value.size()));
}

// tp_version(): the BRIO interface version the host announces.
BRIOValueHandle versionCommand()
{
    return brio().return_integer(brio().interface_version());
}

// tp_types(...): shows the type code of each argument, and the size of lists.
BRIOValueHandle typesCommand()
{
    std::string shown = "types:";
    int index = 0;
    for (BRIOTypeCode type; (type = brio().argument_type(index)) >= 0; ++index) {
        shown += " " + std::to_string(type);
        BRIOValueHandle value = nullptr;
        if (type == 4 && brio().get_argument(index, type, &value)) {
            const auto* list = static_cast<const BRIOValue*>(brio().value_data(value));
            shown += "[" + std::to_string(list->items().size()) + "]";
            brio().free_value(value);
        }
    }
    info(shown);
    return brio().return_integer(index);
}

// tp_post(n[, k]): a thread of the plug-in posts n idle requests, one at a
// time; request k throws, and its failure is shown by a request of its own.
BRIOValueHandle postCommand()
{
    int count = 0;
    int throwing = 0;
    if (!argument(0, brio().integer_type(), &count))
        return nullptr;
    argument(1, brio().integer_type(), &throwing);
    std::thread([count, throwing] {
        for (int i = 1; i <= count; ++i) {
            const std::string name = "idle request " + std::to_string(i);
            if (InfoRequest(name, nullptr, i == throwing).postAndWaitUntilPerformed())
                continue;
            if (i != throwing ||
                !InfoRequest(name + " failed to its poster, which").postAndWaitUntilPerformed())
                return;
        }
    }).detach();
    return brio().return_integer(1);
}

// tp_modal(): 1 when an idle request posted while a modal dialog runs was
// performed inside the dialog's event loop (it closes the dialog).
BRIOValueHandle modalCommand()
{
    QDialog dialog;
    QTimer::singleShot(30000, &dialog, &QDialog::reject);
    std::thread poster(
        [&dialog] { InfoRequest("in the dialog", &dialog).postAndWaitUntilPerformed(); });
    const int result = dialog.exec();
    poster.join();
    return brio().return_integer(result == QDialog::Accepted ? 1 : 0);
}

BRIOCommandRow* commandTable()
{
    static BRIOCommandRow rows[] = {
        {"tp_integer", 0, &integerCommand, 0, 0, 0, 0},
        {"tp_null", 0, &nullCommand, 0, 0, 0, 0},
        {"tp_release", 0, &releaseCommand, 0, 0, 0, 0},
        {"tp_version", 0, &versionCommand, 0, 0, 0, 0},
        {"tp_types", 0, &typesCommand, 0, 0, 0, 0},
        {"tp_post", 0, &postCommand, 0, 0, 0, 0},
        {"tp_modal", 0, &modalCommand, 0, 0, 0, 0},
    };
    return rows;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int GetLibraryVersion()
{
    return 100;
}

extern "C" __attribute__((visibility("default"))) int
RegisterLibraryContents(PluginRegistry* registry)
{
    state().mainThread = std::this_thread::get_id();
    state().brio = static_cast<BRIOInterface*>(registry->find_interface("BRIO"));
    if (!state().brio)
        return registry->report_load_error("test plug-in: no BRIO interface");
    static BRIOLibraryBlock block = {"TestOp", "BRIO", commandTable(), 7};
    return state().brio->register_library(0, 0, 0, 1, &block) ? 1 : 0;
}
