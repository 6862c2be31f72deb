// A small plug-in for testing lumo-host in isolation: the two entry points of
// a Lumo plug-in and a library "TestOp" of commands that read their
// arguments, return integers or null, keep a handle, evaluate text, and post
// idle requests from a thread of their own.

#include <QDialog>
#include <QTimer>

#include <cstring>
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

bool evaluate(const std::string& text, const char* vocabulary = "Tessel_Voc")
{
    return brio().evaluate_text(vocabulary, text.c_str());
}

void info(const std::string& text)
{
    evaluate("de_info(\"" + text + "\");");
}

// Posts from its thread and waits, as the plug-in does for its host statements.
class StatementRequest : public IdleRequestC
{
public:
    explicit StatementRequest(std::string text) : m_text(std::move(text)) {}
    void perform() override
    {
        onMainThread = std::this_thread::get_id() == state().mainThread;
        result = m_text.empty() || evaluate(m_text);
    }
    bool onMainThread = false;
    bool result = false;

private:
    std::string m_text;
};

bool stringArgument(int index, std::string& text, bool release = true)
{
    BRIOValueHandle value = nullptr;
    if (brio().argument_type(index) != brio().string_type() ||
        !brio().get_argument(index, brio().string_type(), &value))
        return false;
    text = static_cast<const char*>(brio().value_data(value));
    if (release)
        brio().free_value(value);
    return true;
}

bool integerArgument(int index, int& number)
{
    BRIOValueHandle value = nullptr;
    if (!brio().get_argument(index, brio().integer_type(), &value))
        return false;
    number = *static_cast<const int*>(brio().value_data(value));
    brio().free_value(value);
    return true;
}

// tp_integer(i): i.
BRIOValueHandle integerCommand()
{
    int number = 0;
    return integerArgument(0, number) ? brio().return_integer(number) : nullptr;
}

// tp_length(s): the length of s.
BRIOValueHandle lengthCommand()
{
    std::string text;
    if (!stringArgument(0, text))
        return nullptr;
    return brio().return_integer(static_cast<int>(text.size()));
}

// tp_null(): no value.
BRIOValueHandle nullCommand()
{
    return nullptr;
}

// tp_leak(s): 1, keeping the handle of its argument.
BRIOValueHandle leakCommand()
{
    std::string text;
    return stringArgument(0, text, false) ? brio().return_integer(1) : nullptr;
}

// tp_double_free(s): releases the argument's handle twice.
BRIOValueHandle doubleFreeCommand()
{
    BRIOValueHandle value = nullptr;
    if (!brio().get_argument(0, brio().string_type(), &value))
        return nullptr;
    brio().free_value(value);
    brio().free_value(value);
    return brio().return_integer(1);
}

// tp_types(...): shows the type code of each argument, and the size of lists.
BRIOValueHandle typesCommand()
{
    std::string text = "types:";
    int index = 0;
    for (BRIOTypeCode type; (type = brio().argument_type(index)) >= 0; ++index) {
        text += " " + std::to_string(type);
        BRIOValueHandle value = nullptr;
        if (type == 4 && brio().get_argument(index, type, &value)) {
            const auto* list = static_cast<const BRIOValue*>(brio().value_data(value));
            text += "[" + std::to_string(list->items().size()) + "]";
            brio().free_value(value);
        }
    }
    info(text);
    return brio().return_integer(index);
}

// tp_real(x): x times 10, read as a real.
BRIOValueHandle realCommand()
{
    BRIOValueHandle value = nullptr;
    if (!brio().get_argument(0, 2, &value))
        return nullptr;
    const double number = *static_cast<const double*>(brio().value_data(value));
    brio().free_value(value);
    return brio().return_integer(static_cast<int>(number * 10));
}

// tp_eval(vocabulary, text): 1 when the host ran the text.
BRIOValueHandle evalCommand()
{
    std::string vocabulary;
    std::string text;
    if (!stringArgument(0, vocabulary) || !stringArgument(1, text))
        return nullptr;
    return brio().return_integer(evaluate(text, vocabulary.c_str()) ? 1 : 0);
}

// tp_find(vocabulary, name): shows the variable's value; 1 when it is set.
BRIOValueHandle findCommand()
{
    std::string vocabulary;
    std::string name;
    if (!stringArgument(0, vocabulary) || !stringArgument(1, name))
        return nullptr;
    BRIOValueHandle value = brio().find_variable(vocabulary.c_str(), name.c_str());
    if (!value)
        return brio().return_integer(0);
    info("found: " + std::string(static_cast<const char*>(brio().value_data(value))));
    brio().free_value(value);
    return brio().return_integer(1);
}

// tp_post(n, text): a thread of the plug-in posts n idle requests, each
// showing where it ran and then evaluating text.
BRIOValueHandle postCommand()
{
    int count = 0;
    std::string text;
    if (!integerArgument(0, count) || !stringArgument(1, text))
        return nullptr;
    std::thread([count, text] {
        for (int i = 1; i <= count; ++i) {
            StatementRequest request(text);
            if (!request.postAndWaitUntilPerformed())
                return;
            StatementRequest report(
                "de_info(\"idle request " + std::to_string(i) +
                (request.onMainThread ? " ran on the main thread" : " ran on another thread") +
                "\");");
            if (!report.postAndWaitUntilPerformed())
                return;
        }
    }).detach();
    return brio().return_integer(1);
}

// tp_query(): as the plug-in asks for a path: the statement through an idle
// request, the variable read on the plug-in's own thread.
BRIOValueHandle queryCommand()
{
    std::thread([] {
        StatementRequest query("mgcIntermediate=mgclink_get_workspace_path();");
        if (!query.postAndWaitUntilPerformed() || !query.result)
            return;
        std::string answer = "(unset)";
        if (BRIOValueHandle value = brio().find_variable("Tessel_Voc", "mgcIntermediate")) {
            answer = static_cast<const char*>(brio().value_data(value));
            brio().free_value(value);
        }
        StatementRequest report("de_info(\"workspace from thread: " + answer + "\");");
        report.postAndWaitUntilPerformed();
    }).detach();
    return brio().return_integer(1);
}

// Closes the dialog it was given when performed.
class CloseDialogRequest : public IdleRequestC
{
public:
    explicit CloseDialogRequest(QDialog* dialog) : m_dialog(dialog) {}
    void perform() override
    {
        info("performed inside the dialog");
        m_dialog->accept();
    }

private:
    QDialog* m_dialog;
};

// tp_modal(): 1 when an idle request posted while a modal dialog runs was
// performed inside the dialog's event loop (it closes the dialog).
BRIOValueHandle modalCommand()
{
    QDialog dialog;
    QTimer::singleShot(30000, &dialog, &QDialog::reject);
    std::thread poster([&dialog] {
        CloseDialogRequest request(&dialog);
        request.postAndWaitUntilPerformed();
    });
    const int result = dialog.exec();
    poster.join();
    return brio().return_integer(result == QDialog::Accepted ? 1 : 0);
}

// tp_eval_from_thread(text): evaluates text on a thread of its own, which a
// host must refuse, then shows the answer through an idle request.
BRIOValueHandle evalFromThreadCommand()
{
    std::string text;
    if (!stringArgument(0, text))
        return nullptr;
    std::thread([text] {
        const bool ran = evaluate(text);
        StatementRequest report(std::string("de_info(\"from thread: ") + (ran ? "ran" : "refused") +
                                "\");");
        report.postAndWaitUntilPerformed();
    }).detach();
    return brio().return_integer(1);
}

// tp_register(case): registers a second library that the host should refuse
// ("clash": a command named like a host function; "words": wrong leading
// words; "again": TestOp once more, accepted). 1 when the host accepted it.
BRIOValueHandle registerCommand()
{
    std::string which;
    if (!stringArgument(0, which))
        return nullptr;
    static BRIOCommandRow clash[] = {{"de_info", 0, &nullCommand, 0, 0, 0, 0}};
    static BRIOLibraryBlock clashBlock = {"ClashOp", "BRIO", clash, 1};
    static BRIOCommandRow again[] = {{"tp_null", 0, &nullCommand, 0, 0, 0, 0}};
    static BRIOLibraryBlock againBlock = {"TestOp", "BRIO", again, 1};
    bool accepted = false;
    if (which == "clash")
        accepted = brio().register_library(0, 0, 0, 1, &clashBlock);
    else if (which == "words")
        accepted = brio().register_library(0, 0, 0, 2, &againBlock);
    else if (which == "again")
        accepted = brio().register_library(0, 0, 0, 1, &againBlock);
    return brio().return_integer(accepted ? 1 : 0);
}

BRIOCommandRow* commandTable()
{
    static BRIOCommandRow rows[] = {
        {"tp_integer", 0, &integerCommand, 0, 0, 0, 0},
        {"tp_length", 0, &lengthCommand, 0, 0, 0, 0},
        {"tp_null", 0, &nullCommand, 0, 0, 0, 0},
        {"tp_leak", 0, &leakCommand, 0, 0, 0, 0},
        {"tp_double_free", 0, &doubleFreeCommand, 0, 0, 0, 0},
        {"tp_types", 0, &typesCommand, 0, 0, 0, 0},
        {"tp_real", 0, &realCommand, 0, 0, 0, 0},
        {"tp_eval", 0, &evalCommand, 0, 0, 0, 0},
        {"tp_find", 0, &findCommand, 0, 0, 0, 0},
        {"tp_post", 0, &postCommand, 0, 0, 0, 0},
        {"tp_query", 0, &queryCommand, 0, 0, 0, 0},
        {"tp_modal", 0, &modalCommand, 0, 0, 0, 0},
        {"tp_eval_from_thread", 0, &evalFromThreadCommand, 0, 0, 0, 0},
        {"tp_register", 0, &registerCommand, 0, 0, 0, 0},
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
    const int version = state().brio->interface_version();
    if (version < 1002 || version > 1999)
        return registry->report_load_error("test plug-in: incompatible BRIO interface");
    static BRIOLibraryBlock block = {"TestOp", "BRIO", commandTable(), 14};
    return state().brio->register_library(0, 0, 0, 1, &block) ? 1 : 0;
}
