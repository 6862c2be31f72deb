// The entry points, each scenario in a fresh process: registration state is
// process-wide and never undone.

#include <cstdio>
#include <cstdlib>
#include <cstring>
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

constexpr char NoInterface[] = "Tessel plugin failed to load the BRIO interface";
constexpr char Incompatible[] = "Tessel plugin found an incompatible BRIO interface";

// Runs `scenario` in a child process with fresh plug-in state; it prints what
// went wrong and returns false on failure.
template <typename Scenario> void inFreshProcess(Scenario scenario)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(scenario() ? 0 : 1), testing::ExitedWithCode(0), "");
}

bool fail(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    return false;
}

struct VersionCase
{
    const char* name;
    int version;
    bool accepted;
};

class PluginEntryVersion : public testing::TestWithParam<VersionCase>
{
};

TEST_P(PluginEntryVersion, AcceptsOnly1002To1999)
{
    const VersionCase row = GetParam();
    inFreshProcess([row] {
        auto* brio = new FakeBRIO(); // outlives the plug-in's pointer
        brio->setVersion(row.version);
        FakeRegistry registry(brio);
        const int result = RegisterLibraryContents(&registry);
        if (row.accepted) {
            if (!registry.loadErrors.empty())
                return fail("unexpected load error " + registry.loadErrors.front());
            if (!PluginState::server())
                return fail("no server created");
            if (brio->registrations() != 1)
                return fail("command library not registered");
            return true;
        }
        if (registry.loadErrors != std::vector<std::string>{Incompatible})
            return fail("wrong load error");
        if (result != registry.loadErrorResult)
            return fail("the registry's result was not passed through");
        if (PluginState::server() || brio->registrations() != 0)
            return fail("server created or library registered for a refused version");
        if (PluginState::brio() != brio)
            return fail("interface pointer not kept");
        return true;
    });
}

INSTANTIATE_TEST_SUITE_P(
    Bounds, PluginEntryVersion,
    testing::Values(VersionCase{"below", 1001, false}, VersionCase{"lowest", 1002, true},
                    VersionCase{"typical", 1500, true}, VersionCase{"highest", 1999, true},
                    VersionCase{"above", 2000, false}, VersionCase{"zero", 0, false},
                    VersionCase{"negative", -1, false}),
    [](const testing::TestParamInfo<VersionCase>& info) { return std::string(info.param.name); });

TEST(PluginEntry, MissingInterfaceIsReportedWithoutAskingVersion)
{
    inFreshProcess([] {
        FakeRegistry registry(nullptr);
        const int result = RegisterLibraryContents(&registry);
        if (registry.lookups != std::vector<std::string>{"BRIO"})
            return fail("the interface was not looked up once by name");
        if (registry.loadErrors != std::vector<std::string>{NoInterface})
            return fail("wrong load error");
        if (result != registry.loadErrorResult)
            return fail("the registry's result was not passed through");
        return PluginState::server() == nullptr || fail("server created");
    });
}

TEST(PluginEntry, SecondRegistrationKeepsTheOneServerAndRegistersAgain)
{
    inFreshProcess([] {
        auto* brio = new FakeBRIO();
        FakeRegistry registry(brio);
        RegisterLibraryContents(&registry);
        XServerLUMO* first = PluginState::server();
        RegisterLibraryContents(&registry);
        if (!first || PluginState::server() != first)
            return fail("a second server was created");
        if (registry.lookups.size() != 2 || brio->registrations() != 2)
            return fail("the second registration did not look up and register again");
        return true;
    });
}

TEST(PluginEntry, RefusedTableLeavesServerWithFlagDown)
{
    inFreshProcess([] {
        auto* brio = new FakeBRIO();
        brio->setRegisterResult(false);
        FakeRegistry registry(brio);
        RegisterLibraryContents(&registry);
        if (!registry.loadErrors.empty())
            return fail("a refused table must not be reported");
        XServerLUMO* server = PluginState::server();
        if (!server || server->commandsRegistered())
            return fail("server missing or flag set");
        brio->setRegisterResult(true);
        RegisterLibraryContents(&registry);
        return server->commandsRegistered() || fail("flag not set by an accepted table");
    });
}

TEST(PluginEntry, VersionIs100BeforeAndAfterRegistration)
{
    inFreshProcess([] {
        if (GetLibraryVersion() != 100)
            return fail("wrong version before registration");
        auto* brio = new FakeBRIO();
        FakeRegistry registry(brio);
        RegisterLibraryContents(&registry);
        return GetLibraryVersion() == 100 || fail("wrong version after registration");
    });
}

TEST(PluginEntry, RegistersTheCommandLibraryBlockAsTheHostReadsIt)
{
    inFreshProcess([] {
        auto* brio = new FakeBRIO();
        FakeRegistry registry(brio);
        RegisterLibraryContents(&registry);
        if (brio->registrationWords() != std::vector<std::uint64_t>{0, 0, 0, 1})
            return fail("register_library not given three zero words and 1");
        const BRIOLibraryBlock* block = brio->registeredBlock();
        if (!block || std::strcmp(block->libraryName, "CmdOp") != 0 ||
            std::strcmp(block->interfaceName, "BRIO") != 0)
            return fail("wrong library or interface name");
        const std::vector<std::string> expected = {"mgcconnect_get_current_timestamp",
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
        if (block->commandCount != expected.size())
            return fail("wrong row count " + std::to_string(block->commandCount));
        static_assert(sizeof(BRIOCommandRow) == 7 * 8, "a row is seven 64-bit words");
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const BRIOCommandRow& row = block->commands[i];
            if (expected[i] != row.name)
                return fail("row " + std::to_string(i) + " is " + row.name);
            if (!row.function || row.reserved0 || row.reserved1 || row.reserved2 || row.reserved3 ||
                row.reserved4)
                return fail("row " + std::to_string(i) + " has a wrong word");
        }
        return true;
    });
}

} // namespace
