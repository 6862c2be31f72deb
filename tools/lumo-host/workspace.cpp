#include "workspace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cerrno>
#include <cstring>

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

bool writeJson(const QString& path, const QJsonObject& object, std::string& reason)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        reason = "cannot write " + path.toStdString() + ": " + file.errorString().toStdString();
        return false;
    }
    file.write(QJsonDocument(object).toJson(QJsonDocument::Indented));
    if (!file.flush()) {
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

    QJsonObject record;
    record["first"] = qs(design.first);
    record["cell"] = qs(design.cell);
    record["design"] = qs(design.design);
    record["design_path"] = qs(design.designPath);
    record["region"] = qs(design.region);
    record["port_count"] = design.portCount;
    if (design.ports) {
        QJsonArray ports;
        for (const DesignPort& port : *design.ports) {
            QJsonObject entry;
            entry["label"] = qs(port.label);
            entry["x"] = port.x;
            entry["y"] = port.y;
            entry["number"] = port.number;
            entry["type"] = port.type;
            ports.append(entry);
        }
        record["ports"] = ports;
    } else {
        record["ports"] = QJsonValue::Null;
    }
    record["last"] = design.last;
    // The plug-in writes the netlist before it asks for the design.
    const QString netlist = qs(m_netlists) + "/" + qs(design.cell) + ".net";
    record["netlist"] = netlist;
    record["netlist_found"] = QFileInfo(netlist).isFile();

    result.path = (folder + "/" + qs(design.cell) + ".design").toStdString();
    result.ok = writeJson(qs(result.path), record, result.reason);
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
    m_emView = EmView{library,
                      design,
                      region,
                      designPath,
                      egs.toStdString(),
                      source.absoluteFilePath().toStdString(),
                      (folder + "/" + qs(view) + ".emview").toStdString(),
                      {}};
    result.ok = writeEmView(result);
    return result;
}

Workspace::Result Workspace::addEmPort(const EmPort& port)
{
    Result result;
    if (!m_emView)
        return {false, "no EM view is open: import an EGS file first", {}};
    m_emView->ports.push_back(port);
    result.ok = writeEmView(result);
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

bool Workspace::writeEmView(Result& result) const
{
    QJsonObject view;
    view["library"] = qs(m_emView->library);
    view["design"] = qs(m_emView->design);
    view["region"] = qs(m_emView->region);
    view["design_path"] = qs(m_emView->designPath);
    view["egs"] = qs(m_emView->egs);
    view["source"] = qs(m_emView->source);
    QJsonArray ports;
    for (const EmPort& port : m_emView->ports) {
        QJsonObject entry;
        entry["name"] = qs(port.name);
        entry["number"] = port.number;
        entry["type"] = qs(port.type);
        entry["x"] = port.x;
        entry["y"] = port.y;
        entry["value"] = port.value;
        ports.append(entry);
    }
    view["ports"] = ports;
    result.path = m_emView->file;
    return writeJson(qs(m_emView->file), view, result.reason);
}
