#include "plugin/usermessages.h"

#include <cstdio>

#include "lumo/corefiles.h"
#include "plugin/brioconstants.h"
#include "plugin/pluginstate.h"
#include "server/xserverlumo.h"

namespace {
constexpr char ErrorPrefix[] = "de_info(\"Tessel Error: ";
constexpr char InfoPrefix[] = "de_info(\"Tessel Info: ";
constexpr char MessageSuffix[] = "\");";
constexpr char LogPrefix[] = "fprintf(stderr,\"Tessel:";
// The line feed stands raw inside the BRIO string literal.
constexpr char LogSuffix[] = "\n\");";
constexpr char ErrorLogLead[] = "Error: ";
constexpr char InfoLogLead[] = "Info: ";
constexpr char FileOpenFailure[] = "Unable to open IFF file %s\n";

void runMessageStatement(const std::string& statement)
{
    if (XServerLUMO* server = PluginState::server())
        server->RunBrioCommand(statement.c_str(), BrioConstants::LibraryName);
}
} // namespace

void ReportError(std::string message)
{
    runMessageStatement(ErrorPrefix + message + MessageSuffix);
    WriteLog(ErrorLogLead + message);
}

void ReportInfo(std::string message)
{
    runMessageStatement(InfoPrefix + message + MessageSuffix);
    WriteLog(InfoLogLead + message);
}

void WriteLog(std::string message)
{
    runMessageStatement(LogPrefix + message + LogSuffix);
}

std::string EscapeQuotes(const std::string& text)
{
    std::string escaped = text;
    for (std::size_t at = escaped.find('"'); at != std::string::npos;
         at = escaped.find('"', at + 2))
        escaped.insert(at, 1, '\\');
    return escaped;
}

std::string ToForwardSlashes(const std::string& text)
{
    std::string converted = text;
    for (char& c : converted)
        if (c == '\\')
            c = '/';
    return converted;
}

bool ReadTextFile(std::string& text, const char* path, bool removeAfter)
{
    UTF8InputFileStream file(path);
    if (!file.is_open()) {
        std::fprintf(stderr, FileOpenFailure, path ? path : "(null)");
        return false;
    }
    // The end-of-file test comes before each read: a final line feed yields one
    // more empty line, and an empty file a single line feed.
    std::string line;
    while (!file.eof()) {
        std::getline(file, line);
        if (file.fail() && !file.eof())
            break; // a read error (a directory, say) would otherwise never reach the end
        text += line;
        text += '\n';
    }
    file.close();
    if (removeAfter)
        delete_file_utf8(path);
    return true;
}

bool WriteTextFile(const std::string& text, const std::string& path)
{
    UTF8OutputFileStream file(path.c_str());
    if (file.is_open()) {
        file << text;
        file.close();
    }
    return true;
}
