#include "options/tesseloptions.h"

#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDomDocument>
#include <QDomDocumentFragment>
#include <QDomElement>
#include <QFile>
#include <QTextCodec>
#include <QTextStream>

#include "options/optionnames.h"

namespace Tessel {

namespace {

// The DOM parser's tree is freed recursively, one call per level of nesting: a
// deeply nested file would overflow the stack. An options file is three levels
// deep; anything past this is refused like a malformed file.
constexpr int maximumNesting = 256;
// Options files are a few kilobytes; this bounds what a load may read.
constexpr qint64 maximumFileSize = 16 * 1024 * 1024;

constexpr std::size_t notFound = std::string_view::npos;

bool startsWith(std::string_view text, std::size_t at, std::string_view prefix)
{
    return text.compare(at, prefix.size(), prefix) == 0;
}

// The position just past the first `terminator` at or after `from`.
std::size_t pastText(std::string_view text, std::size_t from, std::string_view terminator)
{
    const std::size_t at = text.find(terminator, from);
    return at == notFound ? notFound : at + terminator.size();
}

// The position just past the ">" that ends the markup starting at `from`, its
// quoted parts skipped. `quotedMarkup`, when given, is set when a quoted part
// holds "<", "&" or "%": an entity value that would expand to markup.
std::size_t pastTag(std::string_view text, std::size_t from, bool* quotedMarkup = nullptr)
{
    for (std::size_t at = from; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '>')
            return at + 1;
        if (c != '"' && c != '\'')
            continue;
        const std::size_t close = text.find(c, at + 1);
        if (close == notFound)
            return notFound;
        if (quotedMarkup && text.substr(at + 1, close - at - 1).find_first_of("<&%") != notFound)
            *quotedMarkup = true;
        at = close;
    }
    return notFound;
}

// The position just past the document type declaration at `from`; notFound,
// and `refused` set, when its internal subset declares an entity holding
// markup (the parser expands such an entity without bound).
std::size_t pastDocumentType(std::string_view text, std::size_t from, bool& refused)
{
    std::size_t at = from + 2;
    while (at < text.size() && text[at] != '[' && text[at] != '>') {
        if (text[at] == '"' || text[at] == '\'') {
            at = text.find(text[at], at + 1);
            if (at == notFound)
                return notFound;
        }
        ++at;
    }
    if (at >= text.size() || text[at] == '>')
        return at < text.size() ? at + 1 : notFound;
    // The internal subset, up to its "]".
    ++at;
    while (at != notFound && at < text.size() && text[at] != ']') {
        if (startsWith(text, at, "<!--")) {
            at = pastText(text, at + 4, "-->");
        } else if (startsWith(text, at, "<?")) {
            at = pastText(text, at + 2, "?>");
        } else if (startsWith(text, at, "<!ENTITY")) {
            bool quotedMarkup = false;
            at = pastTag(text, at, &quotedMarkup);
            if (quotedMarkup) {
                refused = true;
                return notFound;
            }
        } else if (text[at] == '<') {
            at = pastTag(text, at);
        } else {
            ++at;
        }
    }
    return at == notFound ? notFound : pastTag(text, at);
}

// A byte-level pass that refuses only what would endanger the parser: more
// open elements than maximumNesting, or entities holding markup. Comments,
// CDATA sections, processing instructions and quoted attribute values are
// skipped as the parser skips them, so no file it reads is refused here.
bool isSafeForParser(std::string_view text)
{
    int depth = 0;
    for (std::size_t at = text.find('<'); at != notFound; at = text.find('<', at)) {
        bool refused = false;
        if (startsWith(text, at, "<!--")) {
            at = pastText(text, at + 4, "-->");
        } else if (startsWith(text, at, "<![CDATA[")) {
            at = pastText(text, at + 9, "]]>");
        } else if (startsWith(text, at, "<?")) {
            at = pastText(text, at + 2, "?>");
        } else if (startsWith(text, at, "<!DOCTYPE")) {
            at = pastDocumentType(text, at, refused);
        } else if (startsWith(text, at, "</")) {
            --depth;
            at = pastTag(text, at);
        } else {
            const std::size_t end = pastTag(text, at + 1);
            if (end != notFound && text[end - 2] != '/' && ++depth > maximumNesting)
                return false;
            at = end;
        }
        if (refused)
            return false;
        if (at == notFound)
            return true; // unterminated: the parser stops there
    }
    return true;
}

// The content as the parser decodes it, in UTF-8 when it is not already in an
// ASCII-compatible encoding, so that the byte-level pass sees its markup.
QByteArray asciiCompatible(const QByteArray& content)
{
    QTextCodec* codec = QTextCodec::codecForUtfText(content, nullptr);
    if (!codec || codec->mibEnum() == 106) // 106: UTF-8
        return content;
    return codec->toUnicode(content).toUtf8();
}

// Opens `name` without waiting on a FIFO; -1 when it cannot be opened, or
// `irregular` set (and -1) when it is not a regular file.
int openRegularFile(const std::string& name, int flags, bool& irregular)
{
    const QByteArray path = QFile::encodeName(QString::fromStdString(name));
    const int descriptor = ::open(path.constData(), flags | O_NONBLOCK | O_CLOEXEC, 0666);
    if (descriptor < 0)
        return -1;
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        irregular = true;
        ::close(descriptor);
        return -1;
    }
    return descriptor;
}

} // namespace

TesselOptions::TesselOptions() : m_option_file_name(OptionName::DefaultOptionsFile) {}

void TesselOptions::set_option_file_name(std::string name)
{
    m_option_file_name = std::move(name);
    m_keep_refused_file = false;
}

void TesselOptions::load()
{
    m_keep_refused_file = false;
    if (read_xml_file(m_option_file_name))
        return;
    m_general.set_options_to_default();
    m_iff.set_options_to_default();
}

bool TesselOptions::save()
{
    // A file that load refused as irregular or too large is not the options
    // file: it is never written over.
    if (m_keep_refused_file)
        return false;
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
    // Not a FIFO, which would block the host, nor a device without end.
    const int descriptor = openRegularFile(name, O_RDONLY, m_keep_refused_file);
    QFile file;
    if (descriptor < 0 ||
        !file.open(descriptor, QIODevice::ReadOnly | QIODevice::Text, QFileDevice::AutoCloseHandle))
        return false;
    const QByteArray content = file.read(maximumFileSize + 1);
    file.close();
    if (content.size() > maximumFileSize) {
        m_keep_refused_file = true;
        return false;
    }
    const QByteArray scanned = asciiCompatible(content);
    if (!isSafeForParser(std::string_view(scanned.constData(), std::size_t(scanned.size()))))
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
    // Only a regular file is written: never a FIFO, which would block, or a
    // device. Truncated once it is known to be one.
    bool irregular = false;
    const int descriptor = openRegularFile(name, O_WRONLY | O_CREAT, irregular);
    QFile file;
    if (descriptor < 0 || ::ftruncate(descriptor, 0) != 0 ||
        !file.open(descriptor, QIODevice::WriteOnly | QIODevice::Text,
                   QFileDevice::AutoCloseHandle)) {
        if (descriptor >= 0)
            ::close(descriptor);
        return false;
    }

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
