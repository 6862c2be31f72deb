// The host loads the real plug-in: the BRIO interface it finds, or does not,
// decides whether the commands are registered.

#include <gtest/gtest.h>

#include "e2e.h"

namespace {

TEST(PluginLoading, WithoutAnAcceptableBrioInterfaceNothingIsRegisteredAndTheUserIsTold)
{
    const std::vector<std::pair<QStringList, QString>> rows = {
        {{}, {}},
        {{"--brio-version", "2000"}, "Tessel plugin found an incompatible BRIO interface"},
        {{"--no-brio"}, "Tessel plugin failed to load the BRIO interface"},
    };
    for (const auto& [arguments, loadError] : rows) {
        SCOPED_TRACE(arguments.join(' ').toStdString());
        const HostRun run =
            runHost(arguments + QStringList{"-e", "mgcconnect_is_connected_to_schematic();"});
        const std::vector<QJsonObject> registered = run.records("register");
        if (loadError.isEmpty()) {
            EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
            ASSERT_EQ(registered.size(), 1u);
            EXPECT_EQ(registered[0]["library"], "CmdOp");
            EXPECT_EQ(registered[0]["commands"].toArray().size(), 16);
            EXPECT_EQ(run.results(), QJsonArray({0}));
        } else {
            EXPECT_EQ(run.texts("load_error"), QStringList{loadError});
            EXPECT_TRUE(registered.empty());
            EXPECT_TRUE(run.err.contains("unknown function mgcconnect_is_connected_to_schematic"));
        }
    }
}

} // namespace
