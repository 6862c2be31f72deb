#include "workspace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "journalrecord.h"

namespace {

QString qs(const std::string& text)
{
    return QString::fromStdString(text);
}

// A name that the host turns into a file or folder name.
bool isFileName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\\') == std::string::npos && name.find('\0') == std::string::npos;
}

// The workspace's JSON, written as text: every file is written on the
// host's main thread for every message, and members come in the order given
// (alphabetical by key), one per line, with each port on a line of its own.
using Members = std::vector<std::pair<const char*, std::string>>;

std::string text(const std::string& value)
{
    return JournalRecord::quote(value);
}

std::string number(double value)
{
    return JournalRecord::number(value);
}

// The members as lines of an object, each after a line feed; commas between.
std::string memberLines(const Members& members)
{
    std::string lines;
    for (const auto& member : members) {
        lines += lines.empty() ? "\n    \"" : ",\n    \"";
        lines += member.first;
        lines += "\": ";
        lines += member.second;
    }
    return lines;
}

// A port's line, with the comma and the line feed that lead to it.
std::string portLine(const Members& members, bool first)
{
    std::string line = first ? "\n        { " : ",\n        { ";
    for (std::size_t i = 0; i < members.size(); ++i) {
        line += i == 0 ? "\"" : ", \"";
        line += members[i].first;
        line += "\": ";
        line += members[i].second;
    }
    return line + " }";
}

std::string emPortLine(const Workspace::EmPort& port, bool first)
{
    return portLine({{"name", text(port.name)},
                     {"number", std::to_string(port.number)},
                     {"type", text(port.type)},
                     {"value", number(port.value)},
                     {"x", number(port.x)},
                     {"y", number(port.y)}},
                    first);
}

const char* const PortsOpen = "[";
const char* const PortsClose = "\n    ]";

bool writeFile(const QString& path, const std::string& content, std::string& reason)
{
    QFile file(path);
    const qint64 size = static_cast<qint64>(content.size());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(content.data(), size) != size || !file.flush()) {
        reason = "cannot write " + path.toStdString() + ": " + file.errorString().toStdString();
        return false;
    }
    return true;
}

bool makeFolder(const QString& path, std::string& reason)
{
    errno = 0;
    if (QDir().mkpath(path))
        return true;
    // mkpath() says only that it failed; the failing mkdir() left the why in errno.
    reason = "cannot create the folder " + path.toStdString() +
             (errno != 0 ? std::string(": ") + std::strerror(errno) : std::string());
    return false;
}

// Replaces `target` by a copy of `source`.
bool copyFile(const QString& source, const QString& target, std::string& reason)
{
    if (QFileInfo::exists(target) && !QFile::remove(target)) {
        reason = "cannot replace " + target.toStdString();
        return false;
    }
    QFile file(source);
    if (!file.copy(target)) {
        reason = "cannot copy " + source.toStdString() + " to " + target.toStdString() + ": " +
                 file.errorString().toStdString();
        return false;
    }
    return true;
}

} // namespace

Workspace::Workspace(const std::string& path, const std::string& netlists,
                     std::vector<std::string> libraries)
    : m_libraries(std::move(libraries))
{
    if (!path.empty())
        m_path = QDir::cleanPath(QFileInfo(qs(path)).absoluteFilePath()).toStdString();
    if (!netlists.empty())
        m_netlists = QDir::cleanPath(QFileInfo(qs(netlists)).absoluteFilePath()).toStdString();
    else if (!m_path.empty())
        m_netlists = m_path + "/netlists";
}

bool Workspace::prepare(std::string* error) const
{
    for (const std::string& folder : {m_path, m_netlists}) {
        if (folder.empty())
            continue;
        std::string reason;
        if (QFileInfo(qs(folder)).exists() && !QFileInfo(qs(folder)).isDir())
            reason = folder + " exists and is not a folder";
        else
            makeFolder(qs(folder), reason);
        if (!reason.empty()) {
            if (error)
                *error = reason;
            return false;
        }
    }
    return true;
}

Workspace::Result Workspace::createDesign(const Design& design)
{
    Result result;
    if (m_path.empty())
        return {false, "no workspace is open", {}};
    if (!isFileName(design.cell))
        return {false, "the design name \"" + design.cell + "\" cannot name a file", {}};
    const QString folder = qs(m_path) + "/designs";
    if (!makeFolder(folder, result.reason)) {
        result.ok = false;
        return result;
    }

    std::string ports = "null";
    if (design.ports) {
        ports = PortsOpen;
        bool first = true;
        for (const DesignPort& port : *design.ports) {
            ports += portLine({{"label", text(port.label)},
                               {"number", std::to_string(port.number)},
                               {"type", std::to_string(port.type)},
                               {"x", number(port.x)},
                               {"y", number(port.y)}},
                              first);
            first = false;
        }
        ports += PortsClose;
    }
    // The plug-in writes the netlist before it asks for the design.
    const std::string netlist = m_netlists + "/" + design.cell + ".net";
    const std::string record =
        "{" +
        memberLines({{"cell", text(design.cell)},
                     {"design", text(design.design)},
                     {"design_path", text(design.designPath)},
                     {"first", text(design.first)},
                     {"last", std::to_string(design.last)},
                     {"netlist", text(netlist)},
                     {"netlist_found", QFileInfo(qs(netlist)).isFile() ? "true" : "false"},
                     {"port_count", std::to_string(design.portCount)},
                     {"ports", ports},
                     {"region", text(design.region)}}) +
        "\n}\n";
    result.path = (folder + "/" + qs(design.cell) + ".design").toStdString();
    result.ok = writeFile(qs(result.path), record, result.reason);
    return result;
}

QString Workspace::libraryFolder(const std::string& library, Result& result) const
{
    const QString folder = qs(m_path) + "/libraries/" + qs(library);
    if (makeFolder(folder, result.reason))
        return folder;
    result.ok = false;
    return QString();
}

Workspace::Result Workspace::importIff(const std::string& library, const std::string& file,
                                       bool overwrite)
{
    Result result;
    if (!checkLibrary(library, result))
        return result;
    const QFileInfo source(qs(file));
    if (!source.isFile())
        return {false, "the file " + file + " does not exist", {}};
    const QString folder = libraryFolder(library, result);
    if (folder.isEmpty())
        return result;
    const QString target = folder + "/" + source.fileName();
    if (!overwrite && QFileInfo::exists(target))
        return {false,
                "library " + library + " already holds " + source.fileName().toStdString() +
                    " and overwriting is FALSE",
                {}};
    result.path = target.toStdString();
    result.ok = copyFile(source.absoluteFilePath(), target, result.reason);
    return result;
}

Workspace::Result Workspace::importEgs(const std::string& library, const std::string& file,
                                       const std::string& design, const std::string& region,
                                       const std::string& designPath)
{
    Result result;
    if (!checkLibrary(library, result))
        return result;
    const QFileInfo source(qs(file));
    if (!source.isFile())
        return {false, "the file " + file + " does not exist", {}};
    // DESIGN_REGION; an empty design label or region name is left out.
    const std::string view =
        design.empty() || region.empty() ? design + region : design + "_" + region;
    if (!isFileName(view) || (!design.empty() && !isFileName(design)) ||
        (!region.empty() && !isFileName(region)))
        return {false, "the EM view name \"" + view + "\" cannot name a file", {}};
    const QString folder = libraryFolder(library, result);
    if (folder.isEmpty())
        return result;
    const QString egs = folder + "/" + qs(view) + ".egs";
    if (!copyFile(source.absoluteFilePath(), egs, result.reason)) {
        result.ok = false;
        return result;
    }
    EmView emView;
    emView.file = (folder + "/" + qs(view) + ".emview").toStdString();
    emView.head = "{" + memberLines({{"design", text(design)},
                                     {"design_path", text(designPath)},
                                     {"egs", text(egs.toStdString())},
                                     {"library", text(library)},
                                     {"ports", PortsOpen}});
    emView.tail = PortsClose + std::string(",") +
                  memberLines({{"region", text(region)},
                               {"source", text(source.absoluteFilePath().toStdString())}}) +
                  "\n}\n";
    m_emView = std::move(emView);
    result.ok = writeEmView(result, false);
    return result;
}

Workspace::Result Workspace::addEmPort(const EmPort& port)
{
    Result result;
    if (!m_emView)
        return {false, "no EM view is open: import an EGS file first", {}};
    m_emView->ports.push_back(port);
    result.ok = writeEmView(result, true);
    if (!result.ok)
        m_emView->ports.pop_back();
    return result;
}

bool Workspace::checkLibrary(const std::string& library, Result& result) const
{
    if (m_path.empty())
        result.reason = "no workspace is open";
    else if (library.empty())
        result.reason = "no library named";
    else if (std::find(m_libraries.begin(), m_libraries.end(), library) == m_libraries.end())
        result.reason = "library \"" + library + "\" is not open";
    else if (!isFileName(library))
        result.reason = "the library name \"" + library + "\" cannot name a folder";
    result.ok = result.reason.empty();
    return result.ok;
}

bool Workspace::writeEmView(Result& result, bool appended)
{
    EmView& view = *m_emView;
    result.path = view.file;
    QFile file(qs(view.file));
    if (!file.open(QIODevice::ReadWrite)) {
        result.reason = "cannot write " + view.file + ": " + file.errorString().toStdString();
        return false;
    }
    // Ports are only ever added: what is in the file stays, so that a message
    // of many ports costs their number, not its square. A file that is not as
    // it was left is written whole.
    const bool append =
        appended && file.size() == view.portsEnd + static_cast<qint64>(view.tail.size());
    qint64 offset = 0;
    std::string content;
    if (append) {
        offset = view.portsEnd;
        content = emPortLine(view.ports.back(), view.ports.size() == 1);
    } else {
        content = view.head;
        for (std::size_t i = 0; i < view.ports.size(); ++i)
            content += emPortLine(view.ports[i], i == 0);
    }
    const qint64 portsEnd = offset + static_cast<qint64>(content.size());
    content += view.tail;
    const qint64 size = static_cast<qint64>(content.size());
    if (!file.seek(offset) || file.write(content.data(), size) != size ||
        !file.resize(offset + size) || !file.flush()) {
        result.reason = "cannot write " + view.file + ": " + file.errorString().toStdString();
        return false;
    }
    view.portsEnd = portsEnd;
    return true;
}
