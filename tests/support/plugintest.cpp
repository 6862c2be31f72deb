#include "plugintest.h"

#include <fstream>

#include <QDir>
#include <QFile>

#include "server/xserverlumo.h"

void PluginTest::SetUp()
{
    ASSERT_TRUE(dir.isValid());
    m_previousDirectory = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(dir.path()));
    test.reset();
    m_liveObjects = RFMsgExp::Testing::liveObjects();
    m_liveHandles = test.brio.liveHandles();
    m_invalidFrees = test.brio.invalidFrees();
}

void PluginTest::TearDown()
{
    QDir::setCurrent(m_previousDirectory);
    EXPECT_EQ(RFMsgExp::Testing::liveObjects(), m_liveObjects)
        << "library objects created and not destroyed exactly once";
    EXPECT_EQ(test.brio.liveHandles() - m_liveHandles, unreleasedHandles)
        << "script values left unreleased";
    EXPECT_EQ(test.brio.invalidFrees(), m_invalidFrees) << "script values released twice";
}

RFMsgExp::MessageContent PluginTest::message(int kind, std::vector<RFMsgExp::RegionContent> regions,
                                             std::string text)
{
    RFMsgExp::MessageContent content;
    content.kind = kind;
    content.text = std::move(text);
    content.document.emplace().regions = std::move(regions);
    return content;
}

RFMsgExp::RegionContent PluginTest::region(std::string name, std::string netlist,
                                           std::vector<RFMsgExp::PortContent> ports)
{
    RFMsgExp::RegionContent region;
    region.name = std::move(name);
    region.netlist = std::move(netlist);
    region.egs = "EGS of " + region.name;
    region.ports = std::move(ports);
    return region;
}

std::vector<std::string> PluginTest::received(const RFMsgExp::MessageContent& content)
{
    test.brio.clearStatements();
    test.receive(content);
    return statements();
}

std::vector<RFMsgExp::Testing::SentMessage> PluginTest::sent()
{
    return RFMsgExp::Testing::sentMessages(test.server());
}

std::string PluginTest::file(const std::string& name,
                             const std::optional<std::string>& content) const
{
    const std::string path = dir.path().toStdString() + "/" + name;
    if (content)
        std::ofstream(path, std::ios::binary) << *content;
    return path;
}

std::optional<std::string> PluginTest::fileContent(const std::string& path)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll().toStdString();
}
