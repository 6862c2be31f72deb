#include "rfmsg/message.h"

#include <memory>

#include "rfmsg/messageaccess.h"
#include "rfmsg/messagecontent.h"
#include "rfmsg/objectcount.h"
#include "rfmsg/testing.h"
#include "rfmsg/xexception.h"

namespace RFMsgExp {
namespace Internal {

std::atomic<long>& ObjectCount::live()
{
    static std::atomic<long> count{0};
    return count;
}

std::atomic<long>& ObjectCount::created()
{
    static std::atomic<long> count{0};
    return count;
}

namespace {

// Parts of a message keep the message's content alive, so they stay valid
// after the message itself was destroyed.
using SharedContent = std::shared_ptr<MessageContent>;

class Position final : public Counted<IRFPosition>
{
public:
    Position(double x, double y) : m_x(x), m_y(y) {}
    double GetX() override { return m_x; }
    double GetY() override { return m_y; }

private:
    double m_x;
    double m_y;
};

class Port final : public Counted<IRFPort>
{
public:
    Port(SharedContent content, const PortContent& port)
        : m_content(std::move(content)), m_port(port)
    {
    }
    msgString GetName() override { return m_port.name; }
    int GetEnabled() override { return m_port.enabled; }
    int GetType() override { return m_port.type; }
    msgString GetLabel() override { return m_port.label; }
    msgString GetNote() override { return m_port.note; }
    double GetValue() override { return m_port.value; }
    msg_auto_ptr<IRFPosition> GetPosition() override
    {
        return msg_auto_ptr<IRFPosition>(new Position(m_port.x, m_port.y));
    }

private:
    SharedContent m_content;
    const PortContent& m_port;
};

class PortList final : public Counted<IRFPortList>
{
public:
    PortList(SharedContent content, const RegionContent& region)
        : m_content(std::move(content)), m_region(region)
    {
    }
    int Count() override { return static_cast<int>(m_region.ports.size()); }
    msg_auto_ptr<IRFPort> GetItem(int index) override
    {
        if (index < 0 || index >= Count())
            throw IXException::Create("port index out of range");
        return msg_auto_ptr<IRFPort>(
            new Port(m_content, m_region.ports[static_cast<std::size_t>(index)]));
    }

private:
    SharedContent m_content;
    const RegionContent& m_region;
};

class Region final : public Counted<IRFRegion>
{
public:
    Region(SharedContent content, const RegionContent& region)
        : m_content(std::move(content)), m_region(region)
    {
    }
    msgString GetName() override { return m_region.name; }
    msg_auto_ptr<IRFPortList> GetPorts() override
    {
        return msg_auto_ptr<IRFPortList>(new PortList(m_content, m_region));
    }

private:
    SharedContent m_content;
    const RegionContent& m_region;
};

class RegionList final : public Counted<IRFRegionList>
{
public:
    explicit RegionList(SharedContent content) : m_content(std::move(content)) {}
    int Count() override { return static_cast<int>(m_content->document->regions.size()); }
    msg_auto_ptr<IRFRegion> GetItem(int index) override
    {
        if (index < 0 || index >= Count())
            throw IXException::Create("region index out of range");
        return msg_auto_ptr<IRFRegion>(
            new Region(m_content, m_content->document->regions[static_cast<std::size_t>(index)]));
    }

private:
    SharedContent m_content;
};

class PortType final : public Counted<IRFPortType>
{
public:
    explicit PortType(const PortTypeContent& type) : m_type(type) {}
    int GetId() override { return m_type.id; }
    int GetFlag() override { return m_type.flag; }
    msgString GetTypeName() override { return m_type.name; }

private:
    PortTypeContent m_type;
};

class PortTypeList final : public Counted<IRFPortTypeList>
{
public:
    explicit PortTypeList(SharedContent content) : m_content(std::move(content)) {}
    int Count() override { return static_cast<int>(m_content->document->portTypes.size()); }
    msg_auto_ptr<IRFPortType> GetItem(int index) override
    {
        if (index < 0 || index >= Count())
            throw IXException::Create("port type index out of range");
        return msg_auto_ptr<IRFPortType>(
            new PortType(m_content->document->portTypes[static_cast<std::size_t>(index)]));
    }

private:
    SharedContent m_content;
};

class Document final : public Counted<IRFDocument>
{
public:
    explicit Document(SharedContent content) : m_content(std::move(content)) {}
    msgString GetDesignLabel() override { return m_content->document->label; }
    msgString GetDesignName() override { return m_content->document->name; }
    msgString GetDesignPath() override { return m_content->document->path; }
    msg_auto_ptr<IRFRegionList> GetRegions() override
    {
        return msg_auto_ptr<IRFRegionList>(new RegionList(m_content));
    }
    msg_auto_ptr<IRFPortTypeList> GetPortTypes() override
    {
        return msg_auto_ptr<IRFPortTypeList>(new PortTypeList(m_content));
    }

private:
    SharedContent m_content;
};

class PropertyList final : public Counted<IRFPropertyList>
{
public:
    explicit PropertyList(SharedContent content) : m_content(std::move(content)) {}
    void SetProperty(const msgString& name, const msgString& value) override
    {
        for (auto& property : m_content->properties) {
            if (property.first == name.str()) {
                property.second = value.str();
                return;
            }
        }
        m_content->properties.emplace_back(name.str(), value.str());
    }
    int Count() override { return static_cast<int>(m_content->properties.size()); }
    msgString GetName(int index) override { return at(index).first; }
    msgString GetValue(int index) override { return at(index).second; }

private:
    const std::pair<std::string, std::string>& at(int index)
    {
        if (index < 0 || index >= Count())
            throw IXException::Create("property index out of range");
        return m_content->properties[static_cast<std::size_t>(index)];
    }
    SharedContent m_content;
};

const RegionContent* findRegion(const MessageContent& content, const std::string& name)
{
    if (!content.document)
        return nullptr;
    for (const RegionContent& region : content.document->regions)
        if (region.name == name)
            return &region;
    return nullptr;
}

class Message final : public Counted<IRFMessage>
{
public:
    explicit Message(MessageContent content)
        : m_content(std::make_shared<MessageContent>(std::move(content)))
    {
    }
    const MessageContent& content()
    {
        // The text comes back from where GetText() lent it: taken back when
        // nobody holds it any more, else copied.
        if (m_lentText) {
            m_content->text = m_lentText.use_count() == 1 ? std::move(*m_lentText) : *m_lentText;
            m_lentText.reset();
        }
        return *m_content;
    }

    int GetKind() override { return m_content->kind; }
    void SetKind(int kind) override { m_content->kind = kind; }
    void Prepare() override
    {
        if (m_content->prepareCalls++ == 0)
            m_content->propertiesAtPrepare = static_cast<int>(m_content->properties.size());
    }
    msg_auto_ptr<IRFPropertyList> GetProperties() override
    {
        return msg_auto_ptr<IRFPropertyList>(new PropertyList(m_content));
    }
    // A body may be hundreds of MB: it is lent, not copied. What was lent
    // never changes; SetText and content() take the text back first.
    msgString GetText() override
    {
        if (!m_lentText)
            m_lentText = std::make_shared<std::string>(std::move(m_content->text));
        return Internal::sharedString(m_lentText);
    }
    void SetText(const msgString& text) override
    {
        m_lentText.reset();
        m_content->text = text.str();
    }
    msg_auto_ptr<IRFDocument> GetDocument() override
    {
        if (!m_content->document)
            return msg_auto_ptr<IRFDocument>();
        return msg_auto_ptr<IRFDocument>(new Document(m_content));
    }
    msgString GetNetlistText(const msgString& regionName) override
    {
        const RegionContent* region = findRegion(*m_content, regionName.str());
        return region ? region->netlist : std::string();
    }
    msgString GetEgsText(const msgString& regionName) override
    {
        const RegionContent* region = findRegion(*m_content, regionName.str());
        return region ? region->egs : std::string();
    }

private:
    SharedContent m_content;
    // The text while GetText() has lent it out (m_content->text is then empty).
    std::shared_ptr<std::string> m_lentText;
};

class Exception final : public Counted<IXException>
{
public:
    explicit Exception(const msgString& info) : m_info(info) {}
    const msgString& GetInfo() const override { return m_info; }

private:
    msgString m_info;
};

} // namespace

msg_auto_ptr<IRFMessage> adoptContent(MessageContent&& content)
{
    return msg_auto_ptr<IRFMessage>(new Message(std::move(content)));
}

const MessageContent& contentView(IRFMessage& message)
{
    // Every message of this library is an Internal::Message.
    return static_cast<Message&>(message).content();
}

} // namespace Internal

msg_auto_ptr<IRFMessage> IRFMessage::Create()
{
    return msg_auto_ptr<IRFMessage>(new Internal::Message(MessageContent()));
}

IXException* IXException::Create(const msgString& info)
{
    return new Internal::Exception(info);
}

namespace Testing {

msg_auto_ptr<IRFMessage> makeMessage(const MessageContent& content)
{
    return msg_auto_ptr<IRFMessage>(new Internal::Message(content));
}

MessageContent contentOf(IRFMessage& message)
{
    return Internal::contentView(message);
}

long liveObjects()
{
    return Internal::ObjectCount::live().load();
}
long createdObjects()
{
    return Internal::ObjectCount::created().load();
}

} // namespace Testing
} // namespace RFMsgExp
