#include "rfmsg/wirecodec.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include <QCborStreamReader>

namespace RFMsgExp::Wire {
namespace {

// Unknown values are skipped; nothing of ours nests deeper than this.
constexpr int kMaxSkipDepth = 16;
// What a payload may take once decoded: this many times its size, plus kDecodedSlack.
constexpr std::size_t kDecodedPerPayloadByte = 8;
constexpr std::size_t kDecodedSlack = 1u << 20;

// Heap bytes of a std::string of `length` bytes made to measure.
std::size_t stringHeapBytes(std::size_t length)
{
    static const std::size_t inlineCapacity = std::string().capacity();
    return length <= inlineCapacity ? 0 : length + 1;
}

const char* typeName(QCborStreamReader::Type type)
{
    switch (type) {
    case QCborStreamReader::UnsignedInteger:
    case QCborStreamReader::NegativeInteger:
        return "an integer";
    case QCborStreamReader::ByteString:
        return "a byte string";
    case QCborStreamReader::TextString:
        return "a text string";
    case QCborStreamReader::Array:
        return "an array";
    case QCborStreamReader::Map:
        return "a map";
    case QCborStreamReader::Tag:
        return "a tag";
    case QCborStreamReader::SimpleType:
        return "a simple value";
    case QCborStreamReader::Float16:
    case QCborStreamReader::Float:
    case QCborStreamReader::Double:
        return "a floating-point number";
    case QCborStreamReader::Invalid:
        break;
    }
    return "nothing";
}

// Walks one payload with Qt's CBOR reader and keeps the path of the field
// being read, so that every error names it.
class PayloadReader
{
public:
    PayloadReader(const char* data, std::size_t size)
        : m_data(data), m_size(size), m_allowance(kDecodedPerPayloadByte * size + kDecodedSlack),
          m_reader(QByteArray::fromRawData(data, static_cast<int>(size)))
    {
        checkReader();
        m_path.reserve(8);
    }

    template <typename Field> void map(Field field)
    {
        expect(m_reader.isMap(), "a map");
        if (!m_reader.enterContainer())
            checkReader();
        while (m_reader.hasNext()) {
            checkReader();
            if (!m_reader.isString())
                fail(std::string("has a key that is ") + typeName(m_reader.type()) +
                     " instead of a text string");
            m_path.push_back(rawString());
            field(m_path.back());
            m_path.pop_back();
        }
        leave();
    }

    // Reads an array into `items`, each by `read`, counting what the vector
    // takes: as much as a definite length asks (no more than the bytes left
    // could hold), or doubling.
    template <typename T, typename Read> void arrayInto(std::vector<T>& items, Read read)
    {
        items.clear();
        expect(m_reader.isArray(), "an array");
        if (m_reader.isLengthKnown()) {
            const auto wanted =
                static_cast<std::size_t>(std::min<quint64>(m_reader.length(), bytesLeft()));
            if (wanted > items.capacity()) {
                charge((wanted - items.capacity()) * sizeof(T));
                items.reserve(wanted);
            }
        }
        array([&] {
            T item = read();
            if (items.size() == items.capacity()) {
                const std::size_t capacity = std::max<std::size_t>(4, 2 * items.capacity());
                charge((capacity - items.capacity()) * sizeof(T));
                items.reserve(capacity);
            }
            items.push_back(std::move(item));
        });
    }

    template <typename Item> void array(Item item)
    {
        expect(m_reader.isArray(), "an array");
        if (!m_reader.enterContainer())
            checkReader();
        for (std::size_t index = 0; m_reader.hasNext(); ++index) {
            checkReader();
            m_path.push_back("[" + std::to_string(index) + "]");
            item();
            m_path.pop_back();
        }
        leave();
    }

    std::string string()
    {
        expect(m_reader.isString() || m_reader.isByteArray(), "a string");
        return rawString();
    }

    // A definite string that makes up at least half of the payload is not
    // copied: its place in the payload, to be taken over by the caller.
    bool largeString(std::size_t& offset, std::size_t& length)
    {
        expect(m_reader.isString() || m_reader.isByteArray(), "a string");
        if (!m_reader.isLengthKnown() || m_reader.length() < m_size / 2)
            return false;
        const auto [start, size] = definiteStringPlace();
        charge(stringHeapBytes(m_size));
        skipString();
        offset = start;
        length = size;
        return true;
    }

    // What the decoded content took so far, beyond its fixed part.
    std::size_t decodedBytes() const { return m_decoded; }

    std::int64_t integer(std::int64_t minimum, std::int64_t maximum)
    {
        expect(m_reader.isInteger(), "an integer");
        bool inRange = false;
        std::int64_t value = 0;
        if (m_reader.isUnsignedInteger()) {
            const quint64 magnitude = m_reader.toUnsignedInteger();
            inRange = magnitude <= static_cast<quint64>(maximum);
            value = static_cast<std::int64_t>(magnitude);
        } else {
            // -1 - n arrives as n + 1, which wraps to 0 for the most negative value.
            const quint64 magnitude = quint64(m_reader.toNegativeInteger());
            inRange = magnitude != 0 && magnitude - 1 <= static_cast<quint64>(-(minimum + 1));
            value = -static_cast<std::int64_t>(magnitude - 1) - 1;
        }
        if (!inRange)
            fail("is out of range (" + std::to_string(minimum) + " to " + std::to_string(maximum) +
                 ")");
        advance();
        return value;
    }

    int int32()
    {
        return static_cast<int>(
            integer(std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    }

    double number()
    {
        double value = 0.0;
        if (m_reader.isDouble())
            value = m_reader.toDouble();
        else if (m_reader.isFloat())
            value = static_cast<double>(m_reader.toFloat());
        else if (m_reader.isFloat16())
            value = static_cast<double>(float(m_reader.toFloat16()));
        else if (m_reader.isInteger())
            return static_cast<double>(integer(std::numeric_limits<std::int64_t>::min(),
                                               std::numeric_limits<std::int64_t>::max()));
        else
            expect(false, "a number");
        advance();
        return value;
    }

    bool isNull() const { return m_reader.isNull(); }

    // Steps over a value of a field this side does not know. Not with
    // QCborStreamReader::next(): it copies strings to step over them, after
    // allocating what their length claims.
    void skip(int depth = 0)
    {
        checkReader();
        if (depth > kMaxSkipDepth)
            fail("nests deeper than " + std::to_string(kMaxSkipDepth) + " levels");
        if (m_reader.isString() || m_reader.isByteArray()) {
            skipString();
        } else if (m_reader.isArray() || m_reader.isMap()) {
            if (!m_reader.enterContainer())
                checkReader();
            while (m_reader.hasNext())
                skip(depth + 1);
            leave();
        } else if (m_reader.isTag()) {
            advance();
            skip(depth + 1);
        } else {
            if (m_reader.type() == QCborStreamReader::Invalid)
                fail("is missing: the data ends early");
            advance();
        }
    }

    // The payload is one item: anything after it is an error.
    void finish()
    {
        checkReader();
        const auto offset = static_cast<std::size_t>(m_reader.currentOffset());
        if (offset != m_size)
            throw DecodeError("the payload has " + std::to_string(m_size - offset) +
                              " more bytes after its CBOR item");
    }

    // Counts memory the decoded content is about to take; a payload that
    // would take more than its allowance is refused before it is allocated.
    void charge(std::size_t bytes)
    {
        if (bytes > m_allowance - m_decoded)
            fail("would make the decoded message larger than " + std::to_string(m_allowance) +
                 " bytes (" + std::to_string(kDecodedPerPayloadByte) +
                 " times its payload plus 1 MiB)");
        m_decoded += bytes;
    }

    [[noreturn]] void fail(const std::string& what) const
    {
        if (m_path.empty())
            throw DecodeError("the payload " + what);
        std::string path;
        for (const std::string& part : m_path)
            path += (path.empty() || part[0] == '[') ? part : "." + part;
        throw DecodeError("field '" + path + "' " + what);
    }

private:
    void expect(bool ok, const char* wanted) const
    {
        if (!ok) {
            checkReader();
            fail(std::string("must be ") + wanted + " (found " + typeName(m_reader.type()) + ")");
        }
    }

    void checkReader() const
    {
        const QCborError error = m_reader.lastError();
        if (error.c != QCborError::NoError)
            throw DecodeError("the CBOR data is malformed at byte " +
                              std::to_string(m_reader.currentOffset()) + ": " +
                              error.toString().toStdString());
    }

    void advance()
    {
        m_reader.next();
        checkReader();
    }

    void leave()
    {
        checkReader();
        if (!m_reader.leaveContainer())
            checkReader();
    }

    // Text and byte strings alike, definite or in chunks. A chunk's claimed size
    // is checked against the bytes that are left before anything is allocated.
    std::string rawString()
    {
        if (m_reader.isLengthKnown())
            return definiteString();
        std::string value;
        for (;;) {
            const qsizetype chunk = m_reader.currentStringChunkSize();
            if (chunk < 0) {
                checkReader();
                fail("is a malformed string");
            }
            const std::size_t left = m_size - static_cast<std::size_t>(m_reader.currentOffset());
            if (static_cast<std::size_t>(chunk) > left)
                fail("claims " + std::to_string(chunk) + " bytes, more than the " +
                     std::to_string(left) + " left in the payload");
            const std::size_t old = value.size();
            const std::size_t needed = old + static_cast<std::size_t>(chunk);
            if (needed > value.capacity()) {
                const std::size_t capacity = std::max(needed, 2 * value.capacity());
                charge(stringHeapBytes(capacity) - stringHeapBytes(value.capacity()));
                value.reserve(capacity);
            }
            value.resize(needed);
            const auto result = m_reader.readStringChunk(value.data() + old, chunk);
            if (result.status == QCborStreamReader::Error) {
                checkReader();
                fail("is a malformed string");
            }
            if (result.status == QCborStreamReader::EndOfString)
                return value;
        }
    }

    // QCborStreamReader::next() copies a string to step over it; reading its
    // chunks into no room at all steps over them without copying.
    void skipString()
    {
        char none;
        for (;;) {
            const qsizetype chunk = m_reader.currentStringChunkSize();
            if (chunk < 0) {
                checkReader();
                fail("is a malformed string");
            }
            const std::size_t left = m_size - static_cast<std::size_t>(m_reader.currentOffset());
            if (static_cast<std::size_t>(chunk) > left)
                fail("claims " + std::to_string(chunk) + " bytes, more than the " +
                     std::to_string(left) + " left in the payload");
            const auto result = m_reader.readStringChunk(&none, 0);
            if (result.status == QCborStreamReader::Error) {
                checkReader();
                fail("is a malformed string");
            }
            if (result.status == QCborStreamReader::EndOfString) {
                checkReader();
                return;
            }
        }
    }

    std::size_t bytesLeft() const
    {
        return m_size - std::min(m_size, static_cast<std::size_t>(m_reader.currentOffset()));
    }

    // Where the bytes of the definite string at hand are in the payload.
    std::pair<std::size_t, std::size_t> definiteStringPlace()
    {
        const auto offset = static_cast<std::size_t>(m_reader.currentOffset());
        const quint64 length = m_reader.length();
        const unsigned info = static_cast<unsigned char>(m_data[offset]) & 0x1f;
        const std::size_t head = info < 24    ? 1
                                 : info == 24 ? 2
                                 : info == 25 ? 3
                                 : info == 26 ? 5
                                              : 9;
        const std::size_t left = m_size - offset - std::min(head, m_size - offset);
        if (length > left)
            fail("claims " + std::to_string(length) + " bytes, more than the " +
                 std::to_string(left) + " left in the payload");
        return {offset + head, static_cast<std::size_t>(length)};
    }

    // A string of known length is taken straight from the payload: one copy
    // into memory that is not first cleared.
    std::string definiteString()
    {
        const auto [offset, length] = definiteStringPlace();
        charge(stringHeapBytes(length));
        std::string value;
        value.reserve(length);
        value.append(m_data + offset, length);
        skipString();
        return value;
    }

    const char* m_data;
    std::size_t m_size;
    const std::size_t m_allowance;
    std::size_t m_decoded = 0;
    mutable QCborStreamReader m_reader;
    std::vector<std::string> m_path;
};

void writeString(FrameEncoder& out, std::string_view key, const std::string& value)
{
    out.text(key);
    out.bytes(value);
}

void writeInteger(FrameEncoder& out, std::string_view key, std::int64_t value)
{
    out.text(key);
    out.integer(value);
}

void writeNumber(FrameEncoder& out, std::string_view key, double value)
{
    out.text(key);
    out.number(value);
}

void writeDocument(FrameEncoder& out, const DocumentContent& document)
{
    out.beginMap(5);
    writeString(out, "label", document.label);
    writeString(out, "name", document.name);
    writeString(out, "path", document.path);
    out.text("regions");
    out.beginArray(document.regions.size());
    for (const RegionContent& region : document.regions) {
        out.beginMap(4);
        writeString(out, "name", region.name);
        writeString(out, "netlist", region.netlist);
        writeString(out, "egs", region.egs);
        out.text("ports");
        out.beginArray(region.ports.size());
        for (const PortContent& port : region.ports) {
            out.beginMap(8);
            writeString(out, "name", port.name);
            writeInteger(out, "enabled", port.enabled);
            writeInteger(out, "type", port.type);
            writeString(out, "label", port.label);
            writeString(out, "note", port.note);
            writeNumber(out, "value", port.value);
            writeNumber(out, "x", port.x);
            writeNumber(out, "y", port.y);
        }
    }
    out.text("port_types");
    out.beginArray(document.portTypes.size());
    for (const PortTypeContent& type : document.portTypes) {
        out.beginMap(3);
        writeInteger(out, "id", type.id);
        writeInteger(out, "flag", type.flag);
        writeString(out, "name", type.name);
    }
}

PortContent readPort(PayloadReader& in)
{
    PortContent port;
    in.map([&](const std::string& key) {
        if (key == "name")
            port.name = in.string();
        else if (key == "enabled")
            port.enabled = in.int32();
        else if (key == "type")
            port.type = in.int32();
        else if (key == "label")
            port.label = in.string();
        else if (key == "note")
            port.note = in.string();
        else if (key == "value")
            port.value = in.number();
        else if (key == "x")
            port.x = in.number();
        else if (key == "y")
            port.y = in.number();
        else
            in.skip();
    });
    return port;
}

RegionContent readRegion(PayloadReader& in)
{
    RegionContent region;
    in.map([&](const std::string& key) {
        if (key == "name")
            region.name = in.string();
        else if (key == "netlist")
            region.netlist = in.string();
        else if (key == "egs")
            region.egs = in.string();
        else if (key == "ports")
            in.arrayInto(region.ports, [&] { return readPort(in); });
        else
            in.skip();
    });
    return region;
}

PortTypeContent readPortType(PayloadReader& in)
{
    PortTypeContent type;
    in.map([&](const std::string& key) {
        if (key == "id")
            type.id = in.int32();
        else if (key == "flag")
            type.flag = in.int32();
        else if (key == "name")
            type.name = in.string();
        else
            in.skip();
    });
    return type;
}

DocumentContent readDocument(PayloadReader& in)
{
    DocumentContent document;
    in.map([&](const std::string& key) {
        if (key == "label")
            document.label = in.string();
        else if (key == "name")
            document.name = in.string();
        else if (key == "path")
            document.path = in.string();
        else if (key == "regions")
            in.arrayInto(document.regions, [&] { return readRegion(in); });
        else if (key == "port_types")
            in.arrayInto(document.portTypes, [&] { return readPortType(in); });
        else
            in.skip();
    });
    return document;
}

} // namespace

FrameEncoder encodeHello(const Hello& hello)
{
    FrameEncoder out(FrameType::Hello);
    out.beginMap(2);
    out.text("app");
    out.text(hello.app);
    writeInteger(out, "protocol", hello.protocol);
    return out;
}

FrameEncoder encodeWelcome(const Welcome& welcome)
{
    FrameEncoder out(FrameType::Welcome);
    out.beginMap(5);
    writeInteger(out, "number", welcome.number);
    writeInteger(out, "protocol", welcome.protocol);
    out.text("library");
    out.text(welcome.library);
    out.text("machine");
    out.text(welcome.machine);
    writeInteger(out, "frame_limit", welcome.frameLimit);
    return out;
}

FrameEncoder encodeClose(const std::string& reason)
{
    FrameEncoder out(FrameType::Close);
    out.beginMap(1);
    out.text("reason");
    out.text(reason);
    return out;
}

FrameEncoder encodeMessage(const MessageContent& content)
{
    FrameEncoder out(FrameType::Message);
    out.beginMap(content.document ? 4 : 3);
    writeInteger(out, "kind", content.kind);
    out.text("properties");
    out.beginArray(content.properties.size());
    for (const auto& [name, value] : content.properties) {
        out.beginArray(2);
        out.bytes(name);
        out.bytes(value);
    }
    writeString(out, "text", content.text);
    if (content.document) {
        out.text("document");
        writeDocument(out, *content.document);
    }
    return out;
}

Hello decodeHello(const char* payload, std::size_t size)
{
    PayloadReader in(payload, size);
    Hello hello;
    bool haveApp = false;
    bool haveProtocol = false;
    in.map([&](const std::string& key) {
        if (key == "app") {
            hello.app = in.string();
            haveApp = true;
        } else if (key == "protocol") {
            hello.protocol = in.int32();
            haveProtocol = true;
        } else
            in.skip();
    });
    in.finish();
    if (!haveApp || hello.app.empty())
        throw DecodeError("the announcement names no application ('app')");
    if (hello.app.size() > 256)
        throw DecodeError("the announced application name is longer than 256 bytes");
    if (!haveProtocol)
        throw DecodeError("the announcement gives no protocol version ('protocol')");
    return hello;
}

Welcome decodeWelcome(const char* payload, std::size_t size)
{
    PayloadReader in(payload, size);
    Welcome welcome;
    bool haveNumber = false;
    in.map([&](const std::string& key) {
        if (key == "number") {
            welcome.number = in.int32();
            haveNumber = true;
        } else if (key == "protocol")
            welcome.protocol = in.int32();
        else if (key == "library")
            welcome.library = in.string();
        else if (key == "machine")
            welcome.machine = in.string();
        else if (key == "frame_limit")
            welcome.frameLimit = static_cast<std::uint32_t>(in.integer(0, 0xffffffffLL));
        else
            in.skip();
    });
    in.finish();
    if (!haveNumber)
        throw DecodeError("the welcome gives no peer number ('number')");
    return welcome;
}

std::string decodeClose(const char* payload, std::size_t size)
{
    PayloadReader in(payload, size);
    std::string reason;
    in.map([&](const std::string& key) {
        if (key == "reason")
            reason = in.string();
        else
            in.skip();
    });
    in.finish();
    return reason;
}

namespace {

// The message in `in`; with a `donor` (the payload's own buffer), a large
// text body becomes the message's text in that buffer instead of a copy.
MessageContent readMessage(PayloadReader& in, std::string* donor, std::size_t* decodedBytes)
{
    MessageContent content;
    bool haveKind = false;
    std::size_t textOffset = 0;
    std::size_t textLength = 0;
    bool textInPlace = false;
    in.map([&](const std::string& key) {
        if (key == "kind") {
            content.kind = in.int32();
            haveKind = true;
        } else if (key == "properties") {
            in.arrayInto(content.properties, [&] {
                std::string name;
                std::string value;
                std::size_t count = 0;
                in.array([&] {
                    if (count == 0)
                        name = in.string();
                    else if (count == 1)
                        value = in.string();
                    else
                        in.fail("must hold a name and a value, nothing more");
                    ++count;
                });
                if (count != 2)
                    in.fail("must hold a name and a value");
                return std::make_pair(std::move(name), std::move(value));
            });
        } else if (key == "text") {
            textInPlace = donor && in.largeString(textOffset, textLength);
            content.text = textInPlace ? std::string() : in.string();
        } else if (key == "document") {
            if (in.isNull()) {
                in.skip();
                content.document.reset();
            } else {
                content.document = readDocument(in);
            }
        } else
            in.skip();
    });
    in.finish();
    if (!haveKind)
        throw DecodeError("the message has no event kind ('kind')");
    if (textInPlace) {
        // Moves the body to the front of its buffer: no second copy of it.
        donor->erase(0, textOffset);
        donor->resize(textLength);
        content.text = std::move(*donor);
    }
    if (decodedBytes)
        *decodedBytes = sizeof(MessageContent) + in.decodedBytes();
    return content;
}

} // namespace

MessageContent decodeMessage(const char* payload, std::size_t size, std::size_t* decodedBytes)
{
    PayloadReader in(payload, size);
    return readMessage(in, nullptr, decodedBytes);
}

MessageContent decodeMessage(std::string&& payload, std::size_t* decodedBytes)
{
    std::string buffer = std::move(payload);
    PayloadReader in(buffer.data(), buffer.size());
    // Whatever is not taken over is given back on return.
    return readMessage(in, &buffer, decodedBytes);
}

} // namespace RFMsgExp::Wire
