#include "messagereport.h"

#include <QDir>
#include <QFile>

#include "eventkinds.h"
#include "jsonwriter.h"

using RFMsgExp::MessageContent;

namespace {

// Region names become part of file names: keep them to harmless characters.
std::string fileSafe(const std::string& name)
{
    std::string safe;
    for (char c : name)
        safe += (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.')
                    ? c
                    : '_';
    return safe.empty() ? "region" : safe;
}

class Report
{
public:
    Report(int index, std::string saveFolder) : m_index(index), m_folder(std::move(saveFolder)) {}

    // Writes `text` inline as `key`, or to a file as `key`_file with `key`_size.
    void text(const std::string& key, const std::string& text, const std::string& fileName)
    {
        if (m_folder.empty()) {
            out.key(key);
            out.string(text);
            return;
        }
        const QString path = QDir(QString::fromStdString(m_folder))
                                 .absoluteFilePath(QString::fromStdString(fileName));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            file.write(text.data(), static_cast<qint64>(text.size())) !=
                static_cast<qint64>(text.size()) ||
            !file.flush())
            throw MessageReport::Error("cannot write " + path.toStdString() + ": " +
                                       file.errorString().toStdString());
        out.key(key + "_file");
        out.string(path.toStdString());
        out.key(key + "_size");
        out.integer(static_cast<std::int64_t>(text.size()));
    }

    std::string base() const { return "message-" + std::to_string(m_index); }

    JsonWriter out;

private:
    int m_index;
    std::string m_folder;
};

} // namespace

std::string MessageReport::line(const MessageContent& message, int index,
                                const std::string& saveFolder)
{
    Report report(index, saveFolder);
    JsonWriter& out = report.out;
    out.beginObject();
    out.key("event");
    out.string("message");
    out.key("kind");
    out.integer(message.kind);
    out.key("kind_name");
    out.string(EventKinds::nameOf(message.kind));
    out.key("properties");
    out.beginObject();
    for (const auto& [name, value] : message.properties) {
        out.key(name);
        out.string(value);
    }
    out.endObject();
    report.text("text", message.text, report.base() + ".txt");
    if (message.document) {
        const RFMsgExp::DocumentContent& document = *message.document;
        out.key("document");
        out.beginObject();
        out.key("label");
        out.string(document.label);
        out.key("name");
        out.string(document.name);
        out.key("path");
        out.string(document.path);
        out.key("regions");
        out.beginArray();
        for (std::size_t r = 0; r < document.regions.size(); ++r) {
            const RFMsgExp::RegionContent& region = document.regions[r];
            const std::string stem =
                report.base() + "-" + std::to_string(r + 1) + "-" + fileSafe(region.name);
            out.beginObject();
            out.key("name");
            out.string(region.name);
            report.text("netlist", region.netlist, stem + ".net");
            report.text("egs", region.egs, stem + ".egs");
            out.key("ports");
            out.beginArray();
            for (const RFMsgExp::PortContent& port : region.ports) {
                out.beginObject();
                out.key("name");
                out.string(port.name);
                out.key("enabled");
                out.integer(port.enabled);
                out.key("type");
                out.integer(port.type);
                out.key("label");
                out.string(port.label);
                out.key("note");
                out.string(port.note);
                out.key("value");
                out.number(port.value);
                out.key("x");
                out.number(port.x);
                out.key("y");
                out.number(port.y);
                out.endObject();
            }
            out.endArray();
            out.endObject();
        }
        out.endArray();
        out.key("port_types");
        out.beginArray();
        for (const RFMsgExp::PortTypeContent& type : document.portTypes) {
            out.beginObject();
            out.key("id");
            out.integer(type.id);
            out.key("flag");
            out.integer(type.flag);
            out.key("name");
            out.string(type.name);
            out.endObject();
        }
        out.endArray();
        out.endObject();
    }
    out.endObject();
    return out.text();
}
