// The entry points. Registration state is process-wide and never undone, so
// one test walks through it in order, in a program of its own.

#include <limits>
#include <memory>
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

// Only an interface of 1002 to 1999 creates the server (subtracting the lowest
// version from the smallest integer would overflow); registering again keeps
// the one server and registers the table again, and the host may refuse it.
TEST(PluginEntry, RegistersForAnInterfaceOf1002To1999AndKeepsTheOneServer)
{
    EXPECT_EQ(GetLibraryVersion(), 100);
    // The interfaces outlive each registration: the plug-in keeps a pointer to the last one.
    std::vector<std::unique_ptr<FakeBRIO>> interfaces;
    const auto interface = [&](int version) {
        interfaces.push_back(std::make_unique<FakeBRIO>());
        interfaces.back()->setVersion(version);
        return interfaces.back().get();
    };
    const char* incompatible = "Tessel plugin found an incompatible BRIO interface";
    // interface found, its version, the load error
    const std::tuple<bool, int, const char*> refused[] = {
        // clang-format off
        {false, 0, "Tessel plugin failed to load the BRIO interface"}, {true, 1001, incompatible},
        {true, 2000, incompatible}, {true, std::numeric_limits<int>::min(), incompatible}};
    // clang-format on
    for (const auto& [interfaceFound, version, loadError] : refused) {
        SCOPED_TRACE(version);
        FakeBRIO* brio = interfaceFound ? interface(version) : nullptr;
        FakeRegistry registry(brio);
        EXPECT_EQ(RegisterLibraryContents(&registry), registry.loadErrorResult);
        EXPECT_EQ(registry.lookups, std::vector<std::string>{"BRIO"});
        EXPECT_EQ(registry.loadErrors, std::vector<std::string>{loadError});
        EXPECT_EQ(PluginState::brio(), brio) << "interface pointer not kept";
        EXPECT_EQ(PluginState::server(), nullptr);
        EXPECT_EQ(brio ? brio->registrations() : 0, 0);
    }

    FakeBRIO* brio = interface(1002);
    brio->setRegisterResult(false);
    FakeRegistry registry(brio);
    RegisterLibraryContents(&registry);
    XServerLUMO* server = PluginState::server();
    ASSERT_NE(server, nullptr);
    EXPECT_FALSE(server->commandsRegistered()) << "the host refused the table";
    EXPECT_TRUE(registry.loadErrors.empty()) << "a refused table is not reported";
    brio->setVersion(1999);
    brio->setRegisterResult(true);
    RegisterLibraryContents(&registry);
    EXPECT_EQ(PluginState::server(), server) << "a second server was created";
    EXPECT_EQ(brio->registrations(), 2);
    EXPECT_TRUE(server->commandsRegistered());

    EXPECT_EQ(brio->registrationWords(), (std::vector<std::uint64_t>{0, 0, 0, 1}));
    const BRIOLibraryBlock* block = brio->registeredBlock();
    EXPECT_STREQ(block->libraryName, "CmdOp");
    EXPECT_STREQ(block->interfaceName, "BRIO");
    // The other tests call each command by its name in this table.
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
}

} // namespace
