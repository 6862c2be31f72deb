// A small plug-in for testing lumo-host in isolation: the two entry points of
// a Lumo plug-in and a library "TestOp" of commands that read their
// arguments, keep or over-release handles, and post idle requests from a
// thread of their own.

#include <stdexcept>
#include <string>
#include <thread>

#include "lumo/brio.h"
#include "lumo/brioscript.h"
#include "lumo/idlerequest.h"
#include "lumo/pluginregistry.h"

namespace {

BRIOInterface* brio = nullptr;

// Shows `text`, or throws when asked to.
class InfoRequest : public IdleRequestC
{
public:
    InfoRequest(std::string text, bool throws) : m_text(std::move(text)), m_throws(throws) {}
    void perform() override
    {
        if (m_throws)
            throw std::runtime_error(m_text + " threw");
        // The host refuses statements off its main thread.
        brio->evaluate_text("Tessel_Voc", ("de_info(\"" + m_text + " ran\");").c_str());
    }

private:
    std::string m_text;
    bool m_throws;
};

// Argument `index` as an integer, its handle released `releases` times;
// false when it is not an integer.
bool integerArgument(int index, int& out, int releases = 1)
{
    BRIOValueHandle value = nullptr;
    if (!brio->get_argument(index, brio->integer_type(), &value))
        return false;
    out = *static_cast<const int*>(brio->value_data(value));
    for (int i = 0; i < releases; ++i)
        brio->free_value(value);
    return true;
}

// tp_integer(i, n): i, whose handle is released n times.
BRIOValueHandle integerCommand()
{
    int number = 0;
    int releases = 0;
    return integerArgument(1, releases) && integerArgument(0, number, releases)
               ? brio->return_integer(number)
               : nullptr;
}

// tp_post(n, k): a thread of the plug-in posts n idle requests, one at a
// time; request k throws, and its failure is shown by a request of its own.
// The thread also tries a statement directly, which the host refuses.
BRIOValueHandle postCommand()
{
    int count = 0;
    int throwing = 0;
    if (!integerArgument(0, count) || !integerArgument(1, throwing))
        return nullptr;
    std::thread([count, throwing] {
        if (brio->evaluate_text("Tessel_Voc", "de_info(\"off the main thread\");"))
            return;
        for (int i = 1; i <= count; ++i) {
            const std::string name = "idle request " + std::to_string(i);
            if (!InfoRequest(name, i == throwing).postAndWaitUntilPerformed() &&
                (i != throwing || !InfoRequest(name + " failed to its poster, which", false)
                                       .postAndWaitUntilPerformed()))
                return;
        }
    }).detach();
    return brio->return_integer(1);
}

BRIOCommandRow commands[] = {
    {"tp_integer", 0, &integerCommand, 0, 0, 0, 0},
    {"tp_post", 0, &postCommand, 0, 0, 0, 0},
};

} // namespace

extern "C" __attribute__((visibility("default"))) int GetLibraryVersion()
{
    return 100;
}

extern "C" __attribute__((visibility("default"))) int
RegisterLibraryContents(PluginRegistry* registry)
{
    brio = static_cast<BRIOInterface*>(registry->find_interface("BRIO"));
    if (!brio)
        return registry->report_load_error("test plug-in: no BRIO interface");
    static BRIOLibraryBlock block = {"TestOp", "BRIO", commands, 2};
    return brio->register_library(0, 0, 0, 1, &block) ? 1 : 0;
}
