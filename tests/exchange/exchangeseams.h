#pragma once
// What the command, server and exchange tests share: calling a script command
// through the table the plug-in registered, handing a message to OnReceive on
// a messaging thread, reading back what reached the host, and a fixture that
// checks that every library object and script value was released.

#include <cstring>
#include <fstream>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <QDir>
#include <gtest/gtest.h>

#include "plugintesthost.h"
#include "rfmsg/testing.h"
#include "server/xserverlumo.h"

namespace ExchangeSeams {

// One statement as the host ran it.
struct HostStatement
{
    std::string vocabulary;
    std::string text;
    bool operator==(const HostStatement& other) const
    {
        return vocabulary == other.vocabulary && text == other.text;
    }
};

inline void PrintTo(const HostStatement& statement, std::ostream* out)
{
    *out << statement.vocabulary << ": " << testing::PrintToString(statement.text);
}

// A statement of the plug-in's own vocabulary (host actions and queries).
inline HostStatement host(std::string text)
{
    return {"Tessel_Voc", std::move(text)};
}

// A statement of the user-message vocabulary (de_info and the log).
inline HostStatement message(std::string text)
{
    return {"CmdOp", std::move(text)};
}

inline const HostStatement& workspaceQuery()
{
    static const HostStatement query = host("mgcIntermediate=mgclink_get_workspace_path();");
    return query;
}

inline const HostStatement& netlistsQuery()
{
    static const HostStatement query = host("mgcIntermediate=mgclink_get_netlists_path();");
    return query;
}

// Every statement the host ran, in order. The host may only be used on its
// main thread, which is the test's own: a statement run elsewhere fails here.
inline std::vector<HostStatement> hostStatements(PluginTestHost& test)
{
    std::vector<HostStatement> statements;
    for (const FakeBRIO::Statement& statement : test.brio.statements()) {
        EXPECT_EQ(statement.thread, std::this_thread::get_id())
            << "not run on the main thread: " << statement.text;
        statements.push_back({statement.vocabulary, statement.text});
    }
    return statements;
}

// Calls the registered command `name` with these script arguments, as the host
// would; the host refuses to deliver the argument at `refusedArgument` (0-based).
// The integer the command returned, or nullopt for a null result.
inline std::optional<int> callCommand(PluginTestHost& test, const char* name,
                                      std::vector<BRIOValue> arguments, int refusedArgument = -1)
{
    const BRIOLibraryBlock* block = test.brio.registeredBlock();
    if (!block) {
        ADD_FAILURE() << "no command library registered";
        return std::nullopt;
    }
    for (std::uint64_t row = 0; row < block->commandCount; ++row) {
        if (std::strcmp(block->commands[row].name, name) != 0)
            continue;
        test.brio.setArguments(std::move(arguments));
        if (refusedArgument >= 0)
            test.brio.failGetArgumentAt(refusedArgument);
        BRIOValueHandle result = block->commands[row].function();
        if (!result)
            return std::nullopt;
        std::optional<int> value = test.brio.resultOf(result);
        EXPECT_TRUE(value.has_value()) << name << " returned a value not made by return_integer";
        return value;
    }
    ADD_FAILURE() << "no command " << name << " in the registered table";
    return std::nullopt;
}

// Hands a message holding `content` to the server's OnReceive on a thread of
// its own while this thread, the host's main thread, performs idle requests.
inline void receive(PluginTestHost& test, const RFMsgExp::MessageContent& content)
{
    bool replied = false;
    bool escaped = false;
    const bool finished = test.runOnMessagingThread([&] {
        try {
            replied =
                static_cast<bool>(test.server().OnReceive(RFMsgExp::Testing::makeMessage(content)));
        } catch (...) {
            escaped = true;
        }
    });
    ASSERT_TRUE(finished) << "OnReceive did not return";
    EXPECT_FALSE(escaped) << "an exception left OnReceive";
    EXPECT_FALSE(replied) << "OnReceive returned a reply";
}

// The whole content of a file, byte for byte; nullopt when it cannot be read.
inline std::optional<std::string> fileContent(const std::string& path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file)
        return std::nullopt;
    std::string content(static_cast<std::size_t>(file.tellg()), '\0');
    file.seekg(0);
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    return content;
}

// Makes `path` the working directory for its lifetime: where relative file
// names written by the plug-in land.
class WorkingDirectory
{
public:
    explicit WorkingDirectory(const QString& path) : m_previous(QDir::currentPath())
    {
        EXPECT_TRUE(QDir::setCurrent(path)) << path.toStdString();
    }
    ~WorkingDirectory() { QDir::setCurrent(m_previous); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    QString m_previous;
};

// A quiet host before each test; afterwards every library object handed out
// must have been destroyed, and no script value released twice or left behind
// beyond `unreleasedHandles`.
class SeamTest : public testing::Test
{
protected:
    void SetUp() override
    {
        test.reset();
        m_liveObjects = RFMsgExp::Testing::liveObjects();
        m_liveHandles = test.brio.liveHandles();
        m_invalidFrees = test.brio.invalidFrees();
    }

    void TearDown() override
    {
        EXPECT_EQ(RFMsgExp::Testing::liveObjects(), m_liveObjects)
            << "library objects created and not destroyed exactly once";
        EXPECT_EQ(test.brio.liveHandles() - m_liveHandles, unreleasedHandles)
            << "script values left unreleased";
        EXPECT_EQ(test.brio.invalidFrees(), m_invalidFrees) << "script values released twice";
    }

    std::vector<HostStatement> statements() { return hostStatements(test); }
    std::vector<RFMsgExp::Testing::SentMessage> sent()
    {
        return RFMsgExp::Testing::sentMessages(test.server());
    }

    PluginTestHost& test = PluginTestHost::instance();
    // Script values that the commands of a test deliberately keep.
    int unreleasedHandles = 0;

private:
    long m_liveObjects = 0;
    int m_liveHandles = 0;
    int m_invalidFrees = 0;
};

} // namespace ExchangeSeams
