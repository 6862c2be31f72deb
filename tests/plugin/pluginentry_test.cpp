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

// Only an interface of 1002 to 1999 creates the server and registers the
// table; subtracting the lowest version from the smallest integer would overflow.
TEST(PluginEntry, CreatesTheServerOnlyForAnInterfaceOf1002To1999)
{
    const char* incompatible = "Tessel plugin found an incompatible BRIO interface";
    // interface found, its version, the load error (null: accepted)
    const std::tuple<bool, int, const char*> rows[] = {
        // clang-format off
        {false, 0, "Tessel plugin failed to load the BRIO interface"}, {true, 1001, incompatible},
        {true, 1002, nullptr}, {true, 1999, nullptr}, {true, 2000, incompatible},
        {true, std::numeric_limits<int>::min(), incompatible}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(std::get<1>(row));
        inFreshProcess([&row] {
            const auto& [interfaceFound, version, loadError] = row;
            FakeBRIO* brio = interfaceFound ? new FakeBRIO() : nullptr; // outlives the plug-in
            if (brio)
                brio->setVersion(version);
            FakeRegistry registry(brio);
            const int result = RegisterLibraryContents(&registry);
            EXPECT_EQ(registry.lookups, std::vector<std::string>{"BRIO"});
            EXPECT_EQ(PluginState::brio(), brio) << "interface pointer not kept";
            EXPECT_EQ(PluginState::server() != nullptr, !loadError);
            EXPECT_EQ(brio ? brio->registrations() : 0, loadError ? 0 : 1);
            EXPECT_EQ(registry.loadErrors,
                      loadError ? std::vector<std::string>{loadError} : std::vector<std::string>{});
            EXPECT_TRUE(!loadError || result == registry.loadErrorResult)
                << "the registry's result not passed on";
        });
    }
}

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
        EXPECT_EQ(brio->registrations(), 2);
        EXPECT_TRUE(server->commandsRegistered());

        EXPECT_EQ(brio->registrationWords(), (std::vector<std::uint64_t>{0, 0, 0, 1}));
        const BRIOLibraryBlock* block = brio->registeredBlock();
        EXPECT_STREQ(block->libraryName, "CmdOp");
        EXPECT_STREQ(block->interfaceName, "BRIO");
        // The unit tests call each command by its name in this table.
        ASSERT_EQ(block->commandCount, 16u);
        for (std::size_t i = 0; i < block->commandCount; ++i) {
            const BRIOCommandRow& row = block->commands[i];
            EXPECT_TRUE(row.function && !row.reserved0 && !row.reserved1 && !row.reserved2 &&
                        !row.reserved3 && !row.reserved4)
                << row.name;
        }
        EXPECT_STREQ(block->commands[15].name, "mgcconnect_open_options_dialog");
        // Without an interface the next registration forgets the old one.
        FakeRegistry empty(nullptr);
        RegisterLibraryContents(&empty);
        EXPECT_EQ(PluginState::brio(), nullptr);
        EXPECT_EQ(PluginState::server(), server);
        delete brio;
    });
}

} // namespace
