#pragma once
// The fixture of the plug-in's tests: a quiet host and a fresh temporary
// working directory before each test; afterwards every library object handed
// out must have been destroyed exactly once, and no script value released twice
// or left behind beyond `unreleasedHandles`.

#include <optional>
#include <string>
#include <vector>

#include <QString>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "plugintesthost.h"
#include "rfmsg/testing.h"

class PluginTest : public testing::Test
{
public:
    // Statements as PluginTestHost::statements() gives them.
    static std::string host(const std::string& text) { return "Tessel_Voc: " + text; }
    static std::string logged(const std::string& text)
    {
        return "CmdOp: fprintf(stderr,\"Tessel:" + text + "\n\");";
    }
    static std::string shownError(const std::string& text)
    {
        return "CmdOp: de_info(\"Tessel Error: " + text + "\");";
    }
    // The statements `before`, then an error as it is shown and then logged.
    static std::vector<std::string> reported(const std::string& text,
                                             std::vector<std::string> before = {})
    {
        before.insert(before.end(), {shownError(text), logged("Error: " + text)});
        return before;
    }
    static inline const std::string WorkspaceQuery =
        "Tessel_Voc: mgcIntermediate=mgclink_get_workspace_path();";
    static inline const std::string NetlistsQuery =
        "Tessel_Voc: mgcIntermediate=mgclink_get_netlists_path();";

    // A received message of `kind` with `text`, whose document holds `regions`.
    static RFMsgExp::MessageContent message(int kind, std::vector<RFMsgExp::RegionContent> regions,
                                            std::string text = "");
    static RFMsgExp::RegionContent region(std::string name, std::string netlist = "",
                                          std::vector<RFMsgExp::PortContent> ports = {});

protected:
    void SetUp() override;
    void TearDown() override;

    std::vector<std::string> statements() { return test.statements(); }
    // The statements that receiving a message holding `content` ran.
    std::vector<std::string> received(const RFMsgExp::MessageContent& content);
    std::vector<RFMsgExp::Testing::SentMessage> sent();
    // The path of `name` in the test's directory, written with `content` if given.
    std::string file(const std::string& name,
                     const std::optional<std::string>& content = std::nullopt) const;
    // A file's whole content, byte for byte; nullopt when it cannot be read.
    static std::optional<std::string> fileContent(const std::string& path);

    PluginTestHost& test = PluginTestHost::instance();
    QTemporaryDir dir; // also the working directory while the test runs
    // Script values that the commands of a test deliberately keep.
    int unreleasedHandles = 0;

private:
    QString m_previousDirectory;
    long m_liveObjects = 0;
    int m_liveHandles = 0;
    int m_invalidFrees = 0;
};
