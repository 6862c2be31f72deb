#include "plugintesthost.h"

#include <atomic>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "lumo/pluginregistry.h"
#include "plugin/pluginstate.h"
#include "rfmsg/testing.h"
#include "server/xserverlumo.h"

extern "C" int RegisterLibraryContents(PluginRegistry* registry);

PluginTestHost& PluginTestHost::instance()
{
    // Never destroyed: the plug-in keeps pointers to it until the process ends.
    static PluginTestHost* host = new PluginTestHost();
    return *host;
}

PluginTestHost::PluginTestHost()
{
    RegisterLibraryContents(&registry);
}

XServerLUMO& PluginTestHost::server()
{
    return *PluginState::server();
}

void PluginTestHost::reset()
{
    brio.clearStatements();
    brio.setArguments({});
    brio.setEvaluator([](const std::string&, const std::string&) { return true; });
    brio.setVariable("Tessel_Voc", "mgcIntermediate", std::nullopt);
    RFMsgExp::Testing::simulatePeers(server(), {});
    RFMsgExp::Testing::clearSentMessages(server());
}

void PluginTestHost::answerPaths(std::optional<std::string> workspace,
                                 std::optional<std::string> netlists,
                                 std::vector<std::string> failing)
{
    FakeBRIO* fake = &brio;
    brio.setEvaluator([=](const std::string& vocabulary, const std::string& text) {
        for (const std::string& function : failing)
            if (text.find(function + "(") != std::string::npos)
                return false;
        std::optional<std::string> answer;
        if (text == "mgcIntermediate=mgclink_get_workspace_path();")
            answer = workspace;
        else if (text == "mgcIntermediate=mgclink_get_netlists_path();")
            answer = netlists;
        else
            return true;
        fake->setVariable(vocabulary, "mgcIntermediate", answer);
        return true;
    });
}

std::vector<std::string> PluginTestHost::statements()
{
    std::vector<std::string> texts;
    for (const FakeBRIO::Statement& statement : brio.statements()) {
        EXPECT_EQ(statement.thread, std::this_thread::get_id())
            << "not run on the main thread: " << statement.text;
        texts.push_back(statement.vocabulary + ": " + statement.text);
    }
    return texts;
}

bool PluginTestHost::runOnMessagingThread(const std::function<void()>& work)
{
    std::atomic<bool> done{false};
    std::thread worker([&] {
        work();
        done = true;
    });
    const bool finished = host.pumpUntil([&] { return done.load(); });
    if (!finished)
        host.shutdown(); // release the worker rather than hang the test run
    worker.join();
    return finished;
}

void PluginTestHost::receive(const RFMsgExp::MessageContent& content)
{
    bool replied = false;
    bool escaped = false;
    EXPECT_TRUE(runOnMessagingThread([&] {
        try {
            replied =
                static_cast<bool>(server().OnReceive(RFMsgExp::Testing::makeMessage(content)));
        } catch (...) {
            escaped = true;
        }
    })) << "OnReceive did not return";
    EXPECT_FALSE(escaped) << "an exception left OnReceive";
    EXPECT_FALSE(replied) << "OnReceive returned a reply";
}

std::optional<int> PluginTestHost::call(const char* name, std::vector<BRIOValue> arguments,
                                        int refused)
{
    const BRIOLibraryBlock* block = brio.registeredBlock();
    for (std::uint64_t row = 0; block && row < block->commandCount; ++row) {
        if (std::strcmp(block->commands[row].name, name) != 0)
            continue;
        brio.setArguments(std::move(arguments));
        if (refused >= 0)
            brio.failGetArgumentAt(refused);
        const BRIOValueHandle result = block->commands[row].function();
        if (!result)
            return std::nullopt;
        const std::optional<int> value = brio.resultOf(result);
        EXPECT_TRUE(value.has_value()) << name << " returned a value not made by return_integer";
        return value;
    }
    ADD_FAILURE() << "no command " << name << " in the registered table";
    return std::nullopt;
}
