#include "options/tesseloptions.h"

#include <utility>

#include <QDomDocument>
#include <QDomDocumentFragment>
#include <QDomElement>
#include <QFile>
#include <QTextStream>
#include <QXmlStreamReader>

#include "options/optionnames.h"

namespace Tessel {

namespace {

// The DOM parser recurses once per level of nesting, and so does freeing the
// tree: a deeply nested file would overflow the stack. An options file is three
// levels deep; anything past this is refused like a malformed file.
constexpr int maximumNesting = 256;

// A flat pass over the content: true when it is well-formed and no deeper than
// maximumNesting.
bool isShallowXml(const QByteArray& content)
{
    QXmlStreamReader reader(content);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > maximumNesting)
                return false;
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        default:
            break;
        }
    }
    return !reader.hasError();
}

} // namespace

TesselOptions::TesselOptions() : m_option_file_name(OptionName::DefaultOptionsFile) {}

void TesselOptions::set_option_file_name(std::string name)
{
    m_option_file_name = std::move(name);
}

void TesselOptions::load()
{
    if (read_xml_file(m_option_file_name))
        return;
    m_general.set_options_to_default();
    m_iff.set_options_to_default();
}

bool TesselOptions::save()
{
    return write_xml_file(m_option_file_name);
}

void TesselOptions::set_options_to_default()
{
    m_general.set_options_to_default();
    m_iff.set_options_to_default();
}

bool TesselOptions::read_xml_file(std::string name)
{
    // Qt warns on stderr about an empty file name; the options stay quiet.
    if (name.empty())
        return false;
    QFile file(QString::fromStdString(name));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;

    const QByteArray content = file.readAll();
    file.close();
    if (!isShallowXml(content))
        return false;

    QDomDocument document(QLatin1String(OptionName::DocumentType));
    if (!document.setContent(content, false))
        return false;

    // Groups are found by name anywhere: neither the root nor the document
    // type is checked.
    m_general.load_from_dom(document, QLatin1String(OptionName::GeneralOptionsElement));
    m_iff.load_from_dom(document, QLatin1String(OptionName::IFFOptionsElement));
    return true;
}

bool TesselOptions::write_xml_file(std::string name)
{
    if (name.empty())
        return false;
    QFile file(QString::fromStdString(name));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return false;

    QDomDocument document(QLatin1String(OptionName::DocumentType));
    QDomElement root = document.createElement(QLatin1String(OptionName::RootElement));
    document.appendChild(root);
    root.appendChild(
        m_general.get_xml_frag(document, QLatin1String(OptionName::GeneralOptionsElement)));
    root.appendChild(m_iff.get_xml_frag(document, QLatin1String(OptionName::IFFOptionsElement)));

    // Without an XML declaration the document's encoding is UTF-8.
    QTextStream stream(&file);
    document.save(stream, 4, QDomNode::EncodingFromDocument);
    stream.flush();
    file.close();
    return true;
}

} // namespace Tessel
