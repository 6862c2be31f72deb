// The entry points, each scenario in a fresh process: registration state is
// process-wide and never undone.

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fakebrio.h"
#include "fakeregistry.h"
#include "lumo/brio.h"
#include "plugin/pluginstate.h"
#include "server/xserverlumo.h"

extern "C" int GetLibraryVersion();
extern "C" int RegisterLibraryContents(PluginRegistry* registry);

namespace {

// Runs `scenario` in a child process with fresh plug-in state; the child's
// failed expectations fail the test.
template <typename Scenario> void inFreshProcess(Scenario scenario)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            scenario();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

struct RegistrationCase
{
    const char* name;
    bool interfaceFound;
    int version;
    const char* loadError; // null: accepted
};

using PluginEntryRegistration = testing::TestWithParam<RegistrationCase>;

TEST_P(PluginEntryRegistration, CreatesTheServerOnlyForAnInterfaceOf1002To1999)
{
    const RegistrationCase row = GetParam();
    inFreshProcess([row] {
        FakeBRIO* brio = row.interfaceFound ? new FakeBRIO() : nullptr; // outlives the plug-in
        if (brio)
            brio->setVersion(row.version);
        FakeRegistry registry(brio);
        const int result = RegisterLibraryContents(&registry);
        EXPECT_EQ(registry.lookups, std::vector<std::string>{"BRIO"});
        EXPECT_EQ(PluginState::brio(), brio) << "interface pointer not kept";
        EXPECT_EQ(PluginState::server() != nullptr, !row.loadError);
        EXPECT_EQ(brio ? brio->registrations() : 0, row.loadError ? 0 : 1);
        if (row.loadError) {
            EXPECT_EQ(registry.loadErrors, std::vector<std::string>{row.loadError});
            EXPECT_EQ(result, registry.loadErrorResult) << "the registry's result not passed on";
        } else {
            EXPECT_TRUE(registry.loadErrors.empty());
        }
    });
}

constexpr char Incompatible[] = "Tessel plugin found an incompatible BRIO interface";
// Subtracting the lowest version from the smallest integer would overflow.
INSTANTIATE_TEST_SUITE_P(
    Bounds, PluginEntryRegistration,
    testing::Values(
        RegistrationCase{"missing", false, 0, "Tessel plugin failed to load the BRIO interface"},
        RegistrationCase{"below", true, 1001, Incompatible},
        RegistrationCase{"lowest", true, 1002, nullptr},
        RegistrationCase{"highest", true, 1999, nullptr},
        RegistrationCase{"above", true, 2000, Incompatible},
        RegistrationCase{"smallestInt", true, std::numeric_limits<int>::min(), Incompatible}),
    [](const testing::TestParamInfo<RegistrationCase>& info) { return info.param.name; });

TEST(PluginEntry, ReRegistrationKeepsTheOneServerAndRegistersTheTableAgain)
{
    inFreshProcess([] {
        EXPECT_EQ(GetLibraryVersion(), 100);
        auto* brio = new FakeBRIO();
        brio->setRegisterResult(false);
        FakeRegistry registry(brio);
        RegisterLibraryContents(&registry);
        XServerLUMO* server = PluginState::server();
        ASSERT_NE(server, nullptr);
        EXPECT_FALSE(server->commandsRegistered()) << "the host refused the table";
        EXPECT_TRUE(registry.loadErrors.empty()) << "a refused table is not reported";
        brio->setRegisterResult(true);
        RegisterLibraryContents(&registry);
        EXPECT_EQ(PluginState::server(), server) << "a second server was created";
        EXPECT_EQ(registry.lookups.size(), 2u);
        EXPECT_EQ(brio->registrations(), 2);
        EXPECT_TRUE(server->commandsRegistered());
        EXPECT_EQ(GetLibraryVersion(), 100);

        EXPECT_EQ(brio->registrationWords(), (std::vector<std::uint64_t>{0, 0, 0, 1}));
        const BRIOLibraryBlock* block = brio->registeredBlock();
        ASSERT_NE(block, nullptr);
        EXPECT_STREQ(block->libraryName, "CmdOp");
        EXPECT_STREQ(block->interfaceName, "BRIO");
        // clang-format off
        const std::vector<std::string> expected = {"get_current_timestamp",
            "send_push_into_message", "initialize", "disconnect", "show_connections",
            "netlist_command", "instance_command", "update_command", "push_command",
            "layoutsend_command", "designsend_command", "is_connected_to_schematic",
            "is_connected_to_layout", "set_IFF_project_list", "write_IFF_options_file",
            "open_options_dialog"};
        // clang-format on
        ASSERT_EQ(block->commandCount, expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const BRIOCommandRow& row = block->commands[i];
            EXPECT_EQ(row.name, "mgcconnect_" + expected[i]);
            EXPECT_TRUE(row.function && !row.reserved0 && !row.reserved1 && !row.reserved2 &&
                        !row.reserved3 && !row.reserved4)
                << expected[i];
        }
        // Without an interface the next registration forgets the old one.
        FakeRegistry empty(nullptr);
        RegisterLibraryContents(&empty);
        EXPECT_EQ(PluginState::brio(), nullptr);
        EXPECT_EQ(PluginState::server(), server);
        delete brio;
    });
}

} // namespace
