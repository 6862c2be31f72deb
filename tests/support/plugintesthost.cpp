#include "plugintesthost.h"

#include <atomic>
#include <thread>

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

std::vector<std::string> PluginTestHost::statementTexts() const
{
    std::vector<std::string> texts;
    for (const FakeBRIO::Statement& statement : brio.statements())
        texts.push_back(statement.text);
    return texts;
}
