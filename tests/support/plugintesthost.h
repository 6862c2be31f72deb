#pragma once
// The plug-in registered once per test process on a fake host. The test's own
// thread is the host's main thread; messaging-thread work runs on a thread of
// its own while the test thread performs the idle requests it posts.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fakebrio.h"
#include "fakehost.h"
#include "fakeregistry.h"
#include "rfmsg/messagecontent.h"

class XServerLUMO;

class PluginTestHost
{
public:
    // Registers the plug-in on first use; call it first on the test's main thread.
    static PluginTestHost& instance();

    FakeBRIO brio;
    FakeRegistry registry{&brio};
    FakeHost host;

    XServerLUMO& server();

    // Back to a quiet host: no statements, every statement succeeds, no
    // arguments, no paths, no simulated peers, nothing sent.
    void reset();

    // The host answers the workspace and netlists queries with these paths
    // (nullopt: the variable stays unset); statements calling a function named
    // in `failing` fail.
    void answerPaths(std::optional<std::string> workspace, std::optional<std::string> netlists,
                     std::vector<std::string> failing = {});

    // Every statement the host ran, as "vocabulary: text", in order. One run
    // off the host's main thread (the test's own) fails the test.
    std::vector<std::string> statements();

    // Runs `work` on another thread while this thread performs idle requests.
    // False when it did not finish within the timeout.
    bool runOnMessagingThread(const std::function<void()>& work);

    // Hands a message holding `content` to OnReceive on a messaging thread.
    // Fails the test when OnReceive hangs, lets an exception out or replies.
    void receive(const RFMsgExp::MessageContent& content);

    // Calls the registered command `name` as the host would; get_argument
    // refuses the argument at `refused` (0-based). The integer the command
    // returned, or nullopt for a null result.
    std::optional<int> call(const char* name, std::vector<BRIOValue> arguments = {},
                            int refused = -1);

private:
    PluginTestHost();
};
