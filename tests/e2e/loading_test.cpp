// The host loads the real plug-in: the BRIO interface it finds, or does not,
// decides whether the commands are registered.

#include <gtest/gtest.h>

#include <QJsonArray>

#include "hostsession.h"

namespace {

TEST(PluginLoading, BrioVersionsOutsideTheAcceptedRangeAreRefused)
{
    struct Row
    {
        int version;
        bool accepted;
    };
    for (const Row row : {Row{1001, false}, Row{1002, true}, Row{1999, true}, Row{2000, false}}) {
        SCOPED_TRACE(row.version);
        HostSession host(HostSetup({"--brio-version", QString::number(row.version)}));
        host.run("mgcconnect_initialize(0, 0);");
        const int status = host.finish();

        const std::vector<QJsonObject> errors = host.records(RecordMatch::event("load_error"));
        const std::vector<QJsonObject> registered = host.records(RecordMatch::event("register"));
        if (row.accepted) {
            EXPECT_EQ(status, 0) << host.errors().toStdString();
            EXPECT_TRUE(errors.empty());
            ASSERT_EQ(registered.size(), 1u);
            EXPECT_EQ(registered[0].value("library").toString(), "CmdOp");
            EXPECT_EQ(registered[0].value("commands").toArray().size(), 16);
            EXPECT_EQ(host.records(RecordMatch::command("mgcconnect_initialize"))
                          .at(0)
                          .value("result")
                          .toInt(),
                      1);
        } else {
            EXPECT_EQ(status, 1);
            ASSERT_EQ(errors.size(), 1u);
            EXPECT_EQ(errors[0].value("text").toString(),
                      "Tessel plugin found an incompatible BRIO interface");
            EXPECT_TRUE(registered.empty());
            EXPECT_TRUE(host.errors().contains("unknown function mgcconnect_initialize"))
                << host.errors().toStdString();
        }
    }
}

TEST(PluginLoading, WithoutBrioInterfaceNothingIsRegisteredAndTheUserIsTold)
{
    HostSession host(HostSetup({"--no-brio"}));
    host.run("mgcconnect_is_connected_to_schematic();");
    EXPECT_EQ(host.finish(), 1);
    const std::vector<QJsonObject> lookups = host.records(RecordMatch::event("lookup"));
    ASSERT_EQ(lookups.size(), 1u);
    EXPECT_EQ(lookups[0].value("name").toString(), "BRIO");
    EXPECT_FALSE(lookups[0].value("found").toBool());
    EXPECT_EQ(host.records(RecordMatch::event("load_error")).at(0).value("text").toString(),
              "Tessel plugin failed to load the BRIO interface");
    EXPECT_TRUE(host.records(RecordMatch::event("register")).empty());
    EXPECT_TRUE((host.output() + host.errors())
                    .contains("Tessel plugin failed to load the BRIO interface"));
}

TEST(PluginLoading, LoadRecordCarriesTheLibraryVersionAndCommandsComeInTableOrder)
{
    HostSession host;
    EXPECT_EQ(host.finish(), 0);
    const std::vector<QJsonObject> loads = host.records(RecordMatch::event("load"));
    ASSERT_EQ(loads.size(), 1u);
    EXPECT_EQ(loads[0].value("version").toInt(), 100);
    const QJsonArray commands =
        host.records(RecordMatch::event("register")).at(0).value("commands").toArray();
    const QStringList expected = {"mgcconnect_get_current_timestamp",
                                  "mgcconnect_send_push_into_message",
                                  "mgcconnect_initialize",
                                  "mgcconnect_disconnect",
                                  "mgcconnect_show_connections",
                                  "mgcconnect_netlist_command",
                                  "mgcconnect_instance_command",
                                  "mgcconnect_update_command",
                                  "mgcconnect_push_command",
                                  "mgcconnect_layoutsend_command",
                                  "mgcconnect_designsend_command",
                                  "mgcconnect_is_connected_to_schematic",
                                  "mgcconnect_is_connected_to_layout",
                                  "mgcconnect_set_IFF_project_list",
                                  "mgcconnect_write_IFF_options_file",
                                  "mgcconnect_open_options_dialog"};
    QStringList names;
    for (const QJsonValue& name : commands)
        names << name.toString();
    EXPECT_EQ(names, expected);
}

} // namespace
