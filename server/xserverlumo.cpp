#include "server/xserverlumo.h"

#include <exception>

#include "lumo/brio.h"
#include "lumo/strings.h"
#include "plugin/brioconstants.h"
#include "plugin/mgcbrioidlerequest.h"
#include "plugin/pluginstate.h"
#include "plugin/usermessages.h"

namespace {
constexpr char StartedLog[] = "Server started, hostname is ";
constexpr char CommunicationError[] =
    "Problem with communications with Mentor - MGCC XServer Error, value is ";
} // namespace

XServerLUMO::XServerLUMO()
    : m_mainThread(QThread::currentThreadId()), m_firstText("/"), m_version("390.001")
{
}

XServerLUMO::~XServerLUMO() = default;

void XServerLUMO::Initialize(int port, int second)
{
    try {
        Init(port, second);
        m_options.load();
    } catch (RFMsgExp::IXException* error) {
        OnError(*error);
        error->Destroy();
    }
    WriteLog(StartedLog + std::string(GetMachineName().c_str()));
}

bool XServerLUMO::IsConnectedToApplication(const std::string& applicationName)
{
    RFMsgExp::msg_auto_ptr<RFMsgExp::IXSetUsers> users = GetConnected();
    if (!users || users->Count() < 1)
        return false;
    // The count is read again after every peer: the set may change meanwhile.
    for (int index = 0; index < users->Count(); ++index) {
        RFMsgExp::msg_auto_ptr<RFMsgExp::IXUser> user = users->GetItem(index);
        const std::string name = user->GetAppName().c_str();
        user.reset();
        if (compare_ignore_case(name, applicationName) == 0)
            return true;
    }
    return false;
}

bool XServerLUMO::RunBrioCommand(const char* text, const char* vocabulary)
{
    if (!isMainThread()) {
        // The host's script engine may only run on its main thread: hand the
        // statement over and wait until it has been performed.
        MGCBrioIdleRequest request(text ? text : "", vocabulary ? vocabulary : "");
        request.postAndWaitUntilPerformed();
        return request.result();
    }
    std::string chosenVocabulary = vocabulary ? vocabulary : "";
    if (!text)
        return false;
    if (chosenVocabulary.empty())
        chosenVocabulary = BrioConstants::DefaultVocabulary;
    BRIOInterface* brio = PluginState::brio();
    return brio != nullptr && brio->evaluate_text(chosenVocabulary.c_str(), text);
}

std::string XServerLUMO::GetWorkspacePath()
{
    return queryPath(BrioConstants::WorkspaceQuery);
}

std::string XServerLUMO::GetNetlistsPath()
{
    return queryPath(BrioConstants::NetlistsQuery);
}

std::string XServerLUMO::queryPath(const char* query)
{
    if (!RunBrioCommand(query, BrioConstants::DefaultVocabulary))
        return std::string();
    // The answer is read on the calling thread, whichever it is.
    BRIOInterface* brio = PluginState::brio();
    if (!brio)
        return std::string();
    BRIOValueHandle value =
        brio->find_variable(BrioConstants::DefaultVocabulary, BrioConstants::ResultVariable);
    if (!value)
        return std::string();
    const char* data = static_cast<const char*>(brio->value_data(value));
    std::string answer = data ? data : "";
    brio->free_value(value);
    return answer;
}

void XServerLUMO::OnError(const RFMsgExp::IXException& error)
{
    ReportError(CommunicationError + std::string(error.GetInfo().c_str()));
}

void XServerLUMO::SendToPeers(RFMsgExp::IRFMessage& message)
{
    try {
        // The reply is released at once, unread.
        OnSend(&message, "");
    } catch (RFMsgExp::IXException* error) {
        OnError(*error);
        error->Destroy();
    } catch (const std::exception& error) {
        ReportError(CommunicationError + std::string(error.what()));
    } catch (...) {
        ReportError(CommunicationError + std::string("unknown failure"));
    }
}
