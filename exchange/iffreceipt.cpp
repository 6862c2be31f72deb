#include "exchange/iffreceipt.h"

#include "exchange/messagetext.h"
#include "options/optionnames.h"
#include "plugin/brioconstants.h"
#include "plugin/usermessages.h"
#include "server/xserverlumo.h"

namespace Exchange {
namespace {
constexpr char NoRegions[] = "No RF Regions found in IFF message";
constexpr char NoWorkspace[] = "No workspace is open - unable to import IFF data";
constexpr char SaveFailed[] = "IFF save failed";
constexpr char ImportFailed[] = "IFF import failed";
constexpr char TemporaryFileName[] = "/mgcLayoutTmp.iff";
} // namespace

void ReceiveIff(XServerLUMO& server, RFMsgExp::IRFMessage& message)
{
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFDocument> document = requireDocument(message);
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFRegionList> regions = document->GetRegions();
    if (regions->Count() == 0) {
        // Deliberately a log line, not an error in the information window.
        WriteLog(NoRegions);
        return;
    }
    // The region's name does not enter the command; one region must be there.
    regions->GetItem(0)->GetName();
    const std::string iffText = text(message.GetText());

    const std::string workspacePath = ToForwardSlashes(server.GetWorkspacePath());
    if (workspacePath.empty()) {
        ReportError(NoWorkspace);
        return;
    }
    const std::string fileName = workspacePath + TemporaryFileName;
    if (!WriteTextFile(iffText, fileName)) {
        ReportError(SaveFailed);
        return;
    }

    // Read afresh for every message: the dialog may have changed them.
    const Tessel::GeneralOptions& general = server.GetOptions().general();
    const std::string library =
        general.get_option_value(Tessel::OptionName::TargetLib).toLocal8Bit().toStdString();
    const bool overwrite = general.get_bool_option_value(Tessel::OptionName::OverwriteDesigns);

    const std::string command = "mgclink_import_iff_file(\"" + library + "\", \"" + fileName +
                                "\", \"" + (overwrite ? "TRUE" : "FALSE") + "\");";
    if (!server.RunBrioCommand(command.c_str(), BrioConstants::DefaultVocabulary))
        ReportError(ImportFailed);
}

} // namespace Exchange
