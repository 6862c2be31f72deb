// The script commands of "CmdOp" called through the table the host registered:
// their argument checks, the values they release or keep, their results, and
// the connection commands.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "exchangeseams.h"
#include "options/optionnames.h"
#include "options/tesseloptions.h"

namespace {

using namespace ExchangeSeams;
using RFMsgExp::Testing::Peer;

class Commands : public SeamTest
{
protected:
    QString exportProjects()
    {
        return test.server().GetOptions().iff().get_option_value(
            Tessel::OptionName::ExportProjects);
    }
};

struct StringCommand
{
    const char* name;
    int arguments;
};

const std::vector<StringCommand>& stringCommands()
{
    static const std::vector<StringCommand> commands = {
        {"mgcconnect_send_push_into_message", 3}, {"mgcconnect_netlist_command", 4},
        {"mgcconnect_push_command", 3},           {"mgcconnect_layoutsend_command", 5},
        {"mgcconnect_designsend_command", 5},     {"mgcconnect_set_IFF_project_list", 1},
        {"mgcconnect_write_IFF_options_file", 1},
    };
    return commands;
}

TEST_F(Commands, AnArgumentOfTheWrongTypeOrMissingGivesNullAndFetchesNothing)
{
    QTemporaryDir directory;
    ASSERT_TRUE(directory.isValid());
    const WorkingDirectory workingDirectory(directory.path());
    for (const StringCommand& command : stringCommands()) {
        std::vector<std::vector<BRIOValue>> calls;
        for (int position = 0; position < command.arguments; ++position) {
            for (const BRIOValue& wrong : {BRIOValue(7), BRIOValue(2.5)}) {
                std::vector<BRIOValue> arguments(command.arguments, BRIOValue("file"));
                arguments[position] = wrong;
                calls.push_back(arguments);
            }
        }
        calls.push_back(std::vector<BRIOValue>(command.arguments - 1, BRIOValue("file")));
        for (std::size_t call = 0; call < calls.size(); ++call) {
            SCOPED_TRACE(std::string(command.name) + " call " + std::to_string(call));
            const int fetches = test.brio.getArgumentCalls();
            EXPECT_EQ(callCommand(test, command.name, calls[call]), std::nullopt);
            EXPECT_EQ(test.brio.getArgumentCalls(), fetches);
        }
    }
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(statements().empty());
    EXPECT_TRUE(exportProjects().isEmpty());
    EXPECT_TRUE(QDir(directory.path()).isEmpty());
}

TEST_F(Commands, InitializeTakesTwoIntegersOrGivesNullAndStartsNothing)
{
    const std::vector<std::vector<BRIOValue>> calls = {
        {"0", 0}, {0, "0"}, {0, 2.5}, {0}, {},
    };
    for (std::size_t call = 0; call < calls.size(); ++call) {
        SCOPED_TRACE(call);
        EXPECT_EQ(callCommand(test, "mgcconnect_initialize", calls[call]), std::nullopt);
    }
    // Each integer's value is released as soon as it is read.
    EXPECT_EQ(callCommand(test, "mgcconnect_initialize", {0, 0}, 1), std::nullopt);
    EXPECT_TRUE(statements().empty()) << "no start was logged";
    EXPECT_EQ(test.server().GetPort(), 0) << "the bridge was started";
}

class InitializeCommand : public Commands
{
protected:
    void SetUp() override
    {
        Commands::SetUp();
        ASSERT_TRUE(directory.isValid());
        optionsFile = directory.path().toStdString() + "/Tessel.opt";
        previousFile = test.server().GetOptions().get_option_file_name();
        test.server().GetOptions().set_option_file_name(optionsFile);
    }

    void TearDown() override
    {
        test.server().GetOptions().set_option_file_name(previousFile);
        Commands::TearDown();
    }

    void writeTargetLibrary(const QString& library)
    {
        Tessel::TesselOptions options;
        options.set_option_file_name(optionsFile);
        options.set_options_to_default();
        options.general().set_option(Tessel::OptionName::TargetLib, library, QString());
        ASSERT_TRUE(options.save());
    }

    QString targetLibrary()
    {
        return test.server().GetOptions().general().get_option_value(Tessel::OptionName::TargetLib);
    }

    HostStatement startedLog()
    {
        return message("fprintf(stderr,\"Tessel:Server started, hostname is " +
                       std::string(test.server().GetMachineName().c_str()) + "\n\");");
    }

    QTemporaryDir directory;
    std::string optionsFile;
    std::string previousFile;
};

TEST_F(InitializeCommand, StartsTheBridgeLoadsTheOptionsAndLogsTheStartEachTime)
{
    for (const QString library : {"first", "second"}) {
        SCOPED_TRACE(library.toStdString());
        test.brio.clearStatements();
        writeTargetLibrary(library);
        EXPECT_EQ(callCommand(test, "mgcconnect_initialize", {0, 0}), 1);
        EXPECT_EQ(statements(), std::vector<HostStatement>{startedLog()});
        EXPECT_NE(test.server().GetPort(), 0) << "the bridge is not listening";
        EXPECT_EQ(targetLibrary(), library);
        EXPECT_EQ(callCommand(test, "mgcconnect_disconnect", {}), 1);
    }
}

TEST_F(InitializeCommand, APortInUseShowsTheLibraryErrorThenStillLogsTheStart)
{
    // A port the system picked, held by a listening socket of our own.
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(socket, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(socket, 1), 0);
    ASSERT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const int busyPort = ntohs(address.sin_port);

    writeTargetLibrary("loaded");
    test.server().GetOptions().general().clear_options();
    EXPECT_EQ(callCommand(test, "mgcconnect_initialize", {busyPort, 0}), 1);
    const std::vector<HostStatement> ran = statements();
    ::close(socket);

    ASSERT_EQ(ran.size(), 3u);
    const std::string shown = "de_info(\"Tessel Error: Problem with communications with Mentor - "
                              "MGCC XServer Error, value is ";
    EXPECT_EQ(ran[0].vocabulary, "CmdOp");
    EXPECT_EQ(ran[0].text.compare(0, shown.size(), shown), 0) << ran[0].text;
    EXPECT_EQ(ran[1].text.rfind("fprintf(stderr,\"Tessel:Error: Problem with communications", 0),
              0u)
        << ran[1].text;
    EXPECT_EQ(ran[2], startedLog());
    // The throw came before the options were read.
    EXPECT_TRUE(targetLibrary().isEmpty());
    EXPECT_EQ(callCommand(test, "mgcconnect_disconnect", {}), 1);
}

TEST_F(Commands, ConnectionQueriesMatchTheApplicationNameIgnoringCase)
{
    struct Row
    {
        std::vector<Peer> peers;
        int schematic;
        int layout;
    };
    const std::vector<Row> rows = {
        {{}, 0, 0},
        {{{"DXD", 1}}, 1, 0},
        {{{"dxd", 1}}, 1, 0},
        {{{"bSxE", 1}}, 0, 1},
        {{{"DXD2", 1}, {"XBSXE", 2}, {"", 3}}, 0, 0},
        {{{"other", 1}, {"BSXE", 2}, {"Dxd", 3}}, 1, 1},
    };
    for (std::size_t row = 0; row < rows.size(); ++row) {
        SCOPED_TRACE(row);
        RFMsgExp::Testing::simulatePeers(test.server(), rows[row].peers);
        EXPECT_EQ(callCommand(test, "mgcconnect_is_connected_to_schematic", {}),
                  rows[row].schematic);
        EXPECT_EQ(callCommand(test, "mgcconnect_is_connected_to_layout", {}), rows[row].layout);
    }
    EXPECT_TRUE(statements().empty());
}

TEST_F(Commands, TimestampIsTheLowThirtyTwoBitsOfTheCurrentTime)
{
    const auto before = static_cast<std::uint32_t>(std::time(nullptr));
    const std::optional<int> stamp = callCommand(test, "mgcconnect_get_current_timestamp", {});
    const auto after = static_cast<std::uint32_t>(std::time(nullptr));
    ASSERT_TRUE(stamp.has_value());
    EXPECT_GE(static_cast<std::uint32_t>(*stamp), before);
    EXPECT_LE(static_cast<std::uint32_t>(*stamp), after);
}

TEST_F(Commands, SendPushIntoMessageStopsAtARefusedFetchKeepingTheValuesBefore)
{
    for (int refused = 0; refused < 3; ++refused) {
        SCOPED_TRACE(refused);
        EXPECT_EQ(callCommand(test, "mgcconnect_send_push_into_message", {"a", "b", "c"}, refused),
                  std::nullopt);
    }
    EXPECT_TRUE(sent().empty());
    unreleasedHandles = 0 + 1 + 2;
}

TEST_F(Commands, TheOtherSendCommandsGoOnWhateverTheirFetchesGave)
{
    QTemporaryDir directory;
    ASSERT_TRUE(directory.isValid());
    const std::string iff = directory.path().toStdString() + "/a.iff";
    QFile(QString::fromStdString(iff)).open(QIODevice::WriteOnly);
    struct Row
    {
        const char* name;
        int arguments;
        int refused;
        int unreleased;
    };
    const std::vector<Row> rows = {
        {"mgcconnect_netlist_command", 4, 1, 0},
        {"mgcconnect_push_command", 3, 2, 0},
        {"mgcconnect_designsend_command", 5, 4, 0},
        {"mgcconnect_layoutsend_command", 5, 2, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(callCommand(test, row.name, std::vector<BRIOValue>(row.arguments, BRIOValue(iff)),
                              row.refused),
                  1);
        unreleasedHandles += row.unreleased;
    }
    EXPECT_TRUE(statements().empty());
    EXPECT_EQ(sent().size(), rows.size());
}

TEST_F(Commands, OptionCommandsDecodeTheirTextAsUtf8AndKeepItsValue)
{
    QTemporaryDir directory;
    ASSERT_TRUE(directory.isValid());
    const std::string projects = "Projekt \xc3\xa4, b;c";
    EXPECT_EQ(callCommand(test, "mgcconnect_set_IFF_project_list", {projects}), 1);
    EXPECT_EQ(exportProjects(), QString::fromUtf8(projects.c_str()));
    EXPECT_TRUE(test.server()
                    .GetOptions()
                    .iff()
                    .get_option_tip(Tessel::OptionName::ExportProjects)
                    .isEmpty());

    const std::string written = directory.path().toStdString() + "/\xc3\xb6ptions.txt";
    EXPECT_EQ(callCommand(test, "mgcconnect_write_IFF_options_file", {written}), 1);
    EXPECT_TRUE(QFile::exists(QString::fromUtf8(written.c_str())));
    EXPECT_EQ(callCommand(test, "mgcconnect_write_IFF_options_file",
                          {directory.path().toStdString() + "/missing/options.txt"}),
              0);
    EXPECT_TRUE(statements().empty());
    unreleasedHandles = 3;
}

} // namespace
