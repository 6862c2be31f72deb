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
    // (nullopt: the variable stays unset). `failing` lists host function names
    // whose statements fail.
    void answerPaths(std::optional<std::string> workspace, std::optional<std::string> netlists,
                     std::vector<std::string> failing = {});

    // Runs `work` on another thread while this thread performs idle requests.
    // False when it did not finish within the timeout.
    bool runOnMessagingThread(const std::function<void()>& work);

    // Only the statements' texts, in order.
    std::vector<std::string> statementTexts() const;

private:
    PluginTestHost();
};
