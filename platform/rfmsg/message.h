#pragma once
// Messages and their parts. Every Get… that returns a msg_auto_ptr hands out a
// new object that the caller owns.

#include "rfmsg/msgstring.h"
#include "rfmsg/xobject.h"

namespace RFMsgExp {

class RFMSG_EXPORT IRFPosition : public IXObject
{
public:
    virtual double GetX() = 0;
    virtual double GetY() = 0;
};

class RFMSG_EXPORT IRFPort : public IXObject
{
public:
    virtual msgString GetName() = 0;
    virtual int GetEnabled() = 0;
    virtual int GetType() = 0;
    virtual msgString GetLabel() = 0;
    virtual msgString GetNote() = 0;
    virtual double GetValue() = 0;
    virtual msg_auto_ptr<IRFPosition> GetPosition() = 0;
};

class RFMSG_EXPORT IRFPortList : public IXObject
{
public:
    virtual int Count() = 0;
    virtual msg_auto_ptr<IRFPort> GetItem(int index) = 0;
};

class RFMSG_EXPORT IRFRegion : public IXObject
{
public:
    virtual msgString GetName() = 0;
    virtual msg_auto_ptr<IRFPortList> GetPorts() = 0;
};

class RFMSG_EXPORT IRFRegionList : public IXObject
{
public:
    virtual int Count() = 0;
    virtual msg_auto_ptr<IRFRegion> GetItem(int index) = 0;
};

class RFMSG_EXPORT IRFPortType : public IXObject
{
public:
    virtual int GetId() = 0;
    virtual int GetFlag() = 0;
    virtual msgString GetTypeName() = 0;
};

class RFMSG_EXPORT IRFPortTypeList : public IXObject
{
public:
    virtual int Count() = 0;
    virtual msg_auto_ptr<IRFPortType> GetItem(int index) = 0;
};

class RFMSG_EXPORT IRFDocument : public IXObject
{
public:
    virtual msgString GetDesignLabel() = 0;
    virtual msgString GetDesignName() = 0;
    virtual msgString GetDesignPath() = 0;
    virtual msg_auto_ptr<IRFRegionList> GetRegions() = 0;
    virtual msg_auto_ptr<IRFPortTypeList> GetPortTypes() = 0;
};

// Named text properties, in the order they were first set.
class RFMSG_EXPORT IRFPropertyList : public IXObject
{
public:
    // Replaces the value of an existing name in place, else appends.
    virtual void SetProperty(const msgString& name, const msgString& value) = 0;
    virtual int Count() = 0;
    virtual msgString GetName(int index) = 0;
    virtual msgString GetValue(int index) = 0;
};

class RFMSG_EXPORT IRFMessage : public IXObject
{
public:
    static msg_auto_ptr<IRFMessage> Create();

    virtual int GetKind() = 0;
    virtual void SetKind(int kind) = 0;
    // Stamps the message for sending (the library's own bookkeeping).
    virtual void Prepare() = 0;
    // A view of the message's own properties: changes through it change the message.
    virtual msg_auto_ptr<IRFPropertyList> GetProperties() = 0;
    virtual msgString GetText() = 0;
    virtual void SetText(const msgString& text) = 0;
    // Null when the message carries no document.
    virtual msg_auto_ptr<IRFDocument> GetDocument() = 0;
    // The text of the region of that name in the document; empty when none.
    virtual msgString GetNetlistText(const msgString& regionName) = 0;
    virtual msgString GetEgsText(const msgString& regionName) = 0;
};

} // namespace RFMsgExp
