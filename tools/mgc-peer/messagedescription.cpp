#include "messagedescription.h"

#include <cmath>
#include <initializer_list>
#include <limits>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "eventkinds.h"
#include "jsonreader.h"
#include "jsonvalue.h"

using RFMsgExp::DocumentContent;
using RFMsgExp::MessageContent;
using RFMsgExp::PortContent;
using RFMsgExp::PortTypeContent;
using RFMsgExp::RegionContent;

namespace {

// Reads one description, naming the file and the field in every error.
class Parser
{
public:
    Parser(std::string path, std::string folder)
        : m_path(std::move(path)), m_folder(std::move(folder))
    {
    }

    MessageContent message(const JsonValue& root)
    {
        MessageContent content;
        requireObject(root, "the description",
                      {"kind", "text", "text_file", "properties", "document"});
        const JsonValue* kind = root.find("kind");
        if (!kind)
            fail(root,
                 "the description has no \"kind\" (a number, or a name such as eDoc_LUMONetList)");
        content.kind = kindOf(*kind);
        content.text = text(root, "text", "text_file", "");
        if (const JsonValue* properties = root.find("properties")) {
            if (properties->type != JsonValue::Type::Object)
                fail(*properties,
                     "\"properties\" must be an object of names and text values, found " +
                         std::string(properties->typeName()));
            for (const auto& [name, value] : properties->members) {
                if (value.type != JsonValue::Type::String)
                    fail(value,
                         "property \"" + name + "\" must be a string, found " + value.typeName());
                content.properties.emplace_back(name, value.text);
            }
        }
        if (const JsonValue* document = root.find("document"))
            content.document = this->document(*document);
        return content;
    }

private:
    [[noreturn]] void fail(const JsonValue& where, const std::string& what) const
    {
        throw MessageDescription::Error(m_path + ":" + std::to_string(where.line) + ":" +
                                        std::to_string(where.column) + ": " + what);
    }

    void requireObject(const JsonValue& value, const std::string& what,
                       std::initializer_list<const char*> known) const
    {
        if (value.type != JsonValue::Type::Object)
            fail(value, what + " must be an object, found " + value.typeName());
        for (const auto& member : value.members) {
            bool found = false;
            std::string names;
            for (const char* name : known) {
                found = found || member.first == name;
                names += (names.empty() ? "" : ", ") + std::string(name);
            }
            if (!found)
                fail(member.second, "unknown field \"" + member.first + "\" in " + what +
                                        " (known: " + names + ")");
        }
    }

    int kindOf(const JsonValue& kind) const
    {
        if (kind.type == JsonValue::Type::Number) {
            if (!kind.integral || kind.integer < std::numeric_limits<int>::min() ||
                kind.integer > std::numeric_limits<int>::max())
                fail(kind, "\"kind\" must be a whole number of 32 bits");
            return static_cast<int>(kind.integer);
        }
        if (kind.type == JsonValue::Type::String) {
            if (const std::optional<int> value = EventKinds::parse(kind.text))
                return *value;
            fail(kind, "unknown kind \"" + kind.text +
                           "\" (use a number or a name such as eDoc_LUMONetList, eDoc_LibIFF, "
                           "eDoc_FathomData)");
        }
        fail(kind, std::string("\"kind\" must be a number or a name, found ") + kind.typeName());
    }

    std::string string(const JsonValue& owner, const char* key, const std::string& where) const
    {
        const JsonValue* value = owner.find(key);
        if (!value)
            return {};
        if (value->type != JsonValue::Type::String)
            fail(*value, "\"" + std::string(key) + "\" of " + where + " must be a string, found " +
                             value->typeName());
        return value->text;
    }

    // A text given inline (`key`) or as a file (`fileKey`); missing is empty.
    std::string text(const JsonValue& owner, const char* key, const char* fileKey,
                     const std::string& where) const
    {
        const std::string in = where.empty() ? "the description" : where;
        const JsonValue* inline_ = owner.find(key);
        const JsonValue* file = owner.find(fileKey);
        if (inline_ && file)
            fail(*file, "give either \"" + std::string(key) + "\" or \"" + fileKey + "\" in " + in +
                            ", not both");
        if (!file)
            return string(owner, key, in);
        const std::string name = string(owner, fileKey, in);
        const QString resolved =
            QDir(QString::fromStdString(m_folder)).filePath(QString::fromStdString(name));
        QFile source(resolved);
        if (!source.open(QIODevice::ReadOnly))
            fail(*file, "cannot read " + std::string(fileKey) + " \"" + name + "\" (" +
                            QDir::cleanPath(resolved).toStdString() +
                            "): " + source.errorString().toStdString());
        const QByteArray bytes = source.readAll();
        return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    }

    int integer(const JsonValue& owner, const char* key, int fallback, const std::string& where,
                bool booleanToo = false) const
    {
        const JsonValue* value = owner.find(key);
        if (!value)
            return fallback;
        if (booleanToo && value->type == JsonValue::Type::Boolean)
            return value->boolean ? 1 : 0;
        if (value->type != JsonValue::Type::Number || !value->integral ||
            value->integer < std::numeric_limits<int>::min() ||
            value->integer > std::numeric_limits<int>::max())
            fail(*value, "\"" + std::string(key) + "\" of " + where + " must be a whole number" +
                             (booleanToo ? " or a boolean" : "") + ", found " +
                             (value->type == JsonValue::Type::Number ? "a fraction or a huge number"
                                                                     : value->typeName()));
        return static_cast<int>(value->integer);
    }

    double number(const JsonValue& owner, const char* key, const std::string& where) const
    {
        const JsonValue* value = owner.find(key);
        if (!value)
            return 0.0;
        if (value->type != JsonValue::Type::Number || !std::isfinite(value->number))
            fail(*value, "\"" + std::string(key) + "\" of " + where +
                             " must be a finite number, found " + value->typeName());
        return value->number;
    }

    const std::vector<JsonValue>& list(const JsonValue& owner, const char* key,
                                       const std::string& where) const
    {
        static const std::vector<JsonValue> none;
        const JsonValue* value = owner.find(key);
        if (!value)
            return none;
        if (value->type != JsonValue::Type::Array)
            fail(*value, "\"" + std::string(key) + "\" of " + where + " must be an array, found " +
                             value->typeName());
        return value->items;
    }

    DocumentContent document(const JsonValue& value) const
    {
        const std::string where = "the document";
        requireObject(value, where, {"label", "name", "path", "regions", "port_types"});
        DocumentContent document;
        document.label = string(value, "label", where);
        document.name = string(value, "name", where);
        document.path = string(value, "path", where);
        const std::vector<JsonValue>& regions = list(value, "regions", where);
        for (std::size_t r = 0; r < regions.size(); ++r)
            document.regions.push_back(region(regions[r], "region " + std::to_string(r + 1)));
        const std::vector<JsonValue>& types = list(value, "port_types", where);
        for (std::size_t t = 0; t < types.size(); ++t) {
            const std::string typeWhere = "port type " + std::to_string(t + 1);
            requireObject(types[t], typeWhere, {"id", "flag", "name"});
            PortTypeContent type;
            type.id = integer(types[t], "id", 0, typeWhere);
            type.flag = integer(types[t], "flag", 0, typeWhere);
            type.name = string(types[t], "name", typeWhere);
            document.portTypes.push_back(type);
        }
        return document;
    }

    RegionContent region(const JsonValue& value, const std::string& where) const
    {
        requireObject(value, where,
                      {"name", "netlist", "netlist_file", "egs", "egs_file", "ports"});
        RegionContent region;
        region.name = string(value, "name", where);
        region.netlist = text(value, "netlist", "netlist_file", where);
        region.egs = text(value, "egs", "egs_file", where);
        const std::vector<JsonValue>& ports = list(value, "ports", where);
        for (std::size_t p = 0; p < ports.size(); ++p) {
            const std::string portWhere = "port " + std::to_string(p + 1) + " of " + where;
            requireObject(ports[p], portWhere,
                          {"name", "enabled", "type", "label", "note", "value", "x", "y"});
            PortContent port;
            port.name = string(ports[p], "name", portWhere);
            port.enabled = integer(ports[p], "enabled", 1, portWhere, true);
            port.type = integer(ports[p], "type", 0, portWhere);
            port.label = string(ports[p], "label", portWhere);
            port.note = string(ports[p], "note", portWhere);
            port.value = number(ports[p], "value", portWhere);
            port.x = number(ports[p], "x", portWhere);
            port.y = number(ports[p], "y", portWhere);
            region.ports.push_back(port);
        }
        return region;
    }

    std::string m_path;
    std::string m_folder;
};

} // namespace

MessageContent MessageDescription::read(const std::string& path)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly))
        throw Error(path +
                    ": cannot read the message description: " + file.errorString().toStdString());
    const QByteArray bytes = file.readAll();
    const std::string folder = QFileInfo(file).absolutePath().toStdString();
    return parse(std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())), path,
                 folder);
}

MessageContent MessageDescription::parse(const std::string& json, const std::string& path,
                                         const std::string& folder)
{
    JsonValue root;
    try {
        root = JsonReader::parse(json);
    } catch (const JsonReader::Error& error) {
        throw Error(path + ":" + error.what() + " (not valid JSON)");
    }
    return Parser(path, folder).message(root);
}
