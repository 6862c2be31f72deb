#pragma once
// The peers connected to a bridge.

#include "rfmsg/msgstring.h"
#include "rfmsg/xobject.h"

namespace RFMsgExp {

class RFMSG_EXPORT IXUser : public IXObject
{
public:
    // The application name the peer announced ("DXD", "BSXE", ...).
    virtual msgString GetAppName() = 0;
    // The peer's number: 1, 2, ... in order of connection to this bridge.
    virtual int GetNumber() = 0;
};

class RFMSG_EXPORT IXSetUsers : public IXObject
{
public:
    virtual int Count() = 0;
    virtual msg_auto_ptr<IXUser> GetItem(int index) = 0;
};

} // namespace RFMsgExp
