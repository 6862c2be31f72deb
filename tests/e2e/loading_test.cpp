// The host loads the real plug-in: the BRIO interface it finds, or does not,
// decides whether the commands are registered.

#include <gtest/gtest.h>

#include <QJsonArray>

#include "e2e.h"

namespace {

TEST(PluginLoading, WithoutAnAcceptableBrioInterfaceNothingIsRegisteredAndTheUserIsTold)
{
    struct Row
    {
        QStringList arguments;
        QString loadError; // empty: loaded
    };
    const std::vector<Row> rows = {
        {{}, {}},
        {{"--brio-version", "1001"}, "Tessel plugin found an incompatible BRIO interface"},
        {{"--brio-version", "2000"}, "Tessel plugin found an incompatible BRIO interface"},
        {{"--no-brio"}, "Tessel plugin failed to load the BRIO interface"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments.join(' ').toStdString());
        const HostRun run =
            runHost(E2E::hostArguments(row.arguments), "mgcconnect_is_connected_to_schematic();\n");
        EXPECT_EQ(run.records("load").at(0).value("version").toInt(), 100);
        EXPECT_EQ(run.records("lookup").at(0).value("found").toBool(),
                  !row.arguments.contains("--no-brio"));
        EXPECT_EQ(run.texts("load_error"),
                  row.loadError.isEmpty() ? QStringList{} : QStringList{row.loadError});
        const std::vector<QJsonObject> registered = run.records("register");
        if (row.loadError.isEmpty()) {
            EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
            ASSERT_EQ(registered.size(), 1u);
            EXPECT_EQ(registered[0].value("library").toString(), "CmdOp");
            EXPECT_EQ(registered[0].value("commands").toArray().size(), 16);
            EXPECT_EQ(run.results(), QJsonArray({0}));
        } else {
            EXPECT_EQ(run.exitCode, 1);
            EXPECT_TRUE(run.err.contains(row.loadError)) << run.err.toStdString();
            EXPECT_TRUE(registered.empty());
            EXPECT_TRUE(run.err.contains("unknown function mgcconnect_is_connected_to_schematic"));
        }
    }
}

} // namespace
