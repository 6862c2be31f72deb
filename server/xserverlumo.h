#pragma once

#include <string>

#include <QThread>

#include "options/tesseloptions.h"
#include "rfmsg/xbridge.h"

// The plug-in's one connection server: its end of the link with the schematic
// and layout tools. Created at registration on the host's main thread and never
// deleted. OnReceive and OnError run on the messaging library's thread; every
// other operation runs on the host's main thread.
class XServerLUMO : public RFMsgExp::XBridge
{
public:
    XServerLUMO();
    ~XServerLUMO() override;

    // --- lifecycle and queries (main thread) ---
    void setCommandsRegistered(bool registered) { m_commandsRegistered = registered; }
    bool commandsRegistered() const { return m_commandsRegistered; }
    Tessel::TesselOptions& GetOptions() { return m_options; }
    // Starts the bridge, then loads the options; logs the start in any case.
    void Initialize(int port, int second);
    bool IsConnectedToApplication(const std::string& applicationName);
    // Shows the link's state through the host's mgclink_show_connected_servers.
    void ShowConnections();

    // --- sending (main thread) ---
    bool SendDesignIff(const char* schematicIffPath, const char* layoutIffPath, const char* design,
                       const char* region, const char* designPath);
    bool SendLayoutIff(const char* layoutIffPath, const char* schematicIffPath, const char* design,
                       const char* region, const char* designPath);
    bool SendNetlistRequest(const char* first, const char* region, const char* third,
                            const char* fourth);
    // Only `region` is used; the three others are never dereferenced.
    bool SendHighlightRequest(const void* first, const void* second, const void* third,
                              const char* region);
    bool SendInstanceRequest();
    // OnSend, with a failure shown as a communication error instead of thrown.
    void SendToPeers(RFMsgExp::IRFMessage& message);

    // --- running host statements (any thread) ---
    // Runs `text` at once on the main thread; from any other thread posts it to
    // the host and waits until the host has performed it.
    bool RunBrioCommand(const char* text, const char* vocabulary);
    std::string GetWorkspacePath();
    std::string GetNetlistsPath();
    bool isMainThread() const { return QThread::currentThreadId() == m_mainThread; }

    // --- bridge callbacks (messaging library's thread) ---
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage>
    OnReceive(RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage> message) override;
    void OnError(const RFMsgExp::IXException& error) override;

private:
    std::string queryPath(const char* query);

    bool m_commandsRegistered = false; // written once, at registration
    Qt::HANDLE m_mainThread;
    // Kept for the object's layout; nothing reads them.
    std::string m_firstText;
    std::string m_secondText;
    std::string m_version;
    Tessel::TesselOptions m_options;
};
